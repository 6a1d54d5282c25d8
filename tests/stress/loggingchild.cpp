// SPDX-License-Identifier: LGPL-2.1-or-later

// A host that calls exit() while one of its threads writes lines. Status 0 if none is under way, and none comes, once
// the interface's part of the end is over.

#include "interface/devredirectinterface.h"

#include <QCoreApplication>
#include <QThread>

#include <atomic>
#include <cstdlib>
#include <thread>

#include <unistd.h>

namespace {

constexpr int LineMilliseconds = 10;
constexpr int WatchMilliseconds = 100;

std::atomic<int> begun{0};
std::atomic<int> ended{0};

void onLine(QtMsgType, const QMessageLogContext &, const QString &)
{
    static const Qt::HANDLE mainThread = QThread::currentThreadId();
    if (QThread::currentThreadId() == mainThread)
        return;
    ++begun;
    QThread::msleep(LineMilliseconds);
    ++ended;
}

void onInterfaceOver()
{
    const int before = begun;
    if (before != ended)
        _exit(4);
    QThread::msleep(WatchMilliseconds);
    if (begun != before)
        _exit(5);
}

} // namespace

int main(int argc, char **argv)
{
    qInstallMessageHandler(onLine);
    QCoreApplication application(argc, argv);
    qDebug("The first line is the main thread's.");
    std::atexit(onInterfaceOver);
    auto *const redirect = new DevRedirectInterface(nullptr); // never destroyed
    std::thread([redirect] {
        for (;;)
            redirect->notifyUsbInfo(QStringLiteral("Stick:1-1:1:5"));
    }).detach();
    while (ended < 3)
        QThread::msleep(1);
    std::exit(0);
}
