// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <QObject>

#include <atomic>

/**
 * Queued calls that can be dropped while they wait, and counted.
 *
 * A thread that is asked to quit would first do all that had been asked of it before.
 */
class QueuedCalls
{
public:
    /// Watches the calls that are queued to \a receiver. \thread that of the receiver, which may move later
    void watch(QObject *receiver);

    /// From now on what is queued is not done any more. \thread any
    void drop() { m_dropping = true; }

    /// Asks the thread of \a receiver to quit behind all that is queued there; nothing for null, as a receiver goes
    /// with its thread. \thread any
    static void quitThread(QObject *receiver);

    /// How many calls have been dropped so far. \thread any
    int dropped() const { return m_dropped; }

private:
    class Filter;

    std::atomic<bool> m_dropping{false};
    std::atomic<int> m_dropped{0};
};
