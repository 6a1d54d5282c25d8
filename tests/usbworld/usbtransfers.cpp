// SPDX-License-Identifier: LGPL-2.1-or-later
//
// The transfers of a device node: submitted, run, waiting, done and reaped.
#include "usbnode.h"

#include "ioctlmemory.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <linux/usbdevice_fs.h>

namespace usbworld {

namespace {

constexpr unsigned DirectionIn = 0x80;

} // namespace

UsbNode::Result UsbNode::submit(Client *client, UMockdevIoctlData *argument)
{
    usbdevfs_urb request;
    Urb urb{};
    urb.block = fetch(argument, request);
    if (!urb.block)
        return -EFAULT;
    urb.type = request.type;
    urb.endpoint = request.endpoint;
    urb.bufferLength = request.buffer_length;
    if (urb.type != USBDEVFS_URB_TYPE_CONTROL) {
        InterfaceState *interface = interfaceOfEndpoint(urb.endpoint);
        const Result claimed = interface ? claimFor(client, *interface) : -ENOENT;
        if (claimed < 0)
            return claimed;
    }
    if (urb.bufferLength > 0) {
        urb.buffer.reset(umockdev_ioctl_data_resolve(urb.block.get(), offsetof(usbdevfs_urb, buffer),
                                                     gsize(urb.bufferLength), nullptr));
        if (!urb.buffer)
            return -EFAULT;
    }
    ++m_statistics.urbs;
    if (!run(urb)) {
        m_clients[client].waiting.push_back(std::move(urb));
        return 0;
    }
    finish(client, std::move(urb));
    retryWaiting();
    return 0;
}

UsbNode::Result UsbNode::discard(Client *client, UMockdevIoctlData *argument)
{
    std::deque<Urb> &waiting = m_clients[client].waiting;
    gulong address = 0; // of the block in the memory of the process, passed as it is
    std::memcpy(&address, argument->data, sizeof address);
    const auto found = std::find_if(waiting.begin(), waiting.end(),
                                    [address](const Urb &urb) { return urb.block->client_addr == address; });
    if (found == waiting.end())
        return -EINVAL;
    Urb urb = std::move(*found);
    waiting.erase(found);
    urb.status = -ENOENT;
    finish(client, std::move(urb));
    return 0;
}

UsbNode::Result UsbNode::reap(Client *client, UMockdevIoctlData *argument)
{
    std::deque<Urb> &done = m_clients[client].done;
    if (done.empty())
        return m_gone ? -ENODEV : -EAGAIN;
    gulong pointer = 0;
    const Data place = fetch(argument, pointer);
    if (!place)
        return -EFAULT;
    umockdev_ioctl_data_set_ptr(place.get(), 0, done.front().block.get());
    done.pop_front();
    return 0;
}

bool UsbNode::run(Urb &urb)
{
    urb.status = 0;
    urb.actualLength = 0;
    if (urb.type == USBDEVFS_URB_TYPE_CONTROL) {
        runControl(urb);
        return true;
    }
    return m_transport && runBulk(urb);
}

bool UsbNode::runBulk(Urb &urb)
{
    const auto room = std::size_t(urb.bufferLength);
    if (!(urb.endpoint & DirectionIn)) {
        const bool taken = m_transport->out(urb.buffer ? urb.buffer->data : nullptr, room);
        urb.status = taken ? 0 : -EPIPE;
        urb.actualLength = taken ? urb.bufferLength : 0;
        return true;
    }
    const BulkOnly::In in = m_transport->in(room);
    if (in.answer == BulkOnly::Answer::NotYet)
        return false;
    if (in.answer == BulkOnly::Answer::Stall)
        urb.status = -EPIPE;
    urb.actualLength = int(in.size);
    if (in.size > 0)
        umockdev_ioctl_data_update(urb.buffer.get(), 0, const_cast<guint8 *>(in.data), int(in.size));
    return true;
}

void UsbNode::runControl(Urb &urb)
{
    constexpr int SetupSize = 8;
    if (urb.bufferLength < SetupSize) {
        urb.status = -EINVAL;
        return;
    }
    Bytes answer;
    urb.status = control(urb.buffer->data, answer);
    const std::uint8_t *setup = urb.buffer->data;
    const std::size_t wanted = std::size_t(setup[6]) | std::size_t(setup[7]) << 8;
    const bool hostReads = setup[0] & DirectionIn;
    if (urb.status != 0)
        return;
    if (!hostReads) {
        urb.actualLength = urb.bufferLength - SetupSize;
        return;
    }
    answer.resize(std::min({answer.size(), wanted, std::size_t(urb.bufferLength - SetupSize)}));
    urb.actualLength = int(answer.size());
    if (!answer.empty())
        umockdev_ioctl_data_update(urb.buffer.get(), SetupSize, answer.data(), int(answer.size()));
}

// Answers a request to endpoint 0: 0, or minus an error number when the device refuses.
int UsbNode::control(const std::uint8_t *setup, Bytes &answer)
{
    const std::uint8_t valueLow = setup[2];
    const std::uint8_t valueHigh = setup[3];
    const unsigned index = setup[4];
    switch (unsigned(setup[0]) << 8 | setup[1]) {
    case 0x8000: // GET_STATUS of the device, an interface, an endpoint
    case 0x8100:
    case 0x8200:
        answer = {0, 0};
        return 0;
    case 0x8006: // GET_DESCRIPTOR
        if (valueHigh == 1)
            answer = m_identity.deviceDescriptor();
        else if (valueHigh == 2 && valueLow == 0)
            answer = m_identity.configurationDescriptor();
        else if (valueHigh == 3)
            answer = m_identity.stringDescriptor(valueLow);
        return answer.empty() ? -EPIPE : 0;
    case 0x8008: // GET_CONFIGURATION
        answer = {1};
        return 0;
    case 0x810a: // GET_INTERFACE
    case 0xa1fe: // highest logical unit
        answer = {0};
        return 0;
    case 0x0201: // CLEAR_FEATURE of an endpoint
        if (m_transport)
            m_transport->clearHalt(index);
        return 0;
    case 0x21ff: // reset of the bulk-only transport
        if (m_transport)
            m_transport->reset();
        return 0;
    case 0x0009: // SET_CONFIGURATION
    case 0x010b: // SET_INTERFACE
        return 0;
    default:
        return -EPIPE;
    }
}

void UsbNode::finish(Client *client, Urb urb)
{
    m_statistics.bytes += std::uint64_t(urb.actualLength);
    store(urb.block.get(), urb.status, offsetof(usbdevfs_urb, status));
    store(urb.block.get(), urb.actualLength, offsetof(usbdevfs_urb, actual_length));
    m_clients[client].done.push_back(std::move(urb));
}

void UsbNode::retryWaiting()
{
    for (auto &[client, state] : m_clients) {
        while (!state.waiting.empty() && run(state.waiting.front())) {
            Urb urb = std::move(state.waiting.front());
            state.waiting.pop_front();
            finish(client, std::move(urb));
        }
    }
}

void UsbNode::updateReadiness()
{
    m_readiness.setReady(
        std::any_of(m_clients.begin(), m_clients.end(), [](const auto &entry) { return !entry.second.done.empty(); }));
}

} // namespace usbworld
