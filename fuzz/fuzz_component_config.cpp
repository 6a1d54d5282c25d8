// SPDX-License-Identifier: LGPL-2.1-or-later

// "config.json" of the reference component: whether it is accepted and what is read from it.

#include "config.h"
#include "secondreader.h"
#include "target.h"

#include <algorithm>

namespace {

bool isListOf(const QJsonValue &value, QJsonValue::Type type)
{
    const QJsonArray entries = value.toArray();
    return value.isUndefined()
        || (value.isArray() && std::all_of(entries.begin(), entries.end(), [type](const QJsonValue &entry) {
                return entry.type() == type;
            }));
}

bool isRedirectorTable(const QJsonValue &value)
{
    const QStringList redirectors{QStringLiteral("usbrdr"), QStringLiteral("diskrdr"), QStringLiteral("camrdr")};
    const QJsonObject table = value.toObject();
    return value.isUndefined()
        || (value.isObject() && std::all_of(table.begin(), table.end(), [&redirectors](const QJsonValue &redirector) {
                return redirectors.contains(redirector.toString());
            }));
}

bool isAcceptable(const QJsonValue &value)
{
    const QJsonObject document = value.toObject();
    const QJsonValue prefix = document.value(QLatin1String("channelPrefix"));
    return value.isObject() && (prefix.isUndefined() || !prefix.toString().isEmpty())
        && isListOf(document.value(QLatin1String("readOnly")), QJsonValue::String)
        && isListOf(document.value(QLatin1String("devices")), QJsonValue::Object)
        && isRedirectorTable(document.value(QLatin1String("redirectors")));
}

void compareDevice(const QJsonObject &device, const QJsonObject &listed)
{
    expectEqual(device.size(), listed.size(), "number of a device's members");
    // In their order: Qt's look-up misses some names when others have characters beyond U+E000.
    auto other = listed.begin();
    for (auto member = device.begin(); member != device.end(); ++member, ++other) {
        expectEqual(member.key(), other.key(), "a device's member");
        expectEqual(member.value().toString(), other.value().toString(), "a device's text");
    }
}

void compare(const Config &config, const QJsonObject &document)
{
    const QJsonValue prefix = document.value(QLatin1String("channelPrefix"));
    expectEqual(config.channelPrefix, prefix.toString(Config().channelPrefix), "channelPrefix");

    const QJsonArray readOnly = document.value(QLatin1String("readOnly")).toArray();
    expectEqual(config.readOnly.size(), readOnly.size(), "number of read-only disks");
    for (int i = 0; i < config.readOnly.size(); ++i)
        expectEqual(config.readOnly[i], readOnly[i].toString().toLower(), "read-only disk");

    const QJsonArray devices = document.value(QLatin1String("devices")).toArray();
    expectEqual(config.devices.size(), devices.size(), "number of devices");
    for (int i = 0; i < config.devices.size(); ++i)
        compareDevice(config.devices[i], devices[i].toObject());

    // Of two spellings of one class the table keeps one.
    const QJsonObject table = document.value(QLatin1String("redirectors")).toObject();
    for (auto listed = table.begin(); listed != table.end(); ++listed) {
        const QString usbClass = listed.key().toLower();
        bool isOneOfThem = false;
        for (auto other = table.begin(); other != table.end(); ++other) {
            isOneOfThem = isOneOfThem
                || (other.key().toLower() == usbClass
                    && other.value().toString() == config.redirectors.value(usbClass));
        }
        expect(isOneOfThem, "redirector of a class");
    }
}

} // namespace

int LLVMFuzzerInitialize(int *, char ***)
{
    switchLogOff();
    return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size)
{
    Config config;
    QString error;
    const bool accepted = Config::parse(bytesOf(data, size), config, error);
    expect(accepted == error.isEmpty(), "a refusal says why");

    if (const auto document = SecondReader::read({reinterpret_cast<const char *>(data), size})) {
        expectEqual(accepted, isAcceptable(*document), "whether the configuration is accepted");
        if (accepted)
            compare(config, document->toObject());
    }
    return 0;
}
