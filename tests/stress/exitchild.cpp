// SPDX-License-Identifier: LGPL-2.1-or-later

// A host that ends while everything still runs: by main's return ("return") or by exit() ("exit").

#include "interface/devredirectinterface.h"

#include <QCoreApplication>
#include <QElapsedTimer>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>

#include <spice-client.h>

namespace {
std::atomic<int> lines{0};
std::atomic<int> notices{0};
std::atomic<int> lists{0};

// Not the default one: its output would only hide what a sanitizer has to say.
void count(QtMsgType, const QMessageLogContext &, const QString &)
{
    ++lines;
}
} // namespace

int main(int argc, char **argv)
{
    qInstallMessageHandler(count);
    QCoreApplication application(argc, argv);
    auto *const redirect = new DevRedirectInterface(nullptr); // never destroyed
    redirect->setNotifyEventCallback([](void *, RedirEvent, const char *, int) { ++notices; });
    redirect->sendMapCommandByDevModel([](QList<ExterDeviceInfo> &) { ++lists; });
    Q_EMIT redirect->loadDynamicLib();
    Q_EMIT redirect->loadDevRedirComponentByThread(QStringLiteral("vm-7"));
    SpiceChannel *const channel = spice_channel_new(spice_session_new(), SPICE_CHANNEL_PORT, 0);
    Q_EMIT redirect->checkRedirChannelByThread(SPICE_PORT_CHANNEL(channel), QStringLiteral("name"), false);
    redirect->notifyEvent(); // the watch waits
    std::thread([redirect] {
        for (;;)
            redirect->notifyUsbInfo(QStringLiteral("Stick:1-1:1:5"));
    }).detach();

    QElapsedTimer timer;
    timer.start();
    while (lists < 3 || notices < 3) {
        if (timer.elapsed() > 30000) {
            std::fprintf(stderr, "nothing runs: %d lists, %d notices\n", lists.load(), notices.load());
            return 3;
        }
        redirect->unRedirectDeviceAll();
        redirect->getDeviceListFromUniqueFrame();
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    }
    for (int i = 0; i < 50; ++i) // so that the worker is busy, too
        redirect->redirectDeviceById(ExterDeviceInfo());
    if (argc > 1 && std::strcmp(argv[1], "exit") == 0)
        std::exit(0);
    return 0;
}
