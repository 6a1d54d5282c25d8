// SPDX-License-Identifier: LGPL-2.1-or-later
#include "config.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>

#include <algorithm>

namespace {

bool isRedirector(const QString &name)
{
    return name == QLatin1String("usbrdr") || name == QLatin1String("diskrdr") || name == QLatin1String("camrdr");
}

bool fail(QString &error, const QString &text)
{
    error = text;
    return false;
}

bool isAllOf(const QJsonValue &value, QJsonValue::Type type)
{
    if (!value.isUndefined() && !value.isArray())
        return false;
    const QJsonArray entries = value.toArray();
    return std::all_of(entries.begin(), entries.end(),
                       [type](const QJsonValue &entry) { return entry.type() == type; });
}

bool readRedirectors(const QJsonValue &value, Config &config, QString &error)
{
    if (!value.isUndefined() && !value.isObject())
        return fail(error, QStringLiteral("\"redirectors\" is not an object"));
    const QJsonObject table = value.toObject();
    for (auto entry = table.begin(); entry != table.end(); ++entry) {
        const QString redirector = entry.value().toString();
        if (!isRedirector(redirector))
            return fail(error, QStringLiteral("\"redirectors\": no such redirector: ") + redirector);
        config.redirectors.insert(entry.key().toLower(), redirector);
    }
    return true;
}

bool readFamily(const QJsonValue &value, Config &config, QString &error)
{
    return (isAllOf(value, QJsonValue::String) && config.family.set(value.toArray()))
        || fail(error, QStringLiteral("\"family\" is not a list of rules"));
}

bool readAge(const QJsonValue &value, Config &config, QString &error)
{
    config.isochronousAge = value.toInt(value.isUndefined() ? config.isochronousAge : 0);
    return config.isochronousAge > 0
        || fail(error, QStringLiteral("\"isochronousAge\" is not a number of milliseconds"));
}

bool readOpenByDescriptor(const QJsonValue &value, Config &config, QString &error)
{
    config.openByDescriptor = value.toBool();
    return value.isUndefined() || value.isBool()
        || fail(error, QStringLiteral("\"openByDescriptor\" is not true or false"));
}

} // namespace

bool Config::read(const QString &path, Config &config, QString &error)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return fail(error, path + QStringLiteral(": ") + file.errorString());
    return parse(file.readAll(), config, error);
}

bool Config::parse(const QByteArray &text, Config &config, QString &error)
{
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(text, &parseError);
    if (!document.isObject())
        return fail(error, QStringLiteral("not a JSON object: ") + parseError.errorString());

    const QJsonObject object = document.object();
    const QJsonValue prefix = object.value(QLatin1String("channelPrefix"));
    const QJsonValue readOnly = object.value(QLatin1String("readOnly"));
    const QJsonValue devices = object.value(QLatin1String("devices"));
    if (!prefix.isUndefined() && prefix.toString().isEmpty())
        return fail(error, QStringLiteral("\"channelPrefix\" is not a text"));
    if (!isAllOf(readOnly, QJsonValue::String))
        return fail(error, QStringLiteral("\"readOnly\" is not a list of texts"));
    if (!isAllOf(devices, QJsonValue::Object))
        return fail(error, QStringLiteral("\"devices\" is not a list of objects"));
    if (!readRedirectors(object.value(QLatin1String("redirectors")), config, error)
        || !readFamily(object.value(QLatin1String("family")), config, error)
        || !readAge(object.value(QLatin1String("isochronousAge")), config, error)
        || !readOpenByDescriptor(object.value(QLatin1String("openByDescriptor")), config, error))
        return false;

    config.channelPrefix = prefix.toString(config.channelPrefix);
    for (const QJsonValue entry : readOnly.toArray())
        config.readOnly.append(entry.toString().toLower());
    for (const QJsonValue entry : devices.toArray())
        config.devices.append(entry.toObject());
    return true;
}
