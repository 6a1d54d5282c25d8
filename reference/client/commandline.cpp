// SPDX-License-Identifier: LGPL-2.1-or-later
#include "commandline.h"

#include "escaped.h"
#include "spiceoptions.h"

#include <QCommandLineParser>

#include <csignal>
#include <cstdio>
#include <utility>

#include <glib-unix.h>

namespace {

constexpr int Usage = 2;

bool isIgnored(int signal)
{
    struct sigaction action = {};
    return sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

gboolean onSignal(gpointer end)
{
    (*static_cast<std::function<void()> *>(end))();
    return G_SOURCE_CONTINUE;
}

} // namespace

QCommandLineOption option(const char *name, const char *text, const char *value)
{
    return QCommandLineOption(QString::fromUtf8(name), QString::fromUtf8(text), QString::fromUtf8(value));
}

QList<QCommandLineOption> commonOptions()
{
    return {option("help", "Show this help."),
            option("help-spice", "Show the options that every SPICE client has: certificates, TLS."),
            option("version", "Show the version.")};
}

QString commonAnswer(const QCommandLineParser &parser, const char *version)
{
    if (parser.isSet(QStringLiteral("help")))
        return parser.helpText().trimmed();
    if (parser.isSet(QStringLiteral("help-spice")))
        return spiceOptionsHelp();
    return parser.isSet(QStringLiteral("version")) ? QString::fromUtf8(version) : QString();
}

int wrongUsage(const char *program, const QString &text)
{
    std::fprintf(stderr, "%s: %s\n", program, qUtf8Printable(escaped(text)));
    return Usage;
}

void whenAskedToEnd(std::function<void()> end)
{
    static std::function<void()> kept;
    kept = std::move(end);
    for (const int signal : {SIGHUP, SIGINT, SIGTERM}) {
        if (signal != SIGHUP || !isIgnored(signal)) // nohup
            g_unix_signal_add(signal, onSignal, &kept);
    }
}
