// SPDX-License-Identifier: LGPL-2.1-or-later
#include "log/ratelimitedlog.h"

#include <QMutexLocker>

namespace {
constexpr int LinesPerInterval = 1000;
constexpr int ShortIntervalSeconds = 299;
constexpr int DemotedMark = -1;
} // namespace

RateLimitedLog::Verdict RateLimitedLog::count()
{
    const QMutexLocker lock(&m_mutex);
    if (m_lines == DemotedMark)
        return Verdict::Demoted;
    if (++m_lines <= LinesPerInterval)
        return Verdict::Normal;

    const QTime now = QTime::currentTime();
    if (m_intervalStart.secsTo(now) <= ShortIntervalSeconds) {
        m_lines = DemotedMark;
        return Verdict::TooMany;
    }
    m_lines = 0;
    m_intervalStart = now;
    return Verdict::Normal;
}
