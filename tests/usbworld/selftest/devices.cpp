// SPDX-License-Identifier: LGPL-2.1-or-later
//
// The devices that are more than a stick.
#include "check.h"
#include "tests.h"
#include "usbclient.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <memory>
#include <string>
#include <thread>

namespace selftest {

namespace {

using Clock = std::chrono::steady_clock;

const char Port[] = "1-5"; // the device of the test; the sticks have the first four

constexpr unsigned char StreamEndpoint = 0x81;
constexpr std::uint16_t StreamInterface = 1;

Handle openAll(libusb_context *context, int interfaces, const char *port = Port)
{
    Handle handle = openDevice(context, port);
    CHECK_EQUAL(libusb_set_auto_detach_kernel_driver(handle.get(), 1), 0);
    for (int i = 0; i < interfaces; ++i)
        CHECK_EQUAL(libusb_claim_interface(handle.get(), i), 0);
    return handle;
}

Bytes readFrom(const Handle &handle, unsigned char endpoint, int room, bool interrupt = false)
{
    Bytes bytes(std::size_t(room), 0);
    int count = 0;
    const auto transfer = interrupt ? libusb_interrupt_transfer : libusb_bulk_transfer;
    CHECK_EQUAL(transfer(handle.get(), endpoint, bytes.data(), room, &count, 5000), 0);
    bytes.resize(std::size_t(count));
    return bytes;
}

std::uint32_t numberAt(const Bytes &bytes, std::size_t at)
{
    std::uint32_t number = 0;
    std::memcpy(&number, bytes.data() + at, sizeof number);
    return number;
}

// --- serial port ---

void echo(const Handle &handle)
{
    constexpr int Size = 65536;
    Bytes sent;
    for (int i = 0; i < Size; ++i)
        sent.push_back(std::uint8_t(i * 7 + i / 256));
    Bytes received;
    for (int at = 0; at < Size; at += 4096) {
        int count = 0;
        CHECK_EQUAL(libusb_bulk_transfer(handle.get(), 0x04, sent.data() + at, 4096, &count, 5000), 0);
        while (received.size() < std::size_t(at) + 4096) {
            const Bytes part = readFrom(handle, 0x83, 1000);
            received.insert(received.end(), part.begin(), part.end());
        }
    }
    CHECK(received == sent);
}

void serialSendsBackWhatItGets()
{
    const Context context = makeContext();
    const Handle handle = openAll(context.get(), 2);
    // The notification waits for as long as there is none, and holds up nobody.
    std::thread notified([&] {
        const Bytes notification = readFrom(handle, 0x85, 16, true);
        CHECK_EQUAL(int(notification[8]), 3);
    });
    echo(handle);
    CHECK_EQUAL(libusb_control_transfer(handle.get(), 0x21, 0x22, 1, 0, nullptr, 0, 1000), 0);
    notified.join();
    std::uint8_t coding[7] = {0x00, 0xc2, 1, 0, 0, 0, 8};
    CHECK_EQUAL(libusb_control_transfer(handle.get(), 0x21, 0x20, 0, 0, coding, 7, 1000), 7);
    std::uint8_t answer[7]{};
    CHECK_EQUAL(libusb_control_transfer(handle.get(), 0xa1, 0x21, 0, 0, answer, 7, 1000), 7);
    CHECK_EQUAL(std::memcmp(coding, answer, 7), 0);
}

void haltedEndpointsWorkAgainOnceCleared()
{
    const Context context = makeContext();
    const Handle handle = openAll(context.get(), 2);
    CHECK_EQUAL(control("tell 1-5 stall"), std::string("ok"));
    std::uint8_t byte = 1;
    int count = 0;
    for (int i = 0; i < 2; ++i)
        CHECK_EQUAL(libusb_bulk_transfer(handle.get(), 0x04, &byte, 1, &count, 1000), int(LIBUSB_ERROR_PIPE));
    CHECK_EQUAL(libusb_clear_halt(handle.get(), 0x04), 0);
    CHECK_EQUAL(libusb_bulk_transfer(handle.get(), 0x04, &byte, 1, &count, 1000), 0);
    CHECK_EQUAL(libusb_bulk_transfer(handle.get(), 0x83, &byte, 1, &count, 1000), int(LIBUSB_ERROR_PIPE));
    CHECK_EQUAL(libusb_reset_device(handle.get()), 0);
    CHECK_EQUAL(libusb_bulk_transfer(handle.get(), 0x83, &byte, 1, &count, 50), int(LIBUSB_ERROR_TIMEOUT));
    echo(handle);
}

// --- keyboard ---

void keyboardTypesWhatItIsTold()
{
    const Context context = makeContext();
    const Handle handle = openAll(context.get(), 1);
    std::uint8_t descriptor[128];
    CHECK_EQUAL(libusb_control_transfer(handle.get(), 0x81, 0x06, 0x2200, 0, descriptor, 128, 1000), 63);
    std::thread typist([] {
        CHECK_EQUAL(control("tell 1-5 ab 1"), std::string("ok"));
        CHECK_EQUAL(control("tell 1-5 Umlaut"), std::string("error it cannot do that"));
    });
    for (const int key : {4, 0, 5, 0, 44, 0, 30, 0}) {
        const Bytes report = readFrom(handle, 0x81, 8, true);
        CHECK_EQUAL(report.size(), std::size_t(8));
        CHECK_EQUAL(int(report[2]), key);
    }
    typist.join();
}

// --- cameras ---

/** Puts frames together from payloads and checks them. A frame may be lost to a packet that nobody waited for. */
class Frames
{
public:
    void add(const std::uint8_t *payload, std::size_t size, bool isPacket)
    {
        CHECK(size >= 12);
        CHECK_EQUAL(int(payload[0]), 12);
        std::uint32_t time = 0; // its packets are a millisecond apart
        std::memcpy(&time, payload + 6, sizeof time);
        m_isDamaged = m_isDamaged || (isPacket && time > 0 && time != m_time + 1000);
        m_time = time;
        m_frame.insert(m_frame.end(), payload + 12, payload + size);
        if (!(payload[1] & 2))
            return;
        if (m_isDamaged)
            ++m_lost;
        else
            check();
        m_isDamaged = false;
        m_frame.clear();
    }
    int count() const { return m_count; }
    int lost() const { return m_lost; }
    std::uint32_t time() const { return m_time; } ///< by the camera's clock, in microseconds since the stream began
    std::uint32_t lastEnd() const { return m_lastEnd; } ///< when the last whole frame ended

private:
    void check()
    {
        const std::size_t head = m_frame[0] == 0xff && m_frame[1] == 0xd8 && m_frame[2] == 0xff ? 6 : 0;
        std::uint32_t sum = 2166136261U;
        std::for_each(m_frame.begin() + std::ptrdiff_t(head) + 4, m_frame.end() - (head > 0 ? 2 : 0),
                      [&sum](std::uint8_t byte) { sum = (sum ^ byte) * 16777619U; });
        CHECK_EQUAL(numberAt(m_frame, head), sum);
        const std::uint32_t number = numberAt(m_frame, head + 4);
        if (m_count > 0) {
            CHECK(number > m_last);
            m_lost += int(number - m_last) - 1;
        }
        m_last = number;
        m_lastEnd = m_time;
        ++m_count;
    }

