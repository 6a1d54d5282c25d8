// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "config.h"
#include "gates.h"
#include "redirector.h"
#include "reference/rules.h"

#include <QByteArray>
#include <QMutex>
#include <QSet>

/**
 * The component between its start and its end: the configuration, the devices described in it, and the commands.
 *
 * \thread any for every member
 */
class Component
{
public:
    Component(SendCallback send, EventCallback notify, Config config);

    Redirector &redirector() { return m_redirector; }
    bool ownsChannel(const QString &name) const { return name.startsWith(m_config.channelPrefix); }

    /// Runs a command. \a reply receives the answer: the device list, or a JSON object with "code" and "text".
    Outcome run(const QByteArray &command, QByteArray &reply);

private:
    Outcome dispatch(const QJsonObject &command, QByteArray &reply);
    QByteArray list();
    Outcome share(const QJsonObject &command);
    Outcome unshare(const QJsonObject &command);
    Outcome unshareAll();
    Outcome deviceChanged(const QJsonObject &command);
    Outcome setPolicy(const QJsonObject &command);
    Outcome explain(const QJsonObject &command, QByteArray &reply);

    QJsonObject describe(const UsbDevice &device);
    /// What changes of a device in the list. Its reader takes numbers only as texts.
    void addState(QJsonObject &entry, const QString &deviceId, bool shared) const;
    QString redirectorOf(const UsbDevice &device) const;
    bool isReadOnly(const UsbDevice &device) const;
    bool isDescribed(const QString &deviceId) const;
    bool isDenied(const UsbDevice &device);
    /// The gates that are this component's own rules.
    QList<Gate> rules(const UsbDevice &device);
    Outcome mayShare(const UsbDevice &device);
    bool isDescribedShared(const QString &deviceId);
    /// False if that is what it was already.
    bool noteDescribed(const QString &deviceId, bool shared);
    Outcome shareDescribed(const QString &deviceId);
    Outcome unshareDescribed(const QString &deviceId);

    const Config m_config;
    QMutex m_mutex; ///< guards what follows
    DeviceRules m_cameraPolicy;
    QSet<QString> m_sharedDescribed; ///< of the devices that only the configuration knows
    Redirector m_redirector;
};
