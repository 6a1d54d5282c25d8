// SPDX-License-Identifier: LGPL-2.1-or-later

// A host that calls exit() while one of its threads writes a line. Status 0 if Qt keeps what lines need until the
// interface's part of the end is over, and if then no line is under way, none comes, and the worker takes no request.

#include "interface/devredirectinterface.h"

#include <QCoreApplication>
#include <QLoggingCategory>
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
std::atomic<bool> endWaitsForLine{false};
std::atomic<bool> isEnding{false};
Qt::HANDLE mainThread = nullptr;
DevRedirectInterface *redirect = nullptr; // never destroyed
bool isAnswered = false;

void onLine(QtMsgType, const QMessageLogContext &, const QString &)
{
    if (QThread::currentThreadId() == mainThread)
        return;
    ++begun;
    while (endWaitsForLine && !isEnding)
        QThread::msleep(1);
    QThread::msleep(LineMilliseconds);
    if (!QLoggingCategory::defaultCategory())
        _exit(7);
    if (!qFormatLogMessage(QtDebugMsg, QMessageLogContext(), QStringLiteral("line")).endsWith(QLatin1Char('!')))
        _exit(8);
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
    mainThread = QThread::currentThreadId();
    qInstallMessageHandler(onLine);
    QCoreApplication application(argc, argv);
    std::atexit(onInterfaceOver);
    redirect = new DevRedirectInterface(nullptr);
    qSetMessagePattern(QStringLiteral("%{message}!"));
    QObject::connect(redirect, &DevRedirectInterface::unRedirectDeviceAllResult, [] { isAnswered = true; });
    redirect->unRedirectDeviceAll();
    while (!isAnswered)
        QCoreApplication::processEvents();
    isAnswered = false;
    std::thread([] {
        for (;;)
            redirect->notifyUsbInfo(QStringLiteral("Stick:1-1:1:5"));
    }).detach();
    endWaitsForLine = true;
    while (begun == ended)
        QThread::msleep(1);
    isEnding = true;
    std::exit(0);
}
