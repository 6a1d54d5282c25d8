// SPDX-License-Identifier: LGPL-2.1-or-later

// The component joined straight to the SPICE channels, without the library: what the library is measured against.
// usage: direct SPICE_URI COMPONENT CONFIG DEVICE_ID

#include "component/entrypoints.h"

#include <spice-client.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include <dlfcn.h>

namespace {

void *component = nullptr;
std::string deviceId;

template<typename Function>
Function *entry(const char *symbol)
{
    void *address = dlsym(component, symbol);
    if (!address) {
        std::fprintf(stderr, "no %s\n", symbol);
        std::exit(1);
    }
    return reinterpret_cast<Function *>(address);
}

struct Message
{
    SpicePortChannel *channel;
    std::string bytes;
};

void written(GObject *channel, GAsyncResult *result, gpointer data)
{
    spice_port_channel_write_finish(SPICE_PORT_CHANNEL(channel), result, nullptr);
    delete static_cast<Message *>(data);
}

gboolean write(gpointer data)
{
    auto *message = static_cast<Message *>(data);
    spice_port_channel_write_async(message->channel, message->bytes.data(), message->bytes.size(), nullptr, written,
                                   message);
    return G_SOURCE_REMOVE;
}

int send(void *channel, char *bytes, int length)
{
    g_idle_add_full(G_PRIORITY_DEFAULT, write,
                    new Message{static_cast<SpicePortChannel *>(channel), std::string(bytes, std::size_t(length))},
                    nullptr);
    return length;
}

void onData(SpicePortChannel *, gpointer data, gint length, gpointer context)
{
    static auto *const handler = entry<RedirHandler>("redirHandler");
    handler(static_cast<char *>(data), length, context);
}

gboolean share(gpointer)
{
    char reply[512];
    int length = sizeof reply;
    const std::string command = "{\"command\":\"share\",\"deviceId\":\"" + deviceId + "\"}";
    const int result = entry<RedirCtrl>("redirCtrl")(command, reply, length);
    std::printf("%s\n", result == 0 ? "shared" : reply);
    std::fflush(stdout);
    return G_SOURCE_REMOVE;
}

void onOpened(SpicePortChannel *channel, void *, void *)
{
    g_autofree gchar *name = nullptr;
    gboolean opened = FALSE;
    void *context = nullptr;
    g_object_get(channel, "port-name", &name, "port-opened", &opened, nullptr);
    if (!opened || !entry<RedirCheck>("redirCheck")(name, &context))
        return;
    g_signal_connect(channel, "port-data", G_CALLBACK(onData), context);
    entry<RedirSetupContext>("redirSetupContext")(context, channel);
    entry<RedirEventHandler>("redirEventHandler")(ChannelEventOpened, nullptr, 0, context);
    g_idle_add(share, nullptr);
}

void onChannelNew(SpiceSession *, SpiceChannel *channel, void *)
{
    if (!SPICE_IS_PORT_CHANNEL(channel))
        return;
    g_signal_connect(channel, "notify::port-opened", G_CALLBACK(onOpened), nullptr);
    spice_channel_connect(channel);
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 5) {
        std::fprintf(stderr, "usage: direct SPICE_URI COMPONENT CONFIG DEVICE_ID\n");
        return 2;
    }
    deviceId = argv[4];
    component = dlopen(argv[2], RTLD_NOW);
    if (!component || !entry<RedirInit>("redirInit")(send, EventCallback(), "vm", argv[3])) {
        std::fprintf(stderr, "the component does not start: %s\n", dlerror());
        return 1;
    }
    SpiceSession *session = spice_session_new();
    g_object_set(session, "enable-usbredir", FALSE, "uri", argv[1], nullptr);
    g_signal_connect(session, "channel-new", G_CALLBACK(onChannelNew), nullptr);
    spice_session_connect(session);
    g_main_loop_run(g_main_loop_new(nullptr, FALSE));
    return 0;
}
