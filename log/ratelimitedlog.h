// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "log/log.h"

#include <QMutex>
#include <QTime>

#include <atomic>

/// A log channel that steps back when it is used too fast. Lines come out at info level. When the 1001st line of an
/// interval comes less than 300 seconds after the interval began, the channel says so once at warning level and writes
/// at debug level for the rest of its life; otherwise a new interval begins. The clock is the local time of day, so an
/// interval that spans midnight counts as a short one. \thread any; no lock is held while a line is written.
class RateLimitedLog
{
public:
    /// \a method stands in front of every line; a literal, borrowed for the channel's life.
    explicit RateLimitedLog(const char *method) : m_method(method) { }

    /// Begins the first interval. Before this call the channel would take any 1001 lines for too many.
    void start();

    /// Writes one line. \a text returns the line as a QString; it is called only if the line will be seen.
    template<typename Text>
    void write(const Text &text)
    {
        const Verdict verdict = count();
        const QtMsgType level = verdict == Verdict::Demoted ? QtDebugMsg : QtInfoMsg;
        if (Log::enabled(level))
            Log::module(level, m_method, text());
        if (verdict == Verdict::TooMany)
            Log::module(QtWarningMsg, m_method, " Log output too frequently. Reduce log leve:[INFO]->[DEBUG]");
    }

private:
    enum class Verdict { Normal, TooMany, Demoted };

    Verdict count();
    Verdict countAtTheLimit();

    const char *const m_method;
    std::atomic<int> m_lines{0}; ///< written at info level in this interval, or DemotedMark
    QMutex m_mutex; ///< guards the interval's start, and the step from one interval to the next
    QTime m_intervalStart;
};
