// SPDX-License-Identifier: LGPL-2.1-or-later

// A host that calls exit() while one of its threads writes lines. Status 0 if, once the interface's part of the end is
// over, no line is under way, none comes, and the worker takes no request.

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
DevRedirectInterface *redirect = nullptr; // never destroyed
bool isAnswered = false;

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
    redirect->unRedirectDeviceAll();
    QThread::msleep(WatchMilliseconds);
    if (begun != before)
        _exit(5);
    QCoreApplication::processEvents();
    if (isAnswered)
        _exit(6);
}

} // namespace

int main(int argc, char **argv)
{
    qInstallMessageHandler(onLine);
    QCoreApplication application(argc, argv);
    qDebug("The first line is the main thread's.");
    std::atexit(onInterfaceOver);
    redirect = new DevRedirectInterface(nullptr);
    QObject::connect(redirect, &DevRedirectInterface::unRedirectDeviceAllResult, [] { isAnswered = true; });
    redirect->unRedirectDeviceAll();
    while (!isAnswered)
        QCoreApplication::processEvents();
    isAnswered = false;
    std::thread([] {
        for (;;)
            redirect->notifyUsbInfo(QStringLiteral("Stick:1-1:1:5"));
    }).detach();
    while (ended < 3)
        QThread::msleep(1);
    std::exit(0);
}
