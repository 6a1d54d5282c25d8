// SPDX-License-Identifier: LGPL-2.1-or-later
#include "spice/portmessages.h"

#include "spice/outbox.h"

#include <unordered_map>

#include <spice-client.h>

// Weak, so that it is null with the stock SPICE client library.
extern "C" [[gnu::weak]] int spice_port_channel_send_msg(SpicePortChannel *channel, const void *message, int length,
                                                         int type);

namespace {

// What the stock library delivers has no type of its own; it gets the one that this library sends with.
constexpr guint ReceivedMessageType = 109;

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

void PortMessages::send(SpicePortChannel *channel, const char *message, int length, int type)
{
    if (spice_port_channel_send_msg) {
        spice_port_channel_send_msg(channel, message, length, type);
        return;
    }
    // The stock library never completes a write of nothing, and the server drops the channel for it.
    if (!channel || !message || length <= 0)
        return;
    Outbox &outbox = outboxOf(channel);
    outbox.attach(channel);
    outbox.add(message, size_t(length));
}

std::int64_t PortMessages::bytesWaiting(const void *channel)
{
    return spice_port_channel_send_msg ? -1 : outboxOf(channel).bytesWaiting();
}
