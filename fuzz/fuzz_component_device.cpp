// SPDX-License-Identifier: LGPL-2.1-or-later

// A channel of the reference component between a virtual machine and a USB device that both mean harm.
//
// An input: the greeting of the virtual machine, then steps. Numbers come from the input's end, bytes from its start.

#include "deliver.h"
#include "emulatedusb.h"
#include "logging.h"
#include "target.h"

#include <fuzzer/FuzzedDataProvider.h>
#include <sanitizer/asan_interface.h>
#include <usbredirproto.h>

#include <algorithm>
#include <cstring>

Q_LOGGING_CATEGORY(logComponent, "devredir.component", QtWarningMsg)

namespace {

constexpr int MostSteps = 300;
constexpr int NoEndpoint = -1;

struct MessageType
{
    uint32_t number;
    std::size_t headerSize;
    int endpointAt; ///< offset of the endpoint's number in the header
};

// What a virtual machine may send.
constexpr MessageType MessageTypes[] = {
    {usb_redir_hello, sizeof(usb_redir_hello_header), NoEndpoint},
    {usb_redir_reset, 0, NoEndpoint},
    {usb_redir_set_configuration, sizeof(usb_redir_set_configuration_header), NoEndpoint},
    {usb_redir_get_configuration, 0, NoEndpoint},
    {usb_redir_set_alt_setting, sizeof(usb_redir_set_alt_setting_header), NoEndpoint},
    {usb_redir_get_alt_setting, sizeof(usb_redir_get_alt_setting_header), NoEndpoint},
    {usb_redir_start_iso_stream, sizeof(usb_redir_start_iso_stream_header), 0},
    {usb_redir_stop_iso_stream, sizeof(usb_redir_stop_iso_stream_header), 0},
    {usb_redir_start_interrupt_receiving, sizeof(usb_redir_start_interrupt_receiving_header), 0},
    {usb_redir_stop_interrupt_receiving, sizeof(usb_redir_stop_interrupt_receiving_header), 0},
    {usb_redir_alloc_bulk_streams, sizeof(usb_redir_alloc_bulk_streams_header), NoEndpoint},
    {usb_redir_free_bulk_streams, sizeof(usb_redir_free_bulk_streams_header), NoEndpoint},
    {usb_redir_cancel_data_packet, 0, NoEndpoint},
    {usb_redir_filter_reject, 0, NoEndpoint},
    {usb_redir_filter_filter, 0, NoEndpoint},
    {usb_redir_device_disconnect_ack, 0, NoEndpoint},
    {usb_redir_start_bulk_receiving, sizeof(usb_redir_start_bulk_receiving_header), 8},
    {usb_redir_stop_bulk_receiving, sizeof(usb_redir_stop_bulk_receiving_header), 4},
    {usb_redir_control_packet, sizeof(usb_redir_control_packet_header), 0},
    {usb_redir_bulk_packet, sizeof(usb_redir_bulk_packet_header), 0},
    {usb_redir_iso_packet, sizeof(usb_redir_iso_packet_header), 0},
    {usb_redir_interrupt_packet, sizeof(usb_redir_interrupt_packet_header), 0},
};

// What is sent counts as coverage, by its type: usbredirhost itself is not built for the fuzzer.
__attribute__((section("__libfuzzer_extra_counters"))) uint8_t sentTypes[usb_redir_buffered_bulk_packet + 1];

int send(void *, char *message, int length)
{
    expect(!__asan_region_is_poisoned(message, std::size_t(length)), "what is sent is that long");
    const uint8_t type = uint8_t(message[0]);
    expect(type < sizeof sentTypes, "what is sent has a type");
    ++sentTypes[type];
    return length;
}

int askedFor = 0; ///< how much waits

class Scene
{
public:
    explicit Scene(FuzzedDataProvider &input)
        : m_input(input), m_channel(QStringLiteral("org.devredir.usb.0"), send, std::chrono::milliseconds(0))
    {
        askedFor = 0;
        open();
    }

    ~Scene()
    {
        m_channel.close();
        EmulatedUsb::expectTidy();
    }

