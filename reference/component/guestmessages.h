// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <cstddef>
#include <cstdint>

/**
 * Finds the usbredir messages in the bytes that come from a virtual machine. One of these for each opening of a
 * channel: the greeting, which comes first, decides how long the headers are.
 */
class GuestMessages
{
public:
    /// A message, or as much as has come of a long one.
    struct Piece
    {
        std::size_t size = 0; ///< 0: more has to come first
        bool isWhole = false;
        uint32_t type = 0; ///< usb_redir_reset, ...; only of a whole message
        /// What follows belongs to the type, and what that has in front of its data is in the piece. 0: it does not
        /// begin here.
        std::size_t headerSize = 0;
    };

    /// The next piece, which begins at \a bytes. It counts as taken.
    Piece next(const char *bytes, std::size_t count);

    /// What both sides have agreed to with their greetings.
    std::size_t headerSize() const;
    bool hasLongBulkLengths() const { return m_hasLongBulkLengths; }

private:
    void greet(const char *message, std::size_t size);

    bool m_isGreeted = false;
    bool m_hasLongIds = false;
    bool m_hasLongBulkLengths = false;
    uint64_t m_left = 0; ///< of a long message that has come in part
};
