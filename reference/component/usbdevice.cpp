// SPDX-License-Identifier: LGPL-2.1-or-later
#include "usbdevice.h"

#include <QDir>
#include <QFile>

#include <libudev.h>

#include <cstdio>
#include <memory>
#include <mutex>

#include <mntent.h>

namespace {

struct Release
{
    void operator()(udev *p) const { udev_unref(p); }
    void operator()(udev_device *p) const { udev_device_unref(p); }
    void operator()(udev_enumerate *p) const { udev_enumerate_unref(p); }
    void operator()(FILE *p) const { endmntent(p); }
};
using Udev = std::unique_ptr<udev, Release>;
using Device = std::unique_ptr<udev_device, Release>;
using Enumeration = std::unique_ptr<udev_enumerate, Release>;

QString attribute(udev_device *device, const char *name)
{
    return QString::fromUtf8(udev_device_get_sysattr_value(device, name)).trimmed();
}

// Calls use(device) for each device of a subsystem; a device type or null; below a parent or null.
template<typename Use>
void forEach(udev *context, const char *subsystem, const char *type, udev_device *parent, const Use &use)
{
    const Enumeration enumeration(udev_enumerate_new(context));
    udev_enumerate_add_match_subsystem(enumeration.get(), subsystem);
    if (type)
        udev_enumerate_add_match_property(enumeration.get(), "DEVTYPE", type);
    if (parent)
        udev_enumerate_add_match_parent(enumeration.get(), parent);
    udev_enumerate_scan_devices(enumeration.get());
    udev_list_entry *entry = nullptr;
    udev_list_entry_foreach(entry, udev_enumerate_get_list_entry(enumeration.get()))
    {
        const Device device(udev_device_new_from_syspath(context, udev_list_entry_get_name(entry)));
        if (device)
            use(device.get());
    }
}

UsbDevice readDevice(udev *context, udev_device *found)
{
    UsbDevice device;
    device.portPath = QString::fromUtf8(udev_device_get_sysname(found));
    device.node = QString::fromUtf8(udev_device_get_devnode(found));
    device.serial = attribute(found, "serial");
    device.bus = attribute(found, "busnum").toInt();
    device.address = attribute(found, "devnum").toInt();
    device.vendorId = attribute(found, "idVendor");
    device.productId = attribute(found, "idProduct");
    device.release = attribute(found, "bcdDevice");
    device.name = (attribute(found, "manufacturer") + QLatin1Char(' ') + attribute(found, "product")).trimmed();
    device.own = {attribute(found, "bDeviceClass"), attribute(found, "bDeviceSubClass"),
                  attribute(found, "bDeviceProtocol")};
    forEach(context, "usb", "usb_interface", found, [&device](udev_device *interface) {
        device.interfaces.append({attribute(interface, "bInterfaceClass"), attribute(interface, "bInterfaceSubClass"),
                                  attribute(interface, "bInterfaceProtocol")});
    });
    forEach(context, "block", nullptr, found, [&device](udev_device *block) {
        device.disks.append(QString::fromUtf8(udev_device_get_sysname(block)));
        device.writeProtected = device.writeProtected || attribute(block, "ro") == QLatin1String("1");
    });
    forEach(context, "video4linux", nullptr, found, [&device](udev_device *video) {
        device.pictures.append(QString::fromUtf8(udev_device_get_sysname(video)));
    });
    device.disks.sort();
    return device;
}

} // namespace

UsbDevice::Interface UsbDevice::kind() const
{
    const bool leftToInterfaces = own.usbClass == QLatin1String("00") || own.usbClass == QLatin1String("ef");
    return leftToInterfaces && !interfaces.isEmpty() ? interfaces.first() : own;
}

bool UsbDevice::isComplete() const
{
    const QString usbClass = kind().usbClass;
    return !interfaces.isEmpty() && !usbClass.isEmpty() && (usbClass != QLatin1String("08") || !disks.isEmpty());
}

QList<UsbDevice> UsbDevice::all()
{
    // One walk through the device tree at a time: several threads ask, and each wants one consistent answer.
    static std::mutex &mutex = *new std::mutex;
    const std::lock_guard<std::mutex> lock(mutex);
    QList<UsbDevice> devices;
    const Udev context(udev_new());
    if (!context)
        return devices;
    forEach(context.get(), "usb", "usb_device", nullptr, [&](udev_device *found) {
        if (attribute(found, "bDeviceClass") != QLatin1String("09")) // hubs
            devices.append(readDevice(context.get(), found));
    });
    return devices;
}

QStringList UsbDevice::nodes() const
{
    QStringList all{node};
    for (const QString &one : disks + pictures)
        all.append(QStringLiteral("/dev/") + one);
    return all;
}

QString UsbDevice::mountPoint() const
{
    const std::unique_ptr<FILE, Release> table(setmntent("/proc/self/mounts", "re"));
    mntent entry{};
    char texts[4096];
    while (table && getmntent_r(table.get(), &entry, texts, sizeof texts)) {
        const QString source = QString::fromUtf8(entry.mnt_fsname);
        for (const QString &disk : disks) {
            if (source == QStringLiteral("/dev/") + disk)
                return QString::fromUtf8(entry.mnt_dir);
        }
    }
    return QString();
}

QStringList UsbDevice::holders() const
{
    const QDir fileSystems(QStringLiteral("/sys/fs/btrfs"));
    QFile swaps(QStringLiteral("/proc/swaps"));
    const QByteArray swapTable = swaps.open(QIODevice::ReadOnly) ? swaps.readAll() : QByteArray();
    QStringList all;
    for (const QString &disk : disks) {
        all += QDir(QStringLiteral("/sys/class/block/") + disk + QStringLiteral("/holders"))
                   .entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot);
        for (const QString &one : fileSystems.entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
            if (fileSystems.exists(one + QStringLiteral("/devices/") + disk))
                all.append(QStringLiteral("btrfs"));
        }
        if (swapTable.contains("\n/dev/" + disk.toLatin1() + ' '))
            all.append(QStringLiteral("swap"));
    }
    return all;
}
