// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "function.h"
#include "scsidisk.h"

#include <array>

namespace usbworld {

/**
 * The device side of the bulk-only transport: command wrappers and data come in, data and status wrappers go out.
 */
class BulkOnly : public Function
{
public:
    explicit BulkOnly(ScsiDisk disk);

    bool control(const Setup &setup, const Bytes &data, Bytes &answer) override;
    bool out(unsigned endpoint, const std::uint8_t *data, std::size_t size) override;
    In in(unsigned endpoint, std::size_t room) override;
    void reset() override;
    void clearHalt(unsigned endpoint) override;
    bool tell(const std::string &word) override;

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
