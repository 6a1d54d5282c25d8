// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "address.h"
#include "autoshare.h"
#include "devicesharing.h"
#include "spicesession.h"

#include <QHash>
#include <QObject>
#include <QTimer>

#include <algorithm>
#include <memory>
#include <optional>

class DevRedirectInterface;

/**
 * A client that shares devices: joins DevRedirectInterface to the SPICE session of a virtual machine.
 *
 * There is one at a time. Everything runs on the main thread, in its event loop. client.cpp has the start and the
 * connection, client_channels.cpp the channels, client_leaving.cpp the end.
 */
class Client : public QObject
{
    Q_OBJECT

public:
    struct Settings
    {
        std::optional<SpiceAddress> address; ///< nothing: without a virtual machine
        QString vmId = QStringLiteral("vm");
        bool reconnect = false; ///< when the connection is lost
        bool restore = false; ///< what was shared when a channel was lost
        int timeoutSeconds = 15; ///< longest wait for the virtual machine and for the outcome of a request
    };

    explicit Client(const Settings &settings, QObject *parent = nullptr);
    ~Client() override;

    /// Loads and starts the component, and connects. False, and one line in \a error with the cure, if there is no
    /// component.
    bool start(QString &error);
    /// After notConnected(): tries again, with this password unless it is empty.
    void connectAgain(const QString &password);
    /// Takes all devices back, lets what was sent be written, stops the component and parts from the virtual machine.
    void leave();

    const Settings &settings() const { return m_settings; }
    /// From start() until left().
    DeviceSharing &devices() { return *m_devices; }
    AutoShare &autoShare() { return *m_autoShare; }

    /// It has listed its devices, and there is a connection if there is to be one.
    bool isReady() const { return m_hasListed && (m_isConnected || !m_settings.address); }
    int openChannels() const { return int(std::count(m_channels.begin(), m_channels.end(), true)); }
    bool hasHadChannel() const { return m_hasHadChannel; }

Q_SIGNALS:
    /// The first time \a devices is what the component has found.
    void listed(const QList<ExterDeviceInfo> &devices);
    void connected();
    void notConnected(SpicePortSession::End end, const QString &reason);
    /// \a pauseSeconds: until the next try; 0: there is none.
    void connectionLost(const QString &reason, int pauseSeconds);
    /// A channel that the component takes has come, or has been opened or closed.
    void channelChanged(const QString &name, bool isOpened);
    /// A channel has gone.
    void channelGone();
    /// leave() begins to take these devices back.
    void takingBack(int devices);
    /// leave() is done.
    void left();

private:
    QString startComponent();
    void deviceShared(const QString &deviceId, const QString &why);
    static void onDeviceList(QList<ExterDeviceInfo> &devices);
    void connectNow();
    void sessionConnected(const QString &localAddress);
    void sessionClosed(SpicePortSession::End end, const QString &reason);
    bool connectsAgain(SpicePortSession::End end) const;

    void portFound(SpicePortChannel *channel, const QString &name, bool isOpened);
    void portChanged(SpicePortChannel *channel, const QString &name, bool isOpened);
    void tellChannel(const QString &name, bool isOpened);

    void beginFarewell();
    void waitUntilWritten();
    void releaseComponent();
    void end();

    Settings m_settings;
    SpicePortSession m_session;
    std::unique_ptr<DevRedirectInterface> m_redirect;
    std::unique_ptr<DeviceSharing> m_devices;
    std::unique_ptr<AutoShare> m_autoShare;
    bool m_hasListed = false;
    bool m_isConnected = false;
    bool m_isLeaving = false;
    bool m_saysFarewell = false; ///< the devices are back, or took too long
    bool m_hasHadChannel = false; ///< that the component took
    QHash<SpicePortChannel *, bool> m_channels; ///< the component's, and whether they are open
    QTimer m_connectAgain; ///< its interval is 0 until a connection was lost
    QTimer m_connectLimit;
    QTimer m_writing; ///< while what was sent last is written
    QTimer m_leaveLimit;
};
