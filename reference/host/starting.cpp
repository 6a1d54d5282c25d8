// SPDX-License-Identifier: LGPL-2.1-or-later

// The start: load the component, connect, and get the first list.

#include "host.h"

#include "reference/client/connectionfile.h"
#include "reference/client/password.h"
#include "reference/client/rulesfile.h"

#include <QCoreApplication>

#include <spice-client.h> // a connection to a signal needs its arguments' types

namespace {

Host *theHost = nullptr; // the map callback is a plain function

constexpr int FirstPauseMilliseconds = 1000; // before the connection is made again; each further one is twice as long
constexpr int LongestPauseMilliseconds = 30000;

int exitCodeOf(SpicePortSession::End end)
{
    switch (end) {
    case SpicePortSession::End::Password:
        return ExitCode::WrongPassword;
    case SpicePortSession::End::Certificate:
        return ExitCode::WrongCertificate;
    case SpicePortSession::End::Unreachable:
    case SpicePortSession::End::Lost:
        break;
    }
    return ExitCode::NoConnection;
}

} // namespace

Host::Host(Options options)
    : m_options(std::move(options)), m_output(m_options.json), m_requests(m_options.requests),
      m_expectMore(m_options.interactive)
{
    theHost = this;
    for (QTimer *limit : {&m_startLimit, &m_requestLimit}) {
        limit->setSingleShot(true);
        limit->setInterval(m_options.timeoutSeconds * 1000);
    }
    connect(&m_startLimit, &QTimer::timeout, this, &Host::startLimitPassed);
    connect(&m_requestLimit, &QTimer::timeout, this, &Host::timedOut);
    connect(&m_writing, &QTimer::timeout, this, &Host::waitUntilWritten);
    m_connectAgain.setSingleShot(true);
    connect(&m_connectAgain, &QTimer::timeout, this, [this] { m_session.connectTo(*m_address); });
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
    QString error;
    if (!m_options.address.isEmpty())
        m_address = placeOf(m_options.address, error);
    if (m_address && !m_options.passwordFile.isEmpty())
        m_address->password = passwordIn(m_options.passwordFile, error).value_or(QString());
    if (!error.isEmpty()) {
        m_output.tell(Event::Disconnected, error);
        leave(ExitCode::NoConnection);
        return;
    }
    m_rules =
        m_options.rulesInFile ? RulesFile::read(RulesFile::path(), error).value_or(DeviceRules()) : m_options.autoRules;
    if (!error.isEmpty()) {
        m_output.tell(Event::Error, error);
        leave(ExitCode::Usage);
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

void Host::disconnected(SpicePortSession::End end, const QString &reason)
{
    if (m_leaving || askedForPassword(end) || connectsAgain(end, reason))
        return;
    m_output.tell(Event::Disconnected,
                  m_connected ? QStringLiteral("connection lost: %1: %2").arg(m_address->uri, reason)
                              : QStringLiteral("no connection: %1: %2. %3")
                                    .arg(m_address->uri, reason, QString::fromUtf8(SpicePortSession::cureOf(end))));
    leave(m_connected ? ExitCode::NoConnection : exitCodeOf(end));
}

// After the first time: what has never been there may be wrong.
bool Host::connectsAgain(SpicePortSession::End end, const QString &reason)
{
    const bool hadConnection = m_connected || m_connectAgain.interval() > 0;
    const bool mayComeBack = end == SpicePortSession::End::Lost || end == SpicePortSession::End::Unreachable;
    if (!m_options.reconnect || !hadConnection || !mayComeBack)
        return false;
    m_connectAgain.start(m_connected ? FirstPauseMilliseconds
                                     : qMin(2 * m_connectAgain.interval(), LongestPauseMilliseconds));
    m_connected = false;
    m_startLimit.stop();
    m_output.tell(Event::Disconnected,
                  QStringLiteral("connection lost: %1: %2. Trying again in %3 s")
                      .arg(m_address->uri, reason)
                      .arg(m_connectAgain.interval() / 1000));
    return true;
}

bool Host::askedForPassword(SpicePortSession::End end)
{
    if (end != SpicePortSession::End::Password || std::exchange(m_asked, true))
        return false;
    const auto password = askForPassword(QStringLiteral("Password for %1: ").arg(m_address->uri));
    if (!password)
        return false;
    m_address->password = *password;
    m_startLimit.start();
    QTimer::singleShot(0, this, [this] { m_session.connectTo(*m_address); }); // once the session is done with this one
    return true;
}

void Host::startLimitPassed()
{
    if (m_address && !m_connected) {
        disconnected(SpicePortSession::End::Unreachable,
                     QStringLiteral("no answer within %1 seconds").arg(m_options.timeoutSeconds));
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
