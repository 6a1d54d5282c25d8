// SPDX-License-Identifier: LGPL-2.1-or-later

// A camera's isochronous stream through a channel of the reference component. Each test runs in a process of its own,
// since the component looks for the library once.

#include "fuzz/emulatedusb.h"
#include "reference/component/logging.h"
#include "reference/component/usbchannel.h"
#include "support/resources.h"
#include "support/waitfor.h"

#include <gtest/gtest.h>

#include <QElapsedTimer>

#include <cstring>

#include <dlfcn.h>
#include <usbredirproto.h>

Q_LOGGING_CATEGORY(logComponent, "devredir.component", QtWarningMsg)

#ifndef __SANITIZE_ADDRESS__ // the emulated device asks it whether buffers are as long as they are said to be
extern "C" void *__asan_region_is_poisoned(void *, std::size_t);
void *__asan_region_is_poisoned(void *, std::size_t)
{
    return nullptr;
}
#endif

namespace {

constexpr uint8_t Endpoint = 0x81;
constexpr uint8_t PacketsOfTransfer = 8;

EmulatedDevice camera()
{
    EmulatedEndpoint endpoint;
    endpoint.address = Endpoint;
    endpoint.attributes = LIBUSB_TRANSFER_TYPE_ISOCHRONOUS;
    endpoint.maxPacketSize = 64;
    endpoint.interval = 1;
    endpoint.streams = -1;
    EmulatedDevice device;
    device.speed = LIBUSB_SPEED_HIGH;
    device.interfaces = {{{0, 0, 0x0e, {endpoint}}}};
    return device;
}

template<typename Body>
std::string message(uint32_t type, const Body &body)
{
    const usb_redir_header header{type, sizeof body, 1};
    const std::size_t headerSize = type == usb_redir_hello ? 12 : 16;
    return std::string(reinterpret_cast<const char *>(&header), headerSize)
        + std::string(reinterpret_cast<const char *>(&body), sizeof body);
}

class Stream : public ::testing::Test
{
protected:
    void loadLibrary(int scope)
    {
        library = dlopen(WAITING_LIBRARY, RTLD_NOW | scope);
        ASSERT_NE(library, nullptr) << dlerror();
        waitingBytes = static_cast<int64_t *>(dlsym(library, "waitingBytes"));
        askedFor = static_cast<const void **>(dlsym(library, "askedFor"));
    }

    void start()
    {
        struct
        {
            char version[sizeof(usb_redir_hello_header)] = "a test";
            uint32_t capabilities = 1u << usb_redir_cap_64bits_ids;
        } hello;
        channel.setSpiceChannel(&spiceChannel);
        channel.open(nullptr);
        channel.receive(message(usb_redir_hello, hello));
        channel.read();
        QString error;
        ASSERT_TRUE(channel.connectDevice(QStringLiteral("1-1"), EmulatedUsb::open(camera()), error));
        const usb_redir_start_iso_stream_header request{Endpoint, PacketsOfTransfer, 2};
        channel.receive(message(usb_redir_start_iso_stream, request));
        channel.read();
        ASSERT_EQ(EmulatedUsb::underWay(), 2);
    }

    bool becomesLate()
    {
        return waitFor([this] { return packetsOfNextTransfer() == 0; });
    }

    // Lets the camera deliver one transfer; how many packets of it are sent.
    int packetsOfNextTransfer()
    {
        channel.flush();
        const int before = sent;
        EmulatedUsb::complete(0, LIBUSB_TRANSFER_COMPLETED, 64);
        delivered += PacketsOfTransfer;
        channel.flush();
        return sent - before;
    }

    void *library = nullptr;
    int64_t *waitingBytes = nullptr;
    const void **askedFor = nullptr;
    int spiceChannel = 0;
    int delivered = 0, sent = 0; ///< packets
    UsbChannel channel{QStringLiteral("org.devredir.usb.0"), [this](void *, char *bytes, int length) {
                           uint32_t type = 0;
                           std::memcpy(&type, bytes, sizeof type);
                           sent += type == usb_redir_iso_packet;
                           return length;
                       }};
};

} // namespace

TEST_F(Stream, is_dropped_while_what_waits_for_its_channel_is_old_and_goes_on_afterwards)
{
    loadLibrary(RTLD_GLOBAL);
    start();
    EXPECT_EQ(packetsOfNextTransfer(), PacketsOfTransfer);
    EXPECT_EQ(*askedFor, &spiceChannel);
    *waitingBytes = 1 << 20;
    QElapsedTimer timer;
    timer.start();
    EXPECT_EQ(packetsOfNextTransfer(), PacketsOfTransfer) << "much is not late";
    ASSERT_TRUE(becomesLate());
    EXPECT_GE(timer.elapsed(), 100);
    EXPECT_EQ(packetsOfNextTransfer(), 0);
    *waitingBytes = 0;
    EXPECT_EQ(packetsOfNextTransfer(), PacketsOfTransfer);
    EXPECT_GE(channel.statistics().drops(), 2 * PacketsOfTransfer);
    EXPECT_EQ(sent + channel.statistics().drops(), delivered) << "each packet is counted once";
}

TEST_F(Stream, is_dropped_as_well_if_the_host_has_loaded_the_library_for_itself_alone)
{
    loadLibrary(RTLD_LOCAL);
    ASSERT_EQ(dlsym(RTLD_DEFAULT, "devredirectBytesWaiting"), nullptr);
    *waitingBytes = 1 << 20;
    start();
    EXPECT_TRUE(becomesLate());
}

TEST_F(Stream, is_never_dropped_if_the_library_cannot_know_what_waits)
{
    loadLibrary(RTLD_GLOBAL);
    *waitingBytes = -1;
    start();
    EXPECT_EQ(packetsOfNextTransfer(), PacketsOfTransfer);
    EXPECT_EQ(*askedFor, &spiceChannel);
}

TEST_F(Stream, is_never_dropped_without_a_library_that_tells)
{
    start();
    EXPECT_EQ(packetsOfNextTransfer(), PacketsOfTransfer);
}

TEST_F(Stream, of_requests_to_a_slow_device_is_read_a_part_at_a_time)
{
    start();
    EmulatedUsb::slowDown(std::chrono::milliseconds(20));
    std::string requests;
    for (int i = 0; i < 10; ++i)
        requests += message(usb_redir_set_alt_setting, usb_redir_set_alt_setting_header{0, 0});
    channel.receive(requests);
    int parts = 0;
    do {
        QElapsedTimer timer;
        timer.start();
        EXPECT_EQ(channel.read(), UsbChannel::Read::Fine);
        EXPECT_LT(timer.elapsed(), 5 * 20);
        ++parts;
    } while (channel.hasUnread());
    EXPECT_GE(parts, 10);
}

TEST_F(Stream, is_given_up_when_a_virtual_machine_sends_without_end)
{
    start();
    const std::string much(250 << 20, '\0');
    EXPECT_TRUE(channel.receive(much));
    EXPECT_FALSE(channel.receive(std::string(9 << 20, '\0')));
    const long before = Resources::memory();
    channel.close();
    EXPECT_FALSE(channel.hasUnread());
    if (Resources::memoryIsReused) {
        EXPECT_LT(Resources::memory(), before - (200 << 10)) << "what was unread has been given back";
    }
}
