// SPDX-License-Identifier: LGPL-2.1-or-later
#include "checks.h"
#include "reference/component/config.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QLibrary>

namespace {

const QString Component = QStringLiteral("component");
const QString EntryPoints = QStringLiteral("entry points");
const QString Configuration = QStringLiteral("config.json");

constexpr const char *Names[] = {
    "redirInit", "redirCheck", "redirSetupContext", "redirHandler", "redirEventHandler", "redirCtrl", "redirDeinit",
};

// Line and column of a byte, counted from 1.
QString placeOf(const QByteArray &text, int offset)
{
    const QByteArray before = text.left(offset);
    return QStringLiteral("line %1, column %2")
        .arg(before.count('\n') + 1)
        .arg(QString::fromUtf8(before.mid(before.lastIndexOf('\n') + 1)).size() + 1);
}

} // namespace

Findings checkComponent(const QString &folder)
{
    const QString path = folder + QStringLiteral("/libdevredir.so");
    if (!QFileInfo::exists(path))
        return {bad(Component, QStringLiteral("there is no ") + path,
                    QStringLiteral("put it into the folder \"Device Redirect\" beside the program, or name its folder "
                                   "with --component"))};
    QLibrary library(path);
    if (!library.load())
        return {bad(Component, library.errorString(),
                    QStringLiteral("see with \"ldd %1\" what it lacks, and install that").arg(path))};
    QStringList missing;
    for (const char *name : Names) {
        if (!library.resolve(name))
            missing.append(QString::fromUtf8(name));
    }
    return {good(Component, path),
            missing.isEmpty()
                ? good(EntryPoints, QStringLiteral("all seven are there"))
                : bad(EntryPoints, QStringLiteral("missing: ") + missing.join(QStringLiteral(", ")),
                      QStringLiteral("install a component that was made for this library, or export these functions "
                                     "with C linkage"))};
}

Findings checkConfiguration(const QString &folder)
{
    const QString path = folder + QStringLiteral("/config.json");
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {bad(Configuration, path + QStringLiteral(": ") + file.errorString(),
                    QStringLiteral("without it no component is started; {} is enough for the reference component"))};
    const QByteArray text = file.readAll();
    QJsonParseError error;
    QJsonDocument::fromJson(text, &error);
    if (error.error != QJsonParseError::NoError)
        return {bad(Configuration,
                    QStringLiteral("%1: %2: %3").arg(path, placeOf(text, error.offset), error.errorString()),
                    QStringLiteral("mend it there; it has to be JSON"))};
    Config config;
    QString reason;
    if (!Config::parse(text, config, reason))
        return {bad(Configuration, path + QStringLiteral(": ") + reason,
                    QStringLiteral("another component may want it; the reference one does not start with it"))};
    return {good(Configuration, path)};
}
