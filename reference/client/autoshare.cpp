// SPDX-License-Identifier: LGPL-2.1-or-later
#include "autoshare.h"

#include "devicesharing.h"
#include "rulesfile.h"

#include <utility>

namespace {
constexpr int MostPlugs = 3; // of a device within this time; a loose contact, or a device that attacks
constexpr int PlugsMilliseconds = 10000;
} // namespace

AutoShare::AutoShare(DeviceSharing &devices, QObject *parent) : QObject(parent), m_devices(devices)
{
    connect(&devices, &DeviceSharing::deviceArrived, this, &AutoShare::arrived);
    connect(&devices, &DeviceSharing::deviceLeft, this, [this](const QString &deviceId) {
        m_unjudged.remove(deviceId);
        m_lost.remove(deviceId);
    });
    connect(&devices, &DeviceSharing::deviceShared, this, [this](const QString &deviceId, const QString &why) {
        if (m_stopped.contains(deviceId) && why.isEmpty())
            takeBack(deviceId);
    });
    connect(&devices, &DeviceSharing::deviceNotTakenBack, this,
            [this](const QString &deviceId) { m_lost.remove(deviceId); });
    connect(&devices, &DeviceSharing::channelLost, this, [this](const QString &deviceId) {
        if (m_isRestoring && m_devices.shared().contains(deviceId))
            m_lost.insert(deviceId);
    });
}

void AutoShare::arrived(const QString &deviceId)
{
    m_stopped.remove(deviceId);
    if (!comesAndGoes(deviceId)) {
        m_unjudged.insert(deviceId);
        return;
    }
    m_stopped.insert(deviceId);
    Q_EMIT stopped(deviceId);
}

void AutoShare::takeBack(const QString &deviceId)
{
    for (const ExterDeviceInfo &device : m_devices.list().value_or(QList<ExterDeviceInfo>())) {
        if (device.deviceId == deviceId)
            m_devices.takeBack(device);
    }
}

bool AutoShare::comesAndGoes(const QString &deviceId)
{
    QList<QElapsedTimer> &plugs = m_plugs[deviceId.section(QLatin1Char(':'), 0, 0)];
    QElapsedTimer now;
    now.start();
    plugs.append(now);
    while (plugs.first().hasExpired(PlugsMilliseconds))
        plugs.removeFirst();
    return plugs.size() > MostPlugs;
}

void AutoShare::devicesListed(const QList<ExterDeviceInfo> &devices, bool hasChannel)
{
    if (std::exchange(m_isFirstList, false)) {
        for (const ExterDeviceInfo &device : devices)
            m_unjudged.insert(device.deviceId);
    }
    if (hasChannel)
        shareWhatIsDue({});
}

void AutoShare::channelOpened()
{
    shareWhatIsDue(std::exchange(m_lost, {}));
}

void AutoShare::shareWhatIsDue(const QSet<QString> &lost)
{
    if (m_unjudged.isEmpty() && lost.isEmpty())
        return;
    for (const ExterDeviceInfo &device : m_devices.list().value_or(QList<ExterDeviceInfo>())) {
        const bool isUnjudged = m_unjudged.remove(device.deviceId);
        const DeviceRule *const rule = isUnjudged ? m_rules.firstThatFits(traitsOf(device)) : nullptr;
        const bool isAllowed = rule && rule->allow;
        if (!isAllowed && !lost.contains(device.deviceId))
            continue;
        if (device.status == 0 && !m_devices.isPending(device.deviceId))
            m_devices.share(device,
                            isAllowed ? QStringLiteral("by the rule ") + rule->name : QStringLiteral("as before"));
    }
}
