// SPDX-License-Identifier: LGPL-2.1-or-later
#include "options.h"

#include "usbidentity.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <set>

namespace usbworld {

const char UsageText[] =
    "usage: umockdev-wrapper usbworld [OPTION]... -- COMMAND [ARGUMENT]...\n"
    "  --stick PORT=IMAGE[,KEY=VALUE]...  a USB stick at PORT (1-1, 1-2, ...) with the content of IMAGE; keys:\n"
    "        serial=TEXT product=TEXT vid=HEX pid=HEX mounted-name=sdX ro superspeed card-reader with-serial\n"
    "        becomes-vid=HEX becomes-pid=HEX\n"
    "  --camera PORT, --bulk-camera PORT  a camera with isochronous or bulk transfers and a node /dev/videoN\n"
    "  --serial PORT                      a serial adapter that sends back what it gets\n"
    "  --keyboard PORT                    a keyboard that types what the control socket says\n"
    "  --internal-disk NAME               name of the SATA disk (default: the first sdX that no stick has)\n"
    "  --no-permission PORT               the device node of PORT cannot be opened\n"
    "  --disks-follow-driver              sdX is there only while usb-storage is bound to its stick\n"
    "  --control SOCKET                   take commands on a UNIX socket\n"
    "  --log FILE                         write what happens to FILE\n";

namespace {

// "1-" and port numbers joined by dots, as the kernel names what hangs on bus 1.
bool isPort(const std::string &text)
{
    const auto isPortCharacter = [](char c) { return (c >= '0' && c <= '9') || c == '.'; };
    return text.size() > 2 && text.compare(0, 2, "1-") == 0
        && std::all_of(text.begin() + 2, text.end(), isPortCharacter);
}

bool isDiskName(const std::string &text)
{
    return text.size() == 3 && text.compare(0, 2, "sd") == 0 && text[2] >= 'a' && text[2] <= 'p';
}

std::vector<std::string> split(const std::string &text, char separator)
{
    std::vector<std::string> parts;
    std::size_t begin = 0;
    for (std::size_t end; (end = text.find(separator, begin)) != std::string::npos; begin = end + 1)
        parts.push_back(text.substr(begin, end - begin));
    parts.push_back(text.substr(begin));
    return parts;
}

bool parseHex16(const std::string &text, std::uint16_t &value)
{
    char *end = nullptr;
    const unsigned long parsed = std::strtoul(text.c_str(), &end, 16);
    value = std::uint16_t(parsed);
    return !text.empty() && *end == '\0' && parsed <= 0xffff;
}

bool setStickKey(StickOptions &stick, const std::string &key, const std::string &value)
{
    static const struct
    {
        const char *key;
        std::string StickOptions::*text;
    } texts[] = {
        {"serial", &StickOptions::serial},
        {"product", &StickOptions::product},
        {"mounted-name", &StickOptions::diskName},
    };
    for (const auto &entry : texts) {
        if (key == entry.key && !value.empty()) {
            stick.*entry.text = value;
            return true;
        }
    }
    static const struct
    {
        const char *key;
        std::uint16_t StickOptions::*number;
    } numbers[] = {
        {"vid", &StickOptions::vendorId},
        {"pid", &StickOptions::productId},
        {"becomes-vid", &StickOptions::becomesVendorId},
        {"becomes-pid", &StickOptions::becomesProductId},
    };
    for (const auto &entry : numbers) {
        if (key == entry.key)
            return parseHex16(value, stick.*entry.number);
    }
    static const struct
    {
        const char *key;
        bool StickOptions::*flag;
    } flags[] = {
        {"ro", &StickOptions::readOnly},
        {"superspeed", &StickOptions::superSpeed},
        {"card-reader", &StickOptions::cardReader},
        {"with-serial", &StickOptions::withSerial},
    };
    for (const auto &entry : flags) {
        if (key == entry.key && value.empty()) {
            stick.*entry.flag = true;
            return true;
        }
    }
    return false;
}

bool parseStick(const std::string &text, Options &options, std::string &error)
{
    const std::vector<std::string> parts = split(text, ',');
    const std::size_t equals = parts[0].find('=');
    if (equals == std::string::npos || !isPort(parts[0].substr(0, equals)) || equals + 1 == parts[0].size()) {
        error = "--stick wants PORT=IMAGE, not " + text;
        return false;
    }
    const std::size_t number = options.sticks.size() + 1;
    StickOptions stick;
    stick.port = parts[0].substr(0, equals);
    stick.image = parts[0].substr(equals + 1);
    stick.serial = "STICK000" + std::to_string(number);
    stick.product = "Stick " + std::to_string(number);
    stick.vendorId = TestVendorId;
    stick.productId = std::uint16_t(number);
    for (std::size_t i = 1; i < parts.size(); ++i) {
        const std::size_t at = parts[i].find('=');
        const std::string value = at == std::string::npos ? std::string() : parts[i].substr(at + 1);
        if (!setStickKey(stick, parts[i].substr(0, at), value)) {
            error = "--stick does not know " + parts[i];
            return false;
        }
    }
    options.sticks.push_back(stick);
    return true;
}

std::string firstFreeDiskName(const std::set<std::string> &taken)
{
    std::string name = "sda";
    while (taken.count(name) > 0)
        ++name.back();
    return name;
}

// Gives a name to every disk that has none and checks that nothing is there twice.
bool completeOptions(Options &options, std::string &error)
{
    std::set<std::string> disks;
    std::set<std::string> ports;
    for (const StickOptions &stick : options.sticks) {
        if (!stick.diskName.empty() && (!isDiskName(stick.diskName) || !disks.insert(stick.diskName).second))
            error = "bad or repeated disk name " + stick.diskName;
        if (!ports.insert(stick.port).second)
            error = "two devices at port " + stick.port;
    }
    for (const DeviceOptions &device : options.devices) {
        if (!isPort(device.port) || !ports.insert(device.port).second)
            error = "bad or repeated port " + device.port;
    }
    if (!options.internalDisk.empty()
        && (!isDiskName(options.internalDisk) || !disks.insert(options.internalDisk).second))
        error = "bad or repeated disk name " + options.internalDisk;
    for (const std::string &port : options.deniedPorts) {
        if (ports.count(port) == 0)
            error = "no device at port " + port;
    }
    for (StickOptions &stick : options.sticks) {
        if (stick.diskName.empty())
            disks.insert(stick.diskName = firstFreeDiskName(disks));
    }
    if (options.internalDisk.empty())
        options.internalDisk = firstFreeDiskName(disks);
    return error.empty();
}

} // namespace

bool parseOptions(int argc, char **argv, Options &options, std::string &error)
{
    int at = 1;
    for (; at < argc && std::string(argv[at]) != "--"; ++at) {
        const std::string option = argv[at];
        if (option == "--disks-follow-driver") {
            options.disksFollowDriver = true;
            continue;
        }
        static const struct
        {
            const char *name;
            std::string Options::*value;
        } texts[] = {
            {"--internal-disk", &Options::internalDisk},
            {"--control", &Options::controlPath},
            {"--log", &Options::logPath},
        };
        const auto text = std::find_if(std::begin(texts), std::end(texts),
                                       [&option](const auto &entry) { return option == entry.name; });
        static const std::set<std::string> devices{"--camera", "--bulk-camera", "--serial", "--keyboard"};
        const bool isDevice = devices.count(option) > 0;
        const bool known = text != std::end(texts) || isDevice || option == "--stick" || option == "--no-permission";
        if (!known || at + 1 >= argc) {
            error = (known ? "no value after " : "unknown option ") + option;
            return false;
        }
        const std::string value = argv[++at];
        if (text != std::end(texts))
            options.*text->value = value;
        else if (isDevice)
            options.devices.push_back({option, value});
        else if (option == "--no-permission")
            options.deniedPorts.push_back(value);
        else if (!parseStick(value, options, error))
            return false;
    }
    if (at + 1 >= argc) {
        error = "no command";
        return false;
    }
    options.command.assign(argv + at + 1, argv + argc);
    options.command.push_back(nullptr);
    return completeOptions(options, error);
}

} // namespace usbworld
