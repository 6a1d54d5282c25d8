// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <utility>

/// How old the oldest message is that still waits to be written, judged by the number of bytes that wait.
class SendAge
{
public:
    using Clock = std::chrono::steady_clock;

    void sent(uint64_t size) { m_messages.emplace_back(m_total += size, Clock::now()); }

    Clock::duration age(uint64_t waiting)
    {
        while (!m_messages.empty() && m_messages.front().first + waiting <= m_total)
            m_messages.pop_front();
        return m_messages.empty() ? Clock::duration::zero() : Clock::now() - m_messages.front().second;
    }

private:
    uint64_t m_total = 0;
    std::deque<std::pair<uint64_t, Clock::time_point>> m_messages; ///< where they end, and when they were sent
};
