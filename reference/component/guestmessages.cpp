// SPDX-License-Identifier: LGPL-2.1-or-later
#include "guestmessages.h"

#include <QtEndian>

#include <algorithm>

#include <usbredirproto.h>

namespace {

constexpr std::size_t LongHeader = sizeof(usb_redir_header);
constexpr std::size_t ShortHeader = LongHeader - sizeof(uint32_t); // the id has half its length

constexpr std::size_t LongestHead = 16; // between the header and the data of a message
constexpr std::size_t LongestWhole = 256; // longer than any message but data; a greeting may be longer one day

uint32_t numberAt(const char *bytes)
{
    return qFromLittleEndian<uint32_t>(bytes);
}

} // namespace

GuestMessages::Piece GuestMessages::next(const char *bytes, std::size_t count)
{
    Piece piece;
    if (m_left == 0) {
        const std::size_t header = headerSize();
        if (count < header)
            return piece;
        const uint32_t type = numberAt(bytes);
        const uint64_t size = uint64_t(header) + numberAt(bytes + 4);
        const bool isShort = size <= LongestWhole;
        if (count < std::min<uint64_t>(size, isShort || type == usb_redir_hello ? LongestWhole : header + LongestHead))
            return piece;
        if (type == usb_redir_hello)
            greet(bytes + header, std::size_t(size - header));
        if (isShort) {
            piece.isWhole = true;
            piece.type = type;
        }
        piece.headerSize = header;
        m_left = size;
    }
    piece.size = std::size_t(std::min<uint64_t>(m_left, count));
    m_left -= piece.size;
    return piece;
}

// Long ids and long lengths are used when both ends offer them. usbredirhost always does.
void GuestMessages::greet(const char *message, std::size_t size)
{
    constexpr std::size_t capabilities = sizeof(usb_redir_hello_header);
    if (m_isGreeted)
        return; // usbredirhost ignores a second greeting, too
    m_isGreeted = size >= capabilities; // a shorter one is no greeting
    const uint32_t offered = size >= capabilities + sizeof(uint32_t) ? numberAt(message + capabilities) : 0;
    m_hasLongIds = offered & 1u << usb_redir_cap_64bits_ids;
    m_hasLongBulkLengths = offered & 1u << usb_redir_cap_32bits_bulk_length;
}

std::size_t GuestMessages::headerSize() const
{
    return m_hasLongIds ? LongHeader : ShortHeader;
}
