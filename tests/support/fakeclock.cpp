// SPDX-License-Identifier: LGPL-2.1-or-later
#include "support/fakeclock.h"

#include <QDateTime>

#include <atomic>

namespace {
std::atomic<bool> faked{false};
std::atomic<qint64> sinceEpoch{0};
std::atomic<qint64> step{0};

QDateTime now()
{
    return QDateTime::fromMSecsSinceEpoch(faked ? sinceEpoch.fetch_add(step) : QDateTime::currentMSecsSinceEpoch());
}
} // namespace

void FakeClock::set(const QTime &time)
{
    sinceEpoch = QDateTime(QDate(2024, 5, 6), time).toMSecsSinceEpoch();
    faked = true;
}

void FakeClock::advance(qint64 milliseconds)
{
    sinceEpoch += milliseconds;
}

void FakeClock::advanceWithEachReading(qint64 milliseconds)
{
    step = milliseconds;
}

QTime QTime::currentTime()
{
    return now().time();
}

QDateTime QDateTime::currentDateTime()
{
    return now();
}
