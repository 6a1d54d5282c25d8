// SPDX-License-Identifier: LGPL-2.1-or-later

// The two rate-limited channels, the handler's and the interface's, go through the same tests.

#include "component/redirecthandler.h"
#include "interface/devredirectinterface.h"
#include "support/fakeclock.h"
#include "support/logrecorder.h"
#include "support/printing.h"

#include <gtest/gtest.h>

#include <QLoggingCategory>

#include <functional>
#include <memory>
#include <thread>
#include <vector>

namespace {

class Channel
{
public:
    virtual ~Channel() = default;
    virtual void write(const QString &text) = 0;
};

class HandlerChannel : public Channel
{
public:
    void write(const QString &text) override { m_handler.logOutput(text); }

private:
    RedirectHandler m_handler;
};

class InterfaceChannel : public Channel
{
public:
    void write(const QString &text) override { m_interface.infoLogOutput(text); }

private:
    DevRedirectInterface m_interface{nullptr};
};

struct Kind
{
    const char *method;
    bool oneAtATime;
    std::function<std::unique_ptr<Channel>()> make;
};

void PrintTo(const Kind &kind, std::ostream *stream)
{
    *stream << kind.method;
}

const Kind kinds[] = {
    {"logOutput", false, [] { return std::make_unique<HandlerChannel>(); }},
    {"infoLogOutput", true, [] { return std::make_unique<InterfaceChannel>(); }},
};

constexpr qint64 Second = 1000;

} // namespace

class RateLimit : public ::testing::TestWithParam<Kind>
{
protected:
    RateLimit()
    {
        FakeClock::advanceWithEachReading(0);
        FakeClock::set(QTime(12, 0));
        restart();
    }
    ~RateLimit() override { QLoggingCategory::setFilterRules(QString()); }

    void restart()
    {
        channel.reset();
        channel = GetParam().make();
        log.clear();
    }

    QString line(const char *level, const QString &text) const
    {
        return QStringLiteral("%1: [ %2 ] [REDIR_MODULE] \"%3\"")
            .arg(QLatin1String(level), QLatin1String(GetParam().method), text);
    }
    QString tooFrequent() const
    {
        return QStringLiteral("warning: [ %1 ] [REDIR_MODULE]  Log output too frequently. Reduce log "
                              "leve:[INFO]->[DEBUG]")
            .arg(QLatin1String(GetParam().method));
    }
    QStringList lines() const { return log.linesWith(QStringLiteral("[ %1 ]").arg(QLatin1String(GetParam().method))); }

    void write(int count)
    {
        for (int i = 0; i < count; ++i)
            channel->write(QStringLiteral("text"));
    }
    void expectLines(int info, int warnings, int debug) const
    {
        EXPECT_EQ(log.count(line("info", QStringLiteral("text"))), info);
        EXPECT_EQ(log.count(tooFrequent()), warnings);
        EXPECT_EQ(log.count(line("debug", QStringLiteral("text"))), debug);
        EXPECT_EQ(lines().size(), info + warnings + debug);
    }

    LogRecorder log;
    std::unique_ptr<Channel> channel;
};

INSTANTIATE_TEST_SUITE_P(Of, RateLimit, ::testing::ValuesIn(kinds),
                         [](const auto &test) { return std::string(test.param.method); });

TEST_P(RateLimit, a_text_comes_out_quoted_behind_the_method)
{
    channel->write(QStringLiteral(" Begin of a \"text\" "));
    EXPECT_EQ(lines(), QStringList{line("info", QStringLiteral(" Begin of a \\\"text\\\" "))});
}

TEST_P(RateLimit, a_thousand_lines_in_one_second_are_all_at_info)
{
    write(1000);
    expectLines(1000, 0, 0);
}

TEST_P(RateLimit, line_1001_is_at_info_and_the_warning_follows_it)
{
    write(1000);
    channel->write(QStringLiteral("the last"));
    EXPECT_EQ(lines().mid(1000), (QStringList{line("info", QStringLiteral("the last")), tooFrequent()}));
}

TEST_P(RateLimit, from_line_1002_on_every_line_is_at_debug_and_nothing_warns_again)
{
    write(1001);
    channel->write(QStringLiteral("the next"));
    EXPECT_EQ(lines().mid(1002), QStringList{line("debug", QStringLiteral("the next"))});
    log.clear();
    write(3000);
    expectLines(0, 0, 3000);
}

TEST_P(RateLimit, is_never_lifted_even_after_hours)
{
    write(1001);
    log.clear();
    FakeClock::advance(5 * 3600 * Second);
    write(2002);
    FakeClock::advance(400 * Second);
    write(1);
    expectLines(0, 0, 2003);
}

