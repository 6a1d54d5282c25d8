// SPDX-License-Identifier: LGPL-2.1-or-later

// Requests, one after the other. Each one is answered, whatever becomes of those before it.

#include "host.h"
#include "reference/client/componentcommand.h"

#include <algorithm>
#include <utility>

namespace {

const QString All = QStringLiteral("all");

QString whatKeeps(const QString &deviceId)
{
    const QJsonObject obstacle = obstacleTo(deviceId);
    return obstacle.isEmpty()
        ? QString()
        : QStringLiteral("%1. What helps: %2")
              .arg(obstacle.value(QLatin1String("text")).toString(), obstacle.value(QLatin1String("cure")).toString());
}

} // namespace

const Host::Request Host::Requests[] = {
    {"list", false, Channel::Any, &Host::list},
    {"explain", true, Channel::Awaited, &Host::explain},
    {"stats", false, Channel::Any, &Host::statistics},
    {"rules", true, Channel::Any, &Host::testRules},
    {"share --wait", true, Channel::Any, &Host::shareWhenPossible},
    {"share", true, Channel::Needed, &Host::shareDevices},
    {"unshare", true, Channel::Any, &Host::unshareDevices},
    {"quit", false, Channel::Any, &Host::quitByRequest},
};

// Null if it cannot be understood.
const Host::Request *Host::understand(const QString &line, QString &which)
{
    for (const Request &known : Requests) {
        const QString word = QString::fromUtf8(known.word);
        which = line.mid(word.size()).trimmed();
        if ((line + QLatin1Char(' ')).startsWith(word + QLatin1Char(' ')) && known.takesDevice == !which.isEmpty())
            return &known;
    }
    return nullptr;
}

void Host::request(const QString &line)
{
    m_requests.append(line.trimmed());
    runNext();
}

void Host::noMoreRequests()
{
    m_expectMore = false;
    runNext();
}

// Each request waits for the outcome of those before it.
void Host::runNext()
{
    if (m_isLeaving || !m_client || !m_client->isReady() || m_client->devices().hasPending())
        return;
    const bool hasOpenChannel = m_client->openChannels() > 0;
    if (hasOpenChannel)
        m_startLimit.stop();
    if (m_requests.isEmpty()) {
        const bool isDone =
            m_client->devices().shared().isEmpty() && !m_client->autoShare().isWaiting() && m_waiting.isEmpty();
        if (!m_expectMore && !m_options.watch && !m_options.autoShare && !m_options.reconnect && isDone)
            leave(ExitCode::Success);
        return;
    }
    QString which;
    const Request *const next = understand(m_requests.first(), which);
    const Channel channel = next ? next->channel : Channel::Any;
    if (channel != Channel::Any && !hasOpenChannel && m_startLimit.isActive())
        return; // one may still come

    const QString line = m_requests.takeFirst();
    if (!next)
        requestFailed(QStringLiteral("not understood: %1 (list, explain ID, stats, rules test ID, share [--wait] "
                                     "ID|all, unshare ID|all, quit)")
                          .arg(line),
                      QString());
    else if (channel == Channel::Needed && !m_client->hasHadChannel())
        requestFailed(QStringLiteral("not shared: %1: %2").arg(which, QLatin1String(NoChannelText)), which,
                      ExitCode::NoChannel);
    else
        (this->*next->run)(which);
    runSoon();
}

void Host::runSoon()
{
    QMetaObject::invokeMethod(this, &Host::runNext, Qt::QueuedConnection);
}

void Host::list(const QString &)
{
    if (const auto devices = m_client->devices().list())
        m_output.list(*devices);
    else
        requestFailed(QStringLiteral("no list: the component gives none"), QString());
}

void Host::shareDevices(const QString &which)
{
    const auto chosen =
        choose(which, false, QStringLiteral("not shared: %1: no such device; \"list\" shows what there is"));
    for (const ExterDeviceInfo &device : chosen)
        m_client->devices().share(device);
}

void Host::shareWhenPossible(const QString &which)
{
    if (which != All)
        m_waiting.insert(which, QString());
    for (const ExterDeviceInfo &device : which == All ? choose(All, false, QString()) : QList<ExterDeviceInfo>())
        m_waiting.insert(device.deviceId, QString());
    shareWaiting();
}

// Looks whether something still keeps the devices that wait.
void Host::shareWaiting()
{
    if (m_waiting.isEmpty() || !m_client->isReady())
        return;
    const QList<ExterDeviceInfo> devices = m_client->devices().list().value_or(QList<ExterDeviceInfo>());
    for (auto waiting = m_waiting.begin(); waiting != m_waiting.end();) {
        const QString &deviceId = waiting.key();
        const auto device = std::find_if(devices.begin(), devices.end(),
                                         [&](const ExterDeviceInfo &one) { return one.deviceId == deviceId; });
        const QString obstacle = device == devices.end() ? QStringLiteral("it is not plugged in") : whatKeeps(deviceId);
        if (obstacle.isEmpty()) {
            m_client->devices().share(*device);
            waiting = m_waiting.erase(waiting);
            continue;
        }
        if (std::exchange(*waiting, obstacle) != obstacle)
            m_output.tell(Event::Waiting, QStringLiteral("waiting to share %1: %2").arg(deviceId, obstacle),
                          {{QStringLiteral("deviceId"), deviceId}});
        ++waiting;
    }
}

void Host::unshareDevices(const QString &which)
{
    const auto chosen = choose(which, true, QStringLiteral("not unshared: %1: no such device"));
    for (const ExterDeviceInfo &device : chosen)
        m_client->devices().takeBack(device);
}

void Host::quitByRequest(const QString &)
{
    leave(ExitCode::Success);
}

// The device, or all that are shared or not. That there is none is said here.
QList<ExterDeviceInfo> Host::choose(const QString &which, bool shared, const QString &failure)
{
    const QList<ExterDeviceInfo> devices = m_client->devices().list().value_or(QList<ExterDeviceInfo>());
    QList<ExterDeviceInfo> chosen;
    for (const ExterDeviceInfo &device : devices) {
        if (which == All ? (device.status != 0) == shared : device.deviceId == which)
            chosen.append(device);
    }
    if (chosen.isEmpty() && which == All)
        m_output.tell(Event::Nothing,
                      shared ? QStringLiteral("nothing to take back") : QStringLiteral("nothing to share"));
    else if (chosen.isEmpty())
        requestFailed(failure.arg(which), which);
    return chosen;
}

void Host::requestFailed(const QString &text, const QString &deviceId, int exitCode)
{
    noteExitCode(exitCode);
    m_output.tell(Event::Failed, text, {{QStringLiteral("deviceId"), deviceId}});
}
