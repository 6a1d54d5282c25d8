// SPDX-License-Identifier: LGPL-2.1-or-later

// Command building, and the one routine that runs a command whose answer nobody reads.

#include "component/redirecthandler.h"
#include "devices/redirectconstants.h"
#include "log/log.h"
#include "worker/devredirectworker.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMutex>

namespace {
constexpr int ReplyCapacity = 512;

QString compact(const QJsonObject &command)
{
    return QString::fromUtf8(QJsonDocument(command).toJson(QJsonDocument::Compact));
}
} // namespace

QString DevRedirectWorker::structCtrlCommand(const QString &, const QString &deviceId, const QString &command,
                                             const ExterDeviceInfo &device)
{
    const bool alternativeId =
        command == QLatin1String("share") && device.rdrName == USBRDR && !device.spareTextA.isEmpty();
    QJsonObject json{
        {QStringLiteral("command"), command},
        {QStringLiteral("context"), device.context},
        {QStringLiteral("deviceId"), alternativeId ? device.spareTextA : deviceId},
        {QStringLiteral("remotePort"), QString()},
        {QStringLiteral("readOnly"), device.readOnly},
        {QStringLiteral("deviceClass"), device.deviceClass},
        {QStringLiteral("productId"), device.productId},
        {QStringLiteral("vendorId"), device.vendorId},
        {QStringLiteral("usbHub"), device.usbHub},
        {QStringLiteral("usbPort"), device.usbPort},
        {QStringLiteral("rdrName"), device.rdrName},
        {QStringLiteral("deviceRel"), device.deviceRel},
        {QStringLiteral("usbProt"), device.usbProt},
    };
    {
        const QMutexLocker lock(&s_mutext);
        json.insert(QStringLiteral("remoteIp"), m_remoteIp);
        json.insert(QStringLiteral("localIp"), m_localIp);
    }
    QString text = compact(json);
    Log::module(QtDebugMsg, __func__, "structed ctrl command: ", text);
    return text;
}

QString DevRedirectWorker::structUsbInfoCommand(const QString &deviceName, const QString &devicePosition,
                                                const QString &deviceAttach, int fileDescriptor)
{
    QString text = compact({
        {QStringLiteral("command"), QStringLiteral("devchange")},
        {QStringLiteral("rdrName"), USBRDR},
        {QStringLiteral("devicePosition"), devicePosition},
        {QStringLiteral("deviceAttach"), deviceAttach},
        {QStringLiteral("deviceName"), deviceName},
        {QStringLiteral("fd"), fileDescriptor},
    });
    Log::module(QtDebugMsg, __func__, "structed usb Info command: ", text);
    return text;
}

QString DevRedirectWorker::structCameraConfigerInfoCommand(const QList<QString> &policies)
{
    Log::module(QtInfoMsg, __func__, "struct camera configer info command: ", Log::Texts{policies});
    QString text = compact({
        {QStringLiteral("rdrName"), CAMRDR},
        {QStringLiteral("command"), QStringLiteral("setpolicy")},
        {QStringLiteral("policy"), QJsonArray::fromStringList(policies)},
    });
    Log::module(QtInfoMsg, __func__, "structed camera configer info command: ", text);
    return text;
}

bool DevRedirectWorker::excuteRedirectCmd(const QString &command)
{
    char reply[ReplyCapacity] = {};
    int length = ReplyCapacity;
    return m_redirectHandler->handlerRedirCtrlCommand(command.toStdString(), reply, length) == 0;
}

bool DevRedirectWorker::excuteNotifyUsbInfoCmd(const QString &command)
{
    return excuteRedirectCmd(command);
}

bool DevRedirectWorker::excuteSendCameraConfigerInfo(const QString &command)
{
    return excuteRedirectCmd(command);
}
