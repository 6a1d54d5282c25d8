// SPDX-License-Identifier: LGPL-2.1-or-later
#include "support/spiceserver.h"
#include "support/waitfor.h"

#include <algorithm>
#include <csignal>
#include <deque>
#include <stdexcept>
#include <utility>

#include <glib-unix.h>
#include <spice.h>
#include <spice/protocol.h>
#include <sys/socket.h>
#include <unistd.h>

// --- the server's timers and watches ---

struct SpiceTimer
{
    SpiceTimerFunc call;
    void *argument;
    guint source;
};

struct SpiceWatch
{
    int descriptor;
    SpiceWatchFunc call;
    void *argument;
    guint source;
};

namespace {

void cancelTimer(SpiceTimer *timer)
{
    if (timer->source)
        g_source_remove(std::exchange(timer->source, 0));
}

void startTimer(SpiceTimer *timer, uint32_t milliseconds)
{
    cancelTimer(timer);
    const auto fire = [](gpointer pointer) -> gboolean {
        auto *fired = static_cast<SpiceTimer *>(pointer);
        fired->source = 0;
        fired->call(fired->argument);
        return G_SOURCE_REMOVE;
    };
    timer->source = g_timeout_add(milliseconds, fire, timer);
}

void setWatchMask(SpiceWatch *watch, int mask)
{
    if (watch->source)
        g_source_remove(std::exchange(watch->source, 0));
    if (!mask)
        return;
    const auto fire = [](gint descriptor, GIOCondition condition, gpointer pointer) -> gboolean {
        const auto *fired = static_cast<SpiceWatch *>(pointer);
        const int readable = condition & (G_IO_IN | G_IO_HUP | G_IO_ERR) ? SPICE_WATCH_EVENT_READ : 0;
        const int writable = condition & G_IO_OUT ? SPICE_WATCH_EVENT_WRITE : 0;
        fired->call(descriptor, readable | writable, fired->argument); // may remove the watch
        return G_SOURCE_CONTINUE;
    };
    const int condition =
        (mask & SPICE_WATCH_EVENT_READ ? G_IO_IN : 0) | (mask & SPICE_WATCH_EVENT_WRITE ? G_IO_OUT : 0);
    watch->source = g_unix_fd_add(watch->descriptor, GIOCondition(condition), fire, watch);
}

int watches = 0;

SpiceCoreInterface coreOfMainLoop()
{
    SpiceCoreInterface core{};
    core.base.type = SPICE_INTERFACE_CORE;
    core.base.description = "GLib main loop";
    core.base.major_version = SPICE_INTERFACE_CORE_MAJOR;
    core.base.minor_version = SPICE_INTERFACE_CORE_MINOR;
    core.timer_add = [](SpiceTimerFunc call, void *argument) { return new SpiceTimer{call, argument, 0}; };
    core.timer_start = startTimer;
    core.timer_cancel = cancelTimer;
    core.timer_remove = [](SpiceTimer *timer) {
        cancelTimer(timer);
        delete timer;
    };
    core.watch_add = [](int descriptor, int mask, SpiceWatchFunc call, void *argument) {
        ++watches;
        auto *watch = new SpiceWatch{descriptor, call, argument, 0};
        setWatchMask(watch, mask);
        return watch;
    };
    core.watch_update_mask = setWatchMask;
    core.watch_remove = [](SpiceWatch *watch) {
        setWatchMask(watch, 0);
        delete watch;
        --watches;
    };
    core.channel_event = [](int, SpiceChannelEventInfo *) {};
    return core;
}

// --- a port ---

class CharDevicePort : public TestServer::Port
{
public:
    explicit CharDevicePort(std::string name) : m_name(std::move(name))
    {
        m_interface.base.type = SPICE_INTERFACE_CHAR_DEVICE;
        m_interface.base.description = "test port";
        m_interface.base.major_version = SPICE_INTERFACE_CHAR_DEVICE_MAJOR;
        m_interface.base.minor_version = SPICE_INTERFACE_CHAR_DEVICE_MINOR;
        m_interface.state = [](SpiceCharDeviceInstance *, int) {};
        m_interface.event = [](SpiceCharDeviceInstance *, uint8_t) {};
        m_interface.write = [](SpiceCharDeviceInstance *device, const uint8_t *bytes, int length) {
            return portOf(device)->take(reinterpret_cast<const char *>(bytes), length);
        };
        m_interface.read = [](SpiceCharDeviceInstance *device, uint8_t *bytes, int length) {
            return portOf(device)->give(reinterpret_cast<char *>(bytes), length);
        };
        m_instance.device.base.sif = &m_interface.base;
        m_instance.device.subtype = "port";
        m_instance.device.portname = m_name.c_str();
        m_instance.port = this;
    }

    ~CharDevicePort() override
    {
        if (m_pump)
            g_source_remove(m_pump);
    }

