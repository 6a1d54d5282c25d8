// SPDX-License-Identifier: LGPL-2.1-or-later
#include "control.h"

#include <gio/gunixsocketaddress.h>

namespace usbworld {

namespace {

const char ConnectionKey[] = "connection";

} // namespace

Control::Control(Handler handler)
    : m_handler(std::move(handler)), m_cancellable(g_cancellable_new()), m_service(g_socket_service_new())
{
    g_signal_connect(m_service.get(), "incoming", G_CALLBACK(onIncoming), this);
}

Control::~Control()
{
    g_signal_handlers_disconnect_by_data(m_service.get(), this);
    g_socket_service_stop(m_service.get());
    g_cancellable_cancel(m_cancellable.get());
    // Reads under way end with "cancelled" and must do so before this object is gone.
    while (g_main_context_iteration(nullptr, FALSE)) { }
    if (!m_path.empty())
        unlink(m_path.c_str());
}

bool Control::listen(const std::string &path, std::string &error)
{
    unlink(path.c_str());
    const GRef<GSocketAddress> address(g_unix_socket_address_new(path.c_str()));
    GError *failure = nullptr;
    if (!g_socket_listener_add_address(G_SOCKET_LISTENER(m_service.get()), address.get(), G_SOCKET_TYPE_STREAM,
                                       G_SOCKET_PROTOCOL_DEFAULT, nullptr, nullptr, &failure)) {
        error = failure->message;
        g_clear_error(&failure);
        return false;
    }
    m_path = path;
    return true;
}

gboolean Control::onIncoming(GSocketService *, GSocketConnection *connection, GObject *, gpointer self)
{
    const GRef<GDataInputStream> stream(g_data_input_stream_new(g_io_stream_get_input_stream(G_IO_STREAM(connection))));
    g_object_set_data_full(G_OBJECT(stream.get()), ConnectionKey, g_object_ref(connection), g_object_unref);
    static_cast<Control *>(self)->readLine(stream.get());
    return TRUE;
}

void Control::readLine(GDataInputStream *stream)
{
    g_data_input_stream_read_line_async(stream, G_PRIORITY_DEFAULT, m_cancellable.get(), onLine, this);
}

void Control::onLine(GObject *source, GAsyncResult *result, gpointer self)
{
    auto *stream = reinterpret_cast<GDataInputStream *>(source);
    const GOwned<char> line(g_data_input_stream_read_line_finish(stream, result, nullptr, nullptr));
    if (!line)
        return; // closed by the other side, or cancelled
    auto *control = static_cast<Control *>(self);
    const std::string reply = control->m_handler(line.get()) + '\n';
    auto *connection = static_cast<GIOStream *>(g_object_get_data(source, ConnectionKey));
    if (g_output_stream_write_all(g_io_stream_get_output_stream(connection), reply.data(), reply.size(), nullptr,
                                  nullptr, nullptr))
        control->readLine(stream);
}

} // namespace usbworld
