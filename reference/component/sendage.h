// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>

/// How old the oldest message is that still waits to be written, judged by the number of bytes that wait.
class SendAge
{
public:
    using Clock = std::chrono::steady_clock;

    void sent(uint64_t size, uint64_t waiting)
    {
        m_total += size;
        m_messages.push_back({m_total, Clock::now()});
        forgetWritten(waiting);
    }

    Clock::duration age(uint64_t waiting)
    {
        forgetWritten(waiting);
        return m_messages.empty() ? Clock::duration::zero() : Clock::now() - m_messages.front().time;
    }

private:
    struct Message
    {
        uint64_t end; ///< all bytes until then
        Clock::time_point time;
    };

    void forgetWritten(uint64_t waiting)
    {
        while (!m_messages.empty() && m_messages.front().end + waiting <= m_total)
            m_messages.pop_front();
    }

    uint64_t m_total = 0;
    std::deque<Message> m_messages;
};
