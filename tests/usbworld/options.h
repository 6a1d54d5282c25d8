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
    bool readOnly = false;
};

struct Options
{
    std::vector<StickOptions> sticks;
    std::string cameraPort;
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
