// SPDX-License-Identifier: LGPL-2.1-or-later

// The channels of the virtual machine that the component takes, and what is shared on them by rule.

#include "host.h"

#include "reference/client/rulesfile.h"
#include "worker/portchannelglue.h"

#include <utility>

namespace {

// Which names are the component's own only the component knows. The library has joined such a channel to it, and logs
// the others and leaves them alone.
bool isComponents(SpicePortChannel *channel)
{
    return g_signal_handler_find(channel, G_SIGNAL_MATCH_FUNC, 0, 0, nullptr, reinterpret_cast<gpointer>(onPortEvent),
                                 nullptr)
        != 0;
}

} // namespace

void Host::portFound(SpicePortChannel *channel, const QString &name, bool isOpened)
{
    if (m_leaving)
        return;
    Q_EMIT m_redirect->checkRedirChannelByThread(channel, name, isOpened);
    if (!isComponents(channel))
        return;
    m_hadChannel = true;
    m_channels.insert(channel, isOpened);
    tellChannel(name, isOpened);
}

void Host::portChanged(SpicePortChannel *channel, const QString &name, bool isOpened)
{
    const auto known = m_channels.find(channel);
    if (m_leaving || known == m_channels.end() || *known == isOpened)
        return;
    *known = isOpened;
    tellChannel(name, isOpened);
}

void Host::tellChannel(const QString &name, bool isOpened)
{
    m_output.tell(
        Event::Channel,
        QStringLiteral("channel: %1 (%2)").arg(name, isOpened ? QStringLiteral("open") : QStringLiteral("closed")),
        {{QStringLiteral("name"), name}, {QStringLiteral("open"), isOpened}});
    restoreShares();
    shareByRules();
    runNext();
}

void Host::restoreShares()
{
    if (!hasOpenChannel())
        return;
    for (const QString &deviceId : std::exchange(m_lost, {}))
        request(QStringLiteral("share ") + deviceId);
}

// Each device is looked at once for each plug: one that the user takes back stays where it is.
void Host::shareByRules()
{
    if (!m_options.autoShare || !hasOpenChannel() || m_unjudged.isEmpty() || m_leaving)
        return;
    for (const ExterDeviceInfo &device : listNow().value_or(QList<ExterDeviceInfo>())) {
        const bool isUnjudged = m_unjudged.remove(device.deviceId);
        const DeviceRule *const rule = m_rules.firstThatFits(traitsOf(device));
        if (isUnjudged && rule && rule->allow)
            request(QStringLiteral("share ") + device.deviceId);
    }
}
