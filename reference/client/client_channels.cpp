// SPDX-License-Identifier: LGPL-2.1-or-later

// The channels of the virtual machine that the component takes.

#include "client.h"

#include "interface/devredirectinterface.h"
#include "worker/portchannelglue.h"

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

void Client::portFound(SpicePortChannel *channel, const QString &name, bool isOpened)
{
    if (m_isLeaving)
        return;
    Q_EMIT m_redirect->checkRedirChannelByThread(channel, name, isOpened);
    if (!isComponents(channel))
        return;
    m_hasHadChannel = true;
    m_channels.insert(channel, isOpened);
    tellChannel(name, isOpened);
}

void Client::portChanged(SpicePortChannel *channel, const QString &name, bool isOpened)
{
    const auto known = m_channels.find(channel);
    if (m_isLeaving || known == m_channels.end() || *known == isOpened)
        return;
    *known = isOpened;
    tellChannel(name, isOpened);
}

void Client::tellChannel(const QString &name, bool isOpened)
{
    Q_EMIT channelChanged(name, isOpened);
    if (isOpened && m_hasListed && !m_isLeaving)
        m_autoShare->channelOpened();
}