TEST_P(RateLimit, is_a_matter_of_the_whole_seconds_between_the_start_and_line_1001)
{
    const struct
    {
        QTime start;
        qint64 later;
        bool demoted;
    } intervals[] = {
        {QTime(12, 0), 0, true},
        {QTime(12, 0), 299 * Second, true},
        {QTime(12, 0), 299 * Second + 999, true},
        {QTime(12, 0), 300 * Second, false},
        {QTime(12, 0), 600 * Second, false},
        {QTime(12, 0, 0, 900), 299 * Second + 100, false}, // 12:00:00 to 12:05:00
        {QTime(23, 50), 300 * Second, false},
        {QTime(23, 59), 600 * Second, true}, // midnight counts as a short interval
        {QTime(12, 0), 25 * 3600 * Second, false},
        {QTime(12, 0), 24 * 3600 * Second, true}, // the same time on the next day
    };
    for (const auto &interval : intervals) {
        FakeClock::set(interval.start);
        restart();
        write(1000);
        FakeClock::advance(interval.later);
        write(1);
        expectLines(1001, interval.demoted ? 1 : 0, 0);
        write(1);
        expectLines(interval.demoted ? 1001 : 1002, interval.demoted ? 1 : 0, interval.demoted ? 1 : 0);
    }
}

TEST_P(RateLimit, a_slow_stream_goes_on_at_info_for_ever)
{
    for (int i = 0; i < 10 * 1001; ++i) {
        write(1);
        FakeClock::advance(Second);
    }
    expectLines(10 * 1001, 0, 0);
}

TEST_P(RateLimit, a_burst_late_in_a_long_interval_does_not_count)
{
    write(1);
    FakeClock::advance(300 * Second);
    write(1000);
    expectLines(1001, 0, 0);
}

TEST_P(RateLimit, a_new_interval_begins_with_line_1001_of_the_last)
{
    write(1000);
    FakeClock::advance(300 * Second);
    write(1); // the new interval begins here
    write(1000);
    FakeClock::advance(299 * Second);
    expectLines(2001, 0, 0);
    write(1);
    expectLines(2002, 1, 0);
    write(1);
    expectLines(2002, 1, 1);
}

TEST_P(RateLimit, a_second_long_interval_begins_a_third)
{
    for (int i = 0; i < 3; ++i) {
        write(1000);
        FakeClock::advance(300 * Second);
        write(1);
    }
    expectLines(3 * 1001, 0, 0);
}

TEST_P(RateLimit, reads_the_clock_once_in_1001_lines)
{
    FakeClock::advanceWithEachReading(10 * Second); // a reading with every line would see a long interval
    write(1001);
    expectLines(1001, 1, 0);
}

TEST_P(RateLimit, of_one_channel_leaves_every_other_alone)
{
    write(1001);
    for (const Kind &kind : kinds) {
        if (kind.oneAtATime && kind.method == GetParam().method)
            continue;
        const std::unique_ptr<Channel> other = kind.make();
        other->write(QStringLiteral("other"));
        EXPECT_TRUE(log.has(QStringLiteral("info: [ %1 ] [REDIR_MODULE] \"other\"").arg(QLatin1String(kind.method))));
    }
    channel->write(QStringLiteral("mine"));
    EXPECT_TRUE(log.has(line("debug", QStringLiteral("mine"))));
}

TEST_P(RateLimit, a_new_object_starts_at_info_again)
{
    write(1001);
    restart();
    write(1000);
    expectLines(1000, 0, 0);
}

TEST_P(RateLimit, counts_from_the_construction_of_its_object_on)
{
    FakeClock::advance(600 * Second);
    restart();
    FakeClock::advance(299 * Second);
    write(1001);
    expectLines(1001, 1, 0);
}

TEST_P(RateLimit, steps_back_also_while_the_host_does_not_listen_to_info)
{
    QLoggingCategory::setFilterRules(QStringLiteral("default.info=false"));
    write(1002);
    expectLines(0, 1, 1);
}

TEST_P(RateLimit, holds_when_several_threads_write)
{
    constexpr int Threads = 4;
    constexpr int LinesEach = 400;
    std::vector<std::thread> threads;
    for (int i = 0; i < Threads; ++i)
        threads.emplace_back([this] { write(LinesEach); });
    for (std::thread &thread : threads)
        thread.join();
    expectLines(1001, 1, Threads * LinesEach - 1001);
}

TEST(RateLimitOfTheHandler, counts_what_its_own_calls_write)
{
    FakeClock::set(QTime(12, 0));
    RedirectHandler handler;
    LogRecorder log;
    for (int i = 0; i < 1001; ++i)
        handler.setupRedirContext(nullptr, nullptr);
    EXPECT_EQ(log.linesWith(QStringLiteral("warning: [ logOutput ]")).size(), 1);
    log.clear();
    handler.setupRedirContext(nullptr, nullptr);
    EXPECT_TRUE(log.has(QStringLiteral("debug: [ logOutput ] [REDIR_MODULE] \" Begin to setup redirect context, call "
                                       "RedirSetupContext function.\"")));
}

TEST(RateLimitOfTheHandler, does_not_count_the_data_path)
{
    FakeClock::set(QTime(12, 0));
    RedirectHandler handler;
    LogRecorder log;
    for (int i = 0; i < 1100; ++i) {
        handler.handlerRedirData(nullptr, 0, nullptr);
        handler.handlerRedirNoticeEvent(ChannelEventOpened, nullptr, 0, nullptr);
    }
    handler.logOutput(QStringLiteral("text"));
    EXPECT_EQ(log.linesWith(QStringLiteral("[ logOutput ]")),
              QStringList{QStringLiteral("info: [ logOutput ] [REDIR_MODULE] \"text\"")});
}
