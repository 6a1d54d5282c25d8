// SPDX-License-Identifier: LGPL-2.1-or-later

// The end: take the devices back, let what was sent be written, and part from the virtual machine.

#include "host.h"

#include "worker/portchannelglue.h"

#include <QCoreApplication>

namespace {
constexpr int LongestFarewellMilliseconds = 1000;
constexpr int LookMilliseconds = 10;
} // namespace

// What is told last need not be what counts: any other failure says more than that a request failed.
void Host::noteExitCode(int exitCode)
{
    if (m_exitCode == ExitCode::Success || exitCode > ExitCode::RequestFailed)
        m_exitCode = exitCode;
}

void Host::leave(int exitCode)
{
    if (m_leaving)
        return;
    m_leaving = true;
    noteExitCode(exitCode);
    m_startLimit.stop();
    m_requestLimit.stop();
    m_connectAgain.stop();
    answerTheRest();
    if (m_shared.isEmpty() && m_pending.isEmpty()) {
        beginFarewell();
        return;
    }
    m_output.tell(Event::Leaving, QStringLiteral("taking back %1 devices").arg(m_shared.size()));
    QTimer::singleShot(m_requestLimit.interval(), this, &Host::beginFarewell);
    m_redirect->unRedirectDeviceAll();
}

void Host::answerTheRest()
{
    for (const QString &line : qAsConst(m_requests))
        requestFailed(QStringLiteral("not done: ") + line, QString());
    m_requests.clear();
}

void Host::beginFarewell()
{
    if (!m_leaving || m_leaveLimit.isActive())
        return;
    m_leaveLimit.start(LongestFarewellMilliseconds);
    m_writing.start(LookMilliseconds);
}

// Nobody tells when the last byte is written.
void Host::waitUntilWritten()
{
    const auto hasUnwritten = [](const SpicePortChannel *channel) { return devredirectBytesWaiting(channel) > 0; };
    if (std::any_of(m_channels.keyBegin(), m_channels.keyEnd(), hasUnwritten))
        return;
    m_writing.stop();
    releaseComponent();
    m_session.leave();
}

void Host::releaseComponent()
{
    if (!m_redirect)
        return;
    m_redirect->setQuitFlag(true);
    if (m_redirect->isComponentLoaded())
        m_redirect->realeaseDeviceResource();
    m_redirect.reset();
}

void Host::quit()
{
    m_session.disconnect(this);
    m_writing.stop();
    m_leaveLimit.stop();
    releaseComponent();
    m_session.disconnectFromServer();
    m_output.tell(Event::Bye, QStringLiteral("bye"));
    QCoreApplication::exit(m_exitCode);
}
