// SPDX-License-Identifier: LGPL-2.1-or-later
#include "usbnode.h"

#include "ioctlmemory.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <linux/usbdevice_fs.h>
#include <sys/ioctl.h>

namespace usbworld {

namespace {

const char UsbfsDriver[] = "usbfs";

} // namespace

struct UsbNode::Request
{
    gulong number;
    const char *logName; ///< null for what is too frequent to be logged
    Result (UsbNode::*run)(Client *client, UMockdevIoctlData *argument);
};

const UsbNode::Request UsbNode::Requests[] = {
    {USBDEVFS_SUBMITURB, nullptr, &UsbNode::submit},
    {USBDEVFS_REAPURBNDELAY, nullptr, &UsbNode::reap},
    {USBDEVFS_DISCARDURB, "discard", &UsbNode::discard},
    {USBDEVFS_GET_CAPABILITIES, "capabilities", &UsbNode::getCapabilities},
    {USBDEVFS_GETDRIVER, "get driver", &UsbNode::getDriver},
    {USBDEVFS_IOCTL, "interface request", &UsbNode::interfaceRequest},
    {USBDEVFS_DISCONNECT_CLAIM, "disconnect and claim", &UsbNode::disconnectAndClaim},
    {USBDEVFS_CLAIMINTERFACE, "claim", &UsbNode::claim},
    {USBDEVFS_RELEASEINTERFACE, "release", &UsbNode::release},
    {USBDEVFS_SETCONFIGURATION, "set configuration", &UsbNode::setConfiguration},
    {USBDEVFS_SETINTERFACE, "set interface", &UsbNode::setInterface},
    {USBDEVFS_CLEAR_HALT, "clear halt", &UsbNode::clearHalt},
    {USBDEVFS_RESET, "reset", &UsbNode::resetDevice},
};

UsbNode::UsbNode(const UsbIdentity &identity, Functions functions, Log &log, std::string label, Events events)
    : m_identity(identity), m_functions(std::move(functions)), m_log(log), m_label(std::move(label)),
      m_events(std::move(events)), m_base(umockdev_ioctl_base_new())
{
    for (const UsbInterface &one : identity.interfaces)
        m_interfaces.push_back({one.kernelDriver});
    resetFunctions();
    g_signal_connect(m_base.get(), "handle-ioctl", G_CALLBACK(onIoctl), this);
    m_time = std::thread(&UsbNode::keepTime, this);
}

UsbNode::~UsbNode()
{
    g_signal_handlers_disconnect_by_data(m_base.get(), this);
    stopTime();
    const std::lock_guard<std::mutex> lastRequestIsOver(m_mutex);
}

bool UsbNode::attach(UMockdevTestbed *testbed, const std::string &name, GError **error)
{
    const std::string path = "/dev/" + name;
    umockdev_testbed_detach_ioctl(testbed, path.c_str(), nullptr); // who had this address before, if anybody
    return umockdev_testbed_attach_ioctl(testbed, path.c_str(), m_base.get(), error);
}

void UsbNode::disconnect()
{
    stopTime();
    const std::lock_guard<std::mutex> lock(m_mutex);
    failWaiting(-ESHUTDOWN);
    m_readiness.hangUp();
    m_log.line(m_label + " unplugged");
}

std::string UsbNode::driver()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    forgetClosed();
    return m_gone || m_interfaces.empty() || m_interfaces[0].driver.empty() ? "none" : m_interfaces[0].driver;
}

UsbNode::Statistics UsbNode::statistics()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_statistics;
}

bool UsbNode::tell(const std::string &word)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (word != "stall") {
        return std::any_of(m_functions.begin(), m_functions.end(),
                           [&word](const auto &function) { return function->tell(word); });
    }
    for (const UsbInterface &interface : m_identity.interfaces) {
        for (const UsbEndpoint &endpoint : interface.endpoints)
            m_halted.insert(endpoint.address);
    }
    return true;
}

gboolean UsbNode::onIoctl(UMockdevIoctlBase *, Client *client, gpointer self)
{
    auto *node = static_cast<UsbNode *>(self);
    const std::lock_guard<std::mutex> lock(node->m_mutex);
    UMockdevIoctlData *argument = umockdev_ioctl_client_get_arg(client);
    const gulong request = umockdev_ioctl_client_get_request(client);
    node->forgetClosed();
    node->remember(client);
    const Result result = node->dispatch(client, request, argument);
    node->updateReadiness();
    umockdev_ioctl_client_complete(client, result < 0 ? -1 : result, result < 0 ? int(-result) : 0);
    return TRUE;
}

