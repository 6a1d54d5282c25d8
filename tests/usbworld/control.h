// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "handles.h"

#include <gio/gio.h>

#include <functional>
#include <string>

namespace usbworld {

/** Takes commands on a UNIX stream socket: one a line, one line as the reply. \thread main */
class Control
{
public:
    using Handler = std::function<std::string(const std::string &line)>;

    explicit Control(Handler handler);
    ~Control();
    Control(const Control &) = delete;
    Control &operator=(const Control &) = delete;

    /** Listens at \a path, in place of what an earlier run left there. */
    bool listen(const std::string &path, std::string &error);

private:
    static gboolean onIncoming(GSocketService *service, GSocketConnection *connection, GObject *source, gpointer self);
    static void onLine(GObject *stream, GAsyncResult *result, gpointer self);
    void readLine(GDataInputStream *stream);

    Handler m_handler;
    std::string m_path;
    GRef<GCancellable> m_cancellable;
    GRef<GSocketService> m_service;
};

} // namespace usbworld
