// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "usbidentity.h"

namespace usbworld {

/** A serial port of the communications class (abstract control model) that sends back what it gets. */
class SerialPort : public Function
{
public:
    /** Its two interfaces, of which the first has the number \a first. */
    static std::vector<UsbInterface> interfaces(std::uint8_t first);

    bool control(const Setup &setup, const Bytes &data, Bytes &answer) override;
    bool out(unsigned endpoint, const std::uint8_t *data, std::size_t size) override;
    In in(unsigned endpoint, std::size_t room) override;
    void reset() override;

private:
    Bytes m_lineCoding;
    Bytes m_echo;
    Bytes m_notification;
    Bytes m_part; ///< what was given last
};

} // namespace usbworld
