// SPDX-License-Identifier: LGPL-2.1-or-later

// What the host knows of USB devices and cameras, pushed down to the component.

#include "log/log.h"
#include "worker/devredirectworker.h"

#include <QStringList>

static constexpr int FieldsPerEntry = 4;

void DevRedirectWorker::notifyUsbInfo(const QString &strUsbInfos)
{
    Log::trace(QtInfoMsg, __func__, " DevRedirectWorker:strUsbInfos: ", strUsbInfos);
    const QStringList entries = strUsbInfos.split(QLatin1Char(';'), Qt::SkipEmptyParts);
    Log::trace(QtInfoMsg, __func__, " DevRedirectWorker:slUsbInfos: ", Log::Texts{entries});

    for (const QString &entry : entries) {
        const QStringList fields = entry.split(QLatin1Char(':'));
        if (fields.size() < FieldsPerEntry) {
            Log::module(QtWarningMsg, __func__, " skip usb info with too few fields: ", entry);
            continue;
        }
        const int fileDescriptor = fields[3].toInt();
        Log::trace(QtInfoMsg, __func__, " DevRedirectWorker:strProductName: ", fields[0], "strDeviceName: ", fields[1],
                   "strDeviceAttach: ", fields[2], "iFileDescrible: ", fileDescriptor);
        const QString command = structUsbInfoCommand(fields[0], fields[1], fields[2], fileDescriptor);
        Log::trace(QtInfoMsg, __func__, " DevRedirectWorker:strUsbInfoCommand: ", command);
        const bool ok = excuteNotifyUsbInfoCmd(command);
        Log::module(QtInfoMsg, __func__, ok ? " excute notify usb info success." : "excute notify usb info failed!");
    }

    Log::module(QtInfoMsg, __func__, "dlx before get device list for devredirectworker!");
    onNotifyEventHandler();
    Log::module(QtInfoMsg, __func__, "dlx after get device list for devredirectworker!");
}

void DevRedirectWorker::sendConfigerInforToCamera(const QList<QString> &policies)
{
    if (excuteSendCameraConfigerInfo(structCameraConfigerInfoCommand(policies)))
        Log::module(QtInfoMsg, __func__, "excute send configer infor to camera success!");
    else
        Log::module(QtInfoMsg, __func__, "excute send configer infor to camera failed!");
}
