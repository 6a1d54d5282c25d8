// SPDX-License-Identifier: LGPL-2.1-or-later

// The end: take the devices back, and leave the virtual machine's SPICE server in order. QEMU ends when a client goes
// while a channel of it is still connecting, or while QEMU answers the client's last message.

#include "host.h"

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
    answerTheRest();
    if (m_shared.isEmpty() && m_pending.isEmpty()) {
        waitForChannels();
        return;
    }
    m_output.tell(Event::Leaving, QStringLiteral("taking back %1 devices").arg(m_shared.size()));
    QTimer::singleShot(m_requestLimit.interval(), this, &Host::waitForChannels);
    m_redirect->unRedirectDeviceAll();
}

void Host::answerTheRest()
{
    for (const QString &line : qAsConst(m_requests))
        requestFailed(QStringLiteral("not done: ") + line, QString());
    m_requests.clear();
}

void Host::waitForChannels()
{
    if (!m_leaving || m_leaveLimit.isActive())
        return;
    m_leaveLimit.start(LongestFarewellMilliseconds);
    m_writing.start(LookMilliseconds);
}

// Nobody tells when the last byte is written.
void Host::waitUntilWritten()
{
    if (m_session.isLinking())
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
