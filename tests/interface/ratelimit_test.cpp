// SPDX-License-Identifier: LGPL-2.1-or-later
#include "component/redirecthandler.h"
#include "interface/devredirectinterface.h"
#include "support/fakeclock.h"
#include "support/logrecorder.h"
#include "support/logtext.h"
#include "support/printing.h"
#include "worker/devredirectworker.h"

#include <gtest/gtest.h>

#include <memory>

namespace {

class InterfaceLog : public ::testing::Test
{
protected:
    InterfaceLog()
    {
        FakeClock::set(QTime(10, 0));
        redirect = std::make_unique<DevRedirectInterface>(nullptr);
        log.clear();
    }

    void write(int lines)
    {
        for (int i = 0; i < lines; ++i)
            redirect->infoLogOutput(QStringLiteral("text"));
    }

    int infoLines() const { return log.count(info); }
    int debugLines() const { return log.count(debug); }
    int warnings() const { return log.count(tooMany); }

    const QString info = moduleLine("info", "infoLogOutput", QStringLiteral("\"text\""));
    const QString debug = moduleLine("debug", "infoLogOutput", QStringLiteral("\"text\""));
    const QString tooMany = moduleLine("warning", "infoLogOutput",
                                       QStringLiteral(" Log output too frequently. Reduce log leve:[INFO]->[DEBUG]"));
    LogRecorder log;
    std::unique_ptr<DevRedirectInterface> redirect;
};

} // namespace

TEST_F(InterfaceLog, a_text_is_written_in_quotes_at_info_level)
{
    redirect->infoLogOutput(QStringLiteral(" a \"text\" "));
    redirect->infoLogOutput(QString());
    EXPECT_EQ(log.lines(),
              (QStringList{QStringLiteral("info: [ infoLogOutput ] [REDIR_MODULE] \" a \\\"text\\\" \""),
                           QStringLiteral("info: [ infoLogOutput ] [REDIR_MODULE] \"\"")}));
}

TEST_F(InterfaceLog, a_thousand_lines_at_once_stay_at_info_level)
{
    write(1000);
    EXPECT_EQ(infoLines(), 1000);
    EXPECT_EQ(log.lines().size(), 1000);
}

TEST_F(InterfaceLog, the_1001st_line_is_an_info_line_then_comes_the_warning_and_then_debug_lines_only)
{
    write(1001);
    EXPECT_EQ(infoLines(), 1001);
    EXPECT_EQ(log.lines().size(), 1002);
    EXPECT_EQ(log.lines().last(), tooMany);
    write(5);
    EXPECT_EQ(infoLines(), 1001);
    EXPECT_EQ(debugLines(), 5);
    EXPECT_EQ(warnings(), 1);
}

TEST_F(InterfaceLog, is_demoted_up_to_299_seconds_after_the_interval_began)
{
    const struct
    {
        qint64 milliseconds;
        bool demoted;
    } table[] = {{0, true}, {298999, true}, {299000, true}, {299999, true}, {300000, false}, {600000, false}};
    for (const auto &row : table) {
        FakeClock::set(QTime(10, 0));
        redirect.reset();
        redirect = std::make_unique<DevRedirectInterface>(nullptr);
        log.clear();
        write(1000);
        FakeClock::advance(row.milliseconds);
        write(1);
        EXPECT_EQ(infoLines(), 1001) << row.milliseconds;
        EXPECT_EQ(warnings(), row.demoted ? 1 : 0) << row.milliseconds;
        write(1);
        EXPECT_EQ(debugLines(), row.demoted ? 1 : 0) << row.milliseconds;
    }
}

TEST_F(InterfaceLog, a_slow_interval_is_followed_by_a_new_one_that_counts_from_zero)
{
    FakeClock::advance(400000);
    write(1001);
    EXPECT_EQ(warnings(), 0);
    write(1000);
    EXPECT_EQ(warnings(), 0);
    EXPECT_EQ(infoLines(), 2001);
    write(1);
    EXPECT_EQ(warnings(), 1) << "the second interval began with the 1001st line";
    write(1);
    EXPECT_EQ(debugLines(), 1);
}

TEST_F(InterfaceLog, never_comes_back_from_debug_level)
{
    write(1001);
    FakeClock::advance(5 * 3600 * 1000);
    write(3);
    EXPECT_EQ(debugLines(), 3);
    EXPECT_EQ(infoLines(), 1001);
}

TEST_F(InterfaceLog, an_interval_across_midnight_counts_as_a_short_one)
{
    FakeClock::set(QTime(23, 50));
    redirect.reset();
    redirect = std::make_unique<DevRedirectInterface>(nullptr);
    write(1000);
    FakeClock::advance(20 * 60 * 1000);
    write(1);
    EXPECT_EQ(warnings(), 1);
}

TEST_F(InterfaceLog, a_new_interface_begins_at_info_level_again)
{
    write(1002);
    redirect.reset();
    redirect = std::make_unique<DevRedirectInterface>(nullptr);
    log.clear();
    write(1000);
    EXPECT_EQ(infoLines(), 1000);
    EXPECT_EQ(log.lines().size(), 1000);
}

TEST_F(InterfaceLog, the_interface_and_the_component_host_are_limited_apart_from_each_other)
{
    RedirectHandler &handler = *DevRedirectWorker::m_redirectHandler;
    write(1001);
    handler.logOutput(QStringLiteral("text"));
    EXPECT_TRUE(log.has(moduleLine("info", "logOutput", QStringLiteral("\"text\""))));

    // The handler is as old as the process and began by the real time of day, so its second interval is the first one
    // that surely begins by this test's clock.
    for (int i = 0; i < 2 * 1001; ++i)
        handler.logOutput(QStringLiteral("text"));
    redirect.reset();
    redirect = std::make_unique<DevRedirectInterface>(nullptr);
    log.clear();
    write(1);
    handler.logOutput(QStringLiteral("text"));
    EXPECT_EQ(log.lines(), (QStringList{info, moduleLine("debug", "logOutput", QStringLiteral("\"text\""))}));
}

TEST_F(InterfaceLog, the_device_operations_are_limited_too)
{
    write(1000);
    redirect->vmRebootReset();
    log.clear();
    redirect->vmRebootReset();
    EXPECT_EQ(log.linesWith(QStringLiteral("[ infoLogOutput ]")),
              QStringList{moduleLine("debug", "infoLogOutput",
                                     QStringLiteral("\" Reset redirect Parameter, emit resetParameters message.\""))});
}
