// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "component/redirevents.h"

#include <cstdint>
#include <string>

/// \file
/// The seven entry points of the redirection component "libdevredir.so", by the names that it exports, and the one
/// function that a component may look up in this library.
///
/// They are C++ functions with C linkage: some take std::function and std::string, so a component must be built with
/// the same standard library as this one. A component's author includes this header and declares
///
///     extern "C" RedirCheck redirCheck;
///
/// before the definition, so that the compiler compares the types.
///
/// The texts that the library passes are UTF-8, except for the VM identifier: that is as QString::toLocal8Bit() has it.
///
/// Several threads may be inside the component at once. A host that binds channels itself may come to the four entry
/// points for channels on any thread, whatever they say below. What the component throws is caught: one critical line,
/// and false or 1 in place of its result.

/// "redirInit": starts the component. Arguments: send callback, event callback (both may be empty), VM identifier,
/// path of "config.json". False: not started.
/// \ownership The callbacks are the component's own copies, to be called until "redirDeinit" has returned.
/// \thread host
using RedirInit = bool(SendCallback, EventCallback, std::string, std::string);

/// "redirCheck": is the channel of this name the component's? If so, true and a context through the out-pointer; a null
/// context counts as false.
/// \ownership The context stays the component's and has to be valid until it is stopped.
/// \thread host
using RedirCheck = bool(std::string, void **);

/// "redirHandler": bytes that arrived on the channel of a context, and their number. Nothing keeps the limits of
/// messages.
/// \ownership The bytes are borrowed for the call.
/// \thread the SPICE client's, normally the host's main thread
using RedirHandler = void(char *, int, void *);

/// "redirSetupContext": joins a context (first) to its channel (second), the pointer to name in the send callback.
/// False: the component wants to be told by "redirEventHandler" that the channel is open, also if it is so already.
/// \ownership The channel is only a name for the component, which neither looks into it nor frees it.
/// \thread host
using RedirSetupContext = bool(void *, void *);

/// "redirEventHandler": something happened to the channel of a context. Data is null and the length 0, unless a
/// host that binds channels itself passes its own by DevRedirectInterface::handlerRedirNoticeEvent().
/// \thread the SPICE client's, normally the host's main thread
using RedirEventHandler = void(ChannelEvent, char *, int, void *);

/// "redirCtrl": runs one JSON command and answers into the buffer. Length: capacity in bytes in, length of the answer
/// out. 0 means success, 1 is the library's own result where it cannot ask.
/// \ownership The buffer is borrowed for the call.
/// \thread worker; for USB and camera information, the two views and the last taking back the caller's
using RedirCtrl = int(std::string, char *, int &);

/// "redirDeinit": stops the component. No callback may be called once it has returned.
/// \thread host
using RedirDeinit = void();

/// "devredirectBytesWaiting", exported by this library: how many bytes of the component's messages wait to be written
/// to \a channel (the pointer from "redirSetupContext"); -1 if that cannot be known, as with the client's own build of
/// the SPICE client library. A component looks it up when it starts and does without it where it is missing.
/// \ownership \a channel is only a name here, and may have gone already.
/// \thread any
using BytesWaiting = std::int64_t(const void *channel);
