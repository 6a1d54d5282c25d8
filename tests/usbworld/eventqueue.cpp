// SPDX-License-Identifier: LGPL-2.1-or-later
#include "eventqueue.h"

#include "handles.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

namespace usbworld {

namespace {

constexpr guint RetryMs = 5;

// A datagram socket that is connected can be written to while the queue of its peer has room.
bool hasRoom(const std::string &path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.copy(address.sun_path, sizeof address.sun_path - 1) != path.size())
        return true;
    const FileDescriptor probe(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (connect(probe.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
        return true; // its owner is gone
    pollfd ready{probe.get(), POLLOUT, 0};
    return poll(&ready, 1, 0) == 1 && (ready.revents & POLLOUT);
}

struct DirectoryClose
{
    void operator()(GDir *directory) const { g_dir_close(directory); }
};

} // namespace

EventQueue::EventQueue(std::string root) : m_root(std::move(root)) { }

EventQueue::~EventQueue()
{
    if (m_retry != 0)
        g_source_remove(m_retry);
}

void EventQueue::push(Step step)
{
    m_steps.push_back(std::move(step));
    if (m_retry == 0)
        run();
}

gboolean EventQueue::onRetry(gpointer self)
{
    auto *queue = static_cast<EventQueue *>(self);
    queue->m_retry = 0;
    queue->run();
    return G_SOURCE_REMOVE;
}

void EventQueue::run()
{
    while (!m_steps.empty()) {
        if (!everyMonitorHasRoom()) {
            m_retry = g_timeout_add(RetryMs, onRetry, this);
            return;
        }
        const Step step = std::move(m_steps.front());
        m_steps.pop_front();
        step();
    }
}

bool EventQueue::everyMonitorHasRoom() const
{
    const std::unique_ptr<GDir, DirectoryClose> directory(g_dir_open(m_root.c_str(), 0, nullptr));
    while (const char *name = directory ? g_dir_read_name(directory.get()) : nullptr) {
        if (g_str_has_prefix(name, "event") && !hasRoom(m_root + '/' + name))
            return false;
    }
    return true;
}

} // namespace usbworld
