// SPDX-License-Identifier: LGPL-2.1-or-later

// Threads and wiring. How each connection is made decides on which thread the work runs.

#include "interface/devredirectinterface.h"

#include "devices/devredirectmanger.h"
#include "interface/processend.h"
#include "log/ratelimitedlog.h"
#include "mount/watchmountworker.h"
#include "worker/devredirectworker.h"

#include <spice-client.h>

#include <QCoreApplication>
#include <QEvent>

#include <initializer_list>
#include <limits>

Q_DECLARE_METATYPE(SpicePortChannel)

// For each thread, when the process ends before this object.
static constexpr unsigned long LongestGoodbyeMilliseconds = 100;

/// Watches what is queued for a receiver, goes with it to its thread, and drops and counts it at the end: a thread that
/// is asked to quit would first do what it has already taken out of its queue.
class DevRedirectInterface::CallFilter : public QObject
{
public:
    CallFilter(QObject *receiver, DevRedirectInterface &interface) : QObject(receiver), m_interface(interface)
    {
        receiver->installEventFilter(this);
    }

    bool eventFilter(QObject *, QEvent *event) override
    {
        if (event->type() != QEvent::MetaCall || !m_interface.m_isDropping)
            return false;
        ++m_interface.m_dropped;
        return true;
    }

private:
    DevRedirectInterface &m_interface;
};

// What is still queued when the thread ends is delivered then, to be dropped and counted.
static void moveTo(QThread &thread, QObject *receiver)
{
    QObject::connect(&thread, &QThread::finished, receiver,
                     [receiver] { QCoreApplication::sendPostedEvents(receiver, QEvent::MetaCall); });
    receiver->moveToThread(&thread);
}

DevRedirectInterface::DevRedirectInterface(QObject *parent)
    : QObject(parent), m_log(std::make_unique<RateLimitedLog>("infoLogOutput"))
{
    qRegisterMetaType<ExterDeviceInfo>("ExterDeviceInfo");
    qRegisterMetaType<QList<ExterDeviceInfo>>("QList<ExterDeviceInfo>");
    qRegisterMetaType<SpicePortChannel>("SpicePortChannel");
    // After the types, so that at exit it runs before their list is destroyed.
    m_processEnd = std::make_unique<ProcessEnd>([this] { endThreads(); });

    DevRedirectManger::instance()->provideFreeWorker();
    m_devRedirectWorker = DevRedirectManger::instance()->getRedirectWorkerInstance();
    connectWorker();

    m_watchMountWorker = new WatchMountWorker;
    connect(&m_mountThread, &QThread::finished, m_watchMountWorker.data(), &QObject::deleteLater);
    connect(this, &DevRedirectInterface::myWatchMount, m_watchMountWorker.data(), &WatchMountWorker::watchMount);
    connect(m_watchMountWorker.data(), &WatchMountWorker::mountSuccesful, m_devRedirectWorker.data(),
            &DevRedirectWorker::onNotifyEventHandler);

    for (QObject *const receiver : std::initializer_list<QObject *>{this, m_devRedirectWorker, m_watchMountWorker})
        new CallFilter(receiver, *this);
    moveTo(m_workerThread, m_devRedirectWorker);
    moveTo(m_mountThread, m_watchMountWorker);
    m_workerThread.start();
    m_mountThread.start();
    m_log->start();
}

// No event may be posted to the thread from here on: Qt wakes it after that, when it may have ended. A signal may,
// since the receiver waits with its end for whoever emits it.
static void endThread(QThread &thread)
{
    thread.quit();
    thread.wait(std::numeric_limits<unsigned long>::max());
}

