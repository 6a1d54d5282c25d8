// SPDX-License-Identifier: LGPL-2.1-or-later
#include "serialport.h"

#include <algorithm>
#include <utility>

namespace usbworld {

namespace {

// None of a disk's: both may be in one device.
constexpr std::uint8_t NotificationIn = 0x85;
constexpr std::uint8_t DataIn = 0x83;
constexpr std::uint8_t DataOut = 0x04;

const Bytes NineThousandSixHundredBaud{0x80, 0x25, 0, 0, 0, 0, 8};

} // namespace

std::vector<UsbInterface> SerialPort::interfaces(std::uint8_t first)
{
    const auto data = std::uint8_t(first + 1);
    UsbInterface communication{2, 2, 1, {{NotificationIn, UsbEndpoint::Interrupt, 16, 8}}, "cdc_acm"};
    communication.associated = 2;
    communication.classSpecific = {
        5, 0x24, 0, 0x10,  0x01, // header
        5, 0x24, 1, 0,     data, // call management
        4, 0x24, 2, 2, // abstract control: line coding
        5, 0x24, 6, first, data, // union
    };
    return {communication,
            {0x0a, 0, 0, {{DataIn, UsbEndpoint::Bulk, 512}, {DataOut, UsbEndpoint::Bulk, 512}}, "cdc_acm"}};
}

bool SerialPort::control(const Setup &setup, const Bytes &data, Bytes &answer)
{
    switch (setup.request) {
    case 0x2120: // SET_LINE_CODING
        m_lineCoding = data;
        return data.size() == NineThousandSixHundredBaud.size();
    case 0xa121: // GET_LINE_CODING
        answer = m_lineCoding;
        return true;
    case 0x2122: // SET_CONTROL_LINE_STATE: the other end is there as soon as this one is
        m_notification = {0xa1, 0x20, 0, 0, 0, 0, 2, 0, std::uint8_t(setup.value & 1 ? 3 : 0), 0};
        return true;
    default:
        return false;
    }
}

bool SerialPort::out(unsigned, const std::uint8_t *data, std::size_t size)
{
    m_echo.insert(m_echo.end(), data, data + size);
    return true;
}

Function::In SerialPort::in(unsigned endpoint, std::size_t room)
{
    Bytes &from = endpoint == DataIn ? m_echo : m_notification;
    if (from.empty())
        return notYet();
    const auto end = from.begin() + std::ptrdiff_t(std::min(room, from.size()));
    m_part.assign(from.begin(), end);
    from.erase(from.begin(), end);
    return give(m_part);
}

void SerialPort::reset()
{
    m_lineCoding = NineThousandSixHundredBaud;
    m_echo.clear();
    m_notification.clear();
}

} // namespace usbworld
