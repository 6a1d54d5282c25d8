// SPDX-License-Identifier: LGPL-2.1-or-later
#include "spice/portmessages.h"

#include "log/log.h"

#include <algorithm>
#include <atomic>
#include <list>
#include <mutex>
#include <string>
#include <unordered_map>
#include <utility>

#include <malloc.h>
#include <spice-client.h>

// Weak, so that it is null with the stock SPICE client library.
extern "C" [[gnu::weak]] int spice_port_channel_send_msg(SpicePortChannel *channel, const void *message, int length,
                                                         int type);

namespace {

// The channel writes all that it has been given before it reads again, so a peer that answers while it reads would
// wait for us for ever if it were given everything at once.
constexpr std::size_t BatchBytes = 131072;

// What may be kept for later use, here and by the C library, after a peer did not read for a while.
constexpr std::size_t MostKeptBytes = std::size_t(8) * 1024 * 1024;

guint messageSignal();

void onPortData(SpicePortChannel *channel, gpointer data, gint size)
{
    if (size <= 0)
        return;
    gint result = 0;
    g_signal_emit(channel, messageSignal(), 0, guint(PortMessages::MessageType), data, guint(size), &result);
}

guint makeMessageSignal()
{
    // Signals are made with their class, and it may be that no channel has been made yet. The reference is kept.
    g_type_class_ref(SPICE_TYPE_PORT_CHANNEL);
    const guint present = g_signal_lookup("port-channel-msg", SPICE_TYPE_PORT_CHANNEL);
    if (present)
        return present;
    g_signal_override_class_handler("port-data", SPICE_TYPE_PORT_CHANNEL, G_CALLBACK(onPortData));
    return g_signal_new("port-channel-msg", SPICE_TYPE_PORT_CHANNEL, G_SIGNAL_RUN_LAST, 0, nullptr, nullptr, nullptr,
                        G_TYPE_INT, 3, G_TYPE_UINT, G_TYPE_POINTER, G_TYPE_UINT);
}

guint messageSignal()
{
    static const guint signal = makeMessageSignal();
    return signal;
}

/// The messages for one address that the stock library has not written yet.
///
/// Any thread adds messages; only the default main context talks to the channel. An outbox is never destroyed: when its
/// channel has gone, it tells a message that comes too late from one for a new channel, which may have the same
/// address.
class Outbox
{
public:
    Outbox() { g_weak_ref_init(&m_channel, nullptr); }
    Outbox(const Outbox &) = delete;
    Outbox &operator=(const Outbox &) = delete;

    /// From now on this address may be that of another channel: attach() looks.
    void expectChannel()
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_isChannelExpected = true;
    }

    /// Takes on \a channel, which must be alive, if one is expected and the last one has gone.
    void attach(SpicePortChannel *channel)
    {
        g_autoptr(GObject) present = nullptr; // outlives the lock, since to let go of it may end it
        Messages dropped; // what was for the channel that had this address before
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            if (!std::exchange(m_isChannelExpected, false))
                return;
            present = static_cast<GObject *>(g_weak_ref_get(&m_channel));
            if (present)
                return;
            g_weak_ref_set(&m_channel, channel);
            dropped = takeWaiting();
        }
        if (!dropped.empty())
            tellOutcome(false, "the channel is gone");
        g_signal_connect(channel, "port-event", G_CALLBACK(onPortEvent), this);
        g_signal_connect(channel, "channel-event", G_CALLBACK(onChannelEvent), this);
    }

    void add(const char *bytes, std::size_t size)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_spare.empty())
            m_spare.push_back({*this, {}});
        m_spare.front().bytes.assign(bytes, size);
        m_waiting.splice(m_waiting.end(), m_spare, m_spare.begin());
        m_bytes += size;
        m_mostBytes = std::max(m_mostBytes, m_bytes);
        scheduleIfIdle();
    }

    std::int64_t bytesWaiting()
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return std::int64_t(m_bytes);
    }