    Bytes m_frame;
    bool m_isDamaged = false;
    std::uint32_t m_time = 0;
    std::uint32_t m_last = 0;
    std::uint32_t m_lastEnd = 0;
    int m_lost = 0;
    int m_count = 0;
};

/** How many packets nobody waited for until now. */
int missedPackets()
{
    const std::string reply = control("stats 1-5");
    return std::stoi(reply.substr(reply.find("missed=") + 7));
}

struct Choice
{
    std::uint32_t interval; ///< between frames, in microseconds
    std::uint32_t payload; ///< the largest
};

Choice choose(const Handle &handle, std::uint8_t format, std::uint8_t frame)
{
    Bytes probe(34, 0);
    probe[2] = format;
    probe[3] = frame;
    CHECK_EQUAL(libusb_control_transfer(handle.get(), 0x21, 1, 0x100, StreamInterface, probe.data(), 34, 1000), 34);
    CHECK_EQUAL(libusb_control_transfer(handle.get(), 0xa1, 0x81, 0x100, StreamInterface, probe.data(), 34, 1000), 34);
    CHECK_EQUAL(int(probe[2]), int(format));
    CHECK_EQUAL(libusb_control_transfer(handle.get(), 0x21, 1, 0x200, StreamInterface, probe.data(), 34, 1000), 34);
    return {numberAt(probe, 4) / 10, numberAt(probe, 22)};
}

/** Transfers that are submitted again until there are enough frames. */
struct Stream
{
    static constexpr int PacketsOfATransfer = 32;

