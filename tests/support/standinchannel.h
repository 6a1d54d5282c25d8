// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "support/eventlist.h"

#include <memory>
#include <string>

#include <spice-client.h>

/**
 * A GObject that has the three signals of a port channel and nothing else, and the function that sends messages.
 *
 * A program that links this file plays the SPICE client library of a host that has "port-channel-msg" and
 * spice_port_channel_send_msg(): the function is defined here, and the program has to export it.
 */
class StandInChannel
{
public:
    StandInChannel();

    SpicePortChannel *get() const { return reinterpret_cast<SpicePortChannel *>(m_object.get()); }

    /// Emits "port-channel-msg"; returns what the handlers returned.
    int emitMessage(unsigned int type, std::string &bytes) const;
    void emitPortEvent(int event) const;
    void emitChannelEvent(int event) const;

    /// How many handlers of this function, with this user data, are connected to this signal.
    unsigned int handlers(const char *signal, void *function, void *userData) const;
    /// All handlers of the three signals.
    unsigned int handlers() const;

    /// One call of spice_port_channel_send_msg().
    struct Sent
    {
        const void *channel;
        const void *message;
        int length;
        int type;
    };
    static EventList<Sent> &sent();
    /// What spice_port_channel_send_msg() returns; 0 at the start.
    static int sendResult;

private:
    std::unique_ptr<void, void (*)(void *)> m_object;
};
