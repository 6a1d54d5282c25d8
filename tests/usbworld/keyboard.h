// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "usbidentity.h"

#include <deque>

namespace usbworld {

/** A keyboard that types the words of the control socket: small letters, digits and spaces. */
class Keyboard : public Function
{
public:
    static UsbIdentity identity();

    bool control(const Setup &setup, const Bytes &data, Bytes &answer) override;
    In in(unsigned endpoint, std::size_t room) override;
    void reset() override { m_keys.clear(); }
    bool tell(const std::string &word) override;

private:
    std::deque<std::uint8_t> m_keys; ///< pressed one after the other, 0 for none
    Bytes m_report;
};

} // namespace usbworld
