// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <mutex>
#include <utility>
#include <vector>

/// What happened, in order, noted from any thread.
template<typename Event>
class EventList
{
public:
    void add(Event event)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_events.push_back(std::move(event));
    }

    std::vector<Event> all() const
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_events;
    }

    std::size_t count() const { return all().size(); }

    void clear()
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_events.clear();
    }

private:
    mutable std::mutex m_mutex;
    std::vector<Event> m_events;
};
