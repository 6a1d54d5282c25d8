// SPDX-License-Identifier: LGPL-2.1-or-later
#include "description.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>

namespace usbworld {

namespace {

const char ControllerPath[] = "/devices/pci0000:00/0000:00:14.0";
const char SataHostPath[] = "/devices/pci0000:00/0000:00:17.0/ata1/host0";
constexpr int DeviceNumbersOfADisk = 16;
constexpr std::uint64_t InternalDiskSectors = 1000215216;
constexpr int InternalHostNumber = 0;

[[gnu::format(printf, 1, 2)]] std::string format(const char *pattern, ...)
{
    char text[512];
    va_list arguments;
    va_start(arguments, pattern);
    std::vsnprintf(text, sizeof text, pattern, arguments);
    va_end(arguments);
    return text;
}

std::string hex(const Bytes &bytes)
{
    std::string text;
    for (const std::uint8_t byte : bytes)
        text += format("%02X", byte);
    return text;
}

// Spaces may not stand in the values of these properties; a real system replaces them in the same way.
std::string encoded(std::string text)
{
    std::replace(text.begin(), text.end(), ' ', '_');
    return text;
}

std::vector<Field> identityProperties(const UsbIdentity &identity, const std::string &port)
{
    const std::string vendor = encoded(identity.manufacturer);
    const std::string model = encoded(identity.product);
    return {
        {"ID_BUS", "usb"},
        {"ID_VENDOR", vendor},
        {"ID_MODEL", model},
        {"ID_VENDOR_ID", format("%04x", identity.vendorId)},
        {"ID_MODEL_ID", format("%04x", identity.productId)},
        {"ID_REVISION", "0100"},
        {"ID_SERIAL", vendor + '_' + model + '_' + encoded(identity.serial)},
        {"ID_SERIAL_SHORT", encoded(identity.serial)},
        {"ID_PATH", "pci-0000:00:14.0-usb-0:" + port.substr(port.find('-') + 1)},
    };
}

std::string interfaceList(const UsbIdentity &identity)
{
    std::string list = ":";
    for (const UsbInterface &one : identity.interfaces)
        list += format("%02x%02x%02x:", one.interfaceClass, one.subClass, one.protocol);
    return list;
}

DeviceRecord usbDeviceRecord(const UsbIdentity &identity, const UsbPlace &place)
{
    DeviceRecord record;
    const bool isRoot = place.port == "usb1";
    record.path = place.path();
    if (isRoot)
        record.node = place.node();
    record.properties = identityProperties(identity, place.port);
    const Bytes device = identity.deviceDescriptor();
    const std::vector<Field> own{
        {"DEVNAME", "/dev/" + place.node()},
        {"DEVTYPE", "usb_device"},
        {"DRIVER", "usb"},
        {"SUBSYSTEM", "usb"},
        {"BUSNUM", "001"},
        {"DEVNUM", format("%03d", place.address)},
        {"MAJOR", "189"},
        {"MINOR", std::to_string(place.address - 1)},
        {"PRODUCT", format("%x/%x/100", identity.vendorId, identity.productId)},
        {"TYPE", format("%d/%d/%d", device[4], device[5], device[6])},
        {"ID_USB_INTERFACES", interfaceList(identity)},
    };
    record.properties.insert(record.properties.end(), own.begin(), own.end());
    record.attributes = {
        {"idVendor", format("%04x", identity.vendorId)},
        {"idProduct", format("%04x", identity.productId)},
        {"bcdDevice", "0100"},
        {"bDeviceClass", format("%02x", device[4])},
        {"bDeviceSubClass", format("%02x", device[5])},
        {"bDeviceProtocol", format("%02x", device[6])},
        {"bConfigurationValue", "1"},
        {"bNumConfigurations", "1"},
        {"bNumInterfaces", format("%2zu", identity.interfaces.size())},
        {"bMaxPacketSize0", "64"},
        {"busnum", "1"},
        {"devnum", std::to_string(place.address)},
        {"devpath", isRoot ? "0" : place.port.substr(place.port.find('-') + 1)},
        {"dev", format("189:%d", place.address - 1)},
        {"speed", std::to_string(identity.speed)},
        {"manufacturer", identity.manufacturer},
        {"product", identity.product},
        {"serial", identity.serial},
        {"maxchild", isRoot ? "16" : "0"},
        {"version", format(" %x.%02x", device[3], device[2])},
        {"removable", isRoot ? "unknown" : "removable"},
    };
    record.descriptors = device;
    const Bytes configuration = identity.configurationDescriptor();
    record.descriptors.insert(record.descriptors.end(), configuration.begin(), configuration.end());
    return record;
}

std::string interfacePath(const UsbPlace &place, std::size_t number)
{
    const std::string name = place.port == "usb1" ? "1-0" : place.port;
    return place.path() + '/' + name + format(":1.%zu", number);
}

DeviceRecord usbInterfaceRecord(const UsbInterface &one, const UsbPlace &place, std::size_t number)
{
    DeviceRecord record;
    record.path = interfacePath(place, number);
    record.properties = {
        {"DEVTYPE", "usb_interface"},
        {"SUBSYSTEM", "usb"},
        {"DRIVER", one.kernelDriver},
        {"INTERFACE", format("%d/%d/%d", one.interfaceClass, one.subClass, one.protocol)},
    };
    record.attributes = {
        {"bInterfaceNumber", format("%02zu", number)},
        {"bAlternateSetting", " 0"},
        {"bNumEndpoints", format("%02zu", one.endpoints.size())},
        {"bInterfaceClass", format("%02x", one.interfaceClass)},
        {"bInterfaceSubClass", format("%02x", one.subClass)},
        {"bInterfaceProtocol", format("%02x", one.protocol)},
    };
    return record;
}

// The device numbers of sda, sdb and so on follow from the letter.
int firstMinor(const std::string &disk)
{
    return (disk.back() - 'a') * DeviceNumbersOfADisk;
}

DeviceRecord blockRecord(const std::string &path, const std::string &name, const char *type, int minor,
                         const std::vector<Field> &properties)
{
    DeviceRecord record;
    record.path = path;
    record.node = name;
    record.properties = properties;
    const std::vector<Field> own{
        {"DEVNAME", "/dev/" + name},      {"DEVTYPE", type}, {"SUBSYSTEM", "block"}, {"MAJOR", "8"},
        {"MINOR", std::to_string(minor)},
    };
    record.properties.insert(record.properties.end(), own.begin(), own.end());
    record.attributes = {{"dev", format("8:%d", minor)}};
    return record;
}

DeviceRecord diskRecord(const std::string &scsiPath, const DiskShape &disk, bool removable,
                        const std::vector<Field> &properties)
{
    DeviceRecord record =
        blockRecord(scsiPath + "/block/" + disk.name, disk.name, "disk", firstMinor(disk.name), properties);
    const std::vector<Field> more{
        {"size", std::to_string(disk.sectors)},
        {"removable", removable ? "1" : "0"},
        {"ro", disk.readOnly ? "1" : "0"},
        {"range", std::to_string(DeviceNumbersOfADisk)},
        {"hidden", "0"},
    };
    record.attributes.insert(record.attributes.end(), more.begin(), more.end());
    record.links = {{"device", "../../../" + scsiPath.substr(scsiPath.rfind('/') + 1)}};
    return record;
}

DeviceRecord partitionRecord(const std::string &scsiPath, const DiskShape &disk, std::vector<Field> properties)
{
    const std::uint64_t start = std::min<std::uint64_t>(2048, disk.sectors / 2);
    const std::string name = disk.name + '1';
    properties.push_back({"ID_PART_ENTRY_NUMBER", "1"});
    properties.push_back({"PARTN", "1"});
    DeviceRecord record = blockRecord(scsiPath + "/block/" + disk.name + '/' + name, name, "partition",
                                      firstMinor(disk.name) + 1, properties);
    const std::vector<Field> more{
        {"size", std::to_string(disk.sectors - start)},
        {"start", std::to_string(start)},
        {"partition", "1"},
        {"ro", disk.readOnly ? "1" : "0"},
    };
    record.attributes.insert(record.attributes.end(), more.begin(), more.end());
    return record;
}

DeviceRecord scsiHostRecord(const std::string &hostPath, const std::string &driver)
{
    DeviceRecord record;
    record.path = hostPath + "/scsi_host/" + hostPath.substr(hostPath.rfind('/') + 1);
    record.properties = {{"SUBSYSTEM", "scsi_host"}};
    record.attributes = {{"proc_name", driver}};
    return record;
}

DeviceRecord scsiRecord(const std::string &path, const std::string &vendor, const std::string &model)
{
    DeviceRecord record;
    record.path = path;
    record.properties = {{"DEVTYPE", "scsi_device"}, {"SUBSYSTEM", "scsi"}, {"DRIVER", "sd"}};
    record.attributes = {{"vendor", vendor}, {"model", model}, {"rev", "1.00"}, {"type", "0"}};
    return record;
}

} // namespace

bool DeviceRecord::isPartition() const
{
    return std::any_of(properties.begin(), properties.end(),
                       [](const Field &field) { return field.name == "DEVTYPE" && field.value == "partition"; });
}

std::vector<std::string> DeviceRecord::indexLinks() const
{
    std::vector<std::string> found;
    if (path.find("/block/") != std::string::npos)
        found.push_back("/sys/block/" + node);
    for (const Field &attribute : attributes) {
        if (attribute.name == "dev") {
            found.push_back("/sys/dev/block/" + attribute.value);
            found.push_back("/sys/dev/char/" + attribute.value);
        }
    }
    return found;
}

std::string DeviceRecord::text() const
{
    std::string out = "P: " + path + '\n';
    if (!node.empty())
        out += "N: " + node + '\n';
    for (const Field &property : properties)
        out += "E: " + property.name + '=' + property.value + '\n';
    for (const Field &attribute : attributes)
        out += "A: " + attribute.name + '=' + attribute.value + "\\n\n";
    if (!descriptors.empty())
        out += "H: descriptors=" + hex(descriptors) + '\n';
    for (const Field &link : links)
        out += "L: " + link.name + '=' + link.value + '\n';
    return out + '\n';
}

std::string UsbPlace::path() const
{
    const std::string root = std::string(ControllerPath) + "/usb1";
    return port == "usb1" ? root : root + '/' + port;
}

std::string UsbPlace::node() const
{
    return format("bus/usb/001/%03d", address);
}

std::vector<DeviceRecord> controllerRecords()
{
    DeviceRecord controller;
    controller.path = ControllerPath;
    controller.properties = {
        {"SUBSYSTEM", "pci"}, {"DRIVER", "xhci_hcd"}, {"PCI_ID", "1B36:000D"}, {"PCI_SLOT_NAME", "0000:00:14.0"}};
    std::vector<DeviceRecord> records{controller};
    for (DeviceRecord &record : usbRecords(rootHubIdentity(), {"usb1", 1}))
        records.push_back(std::move(record));
    return records;
}

std::vector<DeviceRecord> usbRecords(const UsbIdentity &identity, const UsbPlace &place)
{
    std::vector<DeviceRecord> records{usbDeviceRecord(identity, place)};
    for (std::size_t i = 0; i < identity.interfaces.size(); ++i)
        records.push_back(usbInterfaceRecord(identity.interfaces[i], place, i));
    return records;
}

std::vector<DeviceRecord> usbDiskRecords(const UsbIdentity &identity, const UsbPlace &place, const DiskShape &disk)
{
    const int host = disk.hostNumber;
    const std::string hostPath = interfacePath(place, 0) + format("/host%d", host);
    const std::string scsiPath = hostPath + format("/target%d:0:0/%d:0:0:0", host, host);
    std::vector<Field> properties = identityProperties(identity, place.port);
    properties.push_back({"ID_TYPE", "disk"});
    properties.push_back({"ID_USB_DRIVER", identity.interfaces[0].kernelDriver});
    return {
        scsiHostRecord(hostPath, identity.interfaces[0].kernelDriver),
        scsiRecord(scsiPath, identity.manufacturer, identity.product),
        diskRecord(scsiPath, disk, true, properties),
        partitionRecord(scsiPath, disk, properties),
    };
}

std::vector<DeviceRecord> videoRecords(const UsbIdentity &identity, const UsbPlace &place, int number)
{
    DeviceRecord record;
    const std::string name = format("video%d", number);
    record.path = interfacePath(place, 0) + "/video4linux/" + name;
    // No node: the test bed would make a terminal for it, and could not make it again when the camera is plugged again.
    record.properties = identityProperties(identity, place.port);
    const std::vector<Field> own{
        {"DEVNAME", "/dev/" + name},          {"SUBSYSTEM", "video4linux"}, {"MAJOR", "81"},
        {"MINOR", std::to_string(number)},    {"ID_V4L_VERSION", "2"},      {"ID_V4L_PRODUCT", identity.product},
        {"ID_V4L_CAPABILITIES", ":capture:"},
    };
    record.properties.insert(record.properties.end(), own.begin(), own.end());
    record.attributes = {{"name", identity.product}, {"index", "0"}, {"dev", format("81:%d", number)}};
    return {record};
}

std::vector<DeviceRecord> internalDiskRecords(const std::string &name)
{
    const std::string scsiPath = std::string(SataHostPath) + "/target0:0:0/0:0:0:0";
    const DiskShape disk{name, InternalDiskSectors, false, InternalHostNumber};
    const std::vector<Field> properties{
        {"ID_BUS", "ata"}, {"ID_TYPE", "disk"}, {"ID_MODEL", "Internal"}, {"ID_SERIAL_SHORT", "INTERNAL0001"}};
    return {
        scsiHostRecord(SataHostPath, "ahci"),
        scsiRecord(scsiPath, "ATA", "Internal"),
        diskRecord(scsiPath, disk, false, properties),
    };
}

} // namespace usbworld
