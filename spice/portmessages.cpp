// SPDX-License-Identifier: LGPL-2.1-or-later
#include "spice/portmessages.h"

#include "log/log.h"

#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

// Weak, so that it is null with the stock SPICE client library.
extern "C" [[gnu::weak]] int spice_port_channel_send_msg(SpicePortChannel *channel, const void *message, int length,
                                                         int type);

namespace {

// What the stock library delivers has no type of its own; it gets the one that this library sends with.
constexpr guint ReceivedMessageType = 109;

// The channel writes all that it has been given before it reads again, so a peer that answers while it reads would
// wait for us for ever if it were given everything at once.
constexpr std::size_t BatchBytes = 131072;

guint messageSignal();

void onPortData(SpicePortChannel *channel, gpointer data, gint size)
{
    if (size <= 0)
        return;
    gint result = 0;
    g_signal_emit(channel, messageSignal(), 0, ReceivedMessageType, data, guint(size), &result);
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

/**
 * The messages of one channel that have not been written yet.
 *
 * Any thread adds messages; only the default main context talks to the channel. It is small and is kept when its
 * channel has gone: by it a message that comes too late is told from one for a living channel.
 */
class Outbox
{
public:
    Outbox() { g_weak_ref_init(&m_channel, nullptr); }
    ~Outbox() { g_weak_ref_clear(&m_channel); }
    Outbox(const Outbox &) = delete;
    Outbox &operator=(const Outbox &) = delete;

    /// The next message is for a living channel.
    void announce()
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_announced = true;
    }

    void follow(SpicePortChannel *channel)
    {
        announce();
        followIfAnnounced(channel);
    }

    void followIfAnnounced(SpicePortChannel *channel)
    {
        g_autoptr(GObject) followed = nullptr; // outlives the lock, since to let go of it may end it
        std::deque<std::string> left;
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            if (!std::exchange(m_announced, false))
                return;
            followed = static_cast<GObject *>(g_weak_ref_get(&m_channel));
            if (followed)
                return;
            g_weak_ref_set(&m_channel, channel);
            m_waiting.swap(left); // for the channel that had this address before
            m_refused = false;
        }
        if (!left.empty())
            warn(ChannelGone);
    }

    void add(std::string message)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_waiting.push_back(std::move(message));
        scheduleIfIdle();
    }

private:
    struct Write
    {
        Outbox &outbox;
        std::string message;
    };

    // With m_mutex held.
    void scheduleIfIdle()
    {
        if (m_scheduled || m_writing || m_waiting.empty())
            return;
        m_scheduled = true;
        g_idle_add_full(G_PRIORITY_DEFAULT, &Outbox::onMainContext, this, nullptr);
    }

    static gboolean onMainContext(gpointer outbox)
    {
        static_cast<Outbox *>(outbox)->writeBatch();
        return G_SOURCE_REMOVE;
    }

    void writeBatch()
    {
        gpointer channel = g_weak_ref_get(&m_channel);
        for (std::string &message : nextBatch(channel != nullptr)) {
            auto *write = new Write{*this, std::move(message)};
            spice_port_channel_write_async(static_cast<SpicePortChannel *>(channel), write->message.data(),
                                           write->message.size(), nullptr, &Outbox::onWritten, write);
        }
        if (channel)
            g_object_unref(channel);
        else
            tellOutcome(false, ChannelGone);
    }

    std::vector<std::string> nextBatch(bool alive)
    {
        std::vector<std::string> batch;
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_scheduled = false;
        if (!alive) {
            m_waiting.clear();
            return batch;
        }
        std::size_t bytes = 0;
        while (!m_waiting.empty() && (bytes == 0 || bytes + m_waiting.front().size() <= BatchBytes)) {
            bytes += m_waiting.front().size();
            batch.push_back(std::move(m_waiting.front()));
            m_waiting.pop_front();
        }
        m_writing = batch.size();
        return batch;
    }

    // May run on the channel's own stack, so the next batch is left to the main context.
    static void onWritten(GObject *channel, GAsyncResult *result, gpointer data)
    {
        const std::unique_ptr<Write> write(static_cast<Write *>(data));
        g_autoptr(GError) error = nullptr;
        const bool success = spice_port_channel_write_finish(SPICE_PORT_CHANNEL(channel), result, &error) >= 0;
        write->outbox.tellOutcome(success, error ? error->message : "");

        const std::lock_guard<std::mutex> lock(write->outbox.m_mutex);
        --write->outbox.m_writing;
        write->outbox.scheduleIfIdle();
    }

    void tellOutcome(bool success, const char *reason)
    {
        m_mutex.lock();
        const bool wasRefused = std::exchange(m_refused, !success);
        m_mutex.unlock();
        if (!success && !wasRefused)
            warn(reason);
    }

    static void warn(const char *reason)
    {
        Log::module(QtWarningMsg, "PortMessages::send", " port channel refuses messages: ", reason);
    }

    static constexpr const char *ChannelGone = "the channel is gone";

    GWeakRef m_channel;
    std::mutex m_mutex; ///< guards what follows
    bool m_refused = false;
    std::deque<std::string> m_waiting;
    std::size_t m_writing = 0; ///< messages that the channel has been given and not yet finished
    bool m_scheduled = false;
    bool m_announced = true;
};

/// The outboxes by channel. Never torn down: the component may send until the process has ended.
class Outboxes
{
public:
    static Outboxes &instance()
    {
        static Outboxes *const all = new Outboxes;
        return *all;
    }

    Outbox &of(const void *channel)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_byChannel[channel];
    }

private:
    std::mutex m_mutex;
    std::unordered_map<const void *, Outbox> m_byChannel; // references into it stay valid
};

} // namespace

void PortMessages::provideSignal()
{
    messageSignal();
}

void PortMessages::follow(SpicePortChannel *channel)
{
    Outboxes::instance().of(channel).follow(channel);
}

void PortMessages::announce(const void *channel)
{
    Outboxes::instance().of(channel).announce();
}

void PortMessages::send(SpicePortChannel *channel, const char *message, int length, int type)
{
    if (spice_port_channel_send_msg) {
        spice_port_channel_send_msg(channel, message, length, type);
        return;
    }
    // The stock library never completes a write of nothing, and the server drops the channel for it.
    if (!channel || !message || length <= 0)
        return;
    Outbox &outbox = Outboxes::instance().of(channel);
    outbox.followIfAnnounced(channel);
    outbox.add(std::string(message, size_t(length)));
}
