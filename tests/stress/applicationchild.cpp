// SPDX-License-Identifier: LGPL-2.1-or-later

// A host whose application object goes while the interface lives. Status 0 if the worker, whose work shows in its log
// lines, takes no request any more when the host's own routine for that moment runs.

#include "interface/devredirectinterface.h"

#include <QCoreApplication>
#include <QThread>

#include <atomic>
#include <memory>

namespace {

constexpr int WatchMilliseconds = 100;

std::atomic<int> linesOfOthers{0};
Qt::HANDLE mainThread = nullptr;
DevRedirectInterface *redirect = nullptr; // never destroyed
bool isWorking = false;

void onLine(QtMsgType, const QMessageLogContext &, const QString &)
{
    if (QThread::currentThreadId() != mainThread)
        ++linesOfOthers;
}

// Runs behind the library's own, which was added later.
void onApplicationGoes()
{
    const int before = linesOfOthers;
    redirect->unRedirectDeviceAll();
    QThread::msleep(WatchMilliseconds);
    isWorking = linesOfOthers != before;
}

} // namespace

int main(int argc, char **argv)
{
    mainThread = QThread::currentThreadId();
    qInstallMessageHandler(onLine);
    auto application = std::make_unique<QCoreApplication>(argc, argv);
    qAddPostRoutine(onApplicationGoes);
    redirect = new DevRedirectInterface(nullptr);
    redirect->unRedirectDeviceAll();
    while (linesOfOthers == 0)
        QThread::msleep(1);
    application.reset();
    return isWorking ? 4 : 0;
}