    Stream(libusb_device_handle *handle, std::uint32_t packetSize)
    {
        for (auto &buffer : buffers) {
            buffer.resize(packetSize * PacketsOfATransfer);
            libusb_transfer *transfer = libusb_alloc_transfer(PacketsOfATransfer);
            libusb_fill_iso_transfer(transfer, handle, StreamEndpoint, buffer.data(), int(buffer.size()),
                                     PacketsOfATransfer, onDone, this, 0);
            libusb_set_iso_packet_lengths(transfer, packetSize);
            CHECK_EQUAL(libusb_submit_transfer(transfer), 0);
            transfers.push_back(transfer);
            ++underWay;
        }
    }
    ~Stream() { std::for_each(transfers.begin(), transfers.end(), libusb_free_transfer); }
    Stream(const Stream &) = delete;
    Stream &operator=(const Stream &) = delete;

    static void LIBUSB_CALL onDone(libusb_transfer *transfer)
    {
        auto *stream = static_cast<Stream *>(transfer->user_data);
        --stream->underWay;
        if (transfer->status != LIBUSB_TRANSFER_COMPLETED) {
            stream->end = transfer->status;
            return;
        }
        for (int i = 0; i < transfer->num_iso_packets; ++i) {
            const libusb_iso_packet_descriptor &packet = transfer->iso_packet_desc[i];
            CHECK_EQUAL(int(packet.status), int(LIBUSB_TRANSFER_COMPLETED));
            stream->frames.add(libusb_get_iso_packet_buffer_simple(transfer, unsigned(i)), packet.actual_length, true);
            ++stream->packets;
        }
        if (stream->again && libusb_submit_transfer(transfer) == 0)
            ++stream->underWay;
    }

