// SPDX-License-Identifier: LGPL-2.1-or-later
//
// The clock of the bus: isochronous transfers are done when their last packet is over, and what waits for a device is
// asked for again and again.
#include "usbnode.h"

#include "ioctlmemory.h"

#include <algorithm>
#include <cstring>
#include <linux/usbdevice_fs.h>

namespace usbworld {

namespace {

constexpr int MostPackets = 128; // of one transfer, as in the kernel
constexpr unsigned DirectionIn = 0x80;
constexpr std::chrono::milliseconds PollInterval{5}; // of what is not isochronous

usbdevfs_iso_packet_desc *packetsOf(UMockdevIoctlData *block)
{
    return reinterpret_cast<usbdevfs_iso_packet_desc *>(block->data + sizeof(usbdevfs_urb));
}

} // namespace

// The block of a request, with the list of packets that an isochronous one ends with; its first part goes to head. How
// long the list is stands in that part, and what was resolved once is not resolved at another length: the argument
// forgets it when it is loaded again, and then needs the address of the block in the other process.
UsbNode::Data UsbNode::fetchUrb(UMockdevIoctlData *argument, void *head) const
{
    usbdevfs_urb &urb = *static_cast<usbdevfs_urb *>(head);
    Data block = fetch(argument, urb);
    if (!block || urb.type != USBDEVFS_URB_TYPE_ISO)
        return block;
    if (urb.number_of_packets < 1 || urb.number_of_packets > MostPackets || urb.buffer_length < 1)
        return nullptr;
    gulong address = block->client_addr;
    umockdev_ioctl_data_reload(argument, nullptr);
    store(argument, address);
    const std::size_t size = sizeof urb + std::size_t(urb.number_of_packets) * sizeof(usbdevfs_iso_packet_desc);
    return Data(umockdev_ioctl_data_resolve(argument, 0, size, nullptr));
}

// The same in all settings of an interface.
UsbNode::Clock::duration UsbNode::packetInterval(unsigned endpoint) const
{
    const UsbInterface &interface = m_identity.interfaces[std::size_t(m_identity.interfaceOf(endpoint))];
    return std::chrono::microseconds(125 << (interface.alternates[0][0].interval - 1));
}

// Packets whose time has passed while no transfer waited for them are lost.
void UsbNode::schedule(Urb &urb)
{
    const Clock::duration interval = packetInterval(urb.endpoint);
    const Clock::time_point now = Clock::now();
    Clock::time_point &next = m_nextPacket.try_emplace(urb.endpoint, now).first->second;
    if (const auto missed = now > next ? (now - next) / interval : 0; missed > 0) {
        functionOfEndpoint(urb.endpoint).skip(urb.endpoint, std::uint64_t(missed));
        m_statistics.missed += std::uint64_t(missed);
        next += interval * missed;
    }
    next += interval * int(urb.packets);
    urb.due = next;
}

// A packet begins where the lengths before it end, however much of them was used.
void UsbNode::runPackets(Urb &urb)
{
    Function &function = functionOfEndpoint(urb.endpoint);
    usbdevfs_iso_packet_desc *packets = packetsOf(urb.block.get());
    std::size_t at = 0;
    urb.status = urb.actualLength = 0;
    for (std::size_t i = 0; i < urb.packets; ++i) {
        usbdevfs_iso_packet_desc &packet = packets[i];
        const std::size_t room = std::min<std::size_t>(packet.length, std::size_t(urb.bufferLength) - at);
        packet.status = 0;
        packet.actual_length = unsigned(room);
        if (urb.endpoint & DirectionIn) {
            const Function::In in = function.in(urb.endpoint, room);
            packet.actual_length = unsigned(std::min(in.size, room));
            if (packet.actual_length > 0)
                std::memcpy(urb.buffer->data + at, in.data, packet.actual_length);
        } else {
            function.out(urb.endpoint, urb.buffer->data + at, room);
        }
        urb.actualLength += int(packet.actual_length);
        at += room;
    }
}

void UsbNode::keepTime()
{
    std::unique_lock<std::mutex> lock(m_mutex);
    while (!m_gone) {
        bool anythingWaits = false;
        Clock::time_point next = Clock::now() + PollInterval;
        for (auto &[client, state] : m_clients) {
            for (auto urb = state.waiting.begin(); urb != state.waiting.end();) {
                if (urb->packets > 0 && urb->due <= Clock::now()) {
                    runPackets(*urb);
                    finish(client, std::move(*urb));
                    urb = state.waiting.erase(urb);
                    continue;
                }
                anythingWaits = true;
                if (urb->packets > 0)
                    next = std::min(next, urb->due);
                ++urb;
            }
        }
        retryWaiting();
        updateReadiness();
        if (anythingWaits)
            m_somethingWaits.wait_until(lock, next);
        else
            m_somethingWaits.wait(lock);
    }
}

// From now on the device is gone.
void UsbNode::stopTime()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_gone = true;
    }
    m_somethingWaits.notify_all();
    if (m_time.joinable())
        m_time.join();
}

} // namespace usbworld
