// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "interface/devredirectinterface.h"
#include "options.h"
#include "output.h"
#include "reference/client/address.h"
#include "reference/client/spicesession.h"

#include <QHash>
#include <QSet>
#include <QStringList>
#include <QTimer>

#include <memory>
#include <optional>

/// How the program ends.
namespace ExitCode {
constexpr int Success = 0;
constexpr int RequestFailed = 1; ///< a device could not be shared or taken back
constexpr int Usage = 2;
constexpr int NoComponent = 3; ///< the component could not be loaded or started
constexpr int NoConnection = 4; ///< no SPICE connection, or it was lost
constexpr int NoChannel = 5; ///< the virtual machine offers no channel for devices
constexpr int WrongPassword = 6; ///< or none
constexpr int WrongCertificate = 7; ///< of the server: it is not trusted
} // namespace ExitCode

constexpr const char NoChannelText[] = "the virtual machine offers no channel for devices; it needs a port whose name "
                                       "begins with \"channelPrefix\" of config.json";

/**
 * A client that shares devices: it joins DevRedirectInterface to a SPICE session and runs requests one after the other.
 *
 * Everything runs on the main thread. The component's events come on its own threads and are queued to this object.
 * Each concern has a source file: starting.cpp, channels.cpp, requests.cpp, answers.cpp, outcomes.cpp and
 * leaving.cpp.
 */
class Host : public QObject
{
    Q_OBJECT

public:
    explicit Host(Options options);
    ~Host() override;

    /// Loads the component and connects. Needs the event loop, which it may end.
    void start();
    /// Adds a request, "list", "explain ID", "stats", "rules test ID", "share ID|all", "unshare ID|all" or "quit"; one
    /// that cannot be understood is answered so.
    void request(const QString &line);
    /// No more requests will come: ends as soon as the last one is done and no device is shared.
    void noMoreRequests();
    /// Takes all devices back and ends the program.
    void leave(int exitCode);

private:
    struct Request
    {
        const char *word;
        bool takesDevice;
        bool needsChannel;
        void (Host::*run)(const QString &which);
    };
    static const Request Requests[];
    static const Request *understand(const QString &line, QString &which);

    // Starting.
    bool loadComponent();
    static void onDeviceList(QList<ExterDeviceInfo> &devices);
    void devicesListed(const QList<ExterDeviceInfo> &devices);
    void connected(const QString &localAddress);
    void disconnected(SpicePortSession::End end, const QString &reason);
    bool askedForPassword(SpicePortSession::End end);
    bool connectsAgain(SpicePortSession::End end, const QString &reason);
    void startLimitPassed();
    bool hasStarted() const { return m_listed && (m_connected || m_options.address.isEmpty()); }

    // Channels.
    void portFound(SpicePortChannel *channel, const QString &name, bool isOpened);
    void portChanged(SpicePortChannel *channel, const QString &name, bool isOpened);
    void tellChannel(const QString &name, bool isOpened);
    bool hasOpenChannel() const { return m_channels.key(true) != nullptr; }
    void shareByRules();
    void restoreShares();

    // Requests.
    void runNext();
    void list(const QString &);
    void shareDevices(const QString &which);
    void unshareDevices(const QString &which);
    void quitByRequest(const QString &);
    std::optional<QList<ExterDeviceInfo>> listNow();
    QList<ExterDeviceInfo> choose(const QString &which, bool shared, const QString &failure);
    void requestFailed(const QString &text, const QString &deviceId, int exitCode = ExitCode::RequestFailed);
    void finishedPart();
    void timedOut();

    // Answers of the component.
    void explain(const QString &deviceId);
    void statistics(const QString &);
    void testRules(const QString &which);

    // Outcomes.
    void connectResults();
    void componentReported(RedirEvent event, const QByteArray &text);
    void shareEnded(const QString &deviceId, bool success);
    void unshareEnded(const QString &deviceId, bool success);

    // Leaving.
    void noteExitCode(int exitCode);
    void answerTheRest();
    void beginFarewell();
    void waitUntilWritten();
    void releaseComponent();
    void quit();

    const Options m_options;
    const Output m_output;
    DeviceRules m_rules;
    std::optional<SpiceAddress> m_address;
    SpicePortSession m_session;
    std::unique_ptr<DevRedirectInterface> m_redirect;

    QStringList m_requests;
    QString m_current; ///< the request that runs; empty if none does
    QSet<QString> m_pending; ///< devices whose outcome the current request waits for
    bool m_expectMore;
    bool m_connected = false;
    bool m_listed = false;
    bool m_leaving = false;
    bool m_hadChannel = false; ///< the component took one
    bool m_asked = false; ///< for the password
    int m_exitCode = ExitCode::Success;
    QHash<SpicePortChannel *, bool> m_channels; ///< the component's, and whether they are open
    std::optional<QList<ExterDeviceInfo>> m_fresh; ///< what listNow() was given
    QSet<QString> m_shared;
    QSet<QString> m_lost; ///< with their channel, to be shared again on the next one
    QSet<QString> m_unjudged; ///< by the rules, since they were plugged in
    QHash<QString, QString> m_failures; ///< by device, what the component said
    QTimer m_connectAgain;
    QTimer m_startLimit; ///< for the connection, the list and the first channel
    QTimer m_requestLimit;
    QTimer m_writing; ///< while what was sent last is written
    QTimer m_leaveLimit;
};
