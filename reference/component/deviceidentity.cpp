// SPDX-License-Identifier: LGPL-2.1-or-later
#include "deviceidentity.h"

#include <QStringList>

#include <libusb.h>

// "1-1.4" is port 4 of hub 1-1, "1-2" is port 2 of the root hub usb1.
QString DeviceIdentity::hub() const
{
    const auto dot = portPath.lastIndexOf(QLatin1Char('.'));
    return dot < 0 ? QStringLiteral("usb") + portPath.left(portPath.indexOf(QLatin1Char('-'))) : portPath.left(dot);
}

QString DeviceIdentity::port() const
{
    return portPath.mid(qMax(portPath.lastIndexOf(QLatin1Char('.')), portPath.indexOf(QLatin1Char('-'))) + 1);
}

QString DeviceIdentity::portPathOf(libusb_device *device)
{
    uint8_t ports[8];
    const int count = libusb_get_port_numbers(device, ports, sizeof ports);
    QStringList path;
    for (int i = 0; i < count; ++i)
        path.append(QString::number(ports[i]));
    return QString::number(libusb_get_bus_number(device)) + QLatin1Char('-') + path.join(QLatin1Char('.'));
}
