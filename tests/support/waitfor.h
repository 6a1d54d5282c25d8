// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QThread>

/// Runs the event loop until \a condition holds; false if it does not within the deadline.
template<typename Condition>
bool waitFor(const Condition &condition, int milliseconds = 20000)
{
    QElapsedTimer timer;
    timer.start();
    while (!condition()) {
        if (timer.elapsed() > milliseconds)
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
        QThread::usleep(200);
    }
    return true;
}
