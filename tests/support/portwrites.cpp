// SPDX-License-Identifier: LGPL-2.1-or-later
#include "support/portwrites.h"

#include <algorithm>
#include <memory>
#include <mutex>
#include <thread>

#include <dlfcn.h>
#include <spice-client.h>

namespace {

std::mutex mutex;
int writes = 0;
int writesFromCallbacks = 0;
int writesFromOtherThreads = 0;
int emptyWrites = 0;
std::size_t outstanding = 0;
std::size_t most = 0;
std::thread::id firstThread;
thread_local bool insideCallback = false;

struct Write
{
    gsize size;
    GAsyncReadyCallback callback;
    gpointer data;
};

void onWritten(GObject *channel, GAsyncResult *result, gpointer pointer)
{
    const std::unique_ptr<Write> write(static_cast<Write *>(pointer));
    {
        const std::lock_guard<std::mutex> lock(mutex);
        outstanding -= write->size;
    }
    insideCallback = true;
    write->callback(channel, result, write->data);
    insideCallback = false;
}

int read(const int &number)
{
    const std::lock_guard<std::mutex> lock(mutex);
    return number;
}

} // namespace

extern "C" __attribute__((visibility("default"))) void
spice_port_channel_write_async(SpicePortChannel *channel, const void *buffer, gsize count, GCancellable *cancellable,
                               GAsyncReadyCallback callback, gpointer data)
{
    using WriteAsync = void (*)(SpicePortChannel *, const void *, gsize, GCancellable *, GAsyncReadyCallback, gpointer);
    static const auto realWrite = reinterpret_cast<WriteAsync>(dlsym(RTLD_NEXT, "spice_port_channel_write_async"));
    {
        const std::lock_guard<std::mutex> lock(mutex);
        if (writes++ == 0)
            firstThread = std::this_thread::get_id();
        writesFromOtherThreads += firstThread != std::this_thread::get_id();
        writesFromCallbacks += insideCallback;
        emptyWrites += count == 0;
        outstanding += count;
        most = std::max(most, outstanding);
    }
    realWrite(channel, buffer, count, cancellable, onWritten, new Write{count, callback, data});
}

int PortWrites::count()
{
    return read(writes);
}

std::size_t PortWrites::mostOutstanding()
{
    const std::lock_guard<std::mutex> lock(mutex);
    return most;
}

int PortWrites::countFromCallbacks()
{
    return read(writesFromCallbacks);
}

int PortWrites::countFromOtherThreads()
{
    return read(writesFromOtherThreads);
}

int PortWrites::countEmpty()
{
    return read(emptyWrites);
}
