// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <glib-object.h>
#include <glib.h>

#include <memory>
#include <unistd.h>
#include <utility>

namespace usbworld {

/** Owns one file descriptor. */
class FileDescriptor
{
public:
    FileDescriptor() = default;
    explicit FileDescriptor(int fd) : m_fd(fd) { }
    FileDescriptor(FileDescriptor &&other) noexcept : m_fd(std::exchange(other.m_fd, -1)) { }
    FileDescriptor &operator=(FileDescriptor &&other) noexcept
    {
        std::swap(m_fd, other.m_fd);
        return *this;
    }
    FileDescriptor(const FileDescriptor &) = delete;
    FileDescriptor &operator=(const FileDescriptor &) = delete;
    ~FileDescriptor() { reset(); }

    int get() const { return m_fd; }
    explicit operator bool() const { return m_fd >= 0; }
    void reset()
    {
        if (m_fd >= 0)
            close(std::exchange(m_fd, -1));
    }

private:
    int m_fd = -1;
};

struct GObjectUnref
{
    void operator()(void *object) const { g_object_unref(object); }
};

struct GFree
{
    void operator()(void *memory) const { g_free(memory); }
};

/** Owns one reference to a GObject. */
template<class T>
using GRef = std::unique_ptr<T, GObjectUnref>;

/** Owns a block that is released with g_free(). */
template<class T>
using GOwned = std::unique_ptr<T, GFree>;

} // namespace usbworld
