// SPDX-License-Identifier: LGPL-2.1-or-later
#include "component/redirecthandler.h"
#include "log/log.h"
#include "log/ratelimitedlog.h"
#include "support/logrecorder.h"
#include "support/printing.h"

#include <gtest/gtest.h>

#include <QLoggingCategory>

namespace {

/// A piece of a line that counts how often it is formatted.
struct Probe
{
    mutable int formatted = 0;
};

QDebug operator<<(QDebug stream, const Probe &probe)
{
    ++probe.formatted;
    return stream << "probe";
}

const struct Level
{
    QtMsgType type;
    const char *name;
} levels[] = {
    {QtDebugMsg, "debug"},
    {QtInfoMsg, "info"},
    {QtWarningMsg, "warning"},
    {QtCriticalMsg, "critical"},
};

void switchOff(const char *level)
{
    QLoggingCategory::setFilterRules(QStringLiteral("default.%1=false").arg(QLatin1String(level)));
}

void writeEachShape(QtMsgType level, const Probe &probe)
{
    Log::plain(level, "method", probe);
    Log::guard(level, "method", probe);
    Log::module(level, "method", probe);
    Log::trace(level, "method", probe);
}

QStringList eachShape(const char *level)
{
    const QString start = QLatin1String(level) + QStringLiteral(": ");
    return {start + QStringLiteral("method probe"), start + QStringLiteral("[ method ] probe"),
            start + QStringLiteral("[ method ] [REDIR_MODULE] probe"),
            start + QStringLiteral("DEVICE_REDIR method probe")};
}

} // namespace

TEST(LogLine, comes_out_in_its_shape_and_at_its_level)
{
    for (const Level &level : levels) {
        LogRecorder log;
        const Probe probe;
        writeEachShape(level.type, probe);
        EXPECT_EQ(log.lines(), eachShape(level.name));
        EXPECT_EQ(probe.formatted, 4) << level.name;
    }
}

TEST(LogLine, has_blanks_between_its_pieces_quotes_around_strings_and_decimal_numbers)
{
    LogRecorder log;
    Log::module(QtInfoMsg, "method", " begin ", QStringLiteral("a \"text\""), -12, ", end");
    EXPECT_EQ(log.lines(),
              QStringList{QStringLiteral("info: [ method ] [REDIR_MODULE]  begin  \"a \\\"text\\\"\" -12 , end")});
}

TEST(LogLine, whose_level_is_switched_off_formats_nothing)
{
    for (const Level &off : levels) {
        switchOff(off.name);
        LogRecorder log;
        for (const Level &level : levels) {
            log.clear();
            const Probe probe;
            writeEachShape(level.type, probe);
            EXPECT_EQ(log.lines(), level.type == off.type ? QStringList() : eachShape(level.name));
            EXPECT_EQ(probe.formatted, level.type == off.type ? 0 : 4) << off.name << ' ' << level.name;
        }
    }
}

TEST(LogLine, follows_a_level_that_is_switched_on_again)
{
    LogRecorder log;
    switchOff("debug");
    Log::plain(QtDebugMsg, "off");
    QLoggingCategory::setFilterRules(QString());
    Log::plain(QtDebugMsg, "on");
    EXPECT_EQ(log.lines(), QStringList{QStringLiteral("debug: on")});
}

TEST(RateLimitedLine, makes_no_text_while_its_level_is_switched_off)
{
    RateLimitedLog channel("method");
    channel.start();
    int made = 0;
    const auto text = [&made] {
        ++made;
        return QStringLiteral("text");
    };
    LogRecorder log;
    channel.write(text);
    EXPECT_EQ(made, 1);
    EXPECT_EQ(log.lines(), QStringList{QStringLiteral("info: [ method ] [REDIR_MODULE] \"text\"")});

    switchOff("info");
    log.clear();
    channel.write(text);
    EXPECT_EQ(made, 1);
    EXPECT_EQ(log.lines(), QStringList());
}

TEST(QuietHost, sees_no_line_of_a_level_that_it_has_switched_off)
{
    LogRecorder log;
    RedirectHandler handler;
    switchOff("debug");
    handler.handlerRedirNoticeEvent(ChannelEventOpened, nullptr, 0, nullptr);
    EXPECT_EQ(log.lines(), QStringList());

    switchOff("info");
    int length = 0;
    EXPECT_EQ(handler.handlerRedirCtrlCommand("{}", nullptr, length), 1);
    EXPECT_EQ(log.lines(),
              QStringList{QStringLiteral("critical: [ handlerRedirCtrlCommand ] call handlerRedirCtrlCommand failed "
                                         "due to that m_redirCtrl is NULL")});
}
