// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <glib.h>

#include <deque>
#include <functional>
#include <string>

namespace usbworld {

/**
 * Runs changes of the emulated /sys in order, each as soon as everyone who monitors devices has room for its event.
 *
 * A monitor holds about ten events, and the test bed ends the process when one does not take another. A real system
 * has room for thousands, so a monitor that is slow for a while must not lose any here.
 * \thread main
 */
class EventQueue
{
public:
    using Step = std::function<void()>;

    /** \a root is the directory of the test bed, where the sockets of the monitors are. */
    explicit EventQueue(std::string root);
    ~EventQueue();
    EventQueue(const EventQueue &) = delete;
    EventQueue &operator=(const EventQueue &) = delete;

    /** Adds a step that causes at most one event. It runs at once when nothing stands in its way. */
    void push(Step step);

private:
    static gboolean onRetry(gpointer self);
    void run();
    bool everyMonitorHasRoom() const;

    std::string m_root;
    std::deque<Step> m_steps;
    guint m_retry = 0;
};

} // namespace usbworld
