// SPDX-License-Identifier: LGPL-2.1-or-later
#include "mount/systemcalls.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <mutex>

#include <dlfcn.h>
#include <unistd.h>

namespace {

using Poll = int(pollfd *, nfds_t, int);
using Popen = FILE *(const char *, const char *);
using Readlink = ssize_t(const char *, char *, size_t);

std::mutex mutex;
std::function<Poll> pollScript;
std::function<ssize_t(const std::string &, char *, std::size_t)> readlinkScript;
std::atomic<int> pollCount{0};
std::atomic<bool> noMorePipes{false};

template<typename Function>
Function *real(const char *name)
{
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

} // namespace

void SystemCalls::onPoll(std::function<int(pollfd *, nfds_t, int)> script)
{
    const std::lock_guard<std::mutex> lock(mutex);
    pollScript = std::move(script);
}

int SystemCalls::polls()
{
    return pollCount;
}

int SystemCalls::reallyPoll(pollfd *descriptors, nfds_t count, int timeout)
{
    static Poll *const poll = real<Poll>("poll");
    return poll(descriptors, count, timeout);
}

void SystemCalls::onReadlink(std::function<ssize_t(const std::string &, char *, std::size_t)> script)
{
    const std::lock_guard<std::mutex> lock(mutex);
    readlinkScript = std::move(script);
}

SystemCalls::NoMorePipes::NoMorePipes()
{
    noMorePipes = true;
}

SystemCalls::NoMorePipes::~NoMorePipes()
{
    noMorePipes = false;
}

#define FOUND_FIRST extern "C" __attribute__((visibility("default")))

// Under a name of its own here, since the C library's declaration of poll() says that descriptors are only written.
FOUND_FIRST int pollOfThisProgram(pollfd *descriptors, nfds_t count, int timeout) __asm__("poll");

int pollOfThisProgram(pollfd *descriptors, nfds_t count, int timeout)
{
    if (count == 0 || !(descriptors->events & POLLPRI))
        return SystemCalls::reallyPoll(descriptors, count, timeout);
    std::function<Poll> script;
    {
        const std::lock_guard<std::mutex> lock(mutex);
        script = pollScript;
    }
    const int result =
        script ? script(descriptors, count, timeout) : SystemCalls::reallyPoll(descriptors, count, timeout);
    ++pollCount;
    return result;
}

FOUND_FIRST ssize_t readlink(const char *path, char *buffer, size_t size) noexcept
{
    if (std::strncmp(path, "/sys/block/", 11) == 0) {
        std::function<ssize_t(const std::string &, char *, std::size_t)> script;
        {
            const std::lock_guard<std::mutex> lock(mutex);
            script = readlinkScript;
        }
        if (script)
            return script(path, buffer, size);
    }
    static Readlink *const readlink = real<Readlink>("readlink");
    return readlink(path, buffer, size);
}

FOUND_FIRST FILE *popen(const char *command, const char *mode)
{
    if (noMorePipes) {
        errno = EMFILE;
        return nullptr;
    }
    static Popen *const popen = real<Popen>("popen");
    return popen(command, mode);
}