DevRedirectInterface::~DevRedirectInterface()
{
    m_isDropping = true;
    endThread(m_workerThread);
    endThread(m_mountThread);
    QCoreApplication::sendPostedEvents(this, QEvent::MetaCall); // drops them
    if (m_dropped > 0)
        Log::module(QtDebugMsg, __func__, " requests and notifications that are dropped: ", m_dropped.load());
    DevRedirectManger *const registry = DevRedirectManger::instance();
    // Left by endThreads(), and without a successor: there is nobody to tell, and the next list raises its own.
    if (m_devRedirectWorker && m_devRedirectWorker == registry->getRedirectWorkerInstance())
        registry->setIsHandlerNotifyEvent(true);
    else
        registry->passNotificationOn();
}

// For a process that ends. The threads take no more requests; one that is in the component or waits for the mount table
// takes none either. The worker and the watcher stay, since other threads may still call them.
void DevRedirectInterface::endThreads()
{
    m_isDropping = true;
    for (QThread *const thread : {&m_workerThread, &m_mountThread}) {
        disconnect(thread, &QThread::finished, nullptr, nullptr);
        thread->quit();
        thread->wait(LongestGoodbyeMilliseconds);
    }
}

void DevRedirectInterface::connectWorker()
{
    using Interface = DevRedirectInterface;
    using Worker = DevRedirectWorker;
    Worker *const worker = m_devRedirectWorker;
    constexpr auto Direct = Qt::DirectConnection;

    connect(&m_workerThread, &QThread::finished, worker, &QObject::deleteLater);

    connect(this, &Interface::loadDynamicLib, worker, &Worker::onLoadDynamicLibByWorker, Direct);
    connect(this, &Interface::loadDevRedirComponentByThread, worker, &Worker::onLoadDevRedirComponentByWorker, Direct);
    connect(this, &Interface::checkRedirChannelByThread, worker, &Worker::onCheckRedirChannelByWorker, Direct);
    connect(this, &Interface::redirectDeviceByIdByThread, worker, &Worker::onShareDeviceByWorker);
    connect(this, &Interface::unRedirectDeviceByIdByThread, worker, &Worker::onUnShareDeviceByWorker);
    connect(this, &Interface::unRedirectDeviceAllByThread, worker, &Worker::onUnShareAllByWorker);
    connect(this, &Interface::resetParametersByThread, worker, &Worker::onResetParametersByThread);
    connect(this, &Interface::realeaseDeviceResourceByThread, worker, &Worker::onReleaseDeviceResourceByWorker, Direct);
    connect(this, &Interface::notifyEventHandler, worker, &Worker::onNotifyEventHandler);
    connect(this, &Interface::getDevListAndMapping, worker, &Worker::onGetDevListAndMapping);
    connect(this, &Interface::stopMappingFunctionByThread, worker, &Worker::stopMappingFunctionByWorker, Direct);
    connect(this, &Interface::getDevListByVirApp, worker, &Worker::onGetDevListByVirApp, Direct);
    connect(this, &Interface::getDevListByShareDesk, worker, &Worker::onGetDevListByShareDesk, Direct);

    connect(worker, &Worker::deviceListResult, this, &Interface::deviceListResultByThread);
    connect(worker, &Worker::redirectDeviceByIdResult, this, &Interface::redirectDeviceByIdResult);
    connect(worker, &Worker::unRedirectDeviceByIdResult, this, &Interface::unRedirectDeviceByIdResult);
    connect(worker, &Worker::unRedirectDeviceAllResult, this, &Interface::unRedirectDeviceAllResult);
    connect(worker, &Worker::sendMapCommandToVdiExterDevModel, this, &Interface::onSendMapCommandByDevRedInter);
    connect(worker, &Worker::diskMapResultInUsb, this, &Interface::diskMapResultInUsbByInter, Direct);
    connect(worker, &Worker::shareDeviceResult, this, &Interface::shareDeviceResultByInterface);
    connect(worker, &Worker::sendDevListInfoToVirApp, this, &Interface::sendDevListInfoToVirAppByDevInter, Direct);
    connect(worker, &Worker::sendDevListInfoToShareDesk, this, &Interface::sendDevListInfoToShareDeskByDevInter,
            Direct);
}

void DevRedirectInterface::infoLogOutput(const QString &text)
{
    m_log->write([&text] { return text; });
}
