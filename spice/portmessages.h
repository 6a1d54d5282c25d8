// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <spice-client.h>

/**
 * Whole messages over a SPICE port channel, with any build of the SPICE client library.
 *
 * The client's own build has the signal "port-channel-msg" and the function spice_port_channel_send_msg(); then both
 * are used as they are. The stock library has neither; then the signal is added to its port channel class and messages
 * are written with the stock calls.
 */
namespace PortMessages {

/// Makes sure that port channels have the signal "port-channel-msg" (int result; uint type, pointer data, uint length).
/// \thread any; only the first call does something
void provideSignal();

/// Watches the life of \a channel, which must be alive: from now on messages for it are safe at any time. \thread any
void follow(SpicePortChannel *channel);

/// Says that \a channel is alive without looking at it, because it may be something else: the first message then
/// follows it. Needed before a component gets to know it, because a new channel may have the address of one that is
/// gone. \thread any
void announce(const void *channel);

/**
 * Sends a message.
 *
 * With the stock library the bytes are copied, and written from the default main context in the order of the calls.
 * Messages for a channel that is gone or refuses them are dropped with one warning line until it takes them again. A
 * null or empty message sends nothing.
 * \param channel  borrowed. The first message on a channel that is not followed must come while it is alive.
 * \thread any
 */
void send(SpicePortChannel *channel, const char *message, int length, int type);

} // namespace PortMessages
