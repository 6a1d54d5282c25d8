// SPDX-License-Identifier: LGPL-2.1-or-later

// Sharing and unsharing devices.

#include "devices/devredirectmanger.h"
#include "devices/redirectconstants.h"
#include "log/log.h"
#include "worker/devredirectworker.h"

void DevRedirectWorker::onShareDeviceByWorker(const ExterDeviceInfo &device)
{
    Log::module(QtDebugMsg, __func__, " Share deveic. deviceId:", device.deviceId, "rdrName:", device.rdrName);
    const bool success =
        excuteRedirectCmd(structCtrlCommand(QString(), device.deviceId, QStringLiteral("share"), device));
    if (device.rdrName == USBRDR) {
        // The component reports the outcome itself, once the virtual machine has taken or refused the device.
        Log::module(QtDebugMsg, __func__, "  when device is usb, deviceWorker do not return share result.");
    } else {
        Log::module(QtDebugMsg, __func__, "  when device is not usb, deviceWorker returns share result.");
        Q_EMIT shareDeviceResult(device, success);
    }
    if (device.rdrName == DISKRDR) {
        Log::module(QtDebugMsg, __func__, " usb disk mapping.");
        Q_EMIT diskMapResultInUsb(device.devicePosition, QStringLiteral("Map"), success);
    }
    Log::module(QtDebugMsg, __func__, " end");
}

void DevRedirectWorker::onUnShareDeviceByWorker(const ExterDeviceInfo &device)
{
    Log::module(QtDebugMsg, __func__, " begin to unshare deveic. ", "deviceId: ", device.deviceId);
    const bool success =
        excuteRedirectCmd(structCtrlCommand(QString(), device.deviceId, QStringLiteral("unshare"), device));
    Q_EMIT unRedirectDeviceByIdResult(device, success);
}

void DevRedirectWorker::onUnShareAllByWorker()
{
    Log::module(QtDebugMsg, __func__, "is called.");
    const QString command = structCtrlCommand(QString(), QString(), QStringLiteral("unshareall"), ExterDeviceInfo());
    Q_EMIT unRedirectDeviceAllResult(excuteRedirectCmd(command));
}
