// SPDX-License-Identifier: LGPL-2.1-or-later

// Stands in for the library: a file of its name with the one function that a component looks up, which tells what the
// test wants and notes for which channel it was asked.

#define EXPORTED extern "C" __attribute__((visibility("default")))

#include <cstdint>

EXPORTED std::int64_t waitingBytes;
EXPORTED const void *askedFor;

std::int64_t waitingBytes = 0;
const void *askedFor = nullptr;

EXPORTED std::int64_t devredirectBytesWaiting(const void *channel)
{
    askedFor = channel;
    return waitingBytes;
}
