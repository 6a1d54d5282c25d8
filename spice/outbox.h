// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

#include <gio/gio.h>

typedef struct _SpicePortChannel SpicePortChannel;

/**
 * The messages for one channel that the stock SPICE client library has not written yet.
 *
 * Any thread adds messages; only the default main context talks to the channel. An outbox belongs to an address and is
 * never destroyed: when its channel has gone, it tells a message that comes too late from one for a new channel, which
 * may have the same address.
 *
 * \thread any
 */
class Outbox
{
public:
    Outbox();
    Outbox(const Outbox &) = delete;
    Outbox &operator=(const Outbox &) = delete;

    /// From now on this address may be that of another channel: attach() looks.
    void expectChannel();

    /// Takes on \a channel, which must be alive, if one is expected and the last one has gone.
    void attach(SpicePortChannel *channel);

    /// \a bytes are copied.
    void add(const char *bytes, std::size_t size);

    /// Bytes of the messages that have been added and neither written nor dropped.
    std::int64_t bytesWaiting();

private:
    struct Write;

    void scheduleIfIdle();
    void writeBatch();
    std::vector<std::string> nextBatch();
    void written(std::string message);
    std::string spareBuffer();
    void drop(const char *reason);
    void tellOutcome(bool success, const char *reason);

    static gboolean onMainContext(gpointer outbox);
    static void onWritten(GObject *channel, GAsyncResult *result, gpointer write);
    static void onPortEvent(gpointer channel, int event, gpointer outbox);
    static void onChannelEvent(gpointer channel, int event, gpointer outbox);

    GWeakRef m_channel;
    std::mutex m_mutex; ///< guards what follows
    bool m_isChannelExpected = true;
    bool m_isRefused = false; ///< what was sent last; a row of refusals gets one line
    bool m_isScheduled = false;
    std::deque<std::string> m_waiting;
    std::size_t m_beingWritten = 0; ///< messages that the channel has been given and not yet finished
    std::size_t m_bytes = 0; ///< of all these
    std::size_t m_mostBytes = 0; ///< since it was empty
    std::vector<std::string> m_spare; ///< buffers of messages that have been written
    std::size_t m_spareBytes = 0;
};
