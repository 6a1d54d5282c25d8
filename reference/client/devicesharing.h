// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "component/redirevents.h"
#include "devices/exterdeviceinfo.h"

#include <QHash>
#include <QJsonObject>
#include <QObject>
#include <QSet>
#include <QTimer>

#include <optional>

class DevRedirectInterface;

/**
 * Shares devices through a DevRedirectInterface, takes them back, and tells what becomes of each.
 *
 * That the library has taken a request is not its outcome: that comes as a signal of the library, or for a "usbrdr"
 * device as an event of the component. Whoever owns the library's object gives the events to report().
 *
 * \thread host, but for report()
 */
class DeviceSharing : public QObject
{
    Q_OBJECT

public:
    /// \a redirect is borrowed and lives longer. An outcome that takes longer than \a longestWaitSeconds is a failure.
    DeviceSharing(DevRedirectInterface &redirect, int longestWaitSeconds, QObject *parent = nullptr);

    /// What the event callback of \a redirect was given. \thread any
    void report(RedirEvent event, const QByteArray &text);

    /// The devices as they are now. (The list that the library publishes may have been fetched before the last plug.)
    /// Nothing if the component gives none.
    std::optional<QList<ExterDeviceInfo>> list();
    /// \a why is for people.
    void share(const ExterDeviceInfo &device, const QString &why = QStringLiteral("by hand"));
    void takeBack(const ExterDeviceInfo &device);

    const QSet<QString> &shared() const { return m_shared; }
    bool isPending(const QString &deviceId) const { return m_pending.contains(deviceId); }
    bool hasPending() const { return !m_pending.isEmpty(); }

Q_SIGNALS:
    // What was asked for, and what happens by itself. The objects are the component's, with "deviceId".
    /// \a why is what share() was given; empty: it came back to the channel that it had, or another part of the client
    /// shared it.
    void deviceShared(const QString &deviceId, const QString &why);
    void deviceNotShared(const QString &deviceId, const QString &reason);
    /// \a details has "text" if the component took it back by itself.
    void deviceTakenBack(const QString &deviceId, const QJsonObject &details);
    void deviceNotTakenBack(const QString &deviceId, const QString &reason);
    void deviceArrived(const QString &deviceId, const QJsonObject &details);
    void deviceLeft(const QString &deviceId, const QJsonObject &details);
    void channelLost(const QString &deviceId, const QJsonObject &details);
    /// No outcome is waited for any more.
    void settled();

private:
    enum class Wait { Share, ShareByEvent, TakingBack };
    struct Pending
    {
        Wait wait = Wait::Share;
        QString why{}; ///< of a share
    };

    void happened(RedirEvent event, const QJsonObject &details);
    void shareEnded(const QString &deviceId, bool success);
    void takingBackEnded(const QString &deviceId, bool success);
    void begin(const QString &deviceId, const Pending &pending);
    std::optional<Pending> end(const QString &deviceId);
    void settleIfDone();
    void waitedTooLong();

    DevRedirectInterface &m_redirect;
    QHash<QString, Pending> m_pending; ///< devices whose outcome is waited for
    QSet<QString> m_shared;
    QHash<QString, QString> m_failures; ///< by device, what was said before its outcome
    std::optional<QList<ExterDeviceInfo>> m_fresh; ///< what list() was given
    QTimer m_limit;
};
