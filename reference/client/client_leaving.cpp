// SPDX-License-Identifier: LGPL-2.1-or-later

// The end: take the devices back, let what was sent be written, and part from the virtual machine.

#include "client.h"

#include "interface/devredirectinterface.h"
#include "worker/portchannelglue.h"

#include <algorithm>
#include <utility>

namespace {
constexpr int LongestFarewellMilliseconds = 1000;
constexpr int LookMilliseconds = 10;
} // namespace

void Client::leave()
{
    if (m_isLeaving)
        return;
    m_isLeaving = true;
    m_connectAgain.stop();
    m_connectLimit.stop();
    if (!m_devices || (m_devices->shared().isEmpty() && !m_devices->hasPending())) {
        beginFarewell();
        return;
    }
    Q_EMIT takingBack(int(m_devices->shared().size()));
    QTimer::singleShot(m_settings.timeoutSeconds * 1000, this, &Client::beginFarewell);
    m_redirect->unRedirectDeviceAll();
}

void Client::beginFarewell()
{
    if (!m_isLeaving || std::exchange(m_saysFarewell, true))
        return;
    m_leaveLimit.start(LongestFarewellMilliseconds);
    m_writing.start(LookMilliseconds);
}

// Nobody tells when the last byte is written.
void Client::waitUntilWritten()
{
    const auto hasUnwritten = [](const SpicePortChannel *channel) { return devredirectBytesWaiting(channel) > 0; };
    if (std::any_of(m_channels.keyBegin(), m_channels.keyEnd(), hasUnwritten))
        return;
    m_writing.stop();
    releaseComponent();
    m_session.leave();
}

void Client::releaseComponent()
{
    if (!m_redirect)
        return;
    m_redirect->setQuitFlag(true);
    if (m_redirect->isComponentLoaded())
        m_redirect->realeaseDeviceResource();
    m_autoShare.reset();
    m_devices.reset();
    m_redirect.reset();
}

void Client::end()
{
    m_session.disconnect(this);
    m_writing.stop();
    m_leaveLimit.stop();
    releaseComponent();
    m_session.disconnectFromServer();
    Q_EMIT left();
}