    SpiceBaseInstance *device() { return &m_instance.device.base; }

    void open() override { raiseEvent(SPICE_PORT_EVENT_OPENED); }
    void close() override { raiseEvent(SPICE_PORT_EVENT_CLOSED); }
    void raiseEvent(int event) override { spice_server_port_event(&m_instance.device, static_cast<uint8_t>(event)); }

    void send(const std::string &bytes) override
    {
        add(bytes);
        pumpSoon();
    }

    void sendNow(const std::string &bytes) override
    {
        add(bytes);
        spice_server_char_device_wakeup(&m_instance.device);
    }

    void onArrival(std::function<void()> handler) override { m_onArrival = std::move(handler); }

    void echo() override { m_echo = true; }
    const std::string &received() const override { return m_received; }
    void countOnly() override { m_countsOnly = true; }
    std::size_t counted() const override { return m_counted; }

private:
    static constexpr std::size_t EchoBacklog = 256 * 1024;

    struct Instance
    {
        SpiceCharDeviceInstance device{};
        CharDevicePort *port = nullptr;
    };

    static CharDevicePort *portOf(SpiceCharDeviceInstance *device)
    {
        return reinterpret_cast<Instance *>(device)->port;
    }

    int take(const char *bytes, int length)
    {
        if (m_countsOnly) {
            m_counted += std::size_t(length);
            return length;
        }
        if (!m_echo) {
            m_received.append(bytes, std::size_t(length));
            if (m_onArrival)
                m_onArrival();
            return length;
        }
        if (m_pending > EchoBacklog) {
            m_refused = true;
            return 0;
        }
        if (length > 0)
            send(std::string(bytes, std::size_t(length)));
        return length;
    }

    void add(const std::string &bytes)
    {
        m_outgoing.push_back(bytes);
        m_pending += bytes.size();
    }

    int give(char *bytes, int length)
    {
        if (m_outgoing.empty())
            return 0;
        std::string &first = m_outgoing.front();
        const std::size_t given = std::min(first.size(), std::size_t(length));
        first.copy(bytes, given);
        first.erase(0, given);
        if (first.empty())
            m_outgoing.pop_front();
        m_pending -= given;
        if (!m_outgoing.empty() || m_refused)
            pumpSoon();
        m_refused = m_refused && m_pending > EchoBacklog;
        return int(given);
    }

    // The server reads once for each wake-up, and tries a refused write again then.
    void pumpSoon()
    {
        if (m_pump)
            return;
        const auto pump = [](gpointer pointer) -> gboolean {
            auto *port = static_cast<CharDevicePort *>(pointer);
            port->m_pump = 0;
            spice_server_char_device_wakeup(&port->m_instance.device);
            return G_SOURCE_REMOVE;
        };
        m_pump = g_idle_add(pump, this);
    }

    const std::string m_name;
    SpiceCharDeviceInterface m_interface{};
    Instance m_instance;
    std::deque<std::string> m_outgoing;
    std::size_t m_pending = 0;
    std::string m_received;
    bool m_countsOnly = false;
    std::size_t m_counted = 0;
    std::function<void()> m_onArrival;
    bool m_echo = false;
    bool m_refused = false;
    guint m_pump = 0;
};

} // namespace

// --- the server ---

class TestServer::Private
{
public:
    SpiceCoreInterface core = coreOfMainLoop();
    SpiceServer *server = spice_server_new();
    std::vector<std::unique_ptr<CharDevicePort>> ports;
    int watchesWithoutClients = 0;
    std::vector<int> connections; ///< further descriptors of the server's ends
};

TestServer::TestServer(const std::vector<std::string> &portNames, const std::string &socketPath)
    : TestServer(portNames, socketPath, {})
{
}

TestServer::TestServer(const std::vector<std::string> &portNames, const std::string &socketPath,
                       const Security &security)
    : d(std::make_unique<Private>())
{
    std::signal(SIGPIPE, SIG_IGN);
    if (security.password.empty())
        spice_server_set_noauth(d->server);
    else
        spice_server_set_ticket(d->server, security.password.c_str(), 0, 0, 0);
    if (security.tlsPort != 0
        && spice_server_set_tls(d->server, security.tlsPort, security.certificate.c_str(), security.certificate.c_str(),
                                security.key.c_str(), nullptr, nullptr, nullptr)
            != 0)
        throw std::runtime_error("the SPICE server takes no certificate");
    if (security.tlsPort != 0)
        spice_server_set_addr(d->server, "127.0.0.1", SPICE_ADDR_FLAG_IPV4_ONLY);
    else if (!socketPath.empty())
        spice_server_set_addr(d->server, socketPath.c_str(), SPICE_ADDR_FLAG_UNIX_ONLY);
    if (spice_server_init(d->server, &d->core) < 0)
        throw std::runtime_error("the SPICE server does not start");
    for (const std::string &name : portNames) {
        d->ports.push_back(std::make_unique<CharDevicePort>(name));
        if (spice_server_add_interface(d->server, d->ports.back()->device()) != 0)
            throw std::runtime_error("the SPICE server takes no port " + name);
        d->ports.back()->open();
    }
    spice_server_vm_start(d->server);
    d->watchesWithoutClients = watches;
}

