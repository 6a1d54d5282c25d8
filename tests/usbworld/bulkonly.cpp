// SPDX-License-Identifier: LGPL-2.1-or-later
#include "bulkonly.h"

#include "usbidentity.h"

#include <algorithm>
#include <cstring>

namespace usbworld {

namespace {

constexpr std::size_t PacketSize = 512;

} // namespace

BulkOnly::BulkOnly(ScsiDisk disk) : m_disk(std::move(disk)) { }

bool BulkOnly::control(const Setup &setup, const Bytes &, Bytes &answer)
{
    switch (setup.request) {
    case 0xa1fe: // highest logical unit
        answer = {0};
        return true;
    case 0x21ff:
        reset();
        return true;
    default:
        return false;
    }
}

bool BulkOnly::out(unsigned, const std::uint8_t *data, std::size_t size)
{
    if (m_outHalted)
        return false;
    if (m_dataOutLeft > 0) {
        takeData(data, size);
        return true;
    }
    if (size != CommandSize || std::memcmp(data, "USBC", 4) != 0) {
        // A wrapper that makes no sense blocks both directions until the host resets the transport.
        m_inHalted = m_outHalted = true;
        return false;
    }
    command(data);
    return true;
}

void BulkOnly::command(const std::uint8_t *wrapper)
{
    reset();
    std::copy_n(wrapper + 4, m_tag.size(), m_tag.begin());
    const std::size_t wanted = numberAt(wrapper + 8);
    const bool hostReads = wrapper[12] & 0x80;

    ScsiDisk::Outcome outcome = m_disk.execute(wrapper + 15);
    if (wanted > 0 && !hostReads) {
        // The host sends its data whatever became of the command, so what nobody wants is swallowed.
        m_dataOutLeft = wanted;
        m_discardDataOut = outcome.dataOut != wanted;
        setStatus(m_discardDataOut ? wanted : 0, outcome.good && !m_discardDataOut);
        return;
    }
    if (wanted == 0) {
        setStatus(0, outcome.good && outcome.dataIn.empty() && outcome.dataOut == 0);
        return;
    }
    m_dataIn = std::move(outcome.dataIn);
    m_dataIn.resize(std::min(m_dataIn.size(), wanted));
    // Data that ends with a full packet does not tell the host that it is over: a stall does.
    m_stallAfterData = m_dataIn.size() < wanted && m_dataIn.size() % PacketSize == 0;
    setStatus(wanted - m_dataIn.size(), outcome.good);
}

void BulkOnly::takeData(const std::uint8_t *data, std::size_t size)
{
    const std::size_t taken = std::min(size, m_dataOutLeft);
    m_dataOutLeft -= taken;
    if (!m_discardDataOut && !m_disk.write(data, taken)) {
        m_discardDataOut = true;
        setStatus(m_dataOutLeft + taken, false);
    }
}

void BulkOnly::setStatus(std::size_t residue, bool good)
{
    std::memcpy(m_status.data(), "USBS", 4);
    std::copy(m_tag.begin(), m_tag.end(), m_status.begin() + 4);
    for (std::size_t i = 0; i < 4; ++i)
        m_status[8 + i] = std::uint8_t(residue >> (8 * i));
    m_status[12] = good ? 0 : 1;
    m_statusDue = true;
}

BulkOnly::In BulkOnly::in(unsigned, std::size_t room)
{
    if (m_inHalted)
        return {Answer::Stall, nullptr, 0};
    if (m_dataInSent < m_dataIn.size()) {
        const std::uint8_t *data = m_dataIn.data() + m_dataInSent;
        const std::size_t left = m_dataIn.size() - m_dataInSent;
        const std::size_t size = std::min(room, left);
        m_dataInSent += size;
        if (room > left)
            m_stallAfterData = false; // the short transfer has told the host
        return {Answer::Data, data, size};
    }
    if (m_stallAfterData) {
        m_stallAfterData = false;
        m_inHalted = true;
        return {Answer::Stall, nullptr, 0};
    }
    if (!m_statusDue || m_dataOutLeft > 0)
        return notYet();
    m_statusDue = false;
    return {Answer::Data, m_status.data(), std::min(room, m_status.size())};
}

void BulkOnly::reset()
{
    m_dataIn.clear();
    m_dataInSent = 0;
    m_dataOutLeft = 0;
    m_stallAfterData = m_discardDataOut = m_statusDue = false;
    m_inHalted = m_outHalted = false;
}

void BulkOnly::clearHalt(unsigned endpoint)
{
    (endpoint & 0x80 ? m_inHalted : m_outHalted) = false;
}

bool BulkOnly::tell(const std::string &word)
{
    if (word != "insert" && word != "eject")
        return false;
    m_disk.setPresent(word == "insert");
    return true;
}

} // namespace usbworld
