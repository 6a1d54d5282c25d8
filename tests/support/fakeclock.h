// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <QTime>

/**
 * The clock that the library sees in this test program.
 *
 * QTime::currentTime() and QDateTime::currentDateTime() are defined here once more, and the dynamic linker finds these
 * first. Until set() is called they tell the real time.
 */
namespace FakeClock {
void set(const QTime &time);
void advance(qint64 milliseconds);
/// Each reading of the clock moves it on by so much.
void advanceWithEachReading(qint64 milliseconds);
} // namespace FakeClock
