// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <functional>

/// \file
/// What passes between the component and its surroundings: events of a channel, events for the host, and the two
/// callbacks that carry messages and events.

/// What happened to a port channel, as told to the component's "redirEventHandler". The numbers are those of the SPICE
/// protocol's port events (SPICE_PORT_EVENT_*). Any other number that the SPICE port reports is passed on as it is.
enum ChannelEvent : int {
    ChannelEventOpened = 0, ///< the port is open
    ChannelEventClosed = 1, ///< the virtual machine's side closed the port
    ChannelEventBreak = 2, ///< a break on the port; also sent when the SPICE channel is closed or fails
};

/// What the component reports through the event callback. The component fixes the numbers and the host interprets them;
/// the library passes them through and never looks at them. The enumerators are those of the component in
/// reference/component. A component may report others.
enum RedirEvent : int {
    RedirEventDeviceArrived = 1, ///< a device was plugged in
    RedirEventDeviceLeft = 2, ///< a device was pulled out
    RedirEventShared = 3, ///< a device is now redirected
    RedirEventUnshared = 4, ///< a device is back with the local system
    RedirEventShareFailed = 5, ///< a share did not succeed, or a redirected device was given back by force
    RedirEventChannelLost = 6, ///< the port channel of a redirected device is gone
};

/// Sends one message of the component to the virtual machine: the channel from "redirSetupContext", the bytes and their
/// number. Returns the number of bytes taken, or -1 when the application is exiting.
/// \ownership The bytes are borrowed for the call.
/// \thread any; the component calls it from its own threads.
using SendCallback = std::function<int(void *channel, char *message, int length)>;

/// Tells the host of an event: the component's context pointer, the event, a text and its length in bytes. The text is
/// passed on unread, so its form and encoding are the component's.
/// \ownership The text is borrowed for the call.
/// \thread any; the component calls it from its own threads, from its start until "redirDeinit" has returned.
using EventCallback = std::function<void(void *context, RedirEvent event, const char *text, int length)>;
