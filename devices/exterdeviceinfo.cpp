// SPDX-License-Identifier: LGPL-2.1-or-later
#include "devices/exterdeviceinfo.h"

QString ExterDeviceInfo::getDevInfo() const
{
    return QStringLiteral("Device info: deviceGUID = %1, vid = %2, pid = %3, deviceName = %4, devClass = %5, "
                          "status = %6,storeLetter =%7, deviceId = %8, readOnly = %9,rdrName = %10, usbHub = %11, "
                          "usbPort = %12, nFunctionId = %13, isCompositeDevice =%14, isMatchContext =%15, "
                          "context =%16, rel = %17, prot =%18, subClass =%19,isCDROM =%20, errCode =%21, "
                          "errStr =%22.")
        .arg(devicePosition)
        .arg(vendorId)
        .arg(productId)
        .arg(deviceName)
        .arg(deviceClass)
        .arg(status)
        .arg(storeLetter)
        .arg(deviceId)
        .arg(int(readOnly))
        .arg(rdrName)
        .arg(usbHub)
        .arg(usbPort)
        .arg(nFunctionId)
        .arg(int(isCompositeDevice))
        .arg(int(isMatchContext))
        .arg(context)
        .arg(deviceRel)
        .arg(usbProt)
        .arg(deviceSubClass)
        .arg(int(isCDROM))
        .arg(errCode)
        .arg(errString);
}
