// SPDX-License-Identifier: LGPL-2.1-or-later
#include "devicesharing.h"

#include "interface/devredirectinterface.h"

#include <QJsonDocument>

#include <utility>

DeviceSharing::DeviceSharing(DevRedirectInterface &redirect, int longestWaitSeconds, QObject *parent)
    : QObject(parent), m_redirect(redirect)
{
    m_limit.setSingleShot(true);
    m_limit.setInterval(longestWaitSeconds * 1000);
    connect(&m_limit, &QTimer::timeout, this, &DeviceSharing::waitedTooLong);
    connect(&redirect, &DevRedirectInterface::sendDevListInfoToVirAppByDevInter, this,
            [this](const QList<ExterDeviceInfo> &devices) { m_fresh = devices; });
    connect(&redirect, &DevRedirectInterface::shareDeviceResultByInterface, this,
            [this](const ExterDeviceInfo &device, bool success) { shareEnded(device.deviceId, success); });
    connect(&redirect, &DevRedirectInterface::unRedirectDeviceByIdResult, this,
            [this](const ExterDeviceInfo &device, bool success) { takingBackEnded(device.deviceId, success); });
}

void DeviceSharing::report(RedirEvent event, const QByteArray &text)
{
    QMetaObject::invokeMethod(
        this, [this, event, details = QJsonDocument::fromJson(text).object()] { happened(event, details); },
        Qt::QueuedConnection);
}

// Its signal is emitted before the request returns.
std::optional<QList<ExterDeviceInfo>> DeviceSharing::list()
{
    m_fresh.reset();
    Q_EMIT m_redirect.getDevListByVirApp();
    return m_fresh;
}

void DeviceSharing::share(const ExterDeviceInfo &device, const QString &why)
{
    begin(device.deviceId, {device.rdrName == USBRDR ? Wait::ShareByEvent : Wait::Share, why});
    m_redirect.redirectDeviceById(device);
}

void DeviceSharing::takeBack(const ExterDeviceInfo &device)
{
    begin(device.deviceId, {Wait::TakingBack});
    m_redirect.unRedirectDeviceById(device);
}

void DeviceSharing::begin(const QString &deviceId, const Pending &pending)
{
    m_pending.insert(deviceId, pending);
    m_limit.start();
}

// Nothing if nobody waited for it.
std::optional<DeviceSharing::Pending> DeviceSharing::end(const QString &deviceId)
{
    const auto found = m_pending.constFind(deviceId);
    if (found == m_pending.constEnd())
        return std::nullopt;
    std::optional<Pending> ended = *found;
    m_pending.erase(found);
    if (m_pending.isEmpty())
        m_limit.stop();
    return ended;
}

void DeviceSharing::settleIfDone()
{
    if (m_pending.isEmpty())
        Q_EMIT settled();
}

void DeviceSharing::waitedTooLong()
{
    const QString reason = QStringLiteral("no outcome within %1 seconds").arg(m_limit.interval() / 1000);
    const QHash<QString, Pending> waiting = std::exchange(m_pending, {});
    for (auto one = waiting.begin(); one != waiting.end(); ++one) {
        if (one->wait == Wait::TakingBack)
            Q_EMIT deviceNotTakenBack(one.key(), reason);
        else
            Q_EMIT deviceNotShared(one.key(), reason);
    }
    settleIfDone();
}

// Also for what somebody else has asked the library for.
void DeviceSharing::shareEnded(const QString &deviceId, bool success)
{
    const std::optional<Pending> asked = end(deviceId);
    const QString failure = m_failures.take(deviceId);
    if (success && (asked || !m_shared.contains(deviceId))) {
        m_shared.insert(deviceId);
        Q_EMIT deviceShared(deviceId, asked.value_or(Pending()).why);
    } else if (!success && asked) {
        Q_EMIT deviceNotShared(deviceId, failure.isEmpty() ? QStringLiteral("the component refused") : failure);
    }
    settleIfDone();
}

void DeviceSharing::takingBackEnded(const QString &deviceId, bool success)
{
    const bool asked = end(deviceId).has_value();
    const bool wasShared = m_shared.contains(deviceId);
    if (success && (asked || wasShared)) {
        m_shared.remove(deviceId);
        Q_EMIT deviceTakenBack(deviceId, {});
    } else if (!success && asked) {
        Q_EMIT deviceNotTakenBack(
            deviceId, wasShared ? QStringLiteral("the component refused") : QStringLiteral("it was not shared"));
    }
    settleIfDone();
}

void DeviceSharing::happened(RedirEvent event, const QJsonObject &details)
{
    const QString deviceId = details.value(QLatin1String("deviceId")).toString();
    const bool isOutcome = m_pending.value(deviceId).wait == Wait::ShareByEvent;
    switch (event) {
    case RedirEventDeviceArrived:
        Q_EMIT deviceArrived(deviceId, details);
        break;
    case RedirEventDeviceLeft:
        Q_EMIT deviceLeft(deviceId, details);
        if (isPending(deviceId))
            m_failures.insert(deviceId, QStringLiteral("it was pulled out"));
        else
            m_failures.remove(deviceId); // what comes back begins anew
        if (isOutcome) // no other will come
            shareEnded(deviceId, false);
        break;
    case RedirEventChannelLost:
        Q_EMIT channelLost(deviceId, details);
        break;
    case RedirEventShareFailed:
        m_failures.insert(deviceId, details.value(QLatin1String("text")).toString());
        if (isOutcome)
            shareEnded(deviceId, false);
        break;
    case RedirEventShared:
        if (isOutcome || !isPending(deviceId)) // or it has come back to the channel that it had
            shareEnded(deviceId, true);
        break;
    case RedirEventUnshared:
        if (m_shared.remove(deviceId) && !isPending(deviceId))
            Q_EMIT deviceTakenBack(deviceId, details);
        break;
    }
    if (event != RedirEventShareFailed)
        m_redirect.getDeviceListFromUniqueFrame();
}
