// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "devices/exterdeviceinfo.h"
#include "reference/client/transferspeeds.h"
#include "reference/rules.h"

#include <QHash>
#include <QMap>
#include <QTimer>
#include <QWidget>

class DeviceRow;
class DeviceSharing;
class QLabel;
class QVBoxLayout;

/**
 * The USB devices of this computer, each with a switch that shares it with the virtual machine: for the window of a
 * client.
 *
 * It is fed by the DeviceSharing of the client's DevRedirectInterface, through which it also shares. What keeps a
 * device from being shared stands in its row with what helps. "Always" writes a rule into the user's rules and takes it
 * out again. What happens by itself is told in a line that goes by itself; nothing is ever asked.
 *
 * \thread main
 */
class DevicePanel : public QWidget
{
    Q_OBJECT

public:
    /// \a devices is borrowed and lives longer, and its component is started. \a rulesFile need not exist.
    DevicePanel(DeviceSharing &devices, const QString &rulesFile, QWidget *parent = nullptr);

    /// How many channels the virtual machine offers now; each takes one device.
    void setChannels(int channels);
    /// Tells the user \a text in a line that goes by itself; nameOf() is what a device is called in it.
    void notice(const QString &text);
    QString nameOf(const QString &deviceId) const;
    /// The user's rules, as they were read last.
    const DeviceRules &rules() const { return m_rules; }

Q_SIGNALS:
    /// The user has changed what is shared by itself.
    void rulesChanged(const DeviceRules &rules);

private:
    void changed(const QString &deviceId, const QString &told = QString(), const QString &refusal = QString());
    void refresh();
    void showRow(const ExterDeviceInfo &device);
    void showReason(const ExterDeviceInfo &device);
    void showChannels();
    void showSpeeds();
    void share(const QString &deviceId, bool share);
    void always(const QString &deviceId, bool always);
    void readRules();

    DeviceSharing &m_devices;
    const QString m_rulesFile;
    DeviceRules m_rules;
    int m_channels = 0;
    QMap<QString, ExterDeviceInfo> m_known; ///< by identifier
    QMap<QString, DeviceRow *> m_rows;
    QHash<QString, QString> m_refusals; ///< what the last try of a device ended with
    TransferSpeeds m_speeds;
    QVBoxLayout *m_list;
    QLabel *m_empty;
    QLabel *m_free;
    QLabel *m_notice;
    QTimer m_speedTimer;
    QTimer m_noticeTimer;
};
