// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "component/entrypoints.h"
#include "devredirectexport.h"

// GLib's headers have members called "signals", which is a keyword of Qt's unless a host sets QT_NO_KEYWORDS.
#pragma push_macro("signals")
#undef signals
#include <spice-client.h>
#pragma pop_macro("signals")

/// \file
/// The plain functions that join the component to a SPICE port channel; this header needs the SPICE client library's.
/// All of them go through DevRedirectWorker::m_redirectHandler; without a component they log and do nothing. The "user
/// data" of the three handlers is the context that the component gave for the channel. Nothing here owns a channel.

/// Sends a message of the component on \a channel. Returns \a length, whatever becomes of the message, or -1 if the
/// quit flag is set and nothing is sent. Messages go out in the order of the calls; with the stock SPICE client library
/// the default GLib main context, which the host's main loop must be running, writes them.
/// \ownership Both are borrowed for the call. With the stock SPICE client library a channel that was bound may have
/// gone already: it gets nothing.
/// \thread any
DEVREDIRECT_EXPORT int sendDevRedirectMsgToSpice(void *channel, char *message, int length);

/// For the component: see BytesWaiting.
extern "C" DEVREDIRECT_EXPORT BytesWaiting devredirectBytesWaiting;

/// Handler of "port-channel-msg": hands received bytes to the component. Returns 0.
/// \ownership \a data is borrowed for the call.
/// \thread the SPICE client's
DEVREDIRECT_EXPORT int onPortMsgProcess(void *channel, unsigned int type, void *data, unsigned int length,
                                        void *context);

/// Handler of "port-event": hands the event number on as it is. Returns 0. \thread the SPICE client's
DEVREDIRECT_EXPORT int onPortEvent(void *channel, int event, void *context);

/// Handler of "channel-event": a channel that is closed or failed (SPICE_CHANNEL_CLOSED, SPICE_CHANNEL_ERROR_*) is a
/// break for the component, any other event is only logged. \thread the SPICE client's
DEVREDIRECT_EXPORT void PortChannelEvent(SpicePortChannel *channel, SpiceChannelEvent event, void *context);
