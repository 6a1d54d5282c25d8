// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <QObject>
#include <QSet>
#include <QString>

typedef struct _SpiceSession SpiceSession;
typedef struct _SpiceChannel SpiceChannel;
typedef struct _SpicePortChannel SpicePortChannel;
struct SpiceAddress;

/// The connection to the virtual machine: a SPICE client without display or sound. Everything runs on the main thread.
class SpicePortSession : public QObject
{
    Q_OBJECT

public:
    explicit SpicePortSession(QObject *parent = nullptr);
    ~SpicePortSession() override;

    /// What ended a connection.
    enum class End { Unreachable, Certificate, Password, Lost };
    Q_ENUM(End)
    /// What helps, for people.
    static const char *cureOf(End end);

    /// What the command line says for every SPICE client ("--spice-…") holds, too. May be called again after closed().
    void connectTo(const SpiceAddress &address);
    /// Lets go of a connection that does not come about, in the main loop's next round and without closed().
    void stopConnecting();
    /**
     * Says on every channel, as soon as it is connected, that nothing more will come, and emits left() once the server
     * has closed them all. What it still sends until then is read. QEMU does not survive a client that goes while a
     * channel of it is connecting, or while QEMU works on its last message and then answers.
     */
    void leave();
    /// Closes the connection as it is, in the main loop's next round.
    void disconnectFromServer();

Q_SIGNALS:
    /// The virtual machine has let us in. \a localAddress is empty for a UNIX socket.
    void connected(const QString &localAddress);
    /// A port channel has told its name. \a channel lives until portGone().
    void portFound(SpicePortChannel *channel, const QString &name, bool isOpened);
    /// The port of a channel has been opened or closed in the virtual machine; also before portFound().
    void portChanged(SpicePortChannel *channel, const QString &name, bool isOpened);
    void portGone(SpicePortChannel *channel);
    /// The connection could not be made or is gone.
    void closed(SpicePortSession::End end, const QString &reason);
    /// leave() is done.
    void left();

private:
    static void onChannelNew(SpiceSession *, SpiceChannel *channel, void *self);
    static void onChannelDestroy(SpiceSession *, SpiceChannel *channel, void *self);
    static void onChannelEvent(SpiceChannel *channel, int event, void *self);
    static void onPortName(SpicePortChannel *port, void *, void *self);
    static void onPortOpened(SpicePortChannel *port, void *, void *self);
    void mainChannelChanged(SpiceChannel *channel, int event);
    void portChannelChanged(SpiceChannel *channel, int event);
    void goOnLeaving();

    SpiceSession *m_session;
    SpiceChannel *m_main = nullptr; ///< while it is connected
    QSet<SpiceChannel *> m_linking; ///< asked to connect, and neither connected nor failed yet
    QSet<SpiceChannel *> m_ports; ///< that are connected
    bool m_leaving = false;
};
