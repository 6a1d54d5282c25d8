// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <string>

/// Mounts that only this process sees.
namespace PrivateMounts {

/// Gives the process a mount table of its own, as root or in a user namespace. To be called while there is one thread.
void enter();
/// Why there is none; empty if there is one.
std::string whyNot();

/// Mounts an empty file system over a directory until the object dies. \a mounted tells whether that worked.
class Mount
{
public:
    explicit Mount(const std::string &directory);
    ~Mount();
    Mount(const Mount &) = delete;
    Mount &operator=(const Mount &) = delete;

    const bool mounted;

private:
    const std::string m_directory;
};

} // namespace PrivateMounts
