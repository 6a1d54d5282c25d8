// SPDX-License-Identifier: LGPL-2.1-or-later

// The interface's threads: making them, asking them, and what the waiting one takes.

#include "benchmarks/row.h"
#include "devices/devredirectmanger.h"
#include "interface/devredirectinterface.h"
#include "mount/watchmountworker.h"
#include "tests/devices/samplerecords.h"
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

void waitUntil(const bool &done)
{
    while (!done)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
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
    const ExterDeviceInfo device = filledRecord();
    const QString text = DevRedirectManger::instance()->getRedirectWorkerInstance()->structCtrlCommand(
        QString(), device.deviceId, QStringLiteral("unshare"), device);
    const QJsonObject parts = QJsonDocument::fromJson(text.toUtf8()).object();
    std::vector<std::pair<QString, QString>> fields;
    for (auto part = parts.begin(); part != parts.end(); ++part)
        fields.emplace_back(part.key(), part.value().toVariant().toString());
    QObject here;
    for (int call = 0; call < calls; ++call) {
        bool done = false;
        const auto answer = [&done, device] { done = !device.deviceId.isEmpty(); };
        const auto work = [&here, &fields, device, answer] {
            QJsonObject command;
            for (const auto &[key, value] : fields)
                command.insert(key, value);
            if (!QJsonDocument(command).toJson(QJsonDocument::Compact).isEmpty())
                QMetaObject::invokeMethod(&here, answer, Qt::QueuedConnection);
        };
        QMetaObject::invokeMethod(there, work, Qt::QueuedConnection);
        waitUntil(done);
    }
}

void requestFromLibrary(int calls)
{
    DevRedirectInterface &redirect = startedInterface();
    const ExterDeviceInfo device = filledRecord();
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
