// SPDX-License-Identifier: LGPL-2.1-or-later
#include "spicesession.h"

#include "address.h"

#include <QTimer>

#include <algorithm>
#include <iterator>
#include <memory>
#include <utility>

#include <gio/gio.h>
#include <spice-client.h>

namespace {

struct EventText
{
    int event;
    SpicePortSession::End end;
    const char *text; ///< if the session itself gives no reason
};

constexpr EventText EventTexts[] = {
    {SPICE_CHANNEL_ERROR_CONNECT, SpicePortSession::End::Unreachable, "nothing answers there"},
    {SPICE_CHANNEL_ERROR_TLS, SpicePortSession::End::Certificate, "the server's certificate is not trusted"},
    {SPICE_CHANNEL_ERROR_LINK, SpicePortSession::End::Unreachable, "what answers is no SPICE server, or refuses"},
    {SPICE_CHANNEL_ERROR_AUTH, SpicePortSession::End::Password, "the password is wrong or missing"},
};
constexpr EventText OtherEnd{SPICE_CHANNEL_CLOSED, SpicePortSession::End::Lost, "the server closed the connection"};

const EventText &textOf(int event)
{
    const auto *known = std::find_if(std::begin(EventTexts), std::end(EventTexts),
                                     [event](const EventText &one) { return one.event == event; });
    return known == std::end(EventTexts) ? OtherEnd : *known;
}

QString reasonOf(SpiceChannel *channel, int event)
{
    const GError *const error = spice_channel_get_error(channel);
    return QString::fromUtf8(error ? error->message : textOf(event).text);
}

void setText(SpiceSession *session, const char *property, const QString &text)
{
    if (!text.isEmpty())
        g_object_set(session, property, text.toUtf8().constData(), nullptr);
}

GSocket *socketOf(SpiceChannel *channel)
{
    GSocket *socket = nullptr;
    g_object_get(channel, "socket", &socket, nullptr);
    return socket;
}

// Of the connection; empty for a UNIX socket.
QString localAddressOf(SpiceChannel *channel)
{
    g_autoptr(GSocket) socket = socketOf(channel);
    g_autoptr(GSocketAddress) address = socket ? g_socket_get_local_address(socket, nullptr) : nullptr;
    if (!address || !G_IS_INET_SOCKET_ADDRESS(address))
        return {};
    g_autofree gchar *text =
        g_inet_address_to_string(g_inet_socket_address_get_address(G_INET_SOCKET_ADDRESS(address)));
    return QString::fromUtf8(text);
}

void endSending(SpiceChannel *channel)
{
    g_autoptr(GSocket) socket = socketOf(channel);
    if (socket)
        g_socket_shutdown(socket, FALSE, TRUE, nullptr);
}

struct PortState
{
    QString name;
    bool isOpened;
};

PortState stateOf(SpicePortChannel *port)
{
    g_autofree gchar *name = nullptr;
    gboolean opened = FALSE;
    g_object_get(port, "port-name", &name, "port-opened", &opened, nullptr);
    return {QString::fromUtf8(name), opened != FALSE};
}

} // namespace

const char *SpicePortSession::cureOf(End end)
{
    switch (end) {
    case End::Password:
        return "--password-file gives one, and devredir-host asks a terminal";
    case End::Certificate:
        return "--spice-ca-file names who has signed it, --spice-host-subject whose it is";
    case End::Unreachable:
        break;
    case End::Lost:
        return "Does the virtual machine let more than one client in?";
    }
    return "Is the virtual machine running, is this its SPICE address, and may you connect to it?";
}

SpicePortSession::SpicePortSession(QObject *parent) : QObject(parent), m_session(spice_session_new())
{
    // Otherwise the session would redirect devices by itself and take them away from the component.
    g_object_set(m_session, "enable-usbredir", FALSE, "enable-audio", FALSE, nullptr);
    g_signal_connect(m_session, "channel-new", G_CALLBACK(onChannelNew), this);
    g_signal_connect(m_session, "channel-destroy", G_CALLBACK(onChannelDestroy), this);
}

SpicePortSession::~SpicePortSession()
{
    g_autoptr(GList) channels = spice_session_get_channels(m_session);
    for (const GList *channel = channels; channel; channel = channel->next)
        g_signal_handlers_disconnect_by_data(channel->data, this);
    g_signal_handlers_disconnect_by_data(m_session, this);
    disconnectFromServer();
    g_object_unref(m_session);
}

void SpicePortSession::connectTo(const SpiceAddress &address)
{
    spice_set_session_option(m_session);
    setText(m_session, "uri", address.uri);
    setText(m_session, "password", address.password); // not in the address, which the SPICE library may print
    setText(m_session, "cert-subject", address.subject);
    setText(m_session, "ciphers", address.ciphers);
    setText(m_session, "proxy", address.proxy);
    if (!address.authorities.isEmpty()) {
        g_autoptr(GByteArray) authorities = g_byte_array_new();
        g_byte_array_append(authorities, reinterpret_cast<const guint8 *>(address.authorities.constData()),
                            guint(address.authorities.size()));
        g_object_set(m_session, "ca", authorities, nullptr);
    }
    if (!address.secureChannels.isEmpty()) {
        g_auto(GStrv) names = g_strsplit(address.secureChannels.join(QLatin1Char(';')).toUtf8().constData(), ";", -1);
        g_object_set(m_session, "secure-channels", names, nullptr);
    }
    g_autoptr(GList) channels = spice_session_get_channels(m_session);
    for (const GList *channel = channels; channel; channel = channel->next) {
        if (SPICE_IS_MAIN_CHANNEL(channel->data)) // which the session keeps for another connection
            m_linking.insert(SPICE_CHANNEL(channel->data));
    }
    spice_session_connect(m_session);
}

