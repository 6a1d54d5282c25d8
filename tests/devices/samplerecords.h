// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "devices/exterdeviceinfo.h"
#include "support/printing.h"

#include <ostream>

/// A record in which no field has its default and no two fields of a type are alike.
inline ExterDeviceInfo filledRecord()
{
    ExterDeviceInfo device;
    device.rdrName = QStringLiteral("usbrdr");
    device.context = QStringLiteral("ctx-01");
    device.vendorId = QStringLiteral("0A5C");
    device.productId = QStringLiteral("21E8");
    device.deviceId = QStringLiteral("dev-1");
    device.readOnly = true;
    device.devicePosition = QStringLiteral("1-1.4");
    device.deviceName = QStringLiteral("Example Storage");
    device.deviceClass = QStringLiteral("08");
    device.status = 2;
    device.parsedStatus = 3;
    device.storeLetter = QStringLiteral("E");
    device.spareValueA = 11;
    device.nFunctionId = 7;
    device.spareFlagA = true;
    device.spareFlagB = false;
    device.usbHub = QStringLiteral("hub1");
    device.usbPort = QStringLiteral("port4");
    device.isCompositeDevice = true;
    device.isCDROM = true;
    device.isMatchContext = true;
    device.transportMode = TCPMODE;
    device.founctionBitmapMask = 12;
    device.spareValueB = 13;
    device.functions = {{1, QStringLiteral("08"), 1}, {2, QStringLiteral("03"), 2}, {3, QStringLiteral("0e"), 4}};
    device.spareValueC = 14;
    device.spareTextA = QStringLiteral("spare-a");
    device.vmId = QStringLiteral("vm-01");
    device.spareTextB = QStringLiteral("spare-b");
    device.usbProt = QStringLiteral("50");
    device.deviceRel = QStringLiteral("0100");
    device.deviceSubClass = QStringLiteral("06");
    device.errCode = QStringLiteral("E17");
    device.errString = QStringLiteral("BUSY");
    return device;
}

inline ExterDeviceInfo recordWithId(const QString &deviceId)
{
    ExterDeviceInfo device;
    device.deviceId = deviceId;
    return device;
}

inline bool operator==(const FunctionInfo &a, const FunctionInfo &b)
{
    return a.founctionId == b.founctionId && a.founctionClass == b.founctionClass
        && a.founctionBitmapMask == b.founctionBitmapMask;
}

inline void PrintTo(const FunctionInfo &function, std::ostream *stream)
{
    *stream << function.founctionId << '/' << function.founctionClass.toStdString() << '/'
            << function.founctionBitmapMask;
}

inline bool operator==(const ExterDeviceInfo &a, const ExterDeviceInfo &b)
{
    return a.rdrName == b.rdrName && a.context == b.context && a.vendorId == b.vendorId && a.productId == b.productId
        && a.deviceId == b.deviceId && a.readOnly == b.readOnly && a.devicePosition == b.devicePosition
        && a.deviceName == b.deviceName && a.deviceClass == b.deviceClass && a.status == b.status
        && a.parsedStatus == b.parsedStatus && a.storeLetter == b.storeLetter && a.spareValueA == b.spareValueA
        && a.nFunctionId == b.nFunctionId && a.spareFlagA == b.spareFlagA && a.spareFlagB == b.spareFlagB
        && a.usbHub == b.usbHub && a.usbPort == b.usbPort && a.isCompositeDevice == b.isCompositeDevice
        && a.isCDROM == b.isCDROM && a.isMatchContext == b.isMatchContext && a.transportMode == b.transportMode
        && a.founctionBitmapMask == b.founctionBitmapMask && a.spareValueB == b.spareValueB
        && a.functions == b.functions && a.spareValueC == b.spareValueC && a.spareTextA == b.spareTextA
        && a.vmId == b.vmId && a.spareTextB == b.spareTextB && a.usbProt == b.usbProt && a.deviceRel == b.deviceRel
        && a.deviceSubClass == b.deviceSubClass && a.errCode == b.errCode && a.errString == b.errString;
}

inline void PrintTo(const ExterDeviceInfo &device, std::ostream *stream)
{
    *stream << device.getDevInfo().toStdString();
}
