// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "deviceidentity.h"

#include <QList>
#include <QString>
#include <QStringList>

/// One USB device of this machine, as udev knows it. Hubs are left out.
struct UsbDevice : DeviceIdentity
{
    struct Interface
    {
        QString usbClass, subClass, protocol;
    };

    /// The class that says what it is: its own, or its first interface's if it leaves that to them.
    Interface kind() const;

    QString node; ///< "/dev/bus/usb/001/004"
    int bus = 0, address = 0; ///< as libusb counts them; the address changes with each plug
    QString vendorId, productId, release;
    QString name; ///< manufacturer and product
    Interface own; ///< class, subclass and protocol of the device itself
    QList<Interface> interfaces;
    QStringList disks; ///< kernel names of its block devices, disks before partitions: "sda", "sda1"
    QStringList pictures; ///< kernel names of its video devices: "video0"
    bool writeProtected = false;

    static QList<UsbDevice> all();
    /// The kernel has made all that belongs to it: its interfaces, and the disk of a disk.
    bool isComplete() const;
    /// The files in /dev through which a process can use it.
    QStringList nodes() const;
    /// The first mount point of one of its block devices; empty if nothing is mounted.
    QString mountPoint() const;
    /// What its block devices are used for besides: the kernel name of what is made of one ("dm-0" of an encrypted one
    /// that is open), "btrfs" for a further disk of such a file system, "swap".
    QStringList holders() const;
};
