// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "component/redirecthandler.h"
#include "devices/devredirectmanger.h"
#include "interface/devredirectinterface.h"
#include "support/component.h"
#include "support/eventlist.h"
#include "support/mounttable.h"
#include "support/printing.h"
#include "support/resources.h"
#include "support/waitfor.h"
#include "worker/devredirectworker.h"

#include <gtest/gtest.h>

#include <QSemaphore>

#include <atomic>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <unistd.h>

/// Ends the process if the test is not over in time, without a thread of its own.
class Deadline
{
public:
    explicit Deadline(unsigned int seconds) { alarm(seconds); }
    ~Deadline() { alarm(0); }
    Deadline(const Deadline &) = delete;
    Deadline &operator=(const Deadline &) = delete;
};

/// Takes every log line, so that it is put together, and keeps nothing of them but the numbers of those that matter.
class QuietLog
{
public:
    QuietLog() { qInstallMessageHandler(take); }
    ~QuietLog() { qInstallMessageHandler(nullptr); }
    QuietLog(const QuietLog &) = delete;
    QuietLog &operator=(const QuietLog &) = delete;

    static int warningLines() { return m_warnings; }
    static int exceptionLines() { return m_exceptions; }

private:
    static void take(QtMsgType type, const QMessageLogContext &, const QString &line)
    {
        if (type == QtWarningMsg)
            ++m_warnings;
        if (type == QtCriticalMsg && line.contains(QLatin1String("exception from")))
            ++m_exceptions;
    }

    static inline std::atomic<int> m_warnings{0};
    static inline std::atomic<int> m_exceptions{0};
};

/// Holds whoever enters until it is opened, for good.
class Barrier
{
public:
    void enter()
    {
        m_entered.release();
        m_open.acquire();
        m_open.release();
    }
    bool waitUntilHeld() { return m_entered.tryAcquire(1, 20000); }
    void open() { m_open.release(); }

private:
    QSemaphore m_entered;
    QSemaphore m_open;
};

/// Runs \a task on a thread of its own, once the calling thread sleeps in the call that it makes next.
template<typename Task>
std::thread whenThisThreadWaits(Task task)
{
    return std::thread([stat = "/proc/self/task/" + std::to_string(gettid()) + "/stat", task] {
        std::string id, name, state;
        while (state != "S") { // a program's name without blanks is one word
            std::this_thread::yield();
            std::ifstream(stat) >> id >> name >> state;
        }
        task();
    });
}

/// An interface whose component is loaded. Every test has a deadline and leaves no thread and no descriptor.
class StressBench : public ::testing::Test
{
protected:
    StressBench()
    {
        EXPECT_TRUE(MountTable::setLister(QStringLiteral("{\"blockdevices\": []}")));
        published() = 0;
        const int threads = Resources::threadsBeforeAny();
        redirect = std::make_unique<DevRedirectInterface>(nullptr); // what is set up once in a process
        waitForWorker();
        redirect.reset();
        EXPECT_TRUE(waitFor([threads] { return Resources::now().threads == threads; }));
        m_before = Resources::now();
        makeInterface();
    }

    void TearDown() override
    {
        MountTable::change(1000000); // whatever still watches ends
        redirect.reset();
        MountTable::change(-MountTable::unseenChanges());
        const auto asBefore = [this] { return Resources::now() == m_before; };
        EXPECT_TRUE(waitFor(asBefore, 10000)) << Resources::now() << ", before: " << m_before;
        script.reset();
    }

    void makeInterface()
    {
        redirect = std::make_unique<DevRedirectInterface>(nullptr);
        redirect->setNotifyEventCallback([this](void *, RedirEvent event, const char *, int) { events.add(event); });
        redirect->sendMapCommandByDevModel([](QList<ExterDeviceInfo> &) { ++published(); });
        Q_EMIT redirect->loadDynamicLib();
    }

    /// The interface goes away; whatever watches the mount table sees a change.
    void destroyInterface()
    {
        MountTable::change(1000);
        redirect.reset();
    }

    /// A list of so many devices comes from the component and reaches the host.
    void expectThatAListComesThrough(int devices)
    {
        script.ctrl = Component::listing(documentOf(devices));
        redirect->getDeviceListFromUniqueFrame();
        EXPECT_TRUE(waitFor([&] { return redirect->getDeviceList().size() == devices; }, 10000))
            << redirect->getDeviceList().size();
    }

    /// How many lists the host was given.
    static std::atomic<int> &published()
    {
        static std::atomic<int> lists{0};
        return lists;
    }

    DevRedirectWorker &worker() const { return *registry.getRedirectWorkerInstance(); }

    /// Waits until the worker has done all that was asked of it so far.
    void waitForWorker() const
    {
        QMetaObject::invokeMethod(
            &worker(), [] {}, Qt::BlockingQueuedConnection);
    }

    static ExterDeviceInfo device(const char *rdrName)
    {
        ExterDeviceInfo made;
        made.deviceId = QStringLiteral("1-1");
        made.rdrName = QLatin1String(rdrName);
        return made;
    }

    static std::string documentOf(int devices)
    {
        std::vector<std::string> all;
        for (int i = 0; i < devices; ++i)
            all.push_back("\"deviceId\":\"" + std::to_string(i) + "\",\"rdrName\":\"usbrdr\"");
        return Component::listDocument(all);
    }

    Deadline deadline{250}; ///< most take less than one; the thread sanitizer on a busy machine needs a hundred
    QuietLog log;
    Script &script = Component::script();
    DevRedirectManger &registry = *DevRedirectManger::instance();
    EventList<int> events; ///< what reached the host's event callback
    std::unique_ptr<DevRedirectInterface> redirect;

private:
    Resources m_before;
};
