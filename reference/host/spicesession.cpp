// SPDX-License-Identifier: LGPL-2.1-or-later
#include "spicesession.h"

#include <QTimer>

#include <memory>

#include <spice-client.h>

SpicePortSession::SpicePortSession(QObject *parent) : QObject(parent), m_session(spice_session_new())
{
    // Otherwise the session would redirect devices by itself and take them away from the component.
    g_object_set(m_session, "enable-usbredir", FALSE, "enable-audio", FALSE, nullptr);
    g_signal_connect(m_session, "channel-new", G_CALLBACK(onChannelNew), this);
}

SpicePortSession::~SpicePortSession()
{
    disconnectFromServer();
    g_signal_handlers_disconnect_by_data(m_session, this);
    g_object_unref(m_session);
}

void SpicePortSession::connectTo(const QString &uri)
{
    g_object_set(m_session, "uri", uri.toUtf8().constData(), nullptr);
    spice_session_connect(m_session);
}

void SpicePortSession::disconnectFromServer()
{
    spice_session_disconnect(m_session);
}

void SpicePortSession::onChannelNew(SpiceSession *, SpiceChannel *channel, void *self)
{
    if (SPICE_IS_MAIN_CHANNEL(channel)) {
        g_signal_connect(channel, "channel-event", G_CALLBACK(onChannelEvent), self);
    } else if (SPICE_IS_PORT_CHANNEL(channel)) {
        g_signal_connect(channel, "notify::port-name", G_CALLBACK(onPortName), self);
        spice_channel_connect(channel);
    }
}

void SpicePortSession::onChannelEvent(SpiceChannel *channel, int event, void *self)
{
    if (event == SPICE_CHANNEL_OPENED || event == SPICE_CHANNEL_SWITCHING)
        return;
    const GError *error = spice_channel_get_error(channel);
    Q_EMIT static_cast<SpicePortSession *>(self)->closed(error ? QString::fromUtf8(error->message)
                                                               : QStringLiteral("the server closed the connection"));
}

void SpicePortSession::onPortName(SpicePortChannel *port, void *, void *self)
{
    // Whether the port is open is known a moment after its name.
    auto *session = static_cast<SpicePortSession *>(self);
    const std::shared_ptr<void> alive(g_object_ref(port), g_object_unref);
    QTimer::singleShot(0, session, [session, port, alive] {
        g_autofree gchar *name = nullptr;
        gboolean opened = FALSE;
        g_object_get(port, "port-name", &name, "port-opened", &opened, nullptr);
        Q_EMIT session->portFound(port, QString::fromUtf8(name), opened);
    });
}
