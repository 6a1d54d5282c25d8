// SPDX-License-Identifier: LGPL-2.1-or-later
#include "transferstatistics.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include <usbredirproto.h>

namespace {

constexpr std::size_t MostUnderWay = 4096; // requests that a virtual machine never gets an answer to
constexpr std::size_t MostTimes = 1000;
constexpr uint8_t DirectionIn = 0x80;

/// Where a message about data says what.
struct Layout
{
    std::size_t endpoint, status, size;
    uint32_t type;
    bool hasRequest; ///< the virtual machine asks for each
};
template<typename Header>
constexpr Layout layout(uint32_t type, bool hasRequest)
{
    return {offsetof(Header, endpoint), offsetof(Header, status), sizeof(Header), type, hasRequest};
}
constexpr Layout Layouts[] = {
    layout<usb_redir_control_packet_header>(usb_redir_control_packet, true),
    layout<usb_redir_bulk_packet_header>(usb_redir_bulk_packet, true),
    layout<usb_redir_buffered_bulk_packet_header>(usb_redir_buffered_bulk_packet, false),
    layout<usb_redir_iso_packet_header>(usb_redir_iso_packet, false),
    layout<usb_redir_interrupt_packet_header>(usb_redir_interrupt_packet, false),
};

/// The head of a message about data.
struct Head
{
    const Layout *layout = nullptr; ///< null: it is about something else
    uint64_t id = 0;
    uint8_t status = 0;
    bool isFromDevice = false;
    uint64_t bytes = 0;
};

Head read(const void *message, std::size_t headerSize, bool hasLongBulkLengths)
{
    const auto *bytes = static_cast<const uint8_t *>(message);
    uint32_t words[2]; // type and length
    std::memcpy(words, bytes, sizeof words);
    const auto *layout = std::find_if(std::begin(Layouts), std::end(Layouts),
                                      [&words](const Layout &one) { return one.type == words[0]; });
    Head head;
    if (layout == std::end(Layouts))
        return head;
    const bool isShort = words[0] == usb_redir_bulk_packet && !hasLongBulkLengths;
    const std::size_t size = layout->size - (isShort ? sizeof(usb_redir_bulk_packet_header::length_high) : 0);
    if (words[1] < size)
        return head;
    std::memcpy(&head.id, bytes + sizeof words, headerSize - sizeof words);
    head.layout = layout;
    head.status = bytes[headerSize + layout->status];
    head.isFromDevice = bytes[headerSize + layout->endpoint] & DirectionIn;
    head.bytes = words[1] - size;
    return head;
}

double milliseconds(std::vector<int64_t> microseconds, double part)
{
    if (microseconds.empty())
        return 0;
    const auto at = microseconds.begin() + std::ptrdiff_t(double(microseconds.size() - 1) * part);
    std::nth_element(microseconds.begin(), at, microseconds.end());
    return double(*at) / 1000;
}

} // namespace

void TransferStatistics::fromGuest(const char *message, const GuestMessages::Piece &piece,
                                   const GuestMessages &messages)
{
    if (piece.headerSize == 0)
        return;
    const Head head = read(message, piece.headerSize, messages.hasLongBulkLengths());
    if (!head.layout)
        return;
    if (!head.isFromDevice) {
        ++m_toDevice.transfers;
        m_toDevice.bytes += head.bytes;
    }
    if (head.layout->hasRequest && m_underWay.size() < MostUnderWay)
        m_underWay[head.id] = Clock::now();
}

void TransferStatistics::toGuest(const uint8_t *message, const GuestMessages &messages)
{
    const Head head = read(message, messages.headerSize(), messages.hasLongBulkLengths());
    if (!head.layout)
        return;
    if (head.isFromDevice) {
        ++m_fromDevice.transfers;
        m_fromDevice.bytes += head.bytes;
    }
    m_errors += head.status != usb_redir_success && head.status != usb_redir_cancelled;
    const auto request = head.layout->hasRequest ? m_underWay.find(head.id) : m_underWay.end();
    if (request == m_underWay.end())
        return;
    const auto took = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - request->second).count();
    m_underWay.erase(request);
    m_microseconds.resize(std::max(m_microseconds.size(), m_next + 1));
    m_microseconds[m_next] = took;
    m_next = (m_next + 1) % MostTimes;
}

QJsonObject TransferStatistics::toJson() const
{
    const auto describe = [](const Direction &direction) {
        return QJsonObject{{QStringLiteral("bytes"), double(direction.bytes)},
                           {QStringLiteral("transfers"), double(direction.transfers)}};
    };
    return {
        {QStringLiteral("since"), m_since.toString(Qt::ISODateWithMs)},
        {QStringLiteral("fromDevice"), describe(m_fromDevice)},
        {QStringLiteral("toDevice"), describe(m_toDevice)},
        {QStringLiteral("errors"), double(m_errors)},
        {QStringLiteral("isochronousDrops"), double(m_dropped)},
        {QStringLiteral("medianMilliseconds"), milliseconds(m_microseconds, 0.5)},
        {QStringLiteral("percentile99Milliseconds"), milliseconds(m_microseconds, 0.99)},
    };
}
