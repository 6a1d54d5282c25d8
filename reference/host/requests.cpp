// SPDX-License-Identifier: LGPL-2.1-or-later

// Requests and their outcomes. A request that the library has taken is not its outcome: that comes as a signal, or for
// a "usbrdr" device as an event of the component.

#include "host.h"

#include <QJsonDocument>

namespace {
const QString All = QStringLiteral("all");
} // namespace

void Host::connectResults()
{
    connect(m_redirect.get(), &DevRedirectInterface::sendDevListInfoToVirAppByDevInter, this,
            [this](const QList<ExterDeviceInfo> &devices) { m_fresh = devices; });
    connect(m_redirect.get(), &DevRedirectInterface::shareDeviceResultByInterface, this,
            [this](const ExterDeviceInfo &device, bool success) { shareEnded(device.deviceId, success); });
    connect(m_redirect.get(), &DevRedirectInterface::unRedirectDeviceByIdResult, this,
            [this](const ExterDeviceInfo &device, bool success) { unshareEnded(device.deviceId, success); });
}

bool Host::request(const QString &line)
{
    const QString text = line.simplified();
    const QString word = text.section(QLatin1Char(' '), 0, 0);
    const QString which = text.section(QLatin1Char(' '), 1);
    const bool needsDevice = word == QLatin1String("share") || word == QLatin1String("unshare");
    if (!(needsDevice && !which.isEmpty()) && text != QLatin1String("list"))
        return false;
    if (!m_requests.contains(text) && m_current != text)
        m_requests.append(text);
    if (m_redirect)
        runNext();
    return true;
}

void Host::noMoreRequests()
{
    m_expectMore = false;
    runNext();
}

void Host::runNext()
{
    if (m_leaving || !m_current.isEmpty() || !m_listed)
        return;
    if (m_requests.isEmpty()) {
        m_deadline.stop();
        if (!m_expectMore && !m_options.watch && !m_options.autoShare && m_shared.isEmpty())
            leave(ExitCode::Success);
        return;
    }
    const bool needsChannel = m_requests.first().startsWith(QLatin1String("share"));
    if (needsChannel && !m_channelBound)
        return; // the deadline of the start is still running

    m_current = m_requests.takeFirst();
    m_deadline.start();
    const QString which = m_current.section(QLatin1Char(' '), 1);
    if (m_current == QLatin1String("list")) {
        m_output.list(listNow());
        finishedPart();
    } else if (needsChannel) {
        shareDevices(which);
    } else {
        unshareDevices(which);
    }
}

// The list that comes through the map callback may have been fetched before the last plug. This one is fetched while we
// wait, and its signal is emitted before the request returns.
QList<ExterDeviceInfo> Host::listNow()
{
    m_fresh.clear();
    Q_EMIT m_redirect->getDevListByVirApp();
    return m_fresh;
}

void Host::shareDevices(const QString &which)
{
    QList<ExterDeviceInfo> chosen;
    for (const ExterDeviceInfo &device : listNow()) {
        if (which == All ? device.status == 0 : device.deviceId == which)
            chosen.append(device);
    }
    if (chosen.isEmpty() && which != All)
        requestFailed(QStringLiteral("no device %1; \"list\" shows what there is").arg(which), which);
    for (const ExterDeviceInfo &device : qAsConst(chosen))
        m_pending.insert(device.deviceId);
    for (const ExterDeviceInfo &device : qAsConst(chosen))
        m_redirect->redirectDeviceById(device);
    finishedPart();
}

void Host::unshareDevices(const QString &which)
{
    const QStringList chosen = which == All ? m_shared.values() : QStringList(which);
    for (const QString &deviceId : chosen)
        m_pending.insert(deviceId);
    for (const QString &deviceId : chosen)
        m_redirect->deviceOperate(deviceId, QStringLiteral("unshare"));
    finishedPart();
}

void Host::shareEnded(const QString &deviceId, bool success)
{
    if (success) {
        m_shared.insert(deviceId);
        m_failures.remove(deviceId);
        m_output.tell("shared", QStringLiteral("shared: %1").arg(deviceId), {{QStringLiteral("deviceId"), deviceId}});
    } else {
        requestFailed(QStringLiteral("not shared: %1: %2")
                          .arg(deviceId, m_failures.value(deviceId, QStringLiteral("the component refused"))),
                      deviceId);
    }
    m_pending.remove(deviceId);
    finishedPart();
}

void Host::unshareEnded(const QString &deviceId, bool success)
{
    m_shared.remove(deviceId);
    if (success)
        m_output.tell("unshared", QStringLiteral("unshared: %1").arg(deviceId),
                      {{QStringLiteral("deviceId"), deviceId}});
    else
        requestFailed(QStringLiteral("not unshared: %1: it was not shared").arg(deviceId), deviceId);
    m_pending.remove(deviceId);
    finishedPart();
}

void Host::requestFailed(const QString &text, const QString &deviceId)
{
    m_exitCode = ExitCode::RequestFailed;
    m_output.tell("failed", text, {{QStringLiteral("deviceId"), deviceId}});
}

// One part of the current request is done; the next one runs when all are.
void Host::finishedPart()
{
    if (!m_pending.isEmpty() || m_current.isEmpty())
        return;
    m_current.clear();
    m_deadline.stop();
    QMetaObject::invokeMethod(this, &Host::runNext, Qt::QueuedConnection);
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
        m_output.tell("arrived", QStringLiteral("plugged in: %1").arg(deviceId), details);
        break;
    case RedirEventDeviceLeft:
        m_unjudged.remove(deviceId);
        m_output.tell("left", QStringLiteral("pulled out: %1").arg(deviceId), details);
        break;
    case RedirEventChannelLost:
        m_output.tell("channel lost", QStringLiteral("channel lost: %1").arg(deviceId), details);
        break;
    case RedirEventShareFailed:
        m_failures.insert(deviceId, details.value(QLatin1String("text")).toString());
        break;
    case RedirEventShared:
    case RedirEventUnshared:
        break;
    }

    // The outcome of a "usbrdr" share is this event; of any other class the library tells it by a signal.
    const ExterDeviceInfo device = m_redirect->getDeviceInfo(deviceId);
    const bool isOutcome = device.rdrName == USBRDR && m_pending.contains(deviceId);
    if (event == RedirEventShared && isOutcome)
        shareEnded(deviceId, true);
    else if (event == RedirEventShareFailed && isOutcome)
        shareEnded(deviceId, false);
    else if (event == RedirEventUnshared && m_shared.remove(deviceId) && !m_pending.contains(deviceId))
        m_output.tell("unshared", QStringLiteral("unshared: %1").arg(deviceId), details);

    if (event != RedirEventShareFailed && !m_leaving)
        m_redirect->getDeviceListFromUniqueFrame();
    runNext();
}
