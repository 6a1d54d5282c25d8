// SPDX-License-Identifier: LGPL-2.1-or-later
#include "devices/exterdeviceinfo.h"

QString ExterDeviceInfo::getDevInfo() const
{
    QString line =
        QStringLiteral("Device info: deviceGUID = %1, vid = %2, pid = %3, deviceName = %4, devClass = %5, "
                       "status = %6,storeLetter =%7, deviceId = %8, readOnly = %9,rdrName = %10, usbHub = %11, "
                       "usbPort = %12, nFunctionId = %13, isCompositeDevice =%14, isMatchContext =%15, "
                       "context =%16, rel = %17, prot =%18, subClass =%19,isCDROM =%20, errCode =%21, errStr =%22.");
    const auto number = [](int value) { return QString::number(value); };
    for (const QString &value : {devicePosition,
                                 vendorId,
                                 productId,
                                 deviceName,
                                 deviceClass,
                                 number(status),
                                 storeLetter,
                                 deviceId,
                                 number(readOnly),
                                 rdrName,
                                 usbHub,
                                 usbPort,
                                 number(nFunctionId),
                                 number(isCompositeDevice),
                                 number(isMatchContext),
                                 context,
                                 deviceRel,
                                 usbProt,
                                 deviceSubClass,
                                 number(isCDROM),
                                 errCode,
                                 errString})
        line = line.arg(value);
    return line;
}
