// SPDX-License-Identifier: LGPL-2.1-or-later
#include "spice/outbox.h"

#include "log/log.h"

#include <memory>
#include <utility>

#include <malloc.h>
#include <spice-client.h>

namespace {

// The channel writes all that it has been given before it reads again, so a peer that answers while it reads would
// wait for us for ever if it were given everything at once.
constexpr std::size_t BatchBytes = 131072;

// What the C library may keep for later use after a peer did not read for a while.
constexpr std::size_t MostKeptBytes = std::size_t(8) * 1024 * 1024;

// The buffers of written messages that are kept for the next ones: the C library would give such memory back to the
// system at once, and to get it again costs more than to fill it.
constexpr std::size_t MostSpareBytes = std::size_t(256) * 1024;

bool isLost(int event)
{
    return event == SPICE_CHANNEL_CLOSED || (event >= SPICE_CHANNEL_ERROR_CONNECT && event <= SPICE_CHANNEL_ERROR_IO);
}

gboolean giveMemoryBack(gpointer)
{
    malloc_trim(0);
    return G_SOURCE_REMOVE;
}

} // namespace

struct Outbox::Write
{
    Outbox &outbox;
    std::string message;
};

Outbox::Outbox()
{
    g_weak_ref_init(&m_channel, nullptr);
}

void Outbox::expectChannel()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_isChannelExpected = true;
}

void Outbox::attach(SpicePortChannel *channel)
{
    g_autoptr(GObject) present = nullptr; // outlives the lock, since to let go of it may end it
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (!std::exchange(m_isChannelExpected, false))
            return;
        present = static_cast<GObject *>(g_weak_ref_get(&m_channel));
        if (present)
            return;
        g_weak_ref_set(&m_channel, channel);
    }
    drop("the channel is gone"); // what was for the channel that had this address before
    g_signal_connect(channel, "port-event", G_CALLBACK(onPortEvent), this);
    g_signal_connect(channel, "channel-event", G_CALLBACK(onChannelEvent), this);
}

std::string Outbox::spareBuffer()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_spare.empty())
        return std::string();
    std::string buffer = std::move(m_spare.back());
    m_spare.pop_back();
    m_spareBytes -= buffer.capacity();
    return buffer;
}

void Outbox::add(const char *bytes, std::size_t size)
{
    std::string message = spareBuffer();
    message.assign(bytes, size);
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_bytes += message.size();
    m_mostBytes = std::max(m_mostBytes, m_bytes);
    m_waiting.push_back(std::move(message));
    scheduleIfIdle();
}

std::int64_t Outbox::bytesWaiting()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return std::int64_t(m_bytes);
}

// With m_mutex held.
void Outbox::scheduleIfIdle()
{
    if (m_isScheduled || m_beingWritten || m_waiting.empty())
        return;
    m_isScheduled = true;
    g_idle_add_full(G_PRIORITY_DEFAULT, &Outbox::onMainContext, this, nullptr);
}

gboolean Outbox::onMainContext(gpointer outbox)
{
    static_cast<Outbox *>(outbox)->writeBatch();
    return G_SOURCE_REMOVE;
}

void Outbox::writeBatch()
{
    g_autoptr(GObject) channel = static_cast<GObject *>(g_weak_ref_get(&m_channel));
    if (!channel) {
        drop("the channel is gone");
        return;
    }
    for (std::string &message : nextBatch()) {
        auto *write = new Write{*this, std::move(message)};
        spice_port_channel_write_async(reinterpret_cast<SpicePortChannel *>(channel), write->message.data(),
                                       write->message.size(), nullptr, &Outbox::onWritten, write);
    }
}

std::vector<std::string> Outbox::nextBatch()
{
    std::vector<std::string> batch;
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_isScheduled = false;
    std::size_t bytes = 0;
    while (!m_waiting.empty() && (bytes == 0 || bytes + m_waiting.front().size() <= BatchBytes)) {
        bytes += m_waiting.front().size();
        batch.push_back(std::move(m_waiting.front()));
        m_waiting.pop_front();
    }
    m_beingWritten = batch.size();
    return batch;
}

// May run on the channel's own stack, so the next batch is left to the main context.
void Outbox::onWritten(GObject *channel, GAsyncResult *result, gpointer data)
{
    const std::unique_ptr<Write> write(static_cast<Write *>(data));
    g_autoptr(GError) error = nullptr;
    const bool success = spice_port_channel_write_finish(SPICE_PORT_CHANNEL(channel), result, &error) >= 0;
    write->outbox.tellOutcome(success, error ? error->message : "");
    write->outbox.written(std::move(write->message));
}

void Outbox::written(std::string message)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    --m_beingWritten;
    m_bytes -= message.size();
    if (m_spareBytes + message.capacity() <= MostSpareBytes) {
        m_spareBytes += message.capacity();
        m_spare.push_back(std::move(message));
    }
    scheduleIfIdle();
    if (m_bytes == 0 && std::exchange(m_mostBytes, 0) > MostKeptBytes)
        g_idle_add(giveMemoryBack, nullptr);
}

void Outbox::onPortEvent(gpointer, int event, gpointer outbox)
{
    if (event == SPICE_PORT_EVENT_CLOSED)
        static_cast<Outbox *>(outbox)->drop("the port is closed");
}

void Outbox::onChannelEvent(gpointer, int event, gpointer outbox)
{
    if (isLost(event))
        static_cast<Outbox *>(outbox)->drop("the channel is lost");
}

// What waits was meant for a peer that is no longer there.
void Outbox::drop(const char *reason)
{
    std::deque<std::string> dropped;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_isScheduled = false;
        m_waiting.swap(dropped);
        for (const std::string &message : dropped)
            m_bytes -= message.size();
        if (m_mostBytes > MostKeptBytes && !dropped.empty())
            g_idle_add(giveMemoryBack, nullptr);
        m_mostBytes = m_bytes;
    }
    if (!dropped.empty())
        tellOutcome(false, reason);
}

void Outbox::tellOutcome(bool success, const char *reason)
{
    const auto wasRefused = [this, success] {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return std::exchange(m_isRefused, !success);
    }();
    if (!success && !wasRefused)
        Log::module(QtWarningMsg, "PortMessages::send", " port channel refuses messages: ", reason);
}
