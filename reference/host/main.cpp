// SPDX-License-Identifier: LGPL-2.1-or-later

// devredir-host: shares this machine's USB devices with a virtual machine over SPICE.

#include "host.h"
#include "reference/client/commandline.h"
#include "reference/client/spiceoptions.h"

#include <QCoreApplication>
#include <QLoggingCategory>
#include <QSocketNotifier>

#include <cstdio>

#include <unistd.h>

namespace {

void readRequests(Host &host, QSocketNotifier &input)
{
    static QByteArray received;
    char bytes[4096];
    const ssize_t count = ::read(STDIN_FILENO, bytes, sizeof bytes);
    received.append(bytes, int(qMax(count, ssize_t(0))));
    if (count <= 0 && !received.isEmpty())
        received.append('\n'); // the last line may lack its end
    for (auto end = received.indexOf('\n'); end >= 0; end = received.indexOf('\n')) {
        const QString line = QString::fromUtf8(received.left(end)).trimmed();
        received.remove(0, end + 1);
        if (!line.isEmpty())
            host.request(line);
    }
    if (count <= 0) {
        input.setEnabled(false);
        host.noMoreRequests();
    }
}

} // namespace

int main(int argc, char **argv)
{
    QString error = takeSpiceOptions(argc, argv);
    QCoreApplication application(argc, argv);
    Options options;
    QString answer;
    if (error.isEmpty())
        error = options.read(QCoreApplication::arguments(), answer);
    if (!error.isEmpty())
        return wrongUsage("devredir-host", error);
    if (!answer.isEmpty()) {
        std::puts(qUtf8Printable(answer));
        return ExitCode::Success;
    }
    QLoggingCategory::setFilterRules(QStringLiteral("*.debug=false\n*.info=false\n") + options.logRules);

    QSocketNotifier input(STDIN_FILENO, QSocketNotifier::Read);
    input.setEnabled(options.interactive);
    Host host(std::move(options));
    whenAskedToEnd([&host] { host.leave(ExitCode::Success); });
    QObject::connect(&input, &QSocketNotifier::activated, &host, [&] { readRequests(host, input); });
    QTimer::singleShot(0, &host, &Host::start);
    return QCoreApplication::exec();
}
