// SPDX-License-Identifier: LGPL-2.1-or-later

// Built into a directory of its own, without a "Device Redirect" folder beside it.

#include "component/redirecthandler.h"
#include "support/component.h"
#include "support/logrecorder.h"
#include "support/logtext.h"
#include "support/printing.h"
#include "worker/devredirectworker.h"

#include <gtest/gtest.h>

#include <QCoreApplication>

namespace {

class WithoutConfiguration : public ::testing::Test
{
protected:
    WithoutConfiguration()
    {
        EXPECT_TRUE(DevRedirectWorker::m_redirectHandler->load(componentPath));
        worker.setEventCallback([](void *, RedirEvent, const char *, int) {});
        log.clear();
    }

    QStringList criticalLines() const { return log.lines().filter(QStringLiteral("critical: ")); }

    const QString componentPath =
        QCoreApplication::applicationDirPath() + QStringLiteral("/../bin/Device Redirect/libdevredir.so");
    Script &script = Component::script(componentPath);
    LogRecorder log;
    DevRedirectWorker worker{nullptr};
};

const QString fileIsMissing = moduleLine("critical", "getConfigFilePath", QStringLiteral("config file is not exist!"));

} // namespace

TEST_F(WithoutConfiguration, the_path_comes_back_all_the_same_and_ok_becomes_false)
{
    bool ok = true;
    EXPECT_EQ(worker.getConfigFilePath(ok),
              QCoreApplication::applicationDirPath() + QStringLiteral("/Device Redirect/config.json"));
    EXPECT_FALSE(ok);
    EXPECT_EQ(log.lines(), QStringList{fileIsMissing});
}

TEST_F(WithoutConfiguration, the_component_is_not_started_for_a_machine)
{
    worker.onLoadDevRedirComponentByWorker(QStringLiteral("vm-7"));
    EXPECT_EQ(script.calls(), std::vector<std::string>());
    EXPECT_EQ(
        criticalLines(),
        (QStringList{fileIsMissing,
                     moduleLine("critical", "onLoadDevRedirComponentByWorker",
                                QStringLiteral("load devRedir Component by worker failed: get config file fail!"))}));
}

TEST_F(WithoutConfiguration, the_component_is_not_started_for_a_view)
{
    for (const char *vmId : {"virApp", "shareDesk"}) {
        log.clear();
        worker.onLoadDevRedirComponentByWorker(QLatin1String(vmId));
        EXPECT_EQ(script.calls(), std::vector<std::string>()) << vmId;
        EXPECT_EQ(
            criticalLines(),
            (QStringList{fileIsMissing,
                         traceLine("critical", "loadDevRedirComponentByVirApp",
                                   QStringLiteral("load devRedir Component by virApp failed: get config file fail!"))}))
            << vmId;
    }
}

TEST_F(WithoutConfiguration, the_missing_event_callback_is_noticed_before_the_missing_file)
{
    worker.setEventCallback(EventCallback());
    worker.onLoadDevRedirComponentByWorker(QStringLiteral("vm-7"));
    EXPECT_EQ(criticalLines(),
              QStringList{moduleLine(
                  "critical", "onLoadDevRedirComponentByWorker",
                  QStringLiteral("load devRedir Component by worker failed: notifyDevRedirEvent is null!"))});
}

TEST_F(WithoutConfiguration, loading_from_beside_the_executable_fails_and_is_logged)
{
    worker.onLoadDynamicLibByWorker();
    EXPECT_EQ(log.lines().value(0), QStringLiteral("debug: load dynamic Lib"));
    EXPECT_EQ(
        log.linesWith(QStringLiteral("critical: [ load ] [REDIR_MODULE]  Failed to load redirection library.")).size(),
        1);
}
