// SPDX-License-Identifier: LGPL-2.1-or-later

// How the program begins and ends.

#include "host.h"

#include "reference/client/connectionfile.h"
#include "reference/client/password.h"
#include "reference/client/rulesfile.h"

#include <QCoreApplication>
#include <QFile>

#include <utility>

namespace {

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
      m_expectMore(m_options.interactive), m_showsSpeeds(m_options.liveStatistics)
{
    connect(&m_second, &QTimer::timeout, this, &Host::eachSecond);
    m_startLimit.setSingleShot(true);
    m_startLimit.setInterval(m_options.timeoutSeconds * 1000);
    connect(&m_startLimit, &QTimer::timeout, this, &Host::startLimitPassed);
}

void Host::start()
{
    Client::Settings settings;
    settings.vmId = m_options.vmId;
    settings.reconnect = m_options.reconnect;
    settings.restore = m_options.restore;
    settings.timeoutSeconds = m_options.timeoutSeconds;
    QString error;
    if (!m_options.address.isEmpty())
        settings.address = placeOf(m_options.address, m_options.passwordFile, error);
    if (!error.isEmpty()) {
        fail(Event::Error, error, ExitCode::Usage);
        return;
    }
    DeviceRules rules = m_options.autoRules;
    if (m_options.autoShare && m_options.rulesInFile && !readRules(rules)) {
        leave(ExitCode::Usage);
        return;
    }
    m_client = std::make_unique<Client>(settings);
    m_second.start(1000);
    tellOfClient();
    m_output.tell(Event::Loading, QStringLiteral("component: asked to start"));
    if (!m_client->start(error)) {
        fail(Event::Error, error, ExitCode::NoComponent);
        return;
    }
    tellOfDevices();
    m_client->autoShare().setRules(rules);
    if (!settings.address)
        m_startLimit.start();
}

bool Host::readRules(DeviceRules &rules)
{
    QString error;
    const QString file = RulesFile::path();
    if (!QFile::exists(file))
        m_output.tell(Event::Loading, QStringLiteral("no rules: there is no ") + file);
    const auto read = RulesFile::read(file, error);
    rules = read.value_or(DeviceRules());
    if (!read)
        requestFailed(error, QString(), ExitCode::Usage);
    return read.has_value();
}

void Host::connected()
{
    m_startLimit.start(); // for the first channel
    m_output.tell(Event::Connected, QStringLiteral("connected: ") + m_client->settings().address->uri);
    runNext();
}

void Host::notConnected(SpicePortSession::End end, const QString &reason)
{
    const QString uri = m_client->settings().address->uri;
    if (end == SpicePortSession::End::Password && !std::exchange(m_hasAsked, true)) {
        const auto password = askForPassword(QStringLiteral("Password for %1: ").arg(uri));
        if (password) {
            m_client->connectAgain(*password);
            return;
        }
    }
    fail(Event::Disconnected,
         QStringLiteral("no connection: %1: %2. %3").arg(uri, reason, QLatin1String(SpicePortSession::cureOf(end))),
         exitCodeOf(end));
}

void Host::connectionLost(const QString &reason, int pauseSeconds)
{
    m_startLimit.stop();
    const QString text = QStringLiteral("connection lost: %1: %2").arg(m_client->settings().address->uri, reason);
    if (pauseSeconds > 0)
        m_output.tell(Event::Disconnected, text + QStringLiteral(". Trying again in %1 s").arg(pauseSeconds));
    else
        fail(Event::Disconnected, text, ExitCode::NoConnection);
}

void Host::startLimitPassed()
{
    if (!m_hasListed)
        fail(Event::Error,
             QStringLiteral("the component gives no list within %1 seconds").arg(m_options.timeoutSeconds),
             ExitCode::NoComponent);
    else if (m_options.autoShare && !m_client->hasHadChannel())
        fail(Event::Error, QLatin1String(NoChannelText), ExitCode::NoChannel);
    else
        runNext(); // what has waited for a channel
}

void Host::fail(Event event, const QString &text, int exitCode)
{
    m_output.tell(event, text);
    leave(exitCode);
}

// What is told last need not be what counts: any other failure says more than that a request failed.
void Host::noteExitCode(int exitCode)
{
    if (m_exitCode == ExitCode::Success || exitCode > ExitCode::RequestFailed)
        m_exitCode = exitCode;
}

void Host::leave(int exitCode)
{
    if (m_isLeaving)
        return;
    m_isLeaving = true;
    noteExitCode(exitCode);
    m_startLimit.stop();
    for (auto waiting = m_waiting.keyBegin(); waiting != m_waiting.keyEnd(); ++waiting)
        m_requests.append(QStringLiteral("share --wait ") + *waiting);
    m_waiting.clear();
    for (const QString &line : std::exchange(m_requests, {}))
        requestFailed(QStringLiteral("not done: ") + line, QString());
    if (m_client)
        m_client->leave();
    else
        quit();
}

void Host::quit()
{
    m_output.tell(Event::Bye, QStringLiteral("bye"));
    QCoreApplication::exit(m_exitCode);
}
