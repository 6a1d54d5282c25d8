// SPDX-License-Identifier: LGPL-2.1-or-later

// devredir-host: shares this machine's USB devices with a virtual machine over SPICE.

#include "host.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QLoggingCategory>
#include <QSocketNotifier>

#include <cstdio>
#include <iostream>

#include <glib-unix.h>
#include <unistd.h>

namespace {

const char *const Help = "\nActions run in the order list, share, unshare. A program that shares a device stays until "
                         "it is interrupted; then\n"
                         "it takes its devices back. Without an action it reads requests from standard input:\n"
                         "list, share ID|all, unshare ID|all, quit.\n"
                         "\nExit codes: 0 success, 1 a request failed, 2 wrong usage, 3 no component, 4 no connection "
                         "or lost, 5 no channel.";

// Reads the options; false, and a line on standard error, if they are wrong.
bool read(QCoreApplication &application, Host::Options &options)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Shares USB devices with a virtual machine over SPICE.")
                                     + QLatin1String(Help));
    parser.addHelpOption();
    const QCommandLineOption uri(QStringLiteral("uri"), QStringLiteral("SPICE address."),
                                 QStringLiteral("spice+unix:///PATH"));
    const QCommandLineOption host(QStringLiteral("host"), QStringLiteral("SPICE server."), QStringLiteral("NAME"));
    const QCommandLineOption port(QStringLiteral("port"), QStringLiteral("Its port."), QStringLiteral("NUMBER"));
    const QCommandLineOption vm(QStringLiteral("vm-id"), QStringLiteral("Identifier of the virtual machine."),
                                QStringLiteral("ID"), QStringLiteral("vm"));
    const QCommandLineOption list(QStringLiteral("list"), QStringLiteral("List the devices."));
    const QCommandLineOption share(QStringLiteral("share"), QStringLiteral("Share a device, or all."),
                                   QStringLiteral("ID"));
    const QCommandLineOption unshare(QStringLiteral("unshare"), QStringLiteral("Take a device back, or all."),
                                     QStringLiteral("ID"));
    const QCommandLineOption automatic(
        QStringLiteral("auto"),
        QStringLiteral(
            "Share what is plugged in by rules, separated by commas: allow[:CLASS]:VENDOR:PRODUCT or deny…; * "
            "is any, the first that fits decides."),
        QStringLiteral("RULES"));
    const QCommandLineOption watch(QStringLiteral("watch"), QStringLiteral("Stay and tell of plugs."));
    const QCommandLineOption json(QStringLiteral("json"), QStringLiteral("One JSON object a line."));
    const QCommandLineOption logRules(QStringLiteral("log-rules"),
                                      QStringLiteral("Qt logging rules, for example '*=true'. The log goes to standard "
                                                     "error; without this it shows warnings only."),
                                      QStringLiteral("RULES"), QStringLiteral("*.debug=false\n*.info=false"));
    parser.addOptions({uri, host, port, vm, list, share, unshare, automatic, watch, json, logRules});
    parser.process(application);

    options.uri = parser.isSet(uri) ? parser.value(uri)
                                    : QStringLiteral("spice://%1:%2").arg(parser.value(host), parser.value(port));
    if (!parser.isSet(uri) && !(parser.isSet(host) && parser.isSet(port))) {
        std::cerr << "Say where the virtual machine is: --uri, or --host and --port (see --help).\n";
        return false;
    }
    if (parser.isSet(automatic) && !options.autoRules.set(parser.value(automatic).split(QLatin1Char(',')))) {
        std::cerr << "A rule reads allow[:CLASS]:VENDOR:PRODUCT, for example allow:08:*:* for every disk.\n";
        return false;
    }
    QLoggingCategory::setFilterRules(parser.value(logRules).replace(QLatin1Char(';'), QLatin1Char('\n')));
    options.vmId = parser.value(vm);
    options.json = parser.isSet(json);
    options.watch = parser.isSet(watch);
    options.autoShare = parser.isSet(automatic);
    if (parser.isSet(list))
        options.requests.append(QStringLiteral("list"));
    for (const QString &id : parser.values(share))
        options.requests.append(QStringLiteral("share ") + id);
    for (const QString &id : parser.values(unshare))
        options.requests.append(QStringLiteral("unshare ") + id);
    options.interactive = options.requests.isEmpty() && !options.watch && !options.autoShare;
    return true;
}

gboolean onInterrupt(gpointer host)
{
    static_cast<Host *>(host)->leave(ExitCode::Success);
    return G_SOURCE_CONTINUE;
}

void readRequest(Host &host, QSocketNotifier &input)
{
    char bytes[4096];
    const ssize_t count = ::read(STDIN_FILENO, bytes, sizeof bytes);
    static QByteArray received;
    received.append(bytes, count > 0 ? int(count) : 0);
    for (int end = received.indexOf('\n'); end >= 0; end = received.indexOf('\n')) {
        const QString line = QString::fromUtf8(received.left(end)).trimmed();
        received.remove(0, end + 1);
        if (line == QLatin1String("quit"))
            host.leave(ExitCode::Success);
        else if (!line.isEmpty() && !host.request(line))
            std::cout << "Requests: list, share ID|all, unshare ID|all, quit." << std::endl;
    }
    if (count <= 0) {
        input.setEnabled(false);
        host.noMoreRequests();
    }
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    Host::Options options;
    if (!read(application, options))
        return ExitCode::Usage;

    const bool interactive = options.interactive;
    Host host(std::move(options));
    g_unix_signal_add(SIGINT, onInterrupt, &host);
    g_unix_signal_add(SIGTERM, onInterrupt, &host);
    QSocketNotifier input(STDIN_FILENO, QSocketNotifier::Read);
    input.setEnabled(interactive);
    QObject::connect(&input, &QSocketNotifier::activated, &host, [&] { readRequest(host, input); });
    host.start();
    return QCoreApplication::exec();
}