void SpicePortSession::stopConnecting()
{
    for (SpiceChannel *channel : std::exchange(m_linking, {}))
        g_signal_handlers_disconnect_by_data(channel, this);
    disconnectFromServer();
}

// A channel begins to connect in the main loop's next round. The SPICE library never lets go of one that is taken down
// before that, nor of its session and the thread of that.
void SpicePortSession::disconnectFromServer()
{
    const auto disconnect = [](gpointer session) -> gboolean {
        spice_session_disconnect(SPICE_SESSION(session));
        return G_SOURCE_REMOVE;
    };
    g_idle_add_full(G_PRIORITY_DEFAULT_IDLE, disconnect, g_object_ref(m_session), g_object_unref);
}

void SpicePortSession::leave()
{
    m_leaving = true;
    for (SpiceChannel *port : qAsConst(m_ports))
        endSending(port);
    goOnLeaving();
}

// The ports go first: with the main channel the server throws away whatever the others are about to do.
void SpicePortSession::goOnLeaving()
{
    if (!m_leaving || !m_linking.isEmpty() || !m_ports.isEmpty())
        return;
    if (m_main)
        endSending(m_main);
    else
        Q_EMIT left();
}

void SpicePortSession::onChannelNew(SpiceSession *, SpiceChannel *channel, void *self)
{
    auto *session = static_cast<SpicePortSession *>(self);
    if (SPICE_IS_MAIN_CHANNEL(channel)) { // the session connects it
        g_signal_connect(channel, "channel-event", G_CALLBACK(onChannelEvent), self);
        session->m_linking.insert(channel);
    } else if (SPICE_IS_PORT_CHANNEL(channel) && !session->m_leaving) {
        g_signal_connect(channel, "channel-event", G_CALLBACK(onChannelEvent), self);
        g_signal_connect(channel, "notify::port-name", G_CALLBACK(onPortName), self);
        g_signal_connect(channel, "notify::port-opened", G_CALLBACK(onPortOpened), self);
        session->m_linking.insert(channel);
        spice_channel_connect(channel);
    }
}

void SpicePortSession::onChannelDestroy(SpiceSession *, SpiceChannel *channel, void *self)
{
    auto *session = static_cast<SpicePortSession *>(self);
    g_signal_handlers_disconnect_by_data(channel, self); // it tells of its end later, and this may be gone by then
    const bool wasLinking = session->m_linking.remove(channel);
    session->m_ports.remove(channel);
    if (channel == session->m_main || (wasLinking && SPICE_IS_MAIN_CHANNEL(channel)))
        session->mainChannelChanged(channel, SPICE_CHANNEL_CLOSED);
    session->goOnLeaving();
    if (SPICE_IS_PORT_CHANNEL(channel))
        Q_EMIT session->portGone(SPICE_PORT_CHANNEL(channel));
}

void SpicePortSession::onChannelEvent(SpiceChannel *channel, int event, void *self)
{
    auto *session = static_cast<SpicePortSession *>(self);
    if (event == SPICE_CHANNEL_SWITCHING)
        return;
    session->m_linking.remove(channel);
    if (SPICE_IS_MAIN_CHANNEL(channel))
        session->mainChannelChanged(channel, event);
    else
        session->portChannelChanged(channel, event);
    session->goOnLeaving();
}

void SpicePortSession::mainChannelChanged(SpiceChannel *channel, int event)
{
    const bool isOpened = event == SPICE_CHANNEL_OPENED;
    m_main = isOpened ? channel : nullptr;
    if (isOpened)
        Q_EMIT connected(localAddressOf(channel));
    else if (!m_leaving)
        Q_EMIT closed(textOf(event).end, reasonOf(channel, event));
}

void SpicePortSession::portChannelChanged(SpiceChannel *channel, int event)
{
    if (event != SPICE_CHANNEL_OPENED) {
        m_ports.remove(channel);
        return;
    }
    m_ports.insert(channel);
    if (m_leaving)
        endSending(channel);
}

void SpicePortSession::onPortName(SpicePortChannel *port, void *, void *self)
{
    // Whether the port is open is known a moment after its name.
    auto *session = static_cast<SpicePortSession *>(self);
    const std::shared_ptr<void> alive(g_object_ref(port), g_object_unref);
    QTimer::singleShot(0, session, [session, port, alive] {
        const PortState state = stateOf(port);
        Q_EMIT session->portFound(port, state.name, state.isOpened);
    });
}

void SpicePortSession::onPortOpened(SpicePortChannel *port, void *, void *self)
{
    const PortState state = stateOf(port);
    Q_EMIT static_cast<SpicePortSession *>(self)->portChanged(port, state.name, state.isOpened);
}
