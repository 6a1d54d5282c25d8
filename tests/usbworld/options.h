// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace usbworld {

struct StickOptions
{
    std::string port;
    std::string image;
    std::string serial;
    std::string product;
    std::string diskName;
    std::uint16_t vendorId = 0;
    std::uint16_t productId = 0;
    std::uint16_t becomesVendorId = 0; ///< after a reset, unless 0
    std::uint16_t becomesProductId = 0;
    bool readOnly = false;
    bool superSpeed = false;
    bool cardReader = false; ///< its slot is empty at first
    bool withSerial = false; ///< it has a serial port besides the disk
};

/** A device without an image: a camera, a serial adapter, a keyboard. */
struct DeviceOptions
{
    std::string option; ///< that asked for it, such as "--camera"
    std::string port;
};

struct Options
{
    std::vector<StickOptions> sticks;
    std::vector<DeviceOptions> devices;
    std::string internalDisk;
    std::vector<std::string> deniedPorts;
    std::string controlPath;
    std::string logPath;
    bool disksFollowDriver = false;
    std::vector<char *> command; ///< ends with a null pointer, as exec wants it
};

extern const char UsageText[];

/** Reads the command line. False with a reason in \a error when it makes no sense. */
bool parseOptions(int argc, char **argv, Options &options, std::string &error);

} // namespace usbworld
