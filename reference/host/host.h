// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "options.h"
#include "output.h"
#include "reference/client/client.h"

#include <QElapsedTimer>
#include <QMap>
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
constexpr int WrongPassword = 6; ///< or none
constexpr int WrongCertificate = 7; ///< of the server: it is not trusted
} // namespace ExitCode

constexpr const char NoChannelText[] = "the virtual machine offers no channel for devices; it needs a port whose name "
                                       "begins with \"channelPrefix\" of config.json";

/**
 * The command line of a client: runs requests one after the other, and prints what becomes of them.
 *
 * Everything runs on the main thread. starting.cpp has the start and the end, telling.cpp what is printed that nobody
 * asked for, requests.cpp and answers.cpp the requests.
 */
class Host : public QObject
{
    Q_OBJECT

public:
    explicit Host(Options options);

    /// Loads the component and connects. Needs the event loop, which it may end.
    void start();
    /// Adds a request, as in the table of requests.cpp; one that cannot be understood is answered so.
    void request(const QString &line);
    /// No more requests will come: ends as soon as the last one is done and no device is shared.
    void noMoreRequests();
    /// Takes all devices back and ends the program.
    void leave(int exitCode);

private:
    enum class Channel { Any, Awaited, Needed }; ///< awaited: answered without, too, when none has come in time
    struct Request
    {
        const char *word;
        bool takesDevice;
        Channel channel;
        void (Host::*run)(const QString &which);
    };
    static const Request Requests[];
    static const Request *understand(const QString &line, QString &which);

    // Starting, and the end.
    void connected();
    void notConnected(SpicePortSession::End end, const QString &reason);
    void connectionLost(const QString &reason, int pauseSeconds);
    void startLimitPassed();
    bool readRules(DeviceRules &rules);
    void fail(Event event, const QString &text, int exitCode);
    void noteExitCode(int exitCode);
    void quit();

    // Requests.
    void runNext();
    void runSoon();
    void list(const QString &);
    void shareDevices(const QString &which);
    void shareWhenPossible(const QString &which);
    void shareWaiting();
    void unshareDevices(const QString &which);
    void quitByRequest(const QString &);
    QList<ExterDeviceInfo> choose(const QString &which, bool shared, const QString &failure);
    void requestFailed(const QString &text, const QString &deviceId, int exitCode = ExitCode::RequestFailed);

    // Answers of the component.
    void explain(const QString &deviceId);
    void statistics(const QString &);
    void showStatistics(bool live);
    void testRules(const QString &which);

    // Telling.
    void eachSecond();
    QString waitsFor() const;
    void tellOfClient();
    void tellOfDevices();

    const Options m_options;
    Output m_output;
    std::unique_ptr<Client> m_client; ///< from start() on
    QStringList m_requests;
    QMap<QString, QString>
        m_waiting; ///< devices to be shared as soon as they can be, and what was told to be in the way
    TransferSpeeds m_speeds;
    bool m_expectMore;
    bool m_showsSpeeds; ///< every second
    bool m_hasListed = false;
    bool m_hasAsked = false; ///< for the password
    bool m_isLeaving = false;
    int m_exitCode = ExitCode::Success;
    QTimer m_second;
    QString m_waitsFor; ///< what is told on the last line
    QElapsedTimer m_waitsSince;
    QTimer m_startLimit; ///< for the list and the first channel
};