    std::vector<libusb_transfer *> transfers;
    std::vector<Bytes> buffers{16};
    Frames frames;
    int packets = 0;
    int underWay = 0;
    bool again = true;
    libusb_transfer_status end = LIBUSB_TRANSFER_COMPLETED; ///< of the last that did not do what it should
};

/** Takes three frames. False: this machine was too busy to ask for all packets in time. */
bool stream(libusb_context *context, const Handle &handle, std::uint8_t format, std::uint8_t frame, int setting)
{
    const Choice choice = choose(handle, format, frame);
    CHECK_EQUAL(choice.payload, 128U << setting); // the smallest that carries the picture
    const int missedBefore = missedPackets();
    const auto began = Clock::now();
    CHECK_EQUAL(libusb_set_interface_alt_setting(handle.get(), StreamInterface, setting), 0);
    Stream running(handle.get(), choice.payload);
    while (running.frames.count() < 3)
        libusb_handle_events(context);
    const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - began).count();
    CHECK(running.packets <= milliseconds + 1); // never before their time
    const bool isWhole = missedPackets() == missedBefore;
    if (isWhole) {
        CHECK_EQUAL(running.frames.lost(), 0);
        CHECK(running.frames.lastEnd() > 2 * choice.interval);
        CHECK(running.frames.lastEnd() < 3 * (choice.interval + 1000));
    }
    // One that is done but not yet reaped is not cancelled.
    CHECK_EVENTUALLY((handleEvents(context), libusb_cancel_transfer(running.transfers[0]) == 0));
    running.again = false;
    CHECK_EVENTUALLY((handleEvents(context), running.end == LIBUSB_TRANSFER_CANCELLED));
    CHECK_EQUAL(libusb_set_interface_alt_setting(handle.get(), StreamInterface, 0), 0);
    CHECK_EVENTUALLY((handleEvents(context), running.underWay == 0));
    return isWhole;
}

void cameraStreamsByTheClock()
{
    const Context context = makeContext();
    const Handle handle = openAll(context.get(), 2);
    const struct
    {
        std::uint8_t format, frame;
        int setting;
    } pictures[] = {{1, 1, 3}, {1, 2, 4}, {2, 1, 1}, {2, 2, 3}};
    for (const auto &picture : pictures) {
        int tries = 1;
        while (!stream(context.get(), handle, picture.format, picture.frame, picture.setting))
            CHECK(++tries <= 5);
    }
}

void packetsThatNobodyAsksForAreLost()
{
    constexpr int Milliseconds = 300;
    const Context context = makeContext();
    const Handle handle = openAll(context.get(), 2);
    const Choice choice = choose(handle, 1, 1);
    CHECK_EQUAL(libusb_set_interface_alt_setting(handle.get(), StreamInterface, 3), 0);
    Stream running(handle.get(), choice.payload);
    running.again = false;
    CHECK_EVENTUALLY((handleEvents(context.get()), running.underWay == 0));
    const std::uint32_t end = running.frames.time();
    const int missedBefore = missedPackets();

    std::this_thread::sleep_for(std::chrono::milliseconds(Milliseconds));
    const auto began = Clock::now();
    Stream later(handle.get(), choice.payload);
    CHECK(missedPackets() >= missedBefore + Milliseconds);
    while (later.packets == 0)
        libusb_handle_events(context.get());
    CHECK(Clock::now() - began > std::chrono::milliseconds(Stream::PacketsOfATransfer - 1)); // not all at once
    CHECK(later.frames.time() >= end + Milliseconds * 1000);
    later.again = false;
    CHECK_EVENTUALLY((handleEvents(context.get()), later.underWay == 0));
}

void bulkCameraStreams()
{
    const Context context = makeContext();
    const Handle handle = openAll(context.get(), 2);
    for (const std::uint8_t format : {1, 2}) {
        const int payload = int(choose(handle, format, 2).payload);
        Frames frames;
        while (frames.count() < 3) {
            const Bytes bytes = readFrom(handle, StreamEndpoint, payload);
            frames.add(bytes.data(), bytes.size(), false);
        }
        CHECK_EQUAL(libusb_clear_halt(handle.get(), StreamEndpoint), 0);
        std::uint8_t byte = 0;
        int count = 0;
        CHECK_EQUAL(libusb_bulk_transfer(handle.get(), StreamEndpoint, &byte, 1, &count, 200),
                    int(LIBUSB_ERROR_TIMEOUT));
    }
}

// --- sticks that are more than that ---

bool isReady(const Handle &handle)
{
    return readCommand(handle.get(), transferBlock(0x28, 0, 1), SectorSize).status == 0;
}

void superSpeedStickSaysSo()
{
    const Context context = makeContext();
    const Handle handle = openAll(context.get(), 1);
    CHECK_EQUAL(libusb_get_device_speed(libusb_get_device(handle.get())), int(LIBUSB_SPEED_SUPER));
    CHECK_EQUAL(libusb_get_max_packet_size(libusb_get_device(handle.get()), 0x81), 1024);
    libusb_bos_descriptor *store = nullptr;
    CHECK_EQUAL(libusb_get_bos_descriptor(handle.get(), &store), 0);
    CHECK_EQUAL(int(store->bNumDeviceCaps), 2);
    libusb_free_bos_descriptor(store);
    CHECK(isReady(handle));
}

void compositeDeviceIsDiskAndSerialPort()
{
    const Context context = makeContext();
    const Handle handle = openAll(context.get(), 3);
    echo(handle);
    CHECK(isReady(handle));
    CHECK_EQUAL(control("driver 1-5"), std::string("ok usbfs"));
}

void cardReaderIsEmptyUntilACardIsPutIn()
{
    const Context context = makeContext();
    const Handle handle = openAll(context.get(), 1);
    const auto sense = [&handle] {
        CHECK(!isReady(handle));
        const Reply reply = readCommand(handle.get(), {0x03, 0, 0, 0, 18, 0}, 18);
        return int(reply.data[2]) << 8 | reply.data[12];
    };
    CHECK_EQUAL(sense(), 0x023a); // no medium
    CHECK_EQUAL(control("tell 1-5 insert"), std::string("ok"));
    CHECK_EQUAL(sense(), 0x0628); // it may have changed
    CHECK(isReady(handle));
    CHECK_EQUAL(control("tell 1-5 eject"), std::string("ok"));
    CHECK_EQUAL(sense(), 0x023a);
}

void deviceHasOtherNumbersAfterAReset()
{
    const Context context = makeContext();
    const auto product = [&context] {
        handleEvents(context.get());
        const Device device = findDevice(context.get(), Port);
        libusb_device_descriptor descriptor{};
        return device && libusb_get_device_descriptor(device.get(), &descriptor) == 0 ? int(descriptor.idProduct) : -1;
    };
    for (int i = 0; i < 2; ++i) {
        CHECK_EVENTUALLY(product() == 5);
        Handle handle = openAll(context.get(), 1);
        CHECK_EQUAL(libusb_reset_device(handle.get()), int(LIBUSB_ERROR_NOT_FOUND));
        handle.reset();
        CHECK_EVENTUALLY(product() == 0x15);
        handle = openAll(context.get(), 1);
        CHECK_EQUAL(libusb_reset_device(handle.get()), 0);
        CHECK(isReady(handle));
        handle.reset();
        CHECK_EQUAL(control("unplug 1-5"), std::string("ok"));
        CHECK_EVENTUALLY(product() == -1);
        CHECK_EQUAL(control("plug 1-5").substr(0, 2), std::string("ok"));
    }
}

} // namespace

