// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <QString>

struct libusb_device;

/// What makes a USB device the same after a re-plug, when its bus address and node differ.
struct DeviceIdentity
{
    QString portPath; ///< the kernel's name, "1-1.4": bus, ports
    QString serial; ///< may be empty

    QString id() const { return serial.isEmpty() ? portPath : portPath + QLatin1Char(':') + serial; }
    static QString portPathIn(const QString &id) { return id.section(QLatin1Char(':'), 0, 0); }
    QString hub() const; ///< the kernel's name of the hub that it is plugged into
    QString port() const; ///< the number of its port there

    static QString portPathOf(libusb_device *device);
};
