// SPDX-License-Identifier: LGPL-2.1-or-later
#include "support/standinchannel.h"

#include <vector>

int StandInChannel::sendResult = 0;

EventList<StandInChannel::Sent> &StandInChannel::sent()
{
    static EventList<Sent> list;
    return list;
}

extern "C" __attribute__((visibility("default"))) int
spice_port_channel_send_msg(SpicePortChannel *channel, const void *message, int length, int type);

int spice_port_channel_send_msg(SpicePortChannel *channel, const void *message, int length, int type)
{
    StandInChannel::sent().add({channel, message, length, type});
    return StandInChannel::sendResult;
}

namespace {

const char *const signalNames[] = {"port-channel-msg", "port-event", "channel-event"};

GType channelType()
{
    static const GType type = [] {
        const GType made = g_type_register_static_simple(G_TYPE_OBJECT, "StandInChannel", sizeof(GObjectClass), nullptr,
                                                         sizeof(GObject), nullptr, G_TYPE_FLAG_NONE);
        g_signal_new(signalNames[0], made, G_SIGNAL_RUN_LAST, 0, nullptr, nullptr, nullptr, G_TYPE_INT, 3, G_TYPE_UINT,
                     G_TYPE_POINTER, G_TYPE_UINT);
        g_signal_new(signalNames[1], made, G_SIGNAL_RUN_LAST, 0, nullptr, nullptr, nullptr, G_TYPE_NONE, 1, G_TYPE_INT);
        g_signal_new(signalNames[2], made, G_SIGNAL_RUN_LAST, 0, nullptr, nullptr, nullptr, G_TYPE_NONE, 1, G_TYPE_INT);
        return made;
    }();
    return type;
}

} // namespace

StandInChannel::StandInChannel() : m_object(g_object_new(channelType(), nullptr), g_object_unref) { }

int StandInChannel::emitMessage(unsigned int type, std::string &bytes) const
{
    int result = -1;
    g_signal_emit_by_name(m_object.get(), signalNames[0], type, bytes.data(), static_cast<guint>(bytes.size()),
                          &result);
    return result;
}

void StandInChannel::emitPortEvent(int event) const
{
    g_signal_emit_by_name(m_object.get(), signalNames[1], event);
}

void StandInChannel::emitChannelEvent(int event) const
{
    g_signal_emit_by_name(m_object.get(), signalNames[2], event);
}

unsigned int StandInChannel::handlers(const char *signal, void *function, void *userData) const
{
    std::vector<gulong> found;
    while (const gulong id =
               g_signal_handler_find(m_object.get(),
                                     GSignalMatchType(G_SIGNAL_MATCH_ID | G_SIGNAL_MATCH_FUNC | G_SIGNAL_MATCH_DATA
                                                      | G_SIGNAL_MATCH_UNBLOCKED),
                                     g_signal_lookup(signal, channelType()), 0, nullptr, function, userData)) {
        found.push_back(id);
        g_signal_handler_block(m_object.get(), id);
    }
    for (const gulong id : found)
        g_signal_handler_unblock(m_object.get(), id);
    return static_cast<unsigned int>(found.size());
}

unsigned int StandInChannel::handlers() const
{
    std::vector<gulong> found;
    for (const char *signal : signalNames) {
        while (const gulong id =
                   g_signal_handler_find(m_object.get(), GSignalMatchType(G_SIGNAL_MATCH_ID | G_SIGNAL_MATCH_UNBLOCKED),
                                         g_signal_lookup(signal, channelType()), 0, nullptr, nullptr, nullptr)) {
            found.push_back(id);
            g_signal_handler_block(m_object.get(), id);
        }
    }
    for (const gulong id : found)
        g_signal_handler_unblock(m_object.get(), id);
    return static_cast<unsigned int>(found.size());
}
