// SPDX-License-Identifier: LGPL-2.1-or-later
#include "checks.h"

#include <QFile>

#include <algorithm>

namespace {

const QString Log = QStringLiteral("log");

struct Cause
{
    const char *line; ///< a part of it
    const char *meaning;
    const char *cure;
};

// In the order in which things go wrong: the first one that a log shows is most often the cause of the others.
constexpr Cause Causes[] = {
    {"Failed to load redirection library", "the component is not there, or lacks a library of its own",
     "run devredir-doctor beside the client, or with --component"},
    {"get address of func", "the component lacks an entry point", "install a component that was made for this library"},
    {"config file is not exist!", "\"Device Redirect/config.json\" is missing", "put it beside the client"},
    {"notifyDevRedirEvent is null!", "the client set no event callback, so nothing is started",
     "tell the client's developers"},
    {"load Redir Component fail", "the component refused to start", "read the component's own log: mostly config.json"},
    {"is NULL", "the client asked for something while no component was loaded",
     "look for a line about loading before this one"},
    {"channel is not registered!", "the component does not take a port of the virtual machine",
     "compare the port's name with \"channelPrefix\" of config.json; other programs' ports are rightly left alone"},
    {"port channel refuses messages", "the connection to the virtual machine was lost, or its port closed",
     "see whether the virtual machine runs and the network is there"},
    {"may not open /dev", "this user may not open a device", "add the udev rule that the line names"},
    {"mounted at ", "a disk is mounted here, so it is not shared", "unmount it first"},
    {"no free channel", "the virtual machine has fewer ports than devices are shared", "give it one more USB port"},
    {"parse json error", "the component's list cannot be read", "tell the component's developers"},
    {"is out of range", "the component claims a longer list than there is room for", "tell the component's developers"},
    {"exception from", "the component or a callback of the client has thrown", "tell the developers of who is named"},
    {"Log output too frequently", "something asks very often, and lines of this kind are debug lines from here on",
     "set QT_LOGGING_RULES=default.debug=true to see them"},
};

} // namespace

Findings checkLog(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {bad(Log, path + QStringLiteral(": ") + file.errorString(), QStringLiteral("name a readable log"))};
    const QList<QByteArray> lines = file.readAll().split('\n');
    Findings findings;
    for (const Cause &cause : Causes) {
        const auto shows = [&](const QByteArray &line) { return line.contains(cause.line); };
        const auto first = std::find_if(lines.begin(), lines.end(), shows);
        if (first != lines.end())
            findings.append(bad(Log,
                                QStringLiteral("%1 (line %2, %3 times)")
                                    .arg(QString::fromUtf8(cause.meaning))
                                    .arg(first - lines.begin() + 1)
                                    .arg(std::count_if(first, lines.end(), shows)),
                                QString::fromUtf8(cause.cure)));
    }
    if (findings.isEmpty())
        findings.append(good(Log, QStringLiteral("shows no known trouble")));
    return findings;
}
