// SPDX-License-Identifier: LGPL-2.1-or-later

// What happens without a request, and what became of one.

#include "host.h"
#include "reference/client/componentcommand.h"

#include <spice-client.h> // a connection to a signal needs its arguments' types

namespace {

QJsonObject only(const QString &deviceId)
{
    return {{QStringLiteral("deviceId"), deviceId}};
}

} // namespace

void Host::eachSecond()
{
    if (!m_isLeaving)
        shareWaiting();
    if (m_showsSpeeds && !m_isLeaving && m_client->isReady())
        showStatistics(true);
    const QString waitsFor = this->waitsFor();
    if (std::exchange(m_waitsFor, waitsFor) != waitsFor)
        m_waitsSince.start();
    m_output.progress(waitsFor.isEmpty()
                          ? waitsFor
                          : QStringLiteral("%1 … %2 s").arg(waitsFor).arg((m_waitsSince.elapsed() + 500) / 1000));
}

QString Host::waitsFor() const
{
    if (m_isLeaving)
        return QStringLiteral("leaving");
    if (!m_client->isReady())
        return m_client->settings().address ? QStringLiteral("connecting") : QStringLiteral("asking for the list");
    if (m_client->devices().hasPending())
        return QStringLiteral("waiting for the outcome");
    if (!m_requests.isEmpty())
        return QStringLiteral("waiting for a channel of the virtual machine");
    return m_waiting.isEmpty() ? QString() : QStringLiteral("waiting to share");
}

void Host::tellOfClient()
{
    connect(m_client.get(), &Client::connected, this, &Host::connected);
    connect(m_client.get(), &Client::notConnected, this, &Host::notConnected);
    connect(m_client.get(), &Client::connectionLost, this, &Host::connectionLost);
    connect(m_client.get(), &Client::left, this, &Host::quit);
    connect(m_client.get(), &Client::listed, this, [this](const QList<ExterDeviceInfo> &devices) {
        if (!std::exchange(m_hasListed, true)) {
            if (!m_client->settings().address)
                m_startLimit.stop(); // no channel will come
            m_output.tell(Event::Started, QStringLiteral("component: started, %1 devices").arg(devices.size()));
        }
        runSoon();
    });
    connect(m_client.get(), &Client::channelChanged, this, [this](const QString &name, bool isOpened) {
        m_output.tell(
            Event::Channel,
            QStringLiteral("channel: %1 (%2)").arg(name, isOpened ? QStringLiteral("open") : QStringLiteral("closed")),
            {{QStringLiteral("name"), name}, {QStringLiteral("open"), isOpened}});
        runSoon();
    });
    connect(m_client.get(), &Client::takingBack, this, [this](int devices) {
        m_output.tell(Event::Leaving, QStringLiteral("taking back %1 devices").arg(devices));
    });
}

void Host::tellOfDevices()
{
    DeviceSharing *const devices = &m_client->devices();
    connect(devices, &DeviceSharing::deviceShared, this, [this](const QString &deviceId) {
        m_output.tell(Event::Shared, QStringLiteral("shared: ") + deviceId, only(deviceId));
    });
    connect(devices, &DeviceSharing::deviceNotShared, this, [this](const QString &deviceId, const QString &reason) {
        requestFailed(QStringLiteral("not shared: %1: %2%3").arg(deviceId, reason, cureFor(deviceId)), deviceId);
    });
    connect(devices, &DeviceSharing::deviceTakenBack, this, [this](const QString &deviceId, QJsonObject details) {
        const QString reason = details.value(QLatin1String("text")).toString();
        details.insert(QStringLiteral("deviceId"), deviceId);
        m_output.tell(Event::Unshared,
                      QStringLiteral("unshared: ") + deviceId
                          + (reason.isEmpty() ? reason : QStringLiteral(": ") + reason),
                      details);
        runSoon();
    });
    connect(devices, &DeviceSharing::deviceNotTakenBack, this, [this](const QString &deviceId, const QString &reason) {
        requestFailed(QStringLiteral("not unshared: %1: %2").arg(deviceId, reason), deviceId);
    });
    connect(devices, &DeviceSharing::deviceArrived, this, [this](const QString &deviceId, const QJsonObject &details) {
        m_output.tell(Event::Arrived, QStringLiteral("plugged in: ") + deviceId, details);
    });
    connect(devices, &DeviceSharing::deviceLeft, this, [this](const QString &deviceId, const QJsonObject &details) {
        m_output.tell(Event::Left, QStringLiteral("pulled out: ") + deviceId, details);
    });
    connect(devices, &DeviceSharing::channelLost, this, [this](const QString &deviceId, const QJsonObject &details) {
        m_output.tell(Event::ChannelLost, QStringLiteral("channel lost: ") + deviceId, details);
    });
    connect(devices, &DeviceSharing::settled, this, &Host::runSoon);
    connect(&m_client->autoShare(), &AutoShare::stopped, this, [this](const QString &deviceId) {
        m_output.tell(
            Event::Stopped,
            QStringLiteral("not shared by itself: %1: it comes and goes. What helps: another cable or socket, "
                           "or \"share %1\"")
                .arg(deviceId),
            only(deviceId));
    });
}
