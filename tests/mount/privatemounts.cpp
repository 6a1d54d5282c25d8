// SPDX-License-Identifier: LGPL-2.1-or-later
#include "mount/privatemounts.h"

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

namespace {

std::string reason = "PrivateMounts::enter() was not called";

bool writeFile(const char *path, const std::string &text)
{
    const int file = open(path, O_WRONLY | O_CLOEXEC);
    if (file < 0)
        return false;
    const bool written = write(file, text.data(), text.size()) == ssize_t(text.size());
    close(file);
    return written;
}

bool enterAsUser()
{
    const std::string user = std::to_string(getuid());
    const std::string group = std::to_string(getgid());
    return unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0 && writeFile("/proc/self/setgroups", "deny")
        && writeFile("/proc/self/uid_map", user + ' ' + user + " 1\n")
        && writeFile("/proc/self/gid_map", group + ' ' + group + " 1\n");
}

} // namespace

void PrivateMounts::enter()
{
    reason.clear();
    if ((unshare(CLONE_NEWNS) != 0 && !enterAsUser()) || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
        reason = std::string("no private mount namespace: ") + std::strerror(errno);
}

std::string PrivateMounts::whyNot()
{
    return reason;
}

PrivateMounts::Mount::Mount(const std::string &directory)
    : mounted(mount("none", directory.c_str(), "tmpfs", 0, nullptr) == 0), m_directory(directory)
{
}

PrivateMounts::Mount::~Mount()
{
    if (mounted)
        umount2(m_directory.c_str(), MNT_DETACH);
}
