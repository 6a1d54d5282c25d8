// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "guestmessages.h"

#include <QDateTime>
#include <QJsonObject>

#include <chrono>
#include <unordered_map>
#include <vector>

/**
 * What one shared device has transferred, counted from the usbredir messages of both sides. A transfer takes from the
 * virtual machine's request to the answer; what a device sends without being asked each time has no time.
 */
class TransferStatistics
{
public:
    void fromGuest(const char *message, const GuestMessages::Piece &piece, const GuestMessages &messages);
    void toGuest(const uint8_t *message, const GuestMessages &messages);
    void dropped() { ++m_dropped; }
    uint64_t drops() const { return m_dropped; }

    /// The times are those of the last transfers, a thousand of them at most.
    QJsonObject toJson() const;

private:
    using Clock = std::chrono::steady_clock;

    struct Direction
    {
        uint64_t transfers = 0, bytes = 0;
    };

    QDateTime m_since = QDateTime::currentDateTimeUtc();
    Direction m_fromDevice, m_toDevice;
    uint64_t m_errors = 0, m_dropped = 0;
    std::unordered_map<uint64_t, Clock::time_point> m_underWay; ///< by the request's number
    std::vector<int64_t> m_microseconds; ///< a ring
    std::size_t m_next = 0;
};
