// SPDX-License-Identifier: LGPL-2.1-or-later

// A host whose application object goes while the worker is just waking the main thread. Status 0 if what it wakes is
// there until it has been woken.

#include "interface/devredirectinterface.h"

#include <QAbstractEventDispatcher>
#include <QCoreApplication>
#include <QThread>

#include <atomic>
#include <memory>

namespace {

std::atomic<bool> isBeingWoken{false};
std::atomic<bool> applicationIsGone{false};
std::atomic<bool> wasWoken{false};
std::atomic<bool> isGone{false};

/// Runs nothing. The first other thread that wakes it stays inside until the application is gone.
class Dispatcher : public QAbstractEventDispatcher
{
public:
    ~Dispatcher() override { isGone = true; }
    bool processEvents(QEventLoop::ProcessEventsFlags) override { return false; }
    void registerSocketNotifier(QSocketNotifier *) override { }
    void unregisterSocketNotifier(QSocketNotifier *) override { }
    bool unregisterTimer(int) override { return true; }
    bool unregisterTimers(QObject *) override { return true; }
    QList<TimerInfo> registeredTimers(QObject *) const override { return {}; }
    int remainingTime(int) override { return -1; }
    void interrupt() override { }
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
    bool hasPendingEvents() override
    {
        return false;
    }
    void registerTimer(int, int, Qt::TimerType, QObject *) override { }
    void flush() override { }
#else
    void registerTimer(int, qint64, Qt::TimerType, QObject *) override { }
#endif
    void wakeUp() override
    {
        if (QThread::currentThread() == thread() || isBeingWoken.exchange(true))
            return;
        while (!applicationIsGone)
            QThread::msleep(1);
        wasWoken = true;
    }
};

} // namespace

int main(int argc, char **argv)
{
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {});
    QCoreApplication::setEventDispatcher(new Dispatcher);
    auto application = std::make_unique<QCoreApplication>(argc, argv);
    auto *const redirect = new DevRedirectInterface(nullptr); // never destroyed
    redirect->sendMapCommandByDevModel([](QList<ExterDeviceInfo> &) {});
    Q_EMIT redirect->loadDynamicLib();
    redirect->getDeviceListFromUniqueFrame();
    while (!isBeingWoken)
        QThread::msleep(1);
    application.reset();
    const bool wasThere = !isGone;
    applicationIsGone = true;
    while (!wasWoken)
        QThread::msleep(1);
    return wasThere ? 0 : 4;
}
