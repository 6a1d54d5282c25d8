// SPDX-License-Identifier: LGPL-2.1-or-later
#include "support/resources.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>

#include <unistd.h>

namespace {
int entriesOf(const char *directory)
{
    return int(std::distance(std::filesystem::directory_iterator(directory), std::filesystem::directory_iterator()));
}
} // namespace

Resources Resources::now()
{
    return {entriesOf("/proc/self/task"), entriesOf("/proc/self/fd")};
}

int Resources::threadsBeforeAny()
{
    std::filesystem::path mine;
    std::thread([&mine] { mine = "/proc/self/task/" + std::to_string(gettid()); }).join();
    while (std::filesystem::exists(mine))
        std::this_thread::yield();
    return now().threads;
}

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
const bool Resources::memoryIsReused = false;
#else
const bool Resources::memoryIsReused = true;
#endif

long Resources::memory()
{
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;) {
        long kibibytes = 0;
        if (word == "VmRSS:" && status >> kibibytes)
            return kibibytes;
    }
    return -1;
}
