// SPDX-License-Identifier: LGPL-2.1-or-later

// What becomes of requests, and what happens without one. A request that the library has taken is not its outcome: that
// comes as a signal, or for a "usbrdr" device as an event of the component.

#include "host.h"
#include "reference/client/componentcommand.h"

#include <QJsonDocument>

void Host::connectResults()
{
    connect(m_redirect.get(), &DevRedirectInterface::sendDevListInfoToVirAppByDevInter, this,
            [this](const QList<ExterDeviceInfo> &devices) { m_fresh = devices; });
    connect(m_redirect.get(), &DevRedirectInterface::shareDeviceResultByInterface, this,
            [this](const ExterDeviceInfo &device, bool success) { shareEnded(device.deviceId, success); });
    connect(m_redirect.get(), &DevRedirectInterface::unRedirectDeviceByIdResult, this,
            [this](const ExterDeviceInfo &device, bool success) { unshareEnded(device.deviceId, success); });
    connect(m_redirect.get(), &DevRedirectInterface::unRedirectDeviceAllResult, this, &Host::beginFarewell);
}

void Host::shareEnded(const QString &deviceId, bool success)
{
    if (success) {
        m_shared.insert(deviceId);
        m_failures.remove(deviceId);
        m_output.tell(Event::Shared, QStringLiteral("shared: ") + deviceId, {{QStringLiteral("deviceId"), deviceId}});
    } else {
        requestFailed(
            QStringLiteral("not shared: %1: %2%3")
                .arg(deviceId, m_failures.value(deviceId, QStringLiteral("the component refused")), cureFor(deviceId)),
            deviceId);
    }
    m_pending.remove(deviceId);
    finishedPart();
}

void Host::unshareEnded(const QString &deviceId, bool success)
{
    if (success) {
        m_shared.remove(deviceId);
        m_output.tell(Event::Unshared, QStringLiteral("unshared: ") + deviceId,
                      {{QStringLiteral("deviceId"), deviceId}});
    } else {
        requestFailed(QStringLiteral("not unshared: %1: %2")
                          .arg(deviceId,
                               m_shared.contains(deviceId) ? QStringLiteral("the component refused")
                                                           : QStringLiteral("it was not shared")),
                      deviceId);
    }
    m_pending.remove(deviceId);
    finishedPart();
}

void Host::componentReported(RedirEvent event, const QByteArray &text)
{
    if (!m_redirect)
        return;
    const QJsonObject details = QJsonDocument::fromJson(text).object();
    const QString deviceId = details.value(QLatin1String("deviceId")).toString();
    switch (event) {
    case RedirEventDeviceArrived:
        m_unjudged.insert(deviceId);
        m_output.tell(Event::Arrived, QStringLiteral("plugged in: ") + deviceId, details);
        break;
    case RedirEventDeviceLeft:
        m_unjudged.remove(deviceId);
        m_output.tell(Event::Left, QStringLiteral("pulled out: ") + deviceId, details);
        break;
    case RedirEventChannelLost:
        m_output.tell(Event::ChannelLost, QStringLiteral("channel lost: ") + deviceId, details);
        if (m_options.restore && m_shared.contains(deviceId))
            m_lost.insert(deviceId);
        break;
    case RedirEventShareFailed:
        m_failures.insert(deviceId, details.value(QLatin1String("text")).toString());
        break;
    case RedirEventShared:
    case RedirEventUnshared:
        break;
    }

    // The outcome of a "usbrdr" share is this event; of any other class the library tells it by a signal.
    const bool isOutcome = (event == RedirEventShared || event == RedirEventShareFailed) && m_pending.contains(deviceId)
        && m_redirect->getDeviceInfo(deviceId).rdrName == USBRDR;
    const bool isUnasked = !m_pending.contains(deviceId);
    if (isOutcome)
        shareEnded(deviceId, event == RedirEventShared);
    else if (event == RedirEventShared && isUnasked && !m_shared.contains(deviceId))
        shareEnded(deviceId, true); // it has come back to the channel that it had
    else if (event == RedirEventUnshared && m_shared.remove(deviceId) && isUnasked)
        m_output.tell(Event::Unshared, QStringLiteral("unshared: ") + deviceId, details);

    if (event != RedirEventShareFailed && !m_leaving)
        m_redirect->getDeviceListFromUniqueFrame();
    runNext();
}
