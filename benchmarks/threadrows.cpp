// SPDX-License-Identifier: LGPL-2.1-or-later

// The interface's threads: making them, asking them, and what the waiting one takes.

#include "benchmarks/row.h"
#include "devices/devredirectmanger.h"
#include "interface/devredirectinterface.h"
#include "mount/watchmountworker.h"
#include "worker/devredirectworker.h"

#include <QCoreApplication>
#include <QJsonDocument>
#include <QJsonObject>
#include <QThread>

#include <thread>

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <time.h>

namespace {

// --- creating and destroying ---

void startAndJoinTwoThreads(int calls)
{
    for (int call = 0; call < calls; ++call) {
        QThread threads[2];
        for (QThread &thread : threads)
            thread.start();
        for (QThread &thread : threads) {
            thread.quit();
            thread.wait();
        }
    }
}

void makeAndDestroyInterface(int calls)
{
    for (int call = 0; call < calls; ++call)
        const DevRedirectInterface redirect(nullptr);
}

// --- from a request to its result ---

ExterDeviceInfo requested()
{
    ExterDeviceInfo device;
    device.deviceId = QStringLiteral("1-4.2:SN1000017");
    device.rdrName = DISKRDR;
    device.vendorId = QStringLiteral("0A5C");
    device.productId = QStringLiteral("2011");
    device.deviceClass = QStringLiteral("08");
    device.usbHub = QStringLiteral("1");
    device.usbPort = QStringLiteral("4");
    device.deviceRel = QStringLiteral("0110");
    device.usbProt = QStringLiteral("50");
    return device;
}

void waitUntil(const bool &done)
{
    while (!done)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
}

QByteArray commandFor(const ExterDeviceInfo &device)
{
    return QJsonDocument(QJsonObject{
                             {QStringLiteral("command"), QStringLiteral("unshare")},
                             {QStringLiteral("context"), device.context},
                             {QStringLiteral("deviceId"), device.deviceId},
                             {QStringLiteral("remotePort"), QString()},
                             {QStringLiteral("readOnly"), device.readOnly},
                             {QStringLiteral("deviceClass"), device.deviceClass},
                             {QStringLiteral("productId"), device.productId},
                             {QStringLiteral("vendorId"), device.vendorId},
                             {QStringLiteral("usbHub"), device.usbHub},
                             {QStringLiteral("usbPort"), device.usbPort},
                             {QStringLiteral("rdrName"), device.rdrName},
                             {QStringLiteral("deviceRel"), device.deviceRel},
                             {QStringLiteral("usbProt"), device.usbProt},
                             {QStringLiteral("remoteIp"), QString()},
                             {QStringLiteral("localIp"), QString()},
                         })
        .toJson(QJsonDocument::Compact);
}

DevRedirectInterface &startedInterface()
{
    static auto *const redirect = [] {
        auto *made = new DevRedirectInterface(nullptr);
        Q_EMIT made->loadDynamicLib();
        if (!made->isComponentLoaded())
            qFatal("%s", qPrintable(made->componentLoadError()));
        return made;
    }();
    return *redirect;
}

void requestBare(int calls)
{
    static QObject *const there = [] {
        startedInterface();
        auto *made = new QObject;
        made->moveToThread(DevRedirectManger::instance()->getRedirectWorkerInstance()->thread());
        return made;
    }();
    QObject here;
    const ExterDeviceInfo device = requested();
    for (int call = 0; call < calls; ++call) {
        bool done = false;
        const auto answer = [&done, device] { done = !device.deviceId.isEmpty(); };
        const auto work = [&here, device, answer] {
            if (!commandFor(device).isEmpty())
                QMetaObject::invokeMethod(&here, answer, Qt::QueuedConnection);
        };
        QMetaObject::invokeMethod(there, work, Qt::QueuedConnection);
        waitUntil(done);
    }
}

void requestFromLibrary(int calls)
{
    DevRedirectInterface &redirect = startedInterface();
    const ExterDeviceInfo device = requested();
    bool done = false;
    const auto connection = QObject::connect(&redirect, &DevRedirectInterface::unRedirectDeviceByIdResult,
                                             [&done](const ExterDeviceInfo &, bool status) { done = status; });
    for (int call = 0; call < calls; ++call) {
        done = false;
        redirect.unRedirectDeviceById(device);
        waitUntil(done);
    }
    QObject::disconnect(connection);
}

// --- waiting for the mount table: both wait at the same time, and their processor time is compared ---

constexpr int SecondsOfWaiting = 6; // ten of these are a minute

void pollBare()
{
    pollfd watched{open("/proc/mounts", O_RDONLY | O_CLOEXEC), POLLPRI | POLLERR, 0};
    while (true)
        poll(&watched, 1, 5);
}

void watch()
{
    WatchMountWorker worker;
    while (true)
        worker.watchMount();
}

class Waiting
{
public:
    explicit Waiting(void (*wait)())
    {
        std::thread thread(wait);
        pthread_getcpuclockid(thread.native_handle(), &m_clock);
        thread.detach();
    }

    double nanoseconds() const
    {
        timespec used{};
        clock_gettime(m_clock, &used);
        return double(used.tv_sec) * 1e9 + double(used.tv_nsec);
    }

private:
    clockid_t m_clock{};
};

Row::Pair waitForMounts()
{
    static const Waiting bare(pollBare);
    static const Waiting library(watch);
    QThread::msleep(100); // both wait by then
    const Row::Pair before{bare.nanoseconds(), library.nanoseconds()};
    QThread::sleep(SecondsOfWaiting);
    return {bare.nanoseconds() - before.limit, library.nanoseconds() - before.library};
}

} // namespace

std::vector<Row> threadRows()
{
    return {
        Row::timed("interface", CLOCK_PROCESS_CPUTIME_ID, 10, startAndJoinTwoThreads, makeAndDestroyInterface),
        Row::timed("request", CLOCK_MONOTONIC, 50, requestBare, requestFromLibrary),
        {"mount-watch", waitForMounts, 0, {}, {}},
    };
}
