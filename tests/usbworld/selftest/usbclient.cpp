// SPDX-License-Identifier: LGPL-2.1-or-later
#include "usbclient.h"

#include "check.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace selftest {

namespace {

constexpr unsigned char EndpointIn = 0x81;
constexpr unsigned char EndpointOut = 0x02;
constexpr unsigned TimeoutMs = 5000;

std::string portOf(libusb_device *device)
{
    std::array<std::uint8_t, 8> numbers{};
    const int depth = libusb_get_port_numbers(device, numbers.data(), int(numbers.size()));
    std::string port = std::to_string(libusb_get_bus_number(device));
    for (int i = 0; i < depth; ++i)
        port += (i == 0 ? '-' : '.') + std::to_string(numbers[std::size_t(i)]);
    return port;
}

Bytes commandWrapper(const Bytes &cdb, std::uint32_t length, bool in)
{
    static std::uint32_t tag = 0;
    ++tag;
    Bytes wrapper(31, 0);
    std::memcpy(wrapper.data(), "USBC", 4);
    std::memcpy(wrapper.data() + 4, &tag, 4);
    std::memcpy(wrapper.data() + 8, &length, 4);
    wrapper[12] = in ? 0x80 : 0;
    wrapper[14] = std::uint8_t(cdb.size());
    std::copy(cdb.begin(), cdb.end(), wrapper.begin() + 15);
    return wrapper;
}

void send(libusb_device_handle *handle, Bytes bytes)
{
    int sent = 0;
    CHECK_EQUAL(libusb_bulk_transfer(handle, EndpointOut, bytes.data(), int(bytes.size()), &sent, TimeoutMs), 0);
    CHECK_EQUAL(std::size_t(sent), bytes.size());
}

void readStatus(libusb_device_handle *handle, const Bytes &command, Reply &reply)
{
    std::array<std::uint8_t, 13> wrapper{};
    int received = 0;
    CHECK_EQUAL(libusb_bulk_transfer(handle, EndpointIn, wrapper.data(), int(wrapper.size()), &received, TimeoutMs), 0);
    CHECK_EQUAL(received, 13);
    CHECK_EQUAL(std::memcmp(wrapper.data(), "USBS", 4), 0);
    CHECK_EQUAL(std::memcmp(wrapper.data() + 4, command.data() + 4, 4), 0);
    std::memcpy(&reply.residue, wrapper.data() + 8, 4);
    reply.status = wrapper[12];
}

} // namespace

Context makeContext()
{
    libusb_context *context = nullptr;
    CHECK_EQUAL(libusb_init(&context), 0);
    return Context(context);
}

Device findDevice(libusb_context *context, const std::string &port)
{
    libusb_device **list = nullptr;
    const ssize_t count = libusb_get_device_list(context, &list);
    Device found;
    for (ssize_t i = 0; i < count; ++i) {
        if (portOf(list[i]) == port)
            found.reset(libusb_ref_device(list[i]));
    }
    libusb_free_device_list(list, 1);
    return found;
}

void handleEvents(libusb_context *context)
{
    timeval soon{0, 1000};
    libusb_handle_events_timeout_completed(context, &soon, nullptr);
}

Handle openDevice(libusb_context *context, const std::string &port)
{
    const Device device = findDevice(context, port);
    CHECK(device);
    libusb_device_handle *handle = nullptr;
    CHECK_EQUAL(libusb_open(device.get(), &handle), 0);
    return Handle(handle);
}

Handle openAndClaim(libusb_context *context, const std::string &port)
{
    Handle handle = openDevice(context, port);
    CHECK_EQUAL(libusb_detach_kernel_driver(handle.get(), 0), 0);
    CHECK_EQUAL(libusb_claim_interface(handle.get(), 0), 0);
    return handle;
}

void giveBack(libusb_device_handle *handle)
{
    CHECK_EQUAL(libusb_release_interface(handle, 0), 0);
    CHECK_EQUAL(libusb_attach_kernel_driver(handle, 0), 0);
}

Reply readCommand(libusb_device_handle *handle, const Bytes &cdb, std::uint32_t length)
{
    const Bytes command = commandWrapper(cdb, length, true);
    send(handle, command);
    Reply reply;
    reply.data.resize(length);
    int received = 0;
    const int result = libusb_bulk_transfer(handle, EndpointIn, reply.data.data(), int(length), &received, TimeoutMs);
    reply.data.resize(std::size_t(received));
    reply.stalled = result == LIBUSB_ERROR_PIPE;
    if (reply.stalled)
        CHECK_EQUAL(libusb_clear_halt(handle, EndpointIn), 0);
    else
        CHECK_EQUAL(result, 0);
    readStatus(handle, command, reply);
    return reply;
}

Reply writeCommand(libusb_device_handle *handle, const Bytes &cdb, const Bytes &data)
{
    const Bytes command = commandWrapper(cdb, std::uint32_t(data.size()), false);
    send(handle, command);
    if (!data.empty())
        send(handle, data);
    Reply reply;
    readStatus(handle, command, reply);
    return reply;
}

Bytes transferBlock(std::uint8_t opcode, std::uint32_t sector, std::uint16_t count)
{
    return {opcode,
            0,
            std::uint8_t(sector >> 24),
            std::uint8_t(sector >> 16),
            std::uint8_t(sector >> 8),
            std::uint8_t(sector),
            0,
            std::uint8_t(count >> 8),
            std::uint8_t(count),
            0};
}

std::string control(const std::string &line)
{
    const char *path = std::getenv("USBWORLD_CONTROL");
    CHECK(path != nullptr);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path, sizeof address.sun_path - 1);
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    CHECK_EQUAL(connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    const std::string request = line + '\n';
    CHECK_EQUAL(write(fd, request.data(), request.size()), ssize_t(request.size()));
    std::string reply;
    for (char c = 0; read(fd, &c, 1) == 1 && c != '\n';)
        reply += c;
    close(fd);
    return reply;
}

} // namespace selftest
