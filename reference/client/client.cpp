// SPDX-License-Identifier: LGPL-2.1-or-later

// The start: load the component, and connect.

#include "client.h"

#include "interface/devredirectinterface.h"
#include "journal.h"

#include <QCoreApplication>

#include <spice-client.h> // a connection to a signal needs its arguments' types

namespace {

Client *theClient = nullptr; // the map callback is a plain function

constexpr int FirstPauseSeconds = 1; // before the connection is made again; each further one is twice as long
constexpr int LongestPauseSeconds = 30;

} // namespace

Client::Client(const Settings &settings, QObject *parent) : QObject(parent), m_settings(settings)
{
    theClient = this;
    for (QTimer *timer : {&m_connectAgain, &m_connectLimit, &m_leaveLimit})
        timer->setSingleShot(true);
    connect(&m_connectAgain, &QTimer::timeout, this, &Client::connectNow);
    m_connectLimit.setInterval(m_settings.timeoutSeconds * 1000);
    connect(&m_connectLimit, &QTimer::timeout, this, [this] {
        m_session.stopConnecting();
        sessionClosed(SpicePortSession::End::Unreachable,
                      QStringLiteral("no answer within %1 seconds").arg(m_settings.timeoutSeconds));
    });
    connect(&m_writing, &QTimer::timeout, this, &Client::waitUntilWritten);
    connect(&m_leaveLimit, &QTimer::timeout, this, &Client::end);
    connect(&m_session, &SpicePortSession::connected, this, &Client::sessionConnected);
    connect(&m_session, &SpicePortSession::closed, this, &Client::sessionClosed);
    connect(&m_session, &SpicePortSession::portFound, this, &Client::portFound);
    connect(&m_session, &SpicePortSession::portChanged, this, &Client::portChanged);
    connect(&m_session, &SpicePortSession::portGone, this, [this](SpicePortChannel *channel) {
        if (m_channels.remove(channel))
            Q_EMIT channelGone();
    });
    connect(&m_session, &SpicePortSession::left, this, &Client::end);
}

Client::~Client()
{
    theClient = nullptr;
    m_session.disconnect(this);
    releaseComponent();
}

bool Client::start(QString &error)
{
    m_redirect = std::make_unique<DevRedirectInterface>(nullptr);
    m_devices = std::make_unique<DeviceSharing>(*m_redirect, m_settings.timeoutSeconds);
    connect(m_devices.get(), &DeviceSharing::deviceShared, this, &Client::deviceShared);
    m_autoShare = std::make_unique<AutoShare>(*m_devices);
    m_autoShare->setRestoring(m_settings.restore);
    connect(m_redirect.get(), &DevRedirectInterface::unRedirectDeviceAllResult, this, &Client::beginFarewell);
    error = startComponent();
    if (!error.isEmpty())
        return false;
    m_redirect->getDeviceListFromUniqueFrame();
    if (m_settings.address)
        connectNow();
    return true;
}

// Empty, or what went wrong.
QString Client::startComponent()
{
    m_redirect->setQuitFlag(false); // of a client before this one
    m_redirect->setClientParam({QString(), m_settings.address ? m_settings.address->host : QString()});
    m_redirect->sendMapCommandByDevModel(&Client::onDeviceList);
    m_redirect->setNotifyEventCallback(
        [devices = m_devices.get()](void *, RedirEvent event, const char *text, int length) {
            devices->report(event, QByteArray(text, length));
        });
    Q_EMIT m_redirect->loadDynamicLib();
    if (!m_redirect->isComponentLoaded())
        return QStringLiteral("the component is not loaded: %1. What helps: install devredir-component-usb")
            .arg(m_redirect->componentLoadError());
    Q_EMIT m_redirect->loadDevRedirComponentByThread(m_settings.vmId);
    if (!m_redirect->isComponentStarted())
        return QStringLiteral("the component does not start: is %1/Device Redirect/config.json there, and can it be "
                              "read? The log has the reason")
            .arg(QCoreApplication::applicationDirPath());
    return {};
}

void Client::deviceShared(const QString &deviceId, const QString &why)
{
    tellJournal(m_redirect->getDeviceInfo(deviceId), m_settings.address ? m_settings.address->uri : m_settings.vmId,
                why.isEmpty() ? QStringLiteral("come back to its channel") : why);
}

void Client::onDeviceList(QList<ExterDeviceInfo> &devices)
{
    if (!theClient)
        return;
    theClient->m_hasListed = true;
    Q_EMIT theClient->listed(devices);
    if (!theClient->m_isLeaving)
        theClient->m_autoShare->devicesListed(devices, theClient->openChannels() > 0);
}

void Client::connectNow()
{
    m_connectLimit.start();
    m_session.connectTo(*m_settings.address);
}

void Client::connectAgain(const QString &password)
{
    if (!password.isEmpty())
        m_settings.address->password = password;
    QTimer::singleShot(0, this, &Client::connectNow); // once the session is done with the connection before
}

void Client::sessionConnected(const QString &localAddress)
{
    if (m_isLeaving)
        return;
    m_isConnected = true;
    m_connectLimit.stop();
    m_redirect->setClientParam({localAddress, m_settings.address->host});
    Q_EMIT connected();
}

// What has never been there may be wrong; what was there may come back.
bool Client::connectsAgain(SpicePortSession::End end) const
{
    const bool hadConnection = m_isConnected || m_connectAgain.interval() > 0;
    const bool mayComeBack = end == SpicePortSession::End::Lost || end == SpicePortSession::End::Unreachable;
    return m_settings.reconnect && hadConnection && mayComeBack;
}

void Client::sessionClosed(SpicePortSession::End end, const QString &reason)
{
    if (m_isLeaving)
        return;
    m_connectLimit.stop();
    const bool wasConnected = m_isConnected;
    const bool again = connectsAgain(end);
    m_isConnected = false;
    if (again) {
        const int pause =
            wasConnected ? FirstPauseSeconds : qMin(2 * m_connectAgain.interval() / 1000, LongestPauseSeconds);
        m_connectAgain.start(pause * 1000);
        Q_EMIT connectionLost(reason, pause);
    } else if (wasConnected) {
        Q_EMIT connectionLost(reason, 0);
    } else {
        Q_EMIT notConnected(end, reason);
    }
}
