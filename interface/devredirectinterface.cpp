// SPDX-License-Identifier: LGPL-2.1-or-later

// Threads and wiring. How each connection is made decides on which thread the work runs.

#include "interface/devredirectinterface.h"

#include "devices/devredirectmanger.h"
#include "log/exitgate.h"
#include "mount/watchmountworker.h"
#include "worker/devredirectworker.h"

#include <spice-client.h>

#include <QAbstractEventDispatcher>
#include <QCoreApplication>

#include <atomic>
#include <cstdlib>
#include <initializer_list>
#include <limits>

Q_DECLARE_METATYPE(SpicePortChannel)

namespace {

constexpr int LongestGoodbyeMilliseconds = 100; // for each thread when the host ends with the interface still there

QList<DevRedirectInterface *> living; // main thread only
std::atomic<Qt::HANDLE> mainThread{nullptr};
std::atomic<QAbstractEventDispatcher *> keptDispatcher{nullptr}; // so that leak checkers can see it

// The worker may be just about to wake the main thread. So what it would wake, which goes with the application
// otherwise, stays.
void keepEventDispatcher()
{
    QAbstractEventDispatcher *const dispatcher = QCoreApplication::eventDispatcher();
    if (!dispatcher)
        return;
    dispatcher->setParent(nullptr);
    keptDispatcher = dispatcher;
}

} // namespace

DevRedirectInterface::DevRedirectInterface(QObject *parent) : QObject(parent)
{
    qRegisterMetaType<ExterDeviceInfo>("ExterDeviceInfo");
    qRegisterMetaType<QList<ExterDeviceInfo>>("QList<ExterDeviceInfo>");
    qRegisterMetaType<SpicePortChannel>("SpicePortChannel");

    mainThread = QThread::currentThreadId();
    Log::ExitGate::closeAtExit();
    // Later than all that, and so before the gate closes and Qt's list of these types goes.
    static const bool endsAtExit = std::atexit(onProcessEnds) == 0;
    Q_UNUSED(endsAtExit)
    if (living.isEmpty())
        qAddPostRoutine(onApplicationGoes);
    living.append(this);

    DevRedirectManger::instance()->provideFreeWorker();
    m_devRedirectWorker = DevRedirectManger::instance()->getRedirectWorkerInstance();
    connectWorker();

    m_watchMountWorker = new WatchMountWorker;
    connect(&m_mountThread, &QThread::finished, m_watchMountWorker, &QObject::deleteLater);
    connect(this, &DevRedirectInterface::myWatchMount, m_watchMountWorker, &WatchMountWorker::watchMount);
    connect(m_watchMountWorker, &WatchMountWorker::mountSuccesful, m_devRedirectWorker.data(),
            &DevRedirectWorker::onNotifyEventHandler);

    m_devRedirectWorker->moveToThread(&m_workerThread);
    m_watchMountWorker->moveToThread(&m_mountThread);
    m_workerThread.start();
    m_mountThread.start();
    m_log.start();
}

DevRedirectInterface::~DevRedirectInterface()
{
    dropRequests();
    for (QThread *const thread : {&m_workerThread, &m_mountThread}) {
        thread->quit();
        thread->wait(std::numeric_limits<unsigned long>::max());
    }
    living.removeOne(this);
    if (living.isEmpty())
        qRemovePostRoutine(onApplicationGoes);
    // A notification that this object has not handled goes with it, and the next one must not wait for it.
    DevRedirectManger::instance()->setIsHandlerNotifyEvent(true);
}

void DevRedirectInterface::dropRequests()
{
    // A thread that is asked to quit would first do all that had been asked of it before.
    for (QObject *const inhabitant : std::initializer_list<QObject *>{m_devRedirectWorker, m_watchMountWorker}) {
        if (inhabitant)
            QCoreApplication::removePostedEvents(inhabitant, QEvent::MetaCall);
    }
}

// Qt delivers no event safely while the application object goes.
void DevRedirectInterface::onApplicationGoes()
{
    keepEventDispatcher();
    endThreads();
}

// Nor while its statics go, if the host calls exit() and leaves the application object behind.
void DevRedirectInterface::onProcessEnds()
{
    if (QThread::currentThreadId() == mainThread)
        endThreads();
}

// The threads take no more events. One that is in the component or waits for the mount table takes none either.
void DevRedirectInterface::endThreads()
{
    for (DevRedirectInterface *const interface : qAsConst(living)) {
        // Other threads may still call the worker, so it stays.
        disconnect(&interface->m_workerThread, &QThread::finished, nullptr, nullptr);
        interface->dropRequests();
        for (QThread *const thread : {&interface->m_workerThread, &interface->m_mountThread}) {
            thread->quit();
            thread->wait(LongestGoodbyeMilliseconds);
        }
    }
    living.clear();
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
    m_log.write([&text] { return text; });
}
