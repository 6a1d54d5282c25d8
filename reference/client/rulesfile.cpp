// SPDX-License-Identifier: LGPL-2.1-or-later
#include "rulesfile.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QStandardPaths>

#include <memory>

#include <glib.h>

namespace {

struct Key
{
    const char *name;
    QString DeviceRule::*value;
    const char *form;
};

const Key Keys[] = {
    {"class", &DeviceRule::deviceClass, "^[0-9a-fA-F]{2}$"}, {"vendor", &DeviceRule::vendorId, "^[0-9a-fA-F]{4}$"},
    {"product", &DeviceRule::productId, "^[0-9a-fA-F]{4}$"}, {"serial", &DeviceRule::serial, "."},
    {"port", &DeviceRule::port, "^\\d+-\\d+(\\.\\d+)*$"},
};

// What is wrong with the value of a key; empty: nothing.
QString readKey(const QString &key, const QString &value, DeviceRule &rule)
{
    const auto isOf = [&value](const char *form) {
        return QRegularExpression(QString::fromLatin1(form)).match(value).hasMatch();
    };
    if (key == QLatin1String("action")) {
        rule.allow = value == QLatin1String("allow");
        return rule.allow || value == QLatin1String("deny") ? QString() : QStringLiteral("is allow or deny");
    }
    if (key == QLatin1String("interfaces")) {
        rule.interfaceClasses = value.split(QLatin1Char(';'), Qt::SkipEmptyParts);
        return isOf("^[0-9a-fA-F]{2}(;[0-9a-fA-F]{2})*;?$") ? QString() : QStringLiteral("is a list like 08;0a");
    }
    for (const Key &known : Keys) {
        if (key != QLatin1String(known.name))
            continue;
        rule.*known.value = value;
        return isOf(known.form) ? QString() : QStringLiteral("cannot be \"%1\"").arg(value);
    }
    return QStringLiteral("is not known; there are action, class, vendor, product, serial, port and interfaces");
}

using KeyFile = std::unique_ptr<GKeyFile, decltype(&g_key_file_unref)>;

// Null, and what is wrong, if the file is there and cannot be read.
KeyFile load(const QString &path, QString &error)
{
    KeyFile file(g_key_file_new(), &g_key_file_unref);
    g_autoptr(GError) failure = nullptr;
    if (!QFile::exists(path)
        || g_key_file_load_from_file(file.get(), QFile::encodeName(path).constData(), G_KEY_FILE_KEEP_COMMENTS,
                                     &failure))
        return file;
    error = QStringLiteral("%1 cannot be read: %2. Mend it there").arg(path, QString::fromUtf8(failure->message));
    return KeyFile(nullptr, &g_key_file_unref);
}

QString save(const KeyFile &file, const QString &path)
{
    QDir().mkpath(QFileInfo(path).path());
    g_autoptr(GError) failure = nullptr;
    if (g_key_file_save_to_file(file.get(), QFile::encodeName(path).constData(), &failure))
        return {};
    return QStringLiteral("%1 cannot be written: %2. Make it writable for you")
        .arg(path, QString::fromUtf8(failure->message));
}

QByteArray titleFor(const ExterDeviceInfo &device)
{
    static const QRegularExpression notInTitles(QStringLiteral("[\\[\\]\\x00-\\x1f\\x7f]"));
    return (QStringLiteral("always ") + QString(device.deviceId).replace(notInTitles, QStringLiteral("_"))).toUtf8();
}

} // namespace

QString RulesFile::path()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation)
        + QStringLiteral("/devredir/rules.conf");
}

std::optional<DeviceRules> RulesFile::read(const QString &path, QString &error)
{
    const KeyFile file = load(path, error);
    if (!file)
        return {};
    QList<DeviceRule> read;
    g_auto(GStrv) groups = g_key_file_get_groups(file.get(), nullptr);
    for (gchar **group = groups; *group; ++group) {
        const QString any = QStringLiteral("*");
        DeviceRule rule{false, any, any, any, any, any, {}, QString::fromUtf8(*group)};
        bool hasAction = false;
        g_auto(GStrv) keys = g_key_file_get_keys(file.get(), *group, nullptr, nullptr);
        for (gchar **key = keys; *key; ++key) {
            g_autofree gchar *value = g_key_file_get_string(file.get(), *group, *key, nullptr);
            const QString wrong = readKey(QString::fromUtf8(*key), QString::fromUtf8(value).trimmed(), rule);
            if (!wrong.isEmpty()) {
                error = QStringLiteral("%1: [%2]: \"%3\" %4").arg(path, rule.name, QString::fromUtf8(*key), wrong);
                return {};
            }
            hasAction = hasAction || g_strcmp0(*key, "action") == 0;
        }
        if (!hasAction) {
            error = QStringLiteral("%1: [%2] lacks action=allow or action=deny").arg(path, rule.name);
            return {};
        }
        read.append(rule);
    }
    DeviceRules rules;
    rules.replaceBy(read);
    return rules;
}

QString RulesFile::allow(const QString &path, const ExterDeviceInfo &device)
{
    QString error;
    const KeyFile file = load(path, error);
    if (!file)
        return error;
    const DeviceTraits traits = traitsOf(device);
    const QByteArray title = titleFor(device);
    const auto set = [&](const char *key, const QString &value) {
        g_key_file_set_string(file.get(), title.constData(), key, value.toUtf8().constData());
    };
    set("action", QStringLiteral("allow"));
    set("vendor", traits.vendorId);
    set("product", traits.productId);
    if (traits.serial.isEmpty())
        set("port", traits.port);
    else
        set("serial", traits.serial);
    return save(file, path);
}

QString RulesFile::forget(const QString &path, const ExterDeviceInfo &device)
{
    QString error;
    const KeyFile file = load(path, error);
    if (!file || !g_key_file_remove_group(file.get(), titleFor(device).constData(), nullptr))
        return error;
    return save(file, path);
}

DeviceTraits traitsOf(const ExterDeviceInfo &device)
{
    DeviceTraits traits{device.deviceClass,    device.vendorId,
                        device.productId,      device.deviceId.section(QLatin1Char(':'), 1),
                        device.devicePosition, {}};
    for (const FunctionInfo &function : device.functions)
        traits.interfaceClasses.append(function.founctionClass);
    if (traits.interfaceClasses.isEmpty())
        traits.interfaceClasses.append(device.deviceClass);
    return traits;
}
