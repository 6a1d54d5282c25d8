// SPDX-License-Identifier: LGPL-2.1-or-later

// Messages between the component and a port channel. Server and client are in this process, joined by sockets.

#include "benchmarks/component.h"
#include "benchmarks/row.h"
#include "interface/devredirectinterface.h"
#include "support/spiceserver.h"
#include "worker/portchannelglue.h"

#include <QCoreApplication>

#include <cstdlib>
#include <fstream>

#include <dlfcn.h>
#include <time.h>
#include <unistd.h>

namespace {

constexpr unsigned MessageType = 109;

enum Port { Send, RawSend, Echo, RawEcho, PortCount };

std::string portName(int port)
{
    return "org.example.redir." + std::to_string(port);
}

/// A started interface with this program's component.
class Started
{
public:
    Started()
    {
        redirect->setNotifyEventCallback([](void *, RedirEvent, const char *, int) {});
        Q_EMIT redirect->loadDynamicLib();
        Q_EMIT redirect->loadDevRedirComponentByThread(QStringLiteral("vm"));
        if (!redirect->isComponentStarted())
            qFatal("the component does not start: %s", qPrintable(redirect->componentLoadError()));
        component = reinterpret_cast<BenchmarkComponentOf *>(dlsym(library(), "benchmarkComponent"))();
    }

    DevRedirectInterface *const redirect = new DevRedirectInterface(nullptr);
    BenchmarkComponent *component;

private:
    static void *library()
    {
        const QString path = QCoreApplication::applicationDirPath() + QStringLiteral("/Device Redirect/libdevredir.so");
        return dlopen(path.toLocal8Bit().constData(), RTLD_NOW | RTLD_NOLOAD);
    }
};

Started &started()
{
    static auto *const made = new Started;
    return *made;
}

// Long enough also under callgrind on a busy machine.
SpicePortChannel *opened(const TestClient &client, const std::string &name)
{
    constexpr int Tries = 20;
    SpicePortChannel *channel = nullptr;
    for (int tries = 0; !channel && tries < Tries; ++tries)
        channel = client.waitForChannel(name);
    if (!channel)
        qFatal("%s does not open", name.c_str());
    return channel;
}

/// A session with four ports; the library has two of them.
class Session
{
public:
    Session()
    {
        for (int port = 0; port < PortCount; ++port)
            channels[port] = opened(client, portName(port));
        for (const Port port : {Send, Echo}) {
            Q_EMIT started().redirect->checkRedirChannelByThread(channels[port], QString::fromStdString(portName(port)),
                                                                 true);
        }
        for (const Port port : {Send, RawSend})
            server.port(port).countOnly();
        for (const Port port : {Echo, RawEcho})
            server.port(port).echo();
        g_signal_connect(channels[RawEcho], "port-data", G_CALLBACK(onRawData), this);
    }

