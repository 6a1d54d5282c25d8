// SPDX-License-Identifier: LGPL-2.1-or-later
#include "keyboard.h"

namespace usbworld {

namespace {

constexpr std::size_t ReportSize = 8;

// Eight modifiers, a byte that is kept free, five lights, six keys at once.
const Bytes ReportDescriptor{
    0x05, 0x01, 0x09, 0x06, 0xa1, 0x01, // a keyboard
    0x05, 0x07, 0x19, 0xe0, 0x29, 0xe7, 0x15, 0x00, 0x25, 0x01, 0x75, 0x01, 0x95, 0x08, 0x81, 0x02, //
    0x95, 0x01, 0x75, 0x08, 0x81, 0x01, //
    0x95, 0x05, 0x75, 0x01, 0x05, 0x08, 0x19, 0x01, 0x29, 0x05, 0x91, 0x02, 0x95, 0x01, 0x75, 0x03, 0x91, 0x01, //
    0x95, 0x06, 0x75, 0x08, 0x15, 0x00, 0x25, 0x65, 0x05, 0x07, 0x19, 0x00, 0x29, 0x65, 0x81, 0x00, //
    0xc0,
};

std::uint8_t keyOf(char c)
{
    if (c >= 'a' && c <= 'z')
        return std::uint8_t(4 + c - 'a');
    if (c >= '1' && c <= '9')
        return std::uint8_t(30 + c - '1');
    return c == '0' ? 39 : c == ' ' ? 44 : 0;
}

} // namespace

UsbIdentity Keyboard::identity()
{
    UsbInterface keys{3, 1, 1, {{0x81, UsbEndpoint::Interrupt, ReportSize, 10}}, "usbhid"};
    keys.classSpecific = {9, 0x21, 0x11, 0x01, 0, 1, 0x22, std::uint8_t(ReportDescriptor.size()), 0};
    return {TestVendorId, 0x12, 0, "Example", "Keyboard", "KEYBOARD0001", {keys}, 12};
}

bool Keyboard::control(const Setup &setup, const Bytes &, Bytes &answer)
{
    switch (setup.request) {
    case 0x8106: // GET_DESCRIPTOR
        answer = ReportDescriptor;
        return setup.value >> 8 == 0x22;
    case 0xa101: // GET_REPORT
        answer = Bytes(ReportSize, 0);
        return true;
    case 0x2109: // SET_REPORT: the lights
    case 0x210a: // SET_IDLE
    case 0x210b: // SET_PROTOCOL
        return true;
    default:
        return false;
    }
}

Function::In Keyboard::in(unsigned, std::size_t)
{
    if (m_keys.empty())
        return notYet();
    m_report.assign(ReportSize, 0);
    m_report[2] = m_keys.front();
    m_keys.pop_front();
    return give(m_report);
}

bool Keyboard::tell(const std::string &word)
{
    std::deque<std::uint8_t> keys;
    for (const char c : word) {
        if (keyOf(c) == 0)
            return false;
        keys.insert(keys.end(), {keyOf(c), 0});
    }
    m_keys.insert(m_keys.end(), keys.begin(), keys.end());
    return true;
}

} // namespace usbworld
