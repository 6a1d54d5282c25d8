// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "scsidisk.h"

#include <array>

namespace usbworld {

/**
 * The device side of the bulk-only transport: command wrappers and data come in, data and status wrappers go out.
 */
class BulkOnly
{
public:
    enum class Answer { Data, Stall, NotYet };

    /** The reply to one IN transfer. \a data stays valid until the next call to the object. */
    struct In
    {
        Answer answer;
        const std::uint8_t *data;
        std::size_t size;
    };

    explicit BulkOnly(ScsiDisk disk);

    /** Takes what the host sent. False: the endpoint stalls. */
    bool out(const std::uint8_t *data, std::size_t size);

    /** Gives at most \a room bytes to the host. A device with nothing to say keeps the host waiting (NotYet). */
    In in(std::size_t room);

    /** Forgets the command in progress, as after a reset of the port or of the transport. */
    void reset();

    /** The host cleared the stall of \a endpoint. */
    void clearHalt(unsigned endpoint);

private:
    static constexpr std::size_t CommandSize = 31;
    static constexpr std::size_t StatusSize = 13;

    void command(const std::uint8_t *wrapper);
    void takeData(const std::uint8_t *data, std::size_t size);
    void setStatus(std::size_t residue, bool good);

    ScsiDisk m_disk;
    Bytes m_dataIn;
    std::size_t m_dataInSent = 0;
    bool m_stallAfterData = false;
    bool m_inHalted = false;
    bool m_outHalted = false;
    std::size_t m_dataOutLeft = 0;
    bool m_discardDataOut = false;
    bool m_statusDue = false;
    std::array<std::uint8_t, 4> m_tag{};
    std::array<std::uint8_t, StatusSize> m_status{};
};

} // namespace usbworld
