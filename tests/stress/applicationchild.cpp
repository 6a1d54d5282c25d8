// SPDX-License-Identifier: LGPL-2.1-or-later

// A host that makes one application object after the other, each of which goes with a list that nobody has seen, and
// replaces the interface: once before the old one is destroyed, once after. Status 0 if lists come through and the
// worker ends first all the same.

#include "devices/devredirectmanger.h"
#include "interface/devredirectinterface.h"
#include "support/waitfor.h"
#include "worker/devredirectworker.h"

#include <QCoreApplication>
#include <QThread>

#include <atomic>
#include <memory>

namespace {

constexpr int WatchMilliseconds = 100;

std::atomic<int> linesOfOthers{0};
Qt::HANDLE mainThread = nullptr;
DevRedirectInterface *latest = nullptr;
bool isWorking = false;
int lists = 0;

void onLine(QtMsgType, const QMessageLogContext &, const QString &)
{
    if (QThread::currentThreadId() != mainThread)
        ++linesOfOthers;
}

// Runs behind the library's own, which is added later.
void onApplicationGoes()
{
    const int before = linesOfOthers;
    latest->unRedirectDeviceAll();
    QThread::msleep(WatchMilliseconds);
    isWorking = linesOfOthers != before;
}

std::unique_ptr<DevRedirectInterface> makeInterface()
{
    auto redirect = std::make_unique<DevRedirectInterface>(nullptr);
    redirect->sendMapCommandByDevModel([](QList<ExterDeviceInfo> &) { ++lists; });
    Q_EMIT redirect->loadDynamicLib();
    redirect->getDeviceListFromUniqueFrame();
    latest = redirect.get();
    return redirect;
}

} // namespace

int main(int argc, char **argv)
{
    mainThread = QThread::currentThreadId();
    qInstallMessageHandler(onLine);
    std::unique_ptr<DevRedirectInterface> redirect;
    for (const bool isDestroyedFirst : {true, false, true}) {
        auto application = std::make_unique<QCoreApplication>(argc, argv);
        qAddPostRoutine(onApplicationGoes);
        if (isDestroyedFirst)
            redirect.reset();
        auto next = makeInterface();
        // Before the old interface goes, the new one has its list.
        QMetaObject::invokeMethod(
            DevRedirectManger::instance()->getRedirectWorkerInstance(), [] {}, Qt::BlockingQueuedConnection);
        redirect = std::move(next);
        lists = 0;
        if (!waitFor([] { return lists > 0; }))
            return 3;
        redirect->getDeviceListFromUniqueFrame();
        while (DevRedirectManger::instance()->getIsHandlerNotifyEvent()) // until a notification is under way
            QThread::msleep(1);
        application.reset();
        if (isWorking)
            return 4;
    }
    return 0;
}