void UsbNode::remember(Client *client)
{
    ClientState &state = m_clients[client];
    if (!state.reference)
        state.reference.reset(static_cast<Client *>(g_object_ref(client)));
}

// The test bed does not tell when a descriptor is closed, so this looks whenever the answer matters.
void UsbNode::forgetClosed()
{
    for (auto entry = m_clients.begin(); entry != m_clients.end();) {
        Client *client = entry->first;
        if (umockdev_ioctl_client_get_connected(client)) {
            ++entry;
            continue;
        }
        // A closed descriptor gives up its claims; as on a real system, nobody brings the kernel driver back.
        for (InterfaceState &interface : m_interfaces) {
            if (interface.owner == client)
                setDriver(interface, {}, nullptr);
        }
        entry = m_clients.erase(entry);
    }
}

UsbNode::Result UsbNode::dispatch(Client *client, gulong request, UMockdevIoctlData *argument)
{
    const auto entry = std::find_if(std::begin(Requests), std::end(Requests),
                                    [request](const Request &r) { return r.number == request; });
    if (entry == std::end(Requests)) {
        m_log.line(m_label + " unknown request " + std::to_string(request));
        return -ENOTTY;
    }
    const bool worksWithoutDevice = request == USBDEVFS_REAPURBNDELAY;
    const Result result = m_gone && !worksWithoutDevice ? -ENODEV : (this->*entry->run)(client, argument);
    if (entry->logName)
        m_log.line(m_label + ' ' + entry->logName + ' ' + std::to_string(result));
    return result;
}

UsbNode::Result UsbNode::getCapabilities(Client *, UMockdevIoctlData *argument)
{
    std::uint32_t capabilities = 0;
    const Data block = fetch(argument, capabilities);
    if (!block)
        return -EFAULT;
    store(block.get(),
          std::uint32_t(USBDEVFS_CAP_ZERO_PACKET | USBDEVFS_CAP_NO_PACKET_SIZE_LIM | USBDEVFS_CAP_BULK_SCATTER_GATHER
                        | USBDEVFS_CAP_REAP_AFTER_DISCONNECT));
    return 0;
}

UsbNode::Result UsbNode::getDriver(Client *, UMockdevIoctlData *argument)
{
    usbdevfs_getdriver query{};
    const Data block = fetch(argument, query);
    if (!block)
        return -EFAULT;
    const InterfaceState *interface = interfaceAt(query.interface);
    if (!interface || interface->driver.empty())
        return -ENODATA;
    std::memset(query.driver, 0, sizeof query.driver);
    interface->driver.copy(query.driver, sizeof query.driver - 1);
    store(block.get(), query);
    return 0;
}

UsbNode::Result UsbNode::interfaceRequest(Client *, UMockdevIoctlData *argument)
{
    usbdevfs_ioctl query{};
    if (!fetch(argument, query))
        return -EFAULT;
    InterfaceState *interface = interfaceAt(unsigned(query.ifno));
    if (!interface)
        return -EINVAL;
    const bool bound = !interface->driver.empty();
    if (unsigned(query.ioctl_code) == USBDEVFS_DISCONNECT) {
        if (!bound)
            return -ENODATA;
        setDriver(*interface, {}, nullptr);
        return 0;
    }
    if (unsigned(query.ioctl_code) != USBDEVFS_CONNECT)
        return -ENOTTY;
    if (bound)
        return -EBUSY;
    setDriver(*interface, m_identity.interfaces[std::size_t(query.ifno)].kernelDriver, nullptr);
    return 1; // the number of drivers that bound
}

UsbNode::Result UsbNode::disconnectAndClaim(Client *client, UMockdevIoctlData *argument)
{
    usbdevfs_disconnect_claim query{};
    if (!fetch(argument, query))
        return -EFAULT;
    InterfaceState *interface = interfaceAt(query.interface);
    if (!interface)
        return -EINVAL;
    const bool sameName = interface->driver == query.driver;
    const bool bound = !interface->driver.empty();
    if (bound && (query.flags & USBDEVFS_DISCONNECT_CLAIM_IF_DRIVER) && !sameName)
        return -EBUSY;
    if (bound && (query.flags & USBDEVFS_DISCONNECT_CLAIM_EXCEPT_DRIVER) && sameName)
        return -EBUSY;
    setDriver(*interface, {}, nullptr);
    return claimFor(client, *interface);
}

