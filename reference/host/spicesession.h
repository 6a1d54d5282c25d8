// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <QObject>
#include <QString>

typedef struct _SpiceSession SpiceSession;
typedef struct _SpiceChannel SpiceChannel;
typedef struct _SpicePortChannel SpicePortChannel;

/// The connection to the virtual machine: a SPICE client without display or sound. Everything runs on the main thread.
class SpicePortSession : public QObject
{
    Q_OBJECT

public:
    explicit SpicePortSession(QObject *parent = nullptr);
    ~SpicePortSession() override;

    /// "spice+unix:///path" or "spice://host:port".
    void connectTo(const QString &uri);
    void disconnectFromServer();

Q_SIGNALS:
    /// A port channel has told its name. \a channel lives until the session is disconnected.
    void portFound(SpicePortChannel *channel, const QString &name, bool isOpened);
    /// The connection could not be made or is gone.
    void closed(const QString &reason);

private:
    static void onChannelNew(SpiceSession *, SpiceChannel *channel, void *self);
    static void onChannelEvent(SpiceChannel *channel, int event, void *self);
    static void onPortName(SpicePortChannel *port, void *, void *self);

    SpiceSession *m_session;
};
