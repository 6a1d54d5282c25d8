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
    urb.block = fetchUrb(argument, &request);
    if (!urb.block)
        return -EFAULT;
    urb.type = request.type;
    urb.endpoint = request.endpoint;
    urb.bufferLength = request.buffer_length;
    urb.packets = urb.type == USBDEVFS_URB_TYPE_ISO ? std::size_t(request.number_of_packets) : 0;
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
    if (urb.packets > 0 && m_identity.interfaces[std::size_t(m_identity.interfaceOf(urb.endpoint))].alternates.empty())
        return -EINVAL; // it has no isochronous endpoint
    std::deque<Urb> &waiting = m_clients[client].waiting;
    const bool queued =
        std::any_of(waiting.begin(), waiting.end(), [&urb](const Urb &one) { return one.endpoint == urb.endpoint; });
    if (urb.packets > 0)
        schedule(urb);
    if (urb.packets > 0 || queued || !run(urb)) {
        waiting.push_back(std::move(urb));
        m_somethingWaits.notify_all();
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
    return runData(urb);
}

bool UsbNode::runData(Urb &urb)
{
    Function &function = functionOfEndpoint(urb.endpoint);
    const auto room = std::size_t(urb.bufferLength);
    if (m_halted.count(urb.endpoint) > 0) {
        urb.status = -EPIPE;
        return true;
    }
    if (!(urb.endpoint & DirectionIn)) {
        const bool taken = function.out(urb.endpoint, urb.buffer ? urb.buffer->data : nullptr, room);
        urb.status = taken ? 0 : -EPIPE;
        urb.actualLength = taken ? urb.bufferLength : 0;
        return true;
    }
    const Function::In in = function.in(urb.endpoint, room);
    if (in.answer == Function::Answer::NotYet)
        return false;
    if (in.answer == Function::Answer::Stall)
        urb.status = -EPIPE;
    urb.actualLength = int(std::min(in.size, room));
    if (urb.actualLength > 0)
        umockdev_ioctl_data_update(urb.buffer.get(), 0, const_cast<guint8 *>(in.data), urb.actualLength);
    return true;
}

void UsbNode::runControl(Urb &urb)
{
    constexpr int SetupSize = 8;
    if (urb.bufferLength < SetupSize) {
        urb.status = -EINVAL;
        return;
    }
    const std::uint8_t *bytes = urb.buffer->data;
    const auto number = [bytes](int at) { return unsigned(bytes[at]) | unsigned(bytes[at + 1]) << 8; };
    const Setup setup{unsigned(bytes[0]) << 8 | bytes[1], number(2), number(4)};
    const bool hostReads = bytes[0] & DirectionIn;
    Bytes answer;
    const bool known = control(setup, hostReads ? Bytes() : Bytes(bytes + SetupSize, bytes + urb.bufferLength), answer);
    urb.status = known ? 0 : -EPIPE;
    if (!known)
        return;
    if (!hostReads) {
        urb.actualLength = urb.bufferLength - SetupSize;
        return;
    }
    answer.resize(std::min({answer.size(), std::size_t(number(6)), std::size_t(urb.bufferLength - SetupSize)}));
    urb.actualLength = int(answer.size());
    if (!answer.empty())
        umockdev_ioctl_data_update(urb.buffer.get(), SetupSize, answer.data(), int(answer.size()));
}

// Answers a request to endpoint 0. False: the device refuses.
bool UsbNode::control(const Setup &setup, const Bytes &data, Bytes &answer)
{
    const std::size_t interface = setup.index & 0xff;
    switch (setup.request) {
    case 0x8000: // GET_STATUS of the device, an interface, an endpoint
    case 0x8100:
    case 0x8200:
        answer = {0, 0};
        return true;
    case 0x8006:
        return getDescriptor(setup.value, answer);
    case 0x8008: // GET_CONFIGURATION
        answer = {1};
        return true;
    case 0x810a: // GET_INTERFACE
        answer = {interface < m_interfaces.size() ? m_interfaces[interface].alternate : std::uint8_t(0)};
        return true;
    case 0x0201: // CLEAR_FEATURE of an endpoint
        clearStall(setup.index);
        return true;
    case 0x0009: // SET_CONFIGURATION
    case 0x010b: // SET_INTERFACE
        return true;
    default:
        return interface < m_functions.size() && m_functions[interface]->control(setup, data, answer);
    }
}

bool UsbNode::getDescriptor(unsigned value, Bytes &answer) const
{
    switch (value >> 8) {
    case 1:
        answer = m_identity.deviceDescriptor();
        break;
    case 2:
        answer = value == 0x200 ? m_identity.configurationDescriptor() : Bytes();
        break;
    case 3:
        answer = m_identity.stringDescriptor(std::uint8_t(value));
        break;
    case 15:
        answer = m_identity.storeDescriptor();
        break;
    default:
        break;
    }
    return !answer.empty();
}

void UsbNode::finish(Client *client, Urb urb)
{
    m_statistics.bytes += std::uint64_t(urb.actualLength);
    store(urb.block.get(), urb.status, offsetof(usbdevfs_urb, status));
    store(urb.block.get(), urb.actualLength, offsetof(usbdevfs_urb, actual_length));
    m_clients[client].done.push_back(std::move(urb));
}

void UsbNode::failWaiting(int status, unsigned endpoint)
{
    for (auto &[client, state] : m_clients) {
        for (auto urb = state.waiting.begin(); urb != state.waiting.end();) {
            if (endpoint != 0 && urb->endpoint != endpoint) {
                ++urb;
                continue;
            }
            urb->status = status;
            finish(client, std::move(*urb));
            urb = state.waiting.erase(urb);
        }
    }
}

// The endpoints do not wait for each other, but the transfers of one keep their order.
void UsbNode::retryWaiting()
{
    for (auto &[client, state] : m_clients) {
        std::set<unsigned> stillWaiting;
        for (auto urb = state.waiting.begin(); urb != state.waiting.end();) {
            if (urb->packets > 0 || stillWaiting.count(urb->endpoint) > 0 || !run(*urb)) {
                stillWaiting.insert(urb->endpoint);
                ++urb;
                continue;
            }
            finish(client, std::move(*urb));
            urb = state.waiting.erase(urb);
        }
    }
}

void UsbNode::updateReadiness()
{
    m_readiness.setReady(
        std::any_of(m_clients.begin(), m_clients.end(), [](const auto &entry) { return !entry.second.done.empty(); }));
}

} // namespace usbworld
