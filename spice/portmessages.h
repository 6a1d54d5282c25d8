// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <cstdint>

typedef struct _SpicePortChannel SpicePortChannel;

/// Whole messages over a SPICE port channel, with any build of the SPICE client library. The client's own build has the
/// signal "port-channel-msg" and the function spice_port_channel_send_msg(): what is here then only calls that
/// function, and touches no channel. The stock library has neither; then the signal is added to its port channel class
/// and messages are written with the stock calls. \thread any
namespace PortMessages {

/// The type that the client's SPICE library expects for what this library sends, and that what comes in gets where the
/// stock library gives it none.
constexpr int MessageType = 109;

/// Gives \a channel, which must be alive, the signal "port-channel-msg" (int result; uint type, pointer data, uint
/// length). From now on messages for it are safe at any time, also when it has gone.
void bind(SpicePortChannel *channel);

/// For a channel that the host binds by itself, before the component gets to know it: the address may be that of a new
/// channel. It is not looked at, since it may be something else; the first message, for which it must be alive, is
/// what binds it.
void expect(const void *channel);

/// Sends a message. With the stock library the bytes are copied, and written from the default main context in the order
/// of the calls. Messages for a channel that is gone or refuses them, and those that wait when its port closes, are
/// dropped with one warning line until it takes them again. A null or empty message sends nothing.
void send(SpicePortChannel *channel, const char *message, int length);

/// Does this SpiceChannelEvent mean that the channel is closed or has failed?
bool isLost(int channelEvent);

/// Bytes of the messages that wait to be written to \a channel; -1 if that cannot be known.
std::int64_t bytesWaiting(const void *channel);

} // namespace PortMessages
