// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "outcome.h"
#include "usbdevice.h"

#include <QJsonObject>

/// One of the things that must be so before a device can be shared.
struct Gate
{
    QString name;
    Outcome outcome; ///< why it is closed
    QString cure; ///< what opens it

    QJsonObject toJson() const;
};

/// This user may open the node of \a device.
Gate permissionGate(const UsbDevice &device);
/// Nothing of it is mounted, or may be by way of what is made of it: an encrypted disk, a volume group, a RAID.
Gate mountGate(const UsbDevice &device);
/// No other process has it open, as far as this user may see.
Gate useGate(const UsbDevice &device);

Outcome noPermission(const UsbDevice &device);
