// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "bulkonly.h"
#include "log.h"
#include "readiness.h"
#include "usbidentity.h"

#include <umockdev.h>

#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace usbworld {

/**
 * One device node from plugging to unplugging: answers the usbdevfs requests of every process that has it open.
 *
 * It keeps the books that the kernel keeps: which driver holds each interface, which descriptor has claimed it and
 * which transfers are under way. The requests arrive on the thread of the test bed; everything else may be called
 * from any thread.
 */
class UsbNode
{
public:
    struct Statistics
    {
        std::uint64_t urbs = 0;
        std::uint64_t bytes = 0;
    };

    /** Called after an interface has got another driver, on the thread of the test bed. */
    using DriverChanged = std::function<void()>;

    /**
     * \a transport is what the bulk endpoints lead to, null for a device without; it is borrowed, as are
     * \a identity and \a log. \a label starts every log line.
     */
    UsbNode(const UsbIdentity &identity, BulkOnly *transport, Log &log, std::string label, DriverChanged changed);
    ~UsbNode();
    UsbNode(const UsbNode &) = delete;
    UsbNode &operator=(const UsbNode &) = delete;

    /** Answers requests to the node /dev/\a name of \a testbed. */
    bool attach(UMockdevTestbed *testbed, const std::string &name, GError **error);

    /** The device is gone: transfers under way fail, and so does every later request. */
    void disconnect();

    /** Driver of the first interface: "usb-storage", "usbfs" and so on, or "none". */
    std::string driver();
    Statistics statistics();
    const std::string &backingPath() const { return m_readiness.path(); }

private:
    using Client = UMockdevIoctlClient;
    using Data = GRef<UMockdevIoctlData>;

    /** A result in the way of the kernel: not negative, or minus an error number. */
    using Result = long;

    struct Request;
    static const Request Requests[];

    struct Urb
    {
        Data block;
        Data buffer;
        unsigned char type;
        unsigned char endpoint;
        int bufferLength;
        int status;
        int actualLength;
    };

    /** One open descriptor. */
    struct ClientState
    {
        GRef<Client> reference;
        std::deque<Urb> waiting;
        std::deque<Urb> done;
    };

    struct InterfaceState
    {
        std::string driver;
        Client *owner = nullptr;
    };

    static gboolean onIoctl(UMockdevIoctlBase *base, Client *client, gpointer self);

    void remember(Client *client);
    void forgetClosed();
    Result dispatch(Client *client, gulong request, UMockdevIoctlData *argument);
    Result getCapabilities(Client *client, UMockdevIoctlData *argument);
    Result getDriver(Client *client, UMockdevIoctlData *argument);
    Result interfaceRequest(Client *client, UMockdevIoctlData *argument);
    Result disconnectAndClaim(Client *client, UMockdevIoctlData *argument);
    Result claim(Client *client, UMockdevIoctlData *argument);
    Result release(Client *client, UMockdevIoctlData *argument);
    Result setConfiguration(Client *client, UMockdevIoctlData *argument);
    Result setInterface(Client *client, UMockdevIoctlData *argument);
    Result clearHalt(Client *client, UMockdevIoctlData *argument);
    Result resetDevice(Client *client, UMockdevIoctlData *argument);
    Result submit(Client *client, UMockdevIoctlData *argument);
    Result discard(Client *client, UMockdevIoctlData *argument);
    Result reap(Client *client, UMockdevIoctlData *argument);

    InterfaceState *interfaceAt(unsigned number);
    InterfaceState *interfaceOfEndpoint(unsigned endpoint);
    Result claimFor(Client *client, InterfaceState &interface);
    void setDriver(InterfaceState &interface, const std::string &driver, Client *owner);

    /** Runs \a urb; false when the device has no answer yet. */
    bool run(Urb &urb);
    bool runBulk(Urb &urb);
    void runControl(Urb &urb);
    int control(const std::uint8_t *setup, Bytes &answer);
    void finish(Client *client, Urb urb);
    void retryWaiting();
    void updateReadiness();

    const UsbIdentity &m_identity;
    BulkOnly *m_transport;
    Log &m_log;
    std::string m_label;
    DriverChanged m_changed;

    std::mutex m_mutex;
    GRef<UMockdevIoctlBase> m_base;
    Readiness m_readiness;
    std::vector<InterfaceState> m_interfaces;
    std::map<Client *, ClientState> m_clients;
    Statistics m_statistics;
    bool m_gone = false;
};

} // namespace usbworld