    void step()
    {
        switch (m_input.ConsumeIntegralInRange(0, 9)) {
        case 0:
            post(m_input.ConsumeRandomLengthString(64));
            break;
        case 1:
            connect();
            break;
        case 2:
            m_channel.disconnectDevice();
            break;
        case 3:
            EmulatedUsb::unplug();
            break;
        case 4:
            EmulatedUsb::failAfter(m_input.ConsumeIntegralInRange(0u, 8u), anyError());
            break;
        case 5:
            open();
            break;
        case 6:
        case 7:
            complete();
            break;
        default:
            post(message());
        }
        m_channel.flush();
        expect(!m_channel.statistics().toJson().isEmpty(), "it can be told what was transferred");
    }

private:
    void open()
    {
        m_channel.open(nullptr);
        expect(m_channel.isOpen() && m_channel.deviceId().isEmpty(), "a channel that is opened again is free");
        const uint32_t capabilities = m_input.ConsumeBool() ? 0xff : m_input.ConsumeIntegral<uint32_t>();
        usb_redir_hello_header greeting{};
        std::strcpy(greeting.version, "peer 1");
        std::string body(reinterpret_cast<const char *>(&greeting), sizeof greeting);
        body.append(reinterpret_cast<const char *>(&capabilities), sizeof capabilities);
        m_longIds = false;
        m_posted.clear();
        arrive(framed(usb_redir_hello, body));
        m_longIds = capabilities & 1u << usb_redir_cap_64bits_ids; // the channel's end knows them
    }

    std::string framed(uint32_t type, const std::string &body)
    {
        const uint64_t id = m_input.ConsumeIntegralInRange(0, 3);
        usb_redir_header header{type, uint32_t(body.size()), id};
        return std::string(reinterpret_cast<const char *>(&header), m_longIds ? 16 : 12) + body;
    }

    std::string message()
    {
        const MessageType &type = m_input.PickValueInArray(MessageTypes);
        std::string head = m_input.ConsumeBytesAsString(type.headerSize);
        head.resize(type.headerSize);
        const std::vector<uint8_t> &endpoints = EmulatedUsb::endpoints();
        if (type.endpointAt != NoEndpoint && !endpoints.empty() && isMostly()) {
            const auto which = m_input.ConsumeIntegralInRange<std::size_t>(0, endpoints.size() - 1);
            head[std::size_t(type.endpointAt)] = char(endpoints[which]);
        }
        const std::string data = dataFor(type.number, head);
        return framed(type.number, head + data);
    }

    // Data, and in the header a length that mostly fits.
    std::string dataFor(uint32_t type, std::string &head)
    {
        if (type == usb_redir_filter_filter)
            return m_input.ConsumeBool() ? std::string("0x08,-1,-1,-1,0", 16) : m_input.ConsumeRandomLengthString(32);
        if (type < usb_redir_control_packet)
            return {};
        const std::size_t lengthAt =
            type == usb_redir_control_packet ? offsetof(usb_redir_control_packet_header, length) : 2;
        const uint16_t longest = m_input.ConsumeBool() ? 2048 : UINT16_MAX;
        const auto length = m_input.ConsumeIntegralInRange<uint16_t>(0, longest);
        std::memcpy(&head[lengthAt], &length, sizeof length);
        if (type == usb_redir_bulk_packet && isMostly())
            std::memset(&head[offsetof(usb_redir_bulk_packet_header, length_high)], 0, sizeof(uint16_t));
        const bool goesOut = !(uint8_t(head[0]) & LIBUSB_ENDPOINT_IN);
        return goesOut == isMostly() ? std::string(length, 'd') : std::string();
    }

    bool isMostly() { return m_input.ConsumeIntegralInRange(0, 7) > 0; }

    void connect()
    {
        if (!m_channel.isOpen() || !m_channel.deviceId().isEmpty())
            return;
        QString error;
        const bool connected = m_channel.connectDevice(QStringLiteral("1-1"), EmulatedUsb::open(anyDevice()), error);
        expect(connected == error.isEmpty(), "a device that is refused is refused for a reason");
        if (!connected)
            EmulatedUsb::expectDrivers();
    }

