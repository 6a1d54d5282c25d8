// SPDX-License-Identifier: LGPL-2.1-or-later

// The start: load the component, connect, and get the first list.

#include "host.h"

#include <QCoreApplication>

#include <spice-client.h> // a connection to a signal needs its arguments' types

namespace {
Host *theHost = nullptr; // the map callback is a plain function
} // namespace

Host::Host(Options options)
    : m_options(std::move(options)), m_output(m_options.json), m_address(SpiceAddress::parse(m_options.address)),
      m_requests(m_options.requests), m_expectMore(m_options.interactive)
{
    theHost = this;
    for (QTimer *limit : {&m_startLimit, &m_requestLimit}) {
        limit->setSingleShot(true);
        limit->setInterval(m_options.timeoutSeconds * 1000);
    }
    connect(&m_startLimit, &QTimer::timeout, this, &Host::startLimitPassed);
    connect(&m_requestLimit, &QTimer::timeout, this, &Host::timedOut);
    connect(&m_writing, &QTimer::timeout, this, &Host::waitUntilWritten);
    connect(&m_session, &SpicePortSession::connected, this, &Host::connected);
    connect(&m_session, &SpicePortSession::closed, this, &Host::disconnected);
    connect(&m_session, &SpicePortSession::portFound, this, &Host::portFound);
    connect(&m_session, &SpicePortSession::portChanged, this, &Host::portChanged);
    connect(&m_session, &SpicePortSession::portGone, this,
            [this](SpicePortChannel *channel) { m_channels.remove(channel); });
    connect(&m_session, &SpicePortSession::left, this, &Host::quit);
    m_leaveLimit.setSingleShot(true);
    connect(&m_leaveLimit, &QTimer::timeout, this, &Host::quit);
}

Host::~Host()
{
    theHost = nullptr;
}

void Host::start()
{
    if (!m_options.address.isEmpty() && !m_address) {
        m_output.tell(Event::Disconnected,
                      QStringLiteral("this is no address of a virtual machine; one reads spice://HOST:PORT, "
                                     "spice+tls://HOST:PORT or spice+unix:///PATH"));
        leave(ExitCode::NoConnection);
        return;
    }
    if (!loadComponent())
        return;
    m_startLimit.start();
    if (m_address)
        m_session.connectTo(*m_address);
}

bool Host::loadComponent()
{
    m_redirect = std::make_unique<DevRedirectInterface>(nullptr);
    connectResults();
    m_redirect->setClientParam({QString(), m_address ? m_address->host : QString()});
    m_redirect->sendMapCommandByDevModel(&Host::onDeviceList);
    m_redirect->setNotifyEventCallback([this](void *, RedirEvent event, const char *text, int length) {
        QMetaObject::invokeMethod(
            this, [this, event, text = QByteArray(text, length)] { componentReported(event, text); },
            Qt::QueuedConnection);
    });
    m_output.tell(Event::Loading, QStringLiteral("component: asked to start"));
    Q_EMIT m_redirect->loadDynamicLib();
    if (!m_redirect->isComponentLoaded()) {
        m_output.tell(Event::Error, QStringLiteral("the component is not loaded: ") + m_redirect->componentLoadError());
        leave(ExitCode::NoComponent);
        return false;
    }
    Q_EMIT m_redirect->loadDevRedirComponentByThread(m_options.vmId);
    if (!m_redirect->isComponentStarted()) {
        m_output.tell(Event::Error,
                      QStringLiteral("the component does not start: is %1/Device Redirect/config.json there, and can "
                                     "it be read? The log above has the reason")
                          .arg(QCoreApplication::applicationDirPath()));
        leave(ExitCode::NoComponent);
        return false;
    }
    m_redirect->getDeviceListFromUniqueFrame();
    return true;
}

void Host::onDeviceList(QList<ExterDeviceInfo> &devices)
{
    if (theHost)
        theHost->devicesListed(devices);
}

void Host::devicesListed(const QList<ExterDeviceInfo> &devices)
{
    if (!m_listed) {
        m_listed = true;
        for (const ExterDeviceInfo &device : devices)
            m_unjudged.insert(device.deviceId);
        m_output.tell(Event::Started, QStringLiteral("component: started, %1 devices").arg(devices.size()));
    }
    shareByRules();
    runNext();
}

void Host::connected(const QString &localAddress)
{
    if (m_leaving)
        return;
    m_connected = true;
    m_startLimit.start(); // from now on for the first channel
    m_redirect->setClientParam({localAddress, m_address->host});
    m_output.tell(Event::Connected, QStringLiteral("connected: ") + m_address->uri);
    runNext();
}

void Host::disconnected(const QString &reason)
{
    if (m_leaving)
        return;
    m_output.tell(Event::Disconnected,
                  m_connected ? QStringLiteral("connection lost: %1: %2").arg(m_address->uri, reason)
                              : QStringLiteral("no connection: %1: %2. Is the virtual machine running, and is this its "
                                               "SPICE address?")
                                    .arg(m_address->uri, reason));
    leave(ExitCode::NoConnection);
}

void Host::startLimitPassed()
{
    if (m_address && !m_connected) {
        disconnected(QStringLiteral("no answer within %1 seconds").arg(m_options.timeoutSeconds));
    } else if (!m_listed) {
        m_output.tell(Event::Error,
                      QStringLiteral("the component gives no list within %1 seconds").arg(m_options.timeoutSeconds));
        leave(ExitCode::NoComponent);
    } else if (m_options.autoShare && !m_hadChannel) {
        m_output.tell(Event::Error, QLatin1String(NoChannelText));
        leave(ExitCode::NoChannel);
    } else {
        runNext(); // what has waited for a channel
    }
}
