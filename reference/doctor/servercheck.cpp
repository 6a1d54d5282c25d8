// SPDX-License-Identifier: LGPL-2.1-or-later
#include "checks.h"
#include "reference/client/connectionfile.h"
#include "reference/client/spicesession.h"
#include "reference/component/config.h"

#include <QEventLoop>
#include <QTimer>

#include <spice-client.h> // a connection to a signal needs its arguments' types

namespace {

const QString Server = QStringLiteral("virtual machine");
constexpr int LongestConnecting = 15000; // milliseconds
constexpr int PortsComeWithin = 1000;
constexpr int LongestLeaving = 1000;

/// Connects, waits for the ports to tell their names, and leaves.
class Visit : public QObject
{
public:
    Visit(const SpiceAddress &address, const QString &prefix) : m_address(address), m_prefix(prefix)
    {
        m_limit.setSingleShot(true);
        connect(&m_session, &SpicePortSession::connected, this, [this] {
            m_findings.append(good(Server, QStringLiteral("lets us in: ") + m_address.uri));
            m_limit.start(PortsComeWithin);
        });
        connect(&m_session, &SpicePortSession::closed, this, [this](SpicePortSession::End end, const QString &reason) {
            m_findings.append(bad(Server, m_address.uri + QStringLiteral(": ") + reason,
                                  QString::fromUtf8(SpicePortSession::cureOf(end))));
            m_loop.quit();
        });
        connect(&m_session, &SpicePortSession::portFound, this, &Visit::portFound);
        connect(&m_session, &SpicePortSession::left, &m_loop, &QEventLoop::quit);
        connect(&m_limit, &QTimer::timeout, this, &Visit::limitPassed);
    }

    Findings run()
    {
        m_limit.start(LongestConnecting);
        m_session.connectTo(m_address);
        m_loop.exec();
        return m_findings;
    }

private:
    void portFound(SpicePortChannel *, const QString &name, bool isOpened)
    {
        const QString port = QStringLiteral("port ") + name;
        if (!name.startsWith(m_prefix)) {
            m_findings.append(good(port, QStringLiteral("is of another program, and left alone")));
            return;
        }
        m_hasPort = true;
        m_findings.append(good(port,
                               isOpened ? QStringLiteral("is taken by the component, and open")
                                        : QStringLiteral("is taken by the component; the virtual machine has not "
                                                         "opened it yet")));
    }

    void limitPassed()
    {
        if (std::exchange(m_isLeaving, true)) {
            m_loop.quit();
            return;
        }
        if (m_findings.isEmpty())
            m_findings.append(bad(Server, m_address.uri + QStringLiteral(": no answer"),
                                  QString::fromUtf8(SpicePortSession::cureOf(SpicePortSession::End::Unreachable))));
        else if (!m_hasPort)
            m_findings.append(bad(Server, QStringLiteral("offers no port whose name begins with \"%1\"").arg(m_prefix),
                                  QStringLiteral("give it a USB port of that name, or name its ports in "
                                                 "\"channelPrefix\" of config.json")));
        m_limit.start(LongestLeaving);
        m_session.leave();
    }

    const SpiceAddress m_address;
    const QString m_prefix;
    Findings m_findings;
    bool m_hasPort = false, m_isLeaving = false;
    QEventLoop m_loop;
    QTimer m_limit;
    SpicePortSession m_session;
};

} // namespace

Findings checkServer(const QString &place, const QString &passwordFile, const QString &folder)
{
    QString error;
    const std::optional<SpiceAddress> address = placeOf(place, passwordFile, error);
    if (!address)
        return {bad(Server, error, QStringLiteral("see --help"))};
    Config config;
    QString ignored; // checkConfiguration() tells of it
    Config::read(folder + QStringLiteral("/config.json"), config, ignored);
    return Visit(*address, config.channelPrefix).run();
}