UsbNode::Result UsbNode::claim(Client *client, UMockdevIoctlData *argument)
{
    unsigned number = 0;
    if (!fetch(argument, number))
        return -EFAULT;
    InterfaceState *interface = interfaceAt(number);
    return interface ? claimFor(client, *interface) : -ENOENT;
}

UsbNode::Result UsbNode::release(Client *client, UMockdevIoctlData *argument)
{
    unsigned number = 0;
    if (!fetch(argument, number))
        return -EFAULT;
    InterfaceState *interface = interfaceAt(number);
    if (!interface || interface->owner != client)
        return -EINVAL;
    setDriver(*interface, {}, nullptr);
    return 0;
}

UsbNode::Result UsbNode::setConfiguration(Client *, UMockdevIoctlData *argument)
{
    unsigned value = 0;
    if (!fetch(argument, value))
        return -EFAULT;
    const bool inUse = std::any_of(m_interfaces.begin(), m_interfaces.end(),
                                   [](const InterfaceState &interface) { return !interface.driver.empty(); });
    if (inUse)
        return -EBUSY;
    return value == 1 ? 0 : -EINVAL;
}

UsbNode::Result UsbNode::setInterface(Client *client, UMockdevIoctlData *argument)
{
    usbdevfs_setinterface query{};
    if (!fetch(argument, query))
        return -EFAULT;
    InterfaceState *interface = interfaceAt(query.interface);
    if (!interface || query.altsetting > m_identity.interfaces[query.interface].alternates.size())
        return -EINVAL;
    const Result claimed = claimFor(client, *interface);
    if (claimed == 0)
        changeAlternate(query.interface, std::uint8_t(query.altsetting));
    return claimed;
}

UsbNode::Result UsbNode::clearHalt(Client *client, UMockdevIoctlData *argument)
{
    unsigned endpoint = 0;
    if (!fetch(argument, endpoint))
        return -EFAULT;
    InterfaceState *interface = interfaceOfEndpoint(endpoint);
    if (!interface)
        return -ENOENT;
    const Result claimed = claimFor(client, *interface);
    if (claimed == 0)
        clearStall(endpoint);
    retryWaiting();
    return claimed;
}

UsbNode::Result UsbNode::resetDevice(Client *, UMockdevIoctlData *)
{
    resetFunctions();
    return m_events.reset() ? 0 : -ENODEV;
}

void UsbNode::resetFunctions()
{
    m_halted.clear();
    for (std::size_t i = 0; i < m_interfaces.size(); ++i) {
        changeAlternate(unsigned(i), 0);
        m_functions[i]->reset();
    }
}

void UsbNode::clearStall(unsigned endpoint)
{
    if (!interfaceOfEndpoint(endpoint))
        return;
    m_halted.erase(endpoint);
    functionOfEndpoint(endpoint).clearHalt(endpoint);
}

// Transfers of the old setting end with it.
void UsbNode::changeAlternate(unsigned number, std::uint8_t alternate)
{
    for (const std::vector<UsbEndpoint> &endpoints : m_identity.interfaces[number].alternates) {
        for (const UsbEndpoint &endpoint : endpoints) {
            failWaiting(-ESHUTDOWN, endpoint.address);
            m_nextPacket.erase(endpoint.address);
        }
    }
    m_interfaces[number].alternate = alternate;
    m_functions[number]->setAlternate(number, alternate);
}

UsbNode::InterfaceState *UsbNode::interfaceAt(unsigned number)
{
    return number < m_interfaces.size() ? &m_interfaces[number] : nullptr;
}

UsbNode::InterfaceState *UsbNode::interfaceOfEndpoint(unsigned endpoint)
{
    const int number = m_identity.interfaceOf(endpoint);
    return number < 0 ? nullptr : &m_interfaces[std::size_t(number)];
}

Function &UsbNode::functionOfEndpoint(unsigned endpoint)
{
    return *m_functions[std::size_t(m_identity.interfaceOf(endpoint))];
}

UsbNode::Result UsbNode::claimFor(Client *client, InterfaceState &interface)
{
    if (interface.owner == client)
        return 0;
    if (!interface.driver.empty())
        return -EBUSY;
    setDriver(interface, UsbfsDriver, client);
    return 0;
}

void UsbNode::setDriver(InterfaceState &interface, const std::string &driver, Client *owner)
{
    interface.owner = owner;
    if (interface.driver == driver)
        return;
    m_log.line(m_label + " driver " + (driver.empty() ? "none" : driver));
    interface.driver = driver;
    m_events.driverChanged();
}

} // namespace usbworld
