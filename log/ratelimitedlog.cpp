// SPDX-License-Identifier: LGPL-2.1-or-later
#include "log/ratelimitedlog.h"

namespace {
constexpr int LinesPerInterval = 1000;
constexpr int ShortIntervalSeconds = 299;
constexpr int DemotedMark = -1;
} // namespace

void RateLimitedLog::start()
{
    const QMutexLocker lock(&m_mutex);
    m_intervalStart = QTime::currentTime();
}

RateLimitedLog::Verdict RateLimitedLog::count()
{
    int lines = m_lines;
    while (lines != DemotedMark && lines < LinesPerInterval) {
        if (m_lines.compare_exchange_weak(lines, lines + 1))
            return Verdict::Normal;
    }
    return lines == DemotedMark ? Verdict::Demoted : countAtTheLimit();
}

RateLimitedLog::Verdict RateLimitedLog::countAtTheLimit()
{
    {
        const QMutexLocker lock(&m_mutex);
        if (m_lines == LinesPerInterval) { // otherwise another thread's line was the one too many
            const QTime now = QTime::currentTime();
            if (m_intervalStart.secsTo(now) <= ShortIntervalSeconds) {
                m_lines = DemotedMark;
                return Verdict::TooMany;
            }
            m_intervalStart = now;
            m_lines = 0;
            return Verdict::Normal;
        }
    }
    return count();
}
