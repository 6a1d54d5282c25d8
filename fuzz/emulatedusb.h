// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <chrono>
#include <cstdint>
#include <vector>

#include <libusb.h>

/**
 * \file
 * One USB device without hardware, behind the functions of libusb that a usbredir host calls. They stand in the
 * program itself, so that its calls and those of libusbredirhost end here.
 *
 * A call that libusb would not survive ends the process: without an open device, with a transfer that is not there, or
 * a transfer freed while it is under way.
 */

struct EmulatedEndpoint
{
    uint8_t address = 0x81;
    uint8_t attributes = LIBUSB_TRANSFER_TYPE_BULK;
    uint16_t maxPacketSize = 512;
    uint8_t interval = 0;
    int streams = 0; ///< logarithm of how many; negative: no companion descriptor
};

struct EmulatedSetting
{
    uint8_t interface = 0, alternate = 0, usbClass = 8;
    std::vector<EmulatedEndpoint> endpoints;
};

struct EmulatedDevice
{
    int speed = LIBUSB_SPEED_SUPER;
    uint8_t usbClass = 0;
    std::vector<std::vector<EmulatedSetting>> interfaces;
};

namespace EmulatedUsb {

/// Plugs it in and opens it; what was there before is gone.
libusb_device_handle *open(const EmulatedDevice &device);
/// Every later call says so, and what is under way ends so.
void unplug();
/// The call after the next \a calls that can fail does so.
void failAfter(unsigned calls, libusb_error error);
/// Every call that can fail takes so long from now on.
void slowDown(std::chrono::milliseconds time);

/// Which endpoints the device has, all settings together; empty without a device.
const std::vector<uint8_t> &endpoints();
int underWay();
/// Ends transfer \a number of those under way: \a status, and so many bytes if it is one that reads.
void complete(int number, libusb_transfer_status status, int length);

/// Nothing is open, allocated or under way any more. Then all begins anew.
void expectTidy();
/// Each interface has its local driver. Not if a call was made to fail, or the device has gone.
void expectDrivers();

} // namespace EmulatedUsb
