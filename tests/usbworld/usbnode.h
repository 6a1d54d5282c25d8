// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "log.h"
#include "readiness.h"
#include "usbidentity.h"

#include <umockdev.h>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace usbworld {

/**
 * One device node from plugging to unplugging: answers the usbdevfs requests of every process that has it open.
 *
 * It keeps the books that the kernel keeps: which driver holds each interface, which descriptor has claimed it and
 * which transfers are under way. The requests arrive on the thread of the test bed, and a thread of the node's own is
 * the clock of the bus; everything else may be called from any thread.
 */
class UsbNode
{
public:
    struct Statistics
    {
        std::uint64_t urbs = 0;
        std::uint64_t bytes = 0;
        std::uint64_t missed = 0; ///< isochronous packets for which no transfer waited
    };

    /** The functions of a device by interface: two interfaces of one function lead to the same. */
    using Functions = std::vector<std::shared_ptr<Function>>;

    /** Called on the thread of the test bed. */
    struct Events
    {
        std::function<void()> driverChanged; ///< after an interface has got another driver
        std::function<bool()> reset; ///< false: the device comes back as another one
    };

    /** \a identity and \a log are borrowed. \a label starts every log line. */
    UsbNode(const UsbIdentity &identity, Functions functions, Log &log, std::string label, Events events);
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

    /** A word for the device. "stall": its endpoints but the isochronous ones halt until the host clears that. */
    bool tell(const std::string &word);
    const std::string &backingPath() const { return m_readiness.path(); }

private:
    using Client = UMockdevIoctlClient;
    using Data = GRef<UMockdevIoctlData>;

    using Clock = std::chrono::steady_clock;

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
        std::size_t packets; ///< of an isochronous transfer
        Clock::time_point due; ///< when the last of them is over
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
        std::uint8_t alternate = 0;
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
    Function &functionOfEndpoint(unsigned endpoint);
    void resetFunctions();
    void clearStall(unsigned endpoint);
    void changeAlternate(unsigned number, std::uint8_t alternate);
    Result claimFor(Client *client, InterfaceState &interface);
    void setDriver(InterfaceState &interface, const std::string &driver, Client *owner);

    /** Runs \a urb; false when the device has no answer yet. */
    bool run(Urb &urb);
    bool runData(Urb &urb);
    void runControl(Urb &urb);
    bool control(const Setup &setup, const Bytes &data, Bytes &answer);
    bool getDescriptor(unsigned value, Bytes &answer) const;
    void finish(Client *client, Urb urb);

    /** Finishes, with \a status, the transfers that wait for an endpoint; 0: for any. */
    void failWaiting(int status, unsigned endpoint = 0);
    void retryWaiting();

    // The clock of the bus.
    Data fetchUrb(UMockdevIoctlData *argument, void *head) const;
    void schedule(Urb &urb);
    void runPackets(Urb &urb);
    Clock::duration packetInterval(unsigned endpoint) const;
    void keepTime();
    void stopTime();
    void updateReadiness();

    const UsbIdentity &m_identity;
    const Functions m_functions;
    Log &m_log;
    std::string m_label;
    const Events m_events;

    std::mutex m_mutex;
    GRef<UMockdevIoctlBase> m_base;
    Readiness m_readiness;
    std::vector<InterfaceState> m_interfaces;
    std::map<Client *, ClientState> m_clients;
    Statistics m_statistics;
    std::set<unsigned> m_halted;
    std::map<unsigned, Clock::time_point> m_nextPacket; ///< of isochronous endpoints: when nobody waits yet
    bool m_gone = false;
    std::condition_variable m_somethingWaits;
    std::thread m_time; ///< last: it uses the rest
};

} // namespace usbworld
