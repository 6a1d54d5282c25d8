// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "interface/devredirectinterface.h"
#include "output.h"
#include "reference/rules.h"
#include "spicesession.h"

#include <QHash>
#include <QSet>
#include <QStringList>
#include <QTimer>

#include <memory>

/// How the program ends.
namespace ExitCode {
constexpr int Success = 0;
constexpr int RequestFailed = 1; ///< a device could not be shared or taken back
constexpr int Usage = 2;
constexpr int NoComponent = 3; ///< the component could not be loaded or started
constexpr int NoConnection = 4; ///< no SPICE connection, or it was lost
constexpr int NoChannel = 5; ///< the virtual machine offers no channel for devices
} // namespace ExitCode

/**
 * A client that shares devices: it joins DevRedirectInterface to a SPICE session and runs requests one after the other.
 *
 * Everything runs on the main thread. The component's events come on its own threads and are queued to this object.
 */
class Host : public QObject
{
    Q_OBJECT

public:
    struct Options
    {
        QString uri;
        QString vmId;
        bool json = false;
        bool watch = false; ///< stay and tell of plugs
        bool interactive = false; ///< requests come from standard input
        DeviceRules autoRules;
        bool autoShare = false;
        QStringList requests; ///< "list", "share ID", "unshare ID", "share all", "unshare all"
    };

    explicit Host(Options options);
    ~Host() override;

    void start();
    /// Adds a request; false if it cannot be understood.
    bool request(const QString &line);
    /// No more requests will come: ends as soon as the last one is done and no device is shared.
    void noMoreRequests();
    /// Takes all devices back and ends the program.
    void leave(int exitCode);

private:
    static void onDeviceList(QList<ExterDeviceInfo> &devices);
    void devicesListed(const QList<ExterDeviceInfo> &devices);
    QList<ExterDeviceInfo> listNow();
    void componentReported(RedirEvent event, const QByteArray &text);
    void portFound(SpicePortChannel *channel, const QString &name, bool isOpened);
    void loadComponent();
    void connectResults();

    void shareByRules();
    void runNext();
    void shareDevices(const QString &which);
    void unshareDevices(const QString &which);
    void share(const ExterDeviceInfo &device);
    void shareEnded(const QString &deviceId, bool success);
    void unshareEnded(const QString &deviceId, bool success);
    void requestFailed(const QString &text, const QString &deviceId);
    void finishedPart();
    void timedOut();
    void quit();

    const Options m_options;
    const Output m_output;
    SpicePortSession m_session;
    std::unique_ptr<DevRedirectInterface> m_redirect;

    QStringList m_requests;
    QString m_current; ///< the request that runs; empty if none does
    QSet<QString> m_pending; ///< devices whose outcome the current request waits for
    bool m_expectMore;
    bool m_channelBound = false;
    bool m_listed = false;
    bool m_leaving = false;
    int m_exitCode = ExitCode::Success;
    QList<ExterDeviceInfo> m_fresh; ///< what listNow() was given
    QSet<QString> m_shared;
    QSet<QString> m_unjudged; ///< by the rules, since they were plugged in
    QHash<QString, QString> m_failures; ///< by device, what the component said
    QTimer m_deadline;
};
