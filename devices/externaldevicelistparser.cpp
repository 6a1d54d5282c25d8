// SPDX-License-Identifier: LGPL-2.1-or-later
#include "devices/externaldevicelistparser.h"

#include "devices/devredirectmanger.h"
#include "json/readjson.h"
#include "log/log.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonParseError>
#include <QVariant>

#include <limits>

namespace {

constexpr const char *Method = "parseExternalDeviceList";
constexpr unsigned int LongestDocument = std::numeric_limits<int>::max() - 64; // a QByteArray with its own header
constexpr int Shared = 2;
constexpr int NotShared = 0;

enum class Case { AsListed, Upper };

struct TextKey
{
    const char *key;
    QString ExterDeviceInfo::*member;
    Case transformation;
};

constexpr TextKey TextKeys[] = {
    {"rdrName", &ExterDeviceInfo::rdrName, Case::AsListed},
    {"context", &ExterDeviceInfo::context, Case::AsListed},
    {"vendorId", &ExterDeviceInfo::vendorId, Case::Upper},
    {"productId", &ExterDeviceInfo::productId, Case::Upper},
    {"devicePosition", &ExterDeviceInfo::devicePosition, Case::Upper},
    {"deviceName", &ExterDeviceInfo::deviceName, Case::AsListed},
    {"deviceClass", &ExterDeviceInfo::deviceClass, Case::Upper},
    {"storeLetter", &ExterDeviceInfo::storeLetter, Case::AsListed},
    {"deviceId", &ExterDeviceInfo::deviceId, Case::AsListed},
    {"usbHub", &ExterDeviceInfo::usbHub, Case::AsListed},
    {"usbPort", &ExterDeviceInfo::usbPort, Case::AsListed},
    {"vmId", &ExterDeviceInfo::vmId, Case::AsListed},
    {"usbProt", &ExterDeviceInfo::usbProt, Case::Upper},
    {"deviceRel", &ExterDeviceInfo::deviceRel, Case::Upper},
    {"deviceSubClass", &ExterDeviceInfo::deviceSubClass, Case::Upper},
    {"errCode", &ExterDeviceInfo::errCode, Case::Upper},
    {"errString", &ExterDeviceInfo::errString, Case::Upper},
};

// The component sends its integers as JSON strings; anything else reads as 0.
int integerIn(const QJsonObject &object, QLatin1String key)
{
    return object.value(key).toString().toInt();
}

FunctionInfo readFunction(const QJsonObject &object)
{
    FunctionInfo function;
    function.founctionClass = object.value(QLatin1String("founctionClass")).toString();
    const int listedId = integerIn(object, QLatin1String("founctionId"));
    // The component counts functions from 0, the host from 1. The largest number has no successor and stays.
    function.founctionId = listedId == std::numeric_limits<int>::max() ? listedId : listedId + 1;
    function.founctionBitmapMask = integerIn(object, QLatin1String("founctionBitmapMask"));
    return function;
}

void readFunctions(const QJsonArray &entries, ExterDeviceInfo &device)
{
    device.isCompositeDevice = !entries.isEmpty();
    for (const QJsonValue entry : entries) {
        const FunctionInfo function = readFunction(entry.toObject());
        Log::module(QtDebugMsg, Method, "device:", device.devicePosition, ",functionclass:", function.founctionClass,
                    ",functionId:", function.founctionId, ",functionBitmapMask:", function.founctionBitmapMask);
        device.functions.append(function);
    }
}

ExterDeviceInfo readDevice(const QJsonObject &object)
{
    ExterDeviceInfo device;
    for (const TextKey &text : TextKeys) {
        const QString value = object.value(QLatin1String(text.key)).toString();
        device.*text.member = text.transformation == Case::Upper ? value.toUpper() : value;
    }
    device.status = integerIn(object, QLatin1String("isShared")) != 0 ? Shared : NotShared;
    device.parsedStatus = device.status;
    device.readOnly = object.value(QLatin1String("readOnly")).toBool(false);
    device.founctionBitmapMask = integerIn(object, QLatin1String("founctionBitmapMask"));
    device.spareFlagA = false;
    device.spareFlagB = true;
    Log::module(QtInfoMsg, Method, "deviceInfo.errCode", device.errCode, "deviceInfo.errStr", device.errString);

    if (device.devicePosition.isEmpty())
        device.devicePosition = device.deviceId;
    Log::module(QtDebugMsg, Method, "device:", device.devicePosition, ",deviceBitmapMask:", device.founctionBitmapMask);
    readFunctions(object.value(QLatin1String("founctionInfo")).toArray(), device);
    return device;
}

} // namespace

bool parseExternalDeviceList(const char *data, unsigned int length, QList<ExterDeviceInfo> &devices)
{
    Log::module(QtDebugMsg, Method, " enter!", " parse external device list. devices.count: ", devices.size(),
                " ,length: ", length);
    QJsonParseError error;
    const QJsonDocument document = readJson(QByteArray::fromRawData(data, int(qMin(length, LongestDocument))), &error);
    if (error.error != QJsonParseError::NoError)
        Log::module(QtCriticalMsg, Method, "parse json error: ", error.errorString());
    if (document.isNull()) {
        Log::module(QtCriticalMsg, Method, QStringLiteral(" Json Parse Error: %1").arg(error.errorString()));
        return false;
    }

    const QJsonArray elements = document.array();
    const QString text = document.toVariant().toString();
    DevRedirectManger::instance()->setDevListJsonStr(text);
    Log::module(QtDebugMsg, Method, " json Array count: ", elements.size(), " ,jsonStr: ", text);

    for (const QJsonValue element : elements) {
        const QJsonArray entries = element.toObject().value(QLatin1String("devices")).toArray();
        for (const QJsonValue entry : entries) {
            if (entry.isObject())
                devices.append(readDevice(entry.toObject()));
        }
    }
    Log::module(QtDebugMsg, Method, " end");
    return true;
}
