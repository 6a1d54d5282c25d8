// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "devices/exterdeviceinfo.h"
#include "reference/rules.h"

#include <QElapsedTimer>
#include <QHash>
#include <QList>
#include <QObject>
#include <QSet>
#include <QString>

class DeviceSharing;

/**
 * Shares devices that nobody asks for: those that a rule allows, once for each plug (one that the user takes back stays
 * where it is), and those that have lost their channel, on the next one.
 */
class AutoShare : public QObject
{
    Q_OBJECT

public:
    /// \a devices is borrowed and lives longer.
    explicit AutoShare(DeviceSharing &devices, QObject *parent = nullptr);

    /// None at first, so that nothing is shared by itself.
    void setRules(const DeviceRules &rules) { m_rules = rules; }
    /// Not at first.
    void setRestoring(bool restoring) { m_isRestoring = restoring; }

    /// Something has lost its channel and waits for one.
    bool isWaiting() const { return !m_lost.isEmpty(); }
    /// The devices have been listed: shares those that have come, if there is a channel.
    void devicesListed(const QList<ExterDeviceInfo> &devices, bool hasChannel);
    /// A channel has been opened: shares what waited for it.
    void channelOpened();

Q_SIGNALS:
    /// A device comes and goes, so it is not shared by itself until it is plugged in again after a pause.
    void stopped(const QString &deviceId);

private:
    void arrived(const QString &deviceId);
    bool comesAndGoes(const QString &deviceId);
    void takeBack(const QString &deviceId);
    void shareWhatIsDue(const QSet<QString> &lost);

    DeviceSharing &m_devices;
    DeviceRules m_rules;
    bool m_isRestoring = false;
    bool m_isFirstList = true; ///< which has those that were there before this was
    QSet<QString> m_unjudged; ///< by the rules, since they were plugged in
    QSet<QString> m_lost; ///< with their channel
    QHash<QString, QList<QElapsedTimer>> m_plugs; ///< the last ones, by port: what a device calls itself may change
    QSet<QString> m_stopped;
};