const std::vector<Test> DeviceTests = {
    {"serial_sends_back_what_it_gets", serialSendsBackWhatItGets, {"--serial", Port}},
    {"halted_endpoints_work_again_once_cleared", haltedEndpointsWorkAgainOnceCleared, {"--serial", Port}},
    {"keyboard_types_what_it_is_told", keyboardTypesWhatItIsTold, {"--keyboard", Port}},
    {"camera_streams_by_the_clock", cameraStreamsByTheClock, {"--camera", Port}},
    {"packets_that_nobody_asks_for_are_lost", packetsThatNobodyAsksForAreLost, {"--camera", Port}},
    {"bulk_camera_streams", bulkCameraStreams, {"--bulk-camera", Port}},
    {"super_speed_stick_says_so", superSpeedStickSaysSo, {"--stick", "1-5=@,superspeed"}},
    {"composite_device_is_disk_and_serial_port", compositeDeviceIsDiskAndSerialPort, {"--stick", "1-5=@,with-serial"}},
    {"card_reader_is_empty_until_a_card_is_put_in",
     cardReaderIsEmptyUntilACardIsPutIn,
     {"--stick", "1-5=@,card-reader"}},
    {"device_has_other_numbers_after_a_reset",
     deviceHasOtherNumbersAfterAReset,
     {"--stick", "1-5=@,becomes-vid=1209,becomes-pid=15"}},
};

} // namespace selftest
