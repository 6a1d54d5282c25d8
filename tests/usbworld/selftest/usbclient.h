// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <libusb.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace selftest {

using Bytes = std::vector<std::uint8_t>;

struct ContextExit
{
    void operator()(libusb_context *context) const { libusb_exit(context); }
};
struct DeviceUnref
{
    void operator()(libusb_device *device) const { libusb_unref_device(device); }
};
struct HandleClose
{
    void operator()(libusb_device_handle *handle) const { libusb_close(handle); }
};
using Context = std::unique_ptr<libusb_context, ContextExit>;
using Device = std::unique_ptr<libusb_device, DeviceUnref>;
using Handle = std::unique_ptr<libusb_device_handle, HandleClose>;

Context makeContext();

/** The device at a port such as "1-2", or null. */
Device findDevice(libusb_context *context, const std::string &port);

/** Lets libusb deal with what has come until now. */
void handleEvents(libusb_context *context);

/** Opens the device at \a port, which must be possible. */
Handle openDevice(libusb_context *context, const std::string &port);

/** Opens the device and takes its interface away from the kernel driver. */
Handle openAndClaim(libusb_context *context, const std::string &port);

/** Gives the interface back to the kernel driver. */
void giveBack(libusb_device_handle *handle);

/** What became of one SCSI command: the status byte of its status wrapper, and the data that came. */
struct Reply
{
    int status = -1;
    bool stalled = false;
    std::uint32_t residue = 0;
    Bytes data;
};

Reply readCommand(libusb_device_handle *handle, const Bytes &cdb, std::uint32_t length);
Reply writeCommand(libusb_device_handle *handle, const Bytes &cdb, const Bytes &data);

/** The command block of READ(10), 0x28, or WRITE(10), 0x2a. */
Bytes transferBlock(std::uint8_t opcode, std::uint32_t sector, std::uint16_t count);

/** Sends \a line to the control socket of the world around this process and returns the reply. */
std::string control(const std::string &line);

} // namespace selftest
