// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "usbidentity.h"

#include <string>
#include <vector>

namespace usbworld {

/** A name and a value: a property, an attribute or a link of a device. */
struct Field
{
    std::string name;
    std::string value;
};

/** One device directory of the emulated /sys, in the form that the test bed reads. */
struct DeviceRecord
{
    std::string path; ///< without the leading /sys
    std::string node; ///< that the test bed makes below /dev; empty for none
    std::vector<Field> properties;
    std::vector<Field> attributes;
    Bytes descriptors;
    std::vector<Field> links;

    std::string sysPath() const { return "/sys" + path; }
    bool isPartition() const;

    /** The links in /sys/block and /sys/dev that lead to the device, whether or not they exist. */
    std::vector<std::string> indexLinks() const;
    std::string text() const;
};

/** Where a USB device sits. The bus is always 1. */
struct UsbPlace
{
    std::string port; ///< "1-2", or "usb1" for the root hub
    int address;

    std::string path() const;
    std::string node() const; ///< "bus/usb/001/002"
};

/** A disk as the block layer shows it. */
struct DiskShape
{
    std::string name; ///< "sda"
    std::uint64_t sectors;
    bool readOnly;
    int hostNumber; ///< of its SCSI host
};

// Parents come before their children in every list.
std::vector<DeviceRecord> controllerRecords();
std::vector<DeviceRecord> usbRecords(const UsbIdentity &identity, const UsbPlace &place);
std::vector<DeviceRecord> usbDiskRecords(const UsbIdentity &identity, const UsbPlace &place, const DiskShape &disk);
std::vector<DeviceRecord> videoRecords(const UsbIdentity &identity, const UsbPlace &place, int number);
std::vector<DeviceRecord> internalDiskRecords(const std::string &name);

} // namespace usbworld
