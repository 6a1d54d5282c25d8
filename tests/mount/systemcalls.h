// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <functional>
#include <string>
#include <vector>

#include <poll.h>
#include <sys/types.h>

/**
 * Three calls to the system that the watcher makes, as this test program sees and scripts them.
 *
 * poll(), readlink() and popen() are defined in this program once more, and the dynamic linker finds these first.
 * Without a script, and for every other caller, they do what they always do.
 */
namespace SystemCalls {

/// Takes the place of every poll for POLLPRI, the mark of a watch. Null: the real poll.
void onPoll(std::function<int(pollfd *, nfds_t, int)> script);
/// Number of polls for POLLPRI since the start.
int polls();
/// The real poll.
int reallyPoll(pollfd *descriptors, nfds_t count, int timeout);

/// Takes the place of readlink() below "/sys/block". Null: the real readlink.
void onReadlink(std::function<ssize_t(const std::string &, char *, std::size_t)> script);

/// While one lives, popen() fails as it does when the process has no descriptor left.
class NoMorePipes
{
public:
    NoMorePipes();
    ~NoMorePipes();
    NoMorePipes(const NoMorePipes &) = delete;
    NoMorePipes &operator=(const NoMorePipes &) = delete;
};

} // namespace SystemCalls