    TestServer server{{portName(Send), portName(RawSend), portName(Echo), portName(RawEcho)}};
    TestClient client{server};
    SpicePortChannel *channels[PortCount] = {};
    std::size_t rawReceived = 0;

private:
    static void onRawData(SpicePortChannel *, gpointer, gint length, Session *session)
    {
        session->rawReceived += std::size_t(length);
    }
};

Session &session()
{
    static auto *const made = new Session;
    return *made;
}

template<typename Condition>
void iterateUntil(const Condition &condition)
{
    while (!condition())
        g_main_context_iteration(nullptr, TRUE);
}

// --- writing ---

std::string message(std::size_t size)
{
    return std::string(size, 'm');
}

// Both sides make each message anew. Here its buffer has to last until the message is written.
void writeRaw(Port port, const std::string &bytes)
{
    static std::vector<std::string *> written; // not freed, since to get memory again may cost more than to fill it
    if (written.empty())
        written.push_back(new std::string);
    std::string *const made = written.back();
    written.pop_back();
    *made = bytes;
    spice_port_channel_write_async(
        session().channels[port], made->data(), made->size(), nullptr,
        [](GObject *channel, GAsyncResult *result, gpointer buffer) {
            spice_port_channel_write_finish(SPICE_PORT_CHANNEL(channel), result, nullptr);
            written.push_back(static_cast<std::string *>(buffer));
        },
        made);
}

// The component's buffer is free again after the call.
void writeWithLibrary(Port port, const std::string &bytes)
{
    static std::string made;
    made = bytes;
    started().component->send(session().channels[port], made.data(), int(made.size()));
}

using Write = void(Port, const std::string &);

// A stream: the next message goes out when not much of it is still under way.
Row::Work write(Port port, Write *one, std::size_t size)
{
    constexpr std::size_t Window = std::size_t(256) * 1024;
    return [=](int calls) {
        TestServer::Port &end = session().server.port(port);
        const std::string bytes = message(size);
        std::size_t sent = end.counted();
        for (int call = 0; call < calls; ++call) {
            one(port, bytes);
            sent += size;
            iterateUntil([&] { return sent - end.counted() < Window; });
        }
        iterateUntil([&] { return sent == end.counted(); });
    };
}

Row writing(const char *name, int calls, std::size_t size)
{
    return Row::timed(name, CLOCK_MONOTONIC, calls, write(RawSend, writeRaw, size),
                      write(Send, writeWithLibrary, size));
}

// --- there and back ---

constexpr std::size_t EchoSize = 64;

Row::Work echo(Port port, Write *one, const std::size_t &received)
{
    return [=, &received](int calls) {
        const std::string bytes = message(EchoSize);
        for (int call = 0; call < calls; ++call) {
            const std::size_t expected = received + EchoSize;
            one(port, bytes);
            iterateUntil([&] { return received == expected; });
        }
    };
}

void echoRaw(int calls)
{
    echo(RawEcho, writeRaw, session().rawReceived)(calls);
}

void echoWithLibrary(int calls)
{
    session();
    echo(Echo, writeWithLibrary, started().component->received)(calls);
}

// --- one signal ---

guint messageSignal = 0;

GObject *emitter()
{
    const GType type = g_type_register_static_simple(G_TYPE_OBJECT, "MessageEmitter", sizeof(GObjectClass), nullptr,
                                                     sizeof(GObject), nullptr, G_TYPE_FLAG_NONE);
    messageSignal = g_signal_new("port-channel-msg", type, G_SIGNAL_RUN_LAST, 0, nullptr, nullptr, nullptr, G_TYPE_INT,
                                 3, G_TYPE_UINT, G_TYPE_POINTER, G_TYPE_UINT);
    return static_cast<GObject *>(g_object_new(type, nullptr));
}

GObject *anotherEmitter(GObject *like, GCallback handler, void *context)
{
    auto *const made = static_cast<GObject *>(g_object_new(G_OBJECT_TYPE(like), nullptr));
    g_signal_connect(made, "port-channel-msg", handler, context);
    return made;
}

void emitMessages(GObject *object, int calls)
{
    char bytes[EchoSize] = {};
    for (int call = 0; call < calls; ++call) {
        int result = 0;
        g_signal_emit(object, messageSignal, 0, MessageType, bytes, unsigned(sizeof bytes), &result);
    }
}

GObject *firstEmitter()
{
    static GObject *const made = emitter();
    return made;
}

int onMessage(void *, unsigned, void *, unsigned length, void *context)
{
    static_cast<BenchmarkComponent *>(context)->received += length;
    return 0;
}

void emitBare(int calls)
{
    static GObject *const object = anotherEmitter(firstEmitter(), G_CALLBACK(onMessage), started().component);
    emitMessages(object, calls);
}

void emitToLibrary(int calls)
{
    static GObject *const object = anotherEmitter(firstEmitter(), G_CALLBACK(onPortMsgProcess), started().component);
    emitMessages(object, calls);
}

// --- waiting messages ---

double residentBytes()
{
    std::size_t size = 0;
    std::size_t resident = 0;
    std::ifstream("/proc/self/statm") >> size >> resident;
    return double(resident) * double(sysconf(_SC_PAGESIZE));
}

Row::Pair memoryOfWaiting()
{
    constexpr std::size_t Size = 65536;
    constexpr std::size_t All = std::size_t(200) * 1024 * 1024;
    TestServer::Port &end = session().server.port(Send);
    const std::string bytes = message(Size);
    const std::size_t expected = end.counted() + All;
    const double before = residentBytes();
    for (std::size_t sent = 0; sent < All; sent += Size)
        writeWithLibrary(Send, bytes);
    const double waiting = residentBytes() - before;
    iterateUntil([&] { return end.counted() == expected; });
    iterateUntil([&] { return residentBytes() - before < double(All) / 10; }); // given back
    return {double(All), waiting};
}

// --- many channels: each call sends a message on each of them ---

class ManyChannels
{
public:
    static constexpr int Most = 64;

    /// Sees to it that the library has \a count of them.
    void bind(int count)
    {
        for (; m_bound < count; ++m_bound) {
            const std::string &name = m_names[std::size_t(m_bound)];
            m_channels.push_back(opened(m_client, name));
            Q_EMIT started().redirect->checkRedirChannelByThread(m_channels.back(), QString::fromStdString(name), true);
            m_server.port(std::size_t(m_bound)).countOnly();
        }
    }

    void sendOnEach(int calls)
    {
        const std::string bytes = message(EchoSize);
        std::vector<std::size_t> expected;
        for (int channel = 0; channel < m_bound; ++channel)
            expected.push_back(m_server.port(std::size_t(channel)).counted() + std::size_t(calls) * EchoSize);
        for (int call = 0; call < calls; ++call) {
            for (SpicePortChannel *channel : m_channels)
                started().component->send(channel, const_cast<char *>(bytes.data()), int(bytes.size()));
        }
        for (int channel = 0; channel < m_bound; ++channel)
            iterateUntil(
                [&] { return m_server.port(std::size_t(channel)).counted() == expected[std::size_t(channel)]; });
    }

private:
    static std::vector<std::string> names()
    {
        std::vector<std::string> made;
        for (int port = 0; port < Most; ++port)
            made.push_back(portName(port));
        return made;
    }

    const std::vector<std::string> m_names = names();
    TestServer m_server{m_names};
    TestClient m_client{m_server};
    std::vector<SpicePortChannel *> m_channels;
    int m_bound = 0;
};

Row::Work sendOn(int channels)
{
    static auto *const many = new ManyChannels;
    many->bind(channels);
    return [](int calls) { many->sendOnEach(calls); };
}

} // namespace

std::vector<Growth> channelGrowths()
{
    const auto send = [](int size) { return write(Send, writeWithLibrary, std::size_t(size)); };
    return {
        {"bytes", {1, 16, 256, 4096, 65536, 1 << 20, 1 << 24}, send},
        {"channels", {1, 2, 4, 8, 16, 32, ManyChannels::Most}, sendOn},
    };
}

std::vector<Row> channelRows()
{
    return {
        Row::timed("message", CLOCK_THREAD_CPUTIME_ID, 2000, emitBare, emitToLibrary),
        writing("write-64", 250, 64),
        writing("write-4k", 250, 4096),
        writing("write-64k", 64, 65536),
        writing("write-1m", 8, 1048576),
        Row::timed("echo", CLOCK_MONOTONIC, 50, echoRaw, echoWithLibrary),
        {"backlog", memoryOfWaiting, 0, {}, {}},
    };
}
