// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <cstddef>

/**
 * What the library hands to the stock SPICE client for writing.
 *
 * spice_port_channel_write_async() is defined here once more, and the dynamic linker finds this one first; it counts
 * and goes on to the real one. The program has to export it. \thread host
 */
namespace PortWrites {

int count();
/// The most bytes that were handed over and not yet written, over the whole time.
std::size_t mostOutstanding();
/// How many writes were handed over from inside the callback of another one.
int countFromCallbacks();
/// How many writes were handed over on another thread than the one of the first.
int countFromOtherThreads();
/// How many writes had no bytes.
int countEmpty();

} // namespace PortWrites
