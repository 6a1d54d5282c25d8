// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <ostream>

/// What this process holds of the system.
struct Resources
{
    int threads = 0;
    int descriptors = 0;

    static Resources now();
    /// The number of threads when no other than this one's is in use; a sanitizer's own begins with the first.
    static int threadsBeforeAny();
    /// Resident memory in KiB.
    static long memory();
    /// False under sanitizers, which keep for a while what was freed.
    static const bool memoryIsReused;

    bool operator==(const Resources &other) const
    {
        return threads == other.threads && descriptors == other.descriptors;
    }
};

inline std::ostream &operator<<(std::ostream &stream, const Resources &resources)
{
    return stream << resources.threads << " threads, " << resources.descriptors << " descriptors";
}