    EmulatedDevice anyDevice()
    {
        static constexpr int Speeds[] = {LIBUSB_SPEED_UNKNOWN, LIBUSB_SPEED_LOW,   LIBUSB_SPEED_FULL,
                                         LIBUSB_SPEED_HIGH,    LIBUSB_SPEED_SUPER, LIBUSB_SPEED_SUPER_PLUS};
        static constexpr uint16_t PacketSizes[] = {0, 1, 8, 64, 512, 1024, 0x1400, 0xffff};
        EmulatedDevice device;
        device.speed = m_input.PickValueInArray(Speeds);
        device.usbClass = m_input.ConsumeIntegral<uint8_t>();
        const bool isPlain = isMostly();
        const int interfaces = m_input.ConsumeIntegralInRange(0, isPlain ? 3 : 40);
        for (int i = 0; i < interfaces; ++i) {
            std::vector<EmulatedSetting> settings(m_input.ConsumeIntegralInRange<std::size_t>(1, 3));
            for (std::size_t alternate = 0; alternate < settings.size(); ++alternate) {
                EmulatedSetting &setting = settings[alternate];
                setting.interface = isPlain ? uint8_t(i) : m_input.ConsumeIntegral<uint8_t>();
                setting.alternate = isPlain ? uint8_t(alternate) : m_input.ConsumeIntegral<uint8_t>();
                setting.usbClass = m_input.ConsumeIntegral<uint8_t>();
                setting.endpoints.resize(m_input.ConsumeIntegralInRange<std::size_t>(0, 4));
                for (EmulatedEndpoint &endpoint : setting.endpoints) {
                    endpoint.address = m_input.ConsumeIntegral<uint8_t>();
                    if (isPlain)
                        endpoint.address &= 0x8f;
                    endpoint.attributes = m_input.ConsumeIntegralInRange<uint8_t>(0, 3);
                    endpoint.maxPacketSize = m_input.PickValueInArray(PacketSizes);
                    endpoint.interval = m_input.ConsumeIntegral<uint8_t>();
                    endpoint.streams = m_input.ConsumeIntegralInRange(-1, 31);
                }
            }
            device.interfaces.push_back(std::move(settings));
        }
        return device;
    }

    libusb_error anyError()
    {
        return libusb_error(m_input.ConsumeIntegralInRange<int>(LIBUSB_ERROR_NOT_SUPPORTED, LIBUSB_ERROR_IO));
    }

    void complete()
    {
        if (EmulatedUsb::underWay() == 0)
            return;
        const int number = m_input.ConsumeIntegralInRange(0, EmulatedUsb::underWay() - 1);
        const int status = m_input.ConsumeBool()
            ? int(LIBUSB_TRANSFER_COMPLETED)
            : m_input.ConsumeIntegralInRange<int>(LIBUSB_TRANSFER_COMPLETED, LIBUSB_TRANSFER_OVERFLOW);
        EmulatedUsb::complete(number, libusb_transfer_status(status), m_input.ConsumeIntegralInRange(0, 70000));
    }

    // Messages arrive one by one, several at a time, or torn apart.
    void post(const std::string &bytes)
    {
        m_posted += bytes;
        const std::size_t arriving =
            m_input.ConsumeBool() ? m_posted.size() : m_input.ConsumeIntegralInRange<std::size_t>(0, m_posted.size());
        arrive(m_posted.substr(0, arriving));
        m_posted.erase(0, arriving);
    }

    void arrive(const std::string &bytes)
    {
        if (deliver(m_channel, bytes))
            return;
        m_channel.disconnectDevice();
        m_channel.close();
    }

    FuzzedDataProvider &m_input;
    UsbChannel m_channel;
    bool m_longIds = false;
    std::string m_posted;
};

} // namespace

// Now and then so much that isochronous data comes too late.
extern "C" __attribute__((visibility("default"))) std::int64_t devredirectBytesWaiting(const void *)
{
    return ++askedFor % 8 < 4 ? 0 : 1 << 20;
}

int LLVMFuzzerInitialize(int *, char ***)
{
    switchLogOff();
    return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size)
{
    FuzzedDataProvider input(data, size);
    Scene scene(input);
    for (int step = 0; step < MostSteps && input.remaining_bytes() > 0; ++step)
        scene.step();
    return 0;
}