TestServer::~TestServer()
{
    dropConnections();
    waitFor([this] { return watches <= d->watchesWithoutClients; }); // a destroyed server would still be called by them
    for (const auto &port : d->ports)
        spice_server_remove_interface(port->device());
    spice_server_destroy(d->server);
}

TestServer::Port &TestServer::port(std::size_t index)
{
    return *d->ports.at(index);
}

int TestServer::connectChannel()
{
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
        throw std::runtime_error("no socket pair");
    d->connections.push_back(dup(ends[1]));
    if (spice_server_add_client(d->server, ends[1], 1) != 0)
        throw std::runtime_error("the SPICE server takes no client");
    return ends[0];
}

void TestServer::dropConnections()
{
    for (const int connection : d->connections) {
        shutdown(connection, SHUT_RDWR);
        close(connection);
    }
    d->connections.clear();
}

// --- the client ---

TestClient::TestClient(TestServer &server) : m_server(&server), m_session(spice_session_new())
{
    begin();
    spice_session_open_fd(m_session, -1);
}

TestClient::TestClient(const std::string &socketPath) : m_session(spice_session_new())
{
    begin();
    g_object_set(m_session, "uri", ("spice+unix://" + socketPath).c_str(), nullptr);
    spice_session_connect(m_session);
}

TestClient::~TestClient()
{
    std::vector<gpointer> alive(m_ports.begin(), m_ports.end());
    for (gpointer &port : alive)
        g_object_add_weak_pointer(G_OBJECT(port), &port);
    g_signal_handlers_disconnect_by_data(m_session, this);
    for (SpicePortChannel *port : m_ports)
        g_signal_handlers_disconnect_by_data(port, this);
    spice_session_disconnect(m_session);
    g_object_unref(m_session);
    waitFor([&alive] { return std::all_of(alive.begin(), alive.end(), [](gpointer port) { return !port; }); });
    for (gpointer &port : alive) {
        if (port)
            g_object_remove_weak_pointer(G_OBJECT(port), &port);
    }
}

void TestClient::begin()
{
    g_object_set(m_session, "enable-usbredir", FALSE, "enable-audio", FALSE, nullptr);
    g_signal_connect(m_session, "channel-new", G_CALLBACK(onChannelNew), this);
    g_signal_connect(m_session, "channel-destroy", G_CALLBACK(onChannelDestroy), this);
}

void TestClient::onChannelNew(SpiceSession *, SpiceChannel *channel, TestClient *client)
{
    if (client->m_server)
        g_signal_connect(channel, "open-fd", G_CALLBACK(onOpenFd), client);
    if (!SPICE_IS_PORT_CHANNEL(channel))
        return;
    client->m_ports.push_back(SPICE_PORT_CHANNEL(channel));
    g_signal_connect(channel, "port-event", G_CALLBACK(onPortEvent), client);
    spice_channel_connect(channel);
}

void TestClient::onChannelDestroy(SpiceSession *, SpiceChannel *channel, TestClient *client)
{
    auto *const gone = reinterpret_cast<SpicePortChannel *>(channel);
    auto &ports = client->m_ports;
    ports.erase(std::remove(ports.begin(), ports.end(), gone), ports.end());
    client->m_lastEvents.erase(gone);
}

void TestClient::onPortEvent(SpicePortChannel *channel, int event, TestClient *client)
{
    client->m_lastEvents[channel] = event;
}

void TestClient::onOpenFd(SpiceChannel *channel, int, TestClient *client)
{
    spice_channel_open_fd(channel, client->m_server->connectChannel());
}

SpicePortChannel *TestClient::channel(const std::string &name) const
{
    for (SpicePortChannel *port : m_ports) {
        gchar *portName = nullptr;
        g_object_get(port, "port-name", &portName, nullptr);
        const bool found = portName && name == portName;
        g_free(portName);
        if (found)
            return port;
    }
    return nullptr;
}

SpicePortChannel *TestClient::waitForChannel(const std::string &name, bool opened) const
{
    SpicePortChannel *found = nullptr;
    const auto ready = [&] {
        found = channel(name);
        if (!found || isOpen(found) != opened)
            return false;
        const auto event = m_lastEvents.find(found);
        return !opened || (event != m_lastEvents.end() && event->second == SPICE_PORT_EVENT_OPENED);
    };
    return waitFor(ready) ? found : nullptr;
}

bool TestClient::isOpen(SpicePortChannel *channel)
{
    gboolean opened = FALSE;
    g_object_get(channel, "port-opened", &opened, nullptr);
    return opened;
}
