// SPDX-License-Identifier: LGPL-2.1-or-later
#include "devices/externaldevicelistparser.h"

#include "devices/devicelistreaders.h"
#include "devices/devredirectmanger.h"
#include "log/log.h"

#include <QJsonParseError>
#include <QVariant>

#include <limits>

namespace {

constexpr const char *Method = "parseExternalDeviceList";
constexpr unsigned int LongestDocument = std::numeric_limits<int>::max() - 64; // a QByteArray with its own header

// Tells of a record and completes it.
void complete(ExterDeviceInfo &device)
{
    Log::module(QtInfoMsg, Method, "deviceInfo.errCode", device.errCode, "deviceInfo.errStr", device.errString);
    if (device.devicePosition.isEmpty())
        device.devicePosition = device.deviceId;
    Log::module(QtDebugMsg, Method, "device:", device.devicePosition, ",deviceBitmapMask:", device.founctionBitmapMask);
    for (const FunctionInfo &function : qAsConst(device.functions)) {
        Log::module(QtDebugMsg, Method, "device:", device.devicePosition, ",functionclass:", function.founctionClass,
                    ",functionId:", function.founctionId, ",functionBitmapMask:", function.founctionBitmapMask);
    }
}

void store(DeviceListReaders::Content content, const QString &text, QList<ExterDeviceInfo> &devices)
{
    DevRedirectManger::instance()->setDevListJsonStr(text);
    Log::module(QtDebugMsg, Method, " json Array count: ", content.elements, " ,jsonStr: ", text);
    for (ExterDeviceInfo &device : content.devices)
        complete(device);
    devices += content.devices;
    Log::module(QtDebugMsg, Method, " end");
}

bool parseWithQt(const QByteArray &bytes, QList<ExterDeviceInfo> &devices)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(bytes, &error);
    if (error.error != QJsonParseError::NoError)
        Log::module(QtCriticalMsg, Method, "parse json error: ", error.errorString());
    if (document.isNull()) {
        Log::module(QtCriticalMsg, Method, QStringLiteral(" Json Parse Error: %1").arg(error.errorString()));
        return false;
    }
    store(DeviceListReaders::readWithQt(document), document.toVariant().toString(), devices);
    return true;
}

} // namespace

bool parseExternalDeviceList(const char *data, unsigned int length, QList<ExterDeviceInfo> &devices)
{
    Log::module(QtDebugMsg, Method, " enter!", " parse external device list. devices.count: ", devices.size(),
                " ,length: ", length);
    const unsigned int size = qMin(length, LongestDocument);
    auto content = DeviceListReaders::readQuickly({data, size});
    if (!content)
        return parseWithQt(QByteArray::fromRawData(data, int(size)), devices);
    store(std::move(*content), QString(), devices); // an array has no text form
    return true;
}