private:
    struct Message
    {
        Outbox &outbox;
        std::string bytes;
    };
    using Messages = std::list<Message>;

    // With m_mutex held.
    void scheduleIfIdle()
    {
        if (m_isScheduled || !m_beingWritten.empty() || m_waiting.empty())
            return;
        m_isScheduled = true;
        g_idle_add_full(G_PRIORITY_DEFAULT, &Outbox::writeBatch, this, nullptr);
    }

    static gboolean writeBatch(gpointer self)
    {
        auto &outbox = *static_cast<Outbox *>(self);
        g_autoptr(GObject) channel = static_cast<GObject *>(g_weak_ref_get(&outbox.m_channel));
        if (!channel)
            outbox.drop("the channel is gone");
        Messages &batch = outbox.nextBatch(channel);
        for (auto next = batch.begin(); next != batch.end();) {
            Message &message = *next++; // which leaves the batch if it is written at once
            spice_port_channel_write_async(SPICE_PORT_CHANNEL(channel), message.bytes.data(), message.bytes.size(),
                                           nullptr, &Outbox::onWritten, &message);
        }
        return G_SOURCE_REMOVE;
    }

    Messages &nextBatch(bool isAlive)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_isScheduled = false;
        std::size_t bytes = 0;
        while (isAlive && !m_waiting.empty() && (bytes == 0 || bytes + m_waiting.front().bytes.size() <= BatchBytes)) {
            bytes += m_waiting.front().bytes.size();
            m_beingWritten.splice(m_beingWritten.end(), m_waiting, m_waiting.begin());
        }
        if (!isAlive)
            scheduleIfIdle(); // for what has come since the drop
        return m_beingWritten;
    }

    // May run on the channel's own stack, so the next batch is left to the main context.
    static void onWritten(GObject *channel, GAsyncResult *result, gpointer data)
    {
        auto *message = static_cast<Message *>(data);
        g_autoptr(GError) error = nullptr;
        const bool success = spice_port_channel_write_finish(SPICE_PORT_CHANNEL(channel), result, &error) >= 0;
        message->outbox.tellOutcome(success, error ? error->message : "");
        message->outbox.written(message);
    }

    void written(const Message *message)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_bytes -= message->bytes.size();
        const auto at = std::find_if(m_beingWritten.begin(), m_beingWritten.end(),
                                     [message](const Message &other) { return &other == message; });
        m_spare.splice(m_spare.begin(), m_beingWritten, at);
        if (m_mostBytes > MostKeptBytes)
            m_spare.pop_front();
        scheduleIfIdle();
        if (m_bytes == 0)
            giveMemoryBack();
    }

    static void onPortEvent(gpointer, int event, gpointer outbox)
    {
        if (event == SPICE_PORT_EVENT_CLOSED)
            static_cast<Outbox *>(outbox)->drop("the port is closed");
    }

    static void onChannelEvent(gpointer, int event, gpointer outbox)
    {
        if (PortMessages::isLost(event))
            static_cast<Outbox *>(outbox)->drop("the channel is lost");
    }

    // What waits was meant for a peer that is no longer there.
    void drop(const char *reason)
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        const Messages dropped = takeWaiting();
        lock.unlock();
        if (!dropped.empty())
            tellOutcome(false, reason);
    }

    // With m_mutex held.
    Messages takeWaiting()
    {
        Messages taken = std::exchange(m_waiting, {});
        for (const Message &message : taken)
            m_bytes -= message.bytes.size();
        m_spare.clear();
        giveMemoryBack();
        return taken;
    }

    // With m_mutex held; it happens when what was dropped or written has been freed.
    void giveMemoryBack()
    {
        if (std::exchange(m_mostBytes, m_bytes) > MostKeptBytes)
            g_idle_add([](gpointer) { return malloc_trim(0), G_SOURCE_REMOVE; }, nullptr);
    }

    void tellOutcome(bool success, const char *reason)
    {
        if (!m_isRefused.exchange(!success) && !success)
            Log::module(QtWarningMsg, "PortMessages::send", " port channel refuses messages: ", reason);
    }

    GWeakRef m_channel;
    std::atomic<bool> m_isRefused{false}; ///< what was sent last; a row of refusals gets one line
    std::mutex m_mutex; ///< guards what follows
    bool m_isChannelExpected = true;
    bool m_isScheduled = false;
    Messages m_waiting;
    Messages m_beingWritten; ///< the channel has been given them and not yet finished
    Messages m_spare; ///< for the next ones: to get memory anew may cost more than to fill it
    std::size_t m_bytes = 0; ///< of those that wait or are being written
    std::size_t m_mostBytes = 0; ///< since it was empty
};

// Never torn down: the component may send until the process has ended.
Outbox &outboxOf(const void *channel)
{
    static auto *const mutex = new std::mutex;
    static auto *const outboxes = new std::unordered_map<const void *, Outbox>; // references into it stay valid
    const std::lock_guard<std::mutex> lock(*mutex);
    return (*outboxes)[channel];
}

} // namespace

void PortMessages::bind(SpicePortChannel *channel)
{
    if (spice_port_channel_send_msg)
        return;
    messageSignal();
    expect(channel);
    outboxOf(channel).attach(channel);
}

void PortMessages::expect(const void *channel)
{
    if (!spice_port_channel_send_msg)
        outboxOf(channel).expectChannel();
}

void PortMessages::send(SpicePortChannel *channel, const char *message, int length)
{
    if (spice_port_channel_send_msg) {
        spice_port_channel_send_msg(channel, message, length, MessageType);
        return;
    }
    // The stock library never completes a write of nothing, and the server drops the channel for it.
    if (!channel || !message || length <= 0)
        return;
    Outbox &outbox = outboxOf(channel);
    outbox.attach(channel);
    outbox.add(message, size_t(length));
}

bool PortMessages::isLost(int channelEvent)
{
    return channelEvent == SPICE_CHANNEL_CLOSED
        || (channelEvent >= SPICE_CHANNEL_ERROR_CONNECT && channelEvent <= SPICE_CHANNEL_ERROR_IO);
}

std::int64_t PortMessages::bytesWaiting(const void *channel)
{
    return spice_port_channel_send_msg ? -1 : outboxOf(channel).bytesWaiting();
}
