// SPDX-License-Identifier: LGPL-2.1-or-later

// Requests, one after the other. Each one is answered, whatever becomes of those before it.

#include "host.h"

namespace {
const QString All = QStringLiteral("all");
} // namespace

const Host::Request Host::Requests[] = {
    {"list", false, false, &Host::list},          {"explain", true, false, &Host::explain},
    {"stats", false, false, &Host::statistics},   {"rules", true, false, &Host::testRules},
    {"share", true, true, &Host::shareDevices},   {"unshare", true, false, &Host::unshareDevices},
    {"quit", false, false, &Host::quitByRequest},
};

// Null if it cannot be understood.
const Host::Request *Host::understand(const QString &line, QString &which)
{
    const QString word = line.section(QLatin1Char(' '), 0, 0);
    which = line.section(QLatin1Char(' '), 1).trimmed();
    for (const Request &known : Requests) {
        if (word == QLatin1String(known.word) && known.takesDevice == !which.isEmpty())
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

void Host::runNext()
{
    if (m_leaving || !m_current.isEmpty() || !hasStarted())
        return;
    if (hasOpenChannel())
        m_startLimit.stop();
    if (m_requests.isEmpty()) {
        if (!m_expectMore && !m_options.watch && !m_options.autoShare && m_shared.isEmpty())
            leave(ExitCode::Success);
        return;
    }
    QString which;
    const Request *const next = understand(m_requests.first(), which);
    const bool needsChannel = next && next->needsChannel;
    if (needsChannel && !hasOpenChannel() && m_startLimit.isActive())
        return; // one may still come

    m_current = m_requests.takeFirst();
    m_requestLimit.start();
    if (!next)
        requestFailed(
            QStringLiteral(
                "not understood: %1 (list, explain ID, stats, rules test ID, share ID|all, unshare ID|all, quit)")
                .arg(m_current),
            QString());
    else if (needsChannel && !m_hadChannel)
        requestFailed(QStringLiteral("not shared: %1: %2").arg(which, QLatin1String(NoChannelText)), which,
                      ExitCode::NoChannel);
    else
        (this->*next->run)(which);
    finishedPart();
}

// The list that comes through the map callback may have been fetched before the last plug. This one is fetched while we
// wait, and its signal is emitted before the request returns; without a signal the component gave none.
std::optional<QList<ExterDeviceInfo>> Host::listNow()
{
    m_fresh.reset();
    Q_EMIT m_redirect->getDevListByVirApp();
    return m_fresh;
}

void Host::list(const QString &)
{
    if (const auto devices = listNow())
        m_output.list(*devices);
    else
        requestFailed(QStringLiteral("no list: the component gives none"), QString());
}

void Host::shareDevices(const QString &which)
{
    const auto chosen =
        choose(which, false, QStringLiteral("not shared: %1: no such device; \"list\" shows what there is"));
    for (const ExterDeviceInfo &device : chosen)
        m_redirect->redirectDeviceById(device);
}

void Host::unshareDevices(const QString &which)
{
    const auto chosen = choose(which, true, QStringLiteral("not unshared: %1: no such device"));
    for (const ExterDeviceInfo &device : chosen)
        m_redirect->unRedirectDeviceById(device);
}

void Host::quitByRequest(const QString &)
{
    leave(ExitCode::Success);
}

// The device, or all that are shared or not; their outcomes are waited for. That there is none is said here.
QList<ExterDeviceInfo> Host::choose(const QString &which, bool shared, const QString &failure)
{
    const QList<ExterDeviceInfo> devices = listNow().value_or(QList<ExterDeviceInfo>());
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
    for (const ExterDeviceInfo &device : qAsConst(chosen))
        m_pending.insert(device.deviceId);
    return chosen;
}

void Host::requestFailed(const QString &text, const QString &deviceId, int exitCode)
{
    noteExitCode(exitCode);
    m_output.tell(Event::Failed, text, {{QStringLiteral("deviceId"), deviceId}});
}

// One part of the current request is done; the next one runs when all are.
void Host::finishedPart()
{
    if (!m_pending.isEmpty() || m_current.isEmpty())
        return;
    m_current.clear();
    m_requestLimit.stop();
    QMetaObject::invokeMethod(this, &Host::runNext, Qt::QueuedConnection);
}

void Host::timedOut()
{
    for (const QString &deviceId : qAsConst(m_pending))
        requestFailed(QStringLiteral("%1: no outcome within %2 seconds")
                          .arg(m_current, QString::number(m_options.timeoutSeconds)),
                      deviceId);
    m_pending.clear();
    finishedPart();
}
