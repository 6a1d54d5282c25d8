// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <spice-client.h>

/**
 * A real SPICE server in the test process, on the default GLib main context, and a stock client of it.
 *
 * Both need a running event loop, such as waitFor() runs. One server at a time, and its clients go first. \thread host
 */
class TestServer
{
public:
    /// The virtual machine's end of one port.
    class Port
    {
    public:
        virtual ~Port() = default;
        virtual void open() = 0;
        virtual void close() = 0;
        virtual void raiseEvent(int event) = 0;
        /// Hands bytes to the client, as far as one is connected.
        virtual void send(const std::string &bytes) = 0;
        /// From now on what arrives is sent back, and nothing is taken while much is still to be sent.
        virtual void echo() = 0;
        /// Calls \a handler for what arrives from now on, while the server is reading it.
        virtual void onArrival(std::function<void()> handler) = 0;
        /// Like send(), but before this returns and not from the event loop: this is how QEMU's devices answer.
        virtual void sendNow(const std::string &bytes) = 0;
        /// All that has arrived and was not sent back.
        virtual const std::string &received() const = 0;
        /// From now on what arrives is only counted.
        virtual void countOnly() = 0;
        virtual std::size_t counted() const = 0;
    };

    /// What a server asks for, and shows.
    struct Security
    {
        std::string password; ///< empty: none
        int tlsPort = 0; ///< on this machine, in place of the socket; 0: no TLS
        std::string certificate, key; ///< files for that
    };

    /// A server with open ports of these names; with a \a socketPath it also listens there.
    explicit TestServer(const std::vector<std::string> &portNames, const std::string &socketPath = {});
    TestServer(const std::vector<std::string> &portNames, const std::string &socketPath, const Security &security);
    ~TestServer();
    TestServer(const TestServer &) = delete;
    TestServer &operator=(const TestServer &) = delete;

    Port &port(std::size_t index = 0);

    /// A new connection for one channel; the caller owns the client's end.
    int connectChannel();
    /// Ends all connections that connectChannel() made, as if the server were gone.
    void dropConnections();

private:
    class Private;
    std::unique_ptr<Private> d;
};

/// A client session that opens the main channel and all port channels.
class TestClient
{
public:
    explicit TestClient(TestServer &server);
    /// A client of a server that listens on a UNIX socket.
    explicit TestClient(const std::string &socketPath);
    ~TestClient();
    TestClient(const TestClient &) = delete;
    TestClient &operator=(const TestClient &) = delete;

    /// The channel of this name; null before it is known. Borrowed.
    SpicePortChannel *channel(const std::string &name) const;
    /// Waits until the channel is known and its port is open and has said so (or is closed). Null if that does not
    /// happen.
    SpicePortChannel *waitForChannel(const std::string &name, bool opened = true) const;
    static bool isOpen(SpicePortChannel *channel);

private:
    void begin();
    static void onChannelNew(SpiceSession *session, SpiceChannel *channel, TestClient *client);
    static void onChannelDestroy(SpiceSession *session, SpiceChannel *channel, TestClient *client);
    static void onPortEvent(SpicePortChannel *channel, int event, TestClient *client);
    static void onOpenFd(SpiceChannel *channel, int withTls, TestClient *client);

    TestServer *m_server = nullptr;
    SpiceSession *m_session;
    std::vector<SpicePortChannel *> m_ports;
    std::map<SpicePortChannel *, int> m_lastEvents;
};
