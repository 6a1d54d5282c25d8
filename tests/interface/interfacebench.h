// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "devices/devredirectmanger.h"
#include "interface/devredirectinterface.h"
#include "support/component.h"
#include "support/eventlist.h"
#include "support/logrecorder.h"
#include "support/logtext.h"
#include "support/mounttable.h"
#include "support/printing.h"
#include "support/waitfor.h"
#include "worker/devredirectworker.h"

#include <gtest/gtest.h>

#include <QSemaphore>
#include <QThread>

#include <memory>
#include <string>
#include <vector>

/// The context of a test's connections.
class Listener : public QObject
{
};

/// Holds the component inside a command until it is let go. Wait for the worker before it goes out of scope.
class Hold
{
public:
    /// What a "redirCtrl" does: waits, then succeeds.
    int operator()(const std::string &, char *, int &)
    {
        m_entered.release();
        m_let.acquire();
        return 0;
    }
    bool waitUntilHeld() { return m_entered.tryAcquire(1, 20000); }
    void letGo() { m_let.release(); }

private:
    QSemaphore m_entered;
    QSemaphore m_let;
};

/// An interface whose component is loaded, on the test's thread as the host's.
class InterfaceBench : public ::testing::Test
{
protected:
    InterfaceBench()
    {
        EXPECT_TRUE(MountTable::setLister(QStringLiteral("{\"blockdevices\": []}")));
        redirect = std::make_unique<DevRedirectInterface>(nullptr);
        Q_EMIT redirect->loadDynamicLib();
        log.clear();
    }

    void TearDown() override
    {
        MountTable::change(100); // whatever still watches ends
        redirect.reset();
        MountTable::change(-MountTable::unseenChanges());
    }

    DevRedirectWorker &worker() const { return *registry.getRedirectWorkerInstance(); }
    QThread *workerThread() const { return worker().thread(); }

    /// Runs \a task on the worker thread, after everything that was queued before it, and waits for it.
    template<typename Task>
    void onWorkerThread(const Task &task) const
    {
        QMetaObject::invokeMethod(&worker(), task, Qt::BlockingQueuedConnection);
    }
    /// Waits until the worker has done all that was asked of it so far.
    void waitForWorker() const
    {
        onWorkerThread([] {});
    }

    static ExterDeviceInfo device(const char *id, const char *rdrName)
    {
        ExterDeviceInfo made;
        made.deviceId = QLatin1String(id);
        made.rdrName = QLatin1String(rdrName);
        made.devicePosition = QLatin1String(id) + QStringLiteral("-POS");
        return made;
    }

    static std::string idsOf(const QList<ExterDeviceInfo> &devices)
    {
        std::string ids;
        for (const ExterDeviceInfo &each : devices)
            ids += (ids.empty() ? "" : " ") + each.deviceId.toStdString();
        return "[" + ids + "]";
    }

    static std::string word(bool value) { return value ? "true" : "false"; }
    static QString limited(const char *text)
    {
        return moduleLine("info", "infoLogOutput", quoted(QLatin1String(text)));
    }

    LogRecorder log;
    Script &script = Component::script();
    DevRedirectManger &registry = *DevRedirectManger::instance();
    std::unique_ptr<DevRedirectInterface> redirect;
    Listener listener; ///< dies before the interface, and with it the connections that a test made
};
