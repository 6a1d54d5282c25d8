// SPDX-License-Identifier: LGPL-2.1-or-later

// A host that is treated badly for a long time: devices come and go, are shared and taken back at random, and the
// virtual machine is killed and started again by tools/soak. Runs inside usbworld. At the end everything must be where
// it was after the first minute, and every device must have its local driver. usage: soak SPICE_URI MINUTES
// DEVICE_ID...

#include "client/address.h"
#include "client/spicesession.h"
#include "interface/devredirectinterface.h"
#include "support/asksocket.h"
#include "support/waitfor.h"

#include <QDir>
#include <QFile>
#include <QLoggingCategory>
#include <QMap>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <QTimer>

#include <algorithm>
#include <climits>
#include <cstdio>

#include <spice-client.h>
#include <unistd.h>

namespace {

constexpr int Ports = 4; // of the virtual machine
constexpr int AllowedDescriptors = 2; // what the C library and Qt open when they please
constexpr qint64 AllowedGrowthKib = 16 * 1024; // what the allocator keeps back differs by a few MiB from run to run

// Umockdev's preloaded library takes a device that could not be opened for one that is open, under the number -1. It
// has room for fifty, and ends the process when that is full.
void tidyEmulation()
{
    constexpr int Room = 50;
    for (int i = 0; i < Room; ++i)
        close(-1);
}

struct Usage
{
    int threads = int(QDir(QStringLiteral("/proc/self/task")).entryList(QDir::Dirs | QDir::NoDotAndDotDot).size());
    int descriptors = int(
        QDir(QStringLiteral("/proc/self/fd")).entryList(QDir::NoDotAndDotDot | QDir::AllEntries | QDir::System).size());
    qint64 residentKib = 0;

    Usage()
    {
        QFile status(QStringLiteral("/proc/self/status"));
        status.open(QIODevice::ReadOnly);
        for (const QByteArray &line : status.readAll().split('\n')) {
            if (line.startsWith("VmRSS:"))
                residentKib = line.simplified().split(' ').value(1).toLongLong();
        }
    }

    void print(const char *when) const
    {
        std::printf("%s: %d threads, %d descriptors, %lld KiB\n", when, threads, descriptors, residentKib);
        std::fflush(stdout);
    }
};

// What there is of each, so that one that grows can be found.
void printWhatThereIs()
{
    QMap<QString, int> counts;
    const QDir tasks(QStringLiteral("/proc/self/task")), descriptors(QStringLiteral("/proc/self/fd"));
    for (const QString &task : tasks.entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        QFile name(tasks.filePath(task + QStringLiteral("/comm")));
        name.open(QIODevice::ReadOnly);
        ++counts[QStringLiteral("thread ") + QString::fromUtf8(name.readAll().trimmed())];
    }
    static const QRegularExpression number(QStringLiteral("\\d+"));
    for (const QString &descriptor : descriptors.entryList(QDir::NoDotAndDotDot | QDir::AllEntries | QDir::System)) {
        const QByteArray path = QFile::encodeName(descriptors.filePath(descriptor));
        char target[PATH_MAX];
        const ssize_t length = readlink(path.constData(), target, sizeof target);
        ++counts[QString::fromUtf8(target, int(qMax(length, ssize_t(0)))).replace(number, QStringLiteral("N"))];
    }
    for (auto count = counts.begin(); count != counts.end(); ++count)
        std::printf("  %d of %s\n", count.value(), qPrintable(count.key()));
}

int lists = 0;

void countList(QList<ExterDeviceInfo> &)
{
    ++lists;
}

class Soak : public QObject
{
public:
    Soak(const QString &uri, QStringList devices)
        : m_address(SpiceAddress::parse(uri).value()), m_devices(std::move(devices))
    {
        for (const QString &device : qAsConst(m_devices))
            m_drivers.insert(device, world("driver", device));
        m_redirect.sendMapCommandByDevModel(countList);
        m_redirect.setNotifyEventCallback([](void *, RedirEvent, const char *, int) {});
        Q_EMIT m_redirect.loadDynamicLib();
        Q_EMIT m_redirect.loadDevRedirComponentByThread(QStringLiteral("soak"));
        connect(&m_redirect, &DevRedirectInterface::shareDeviceResultByInterface, this,
                [this](const ExterDeviceInfo &, bool success) { ++m_count[success ? "shared" : "refused"]; });
        connectAgain();
    }

    /// Works for so long; nothing of it is waited for.
    void workFor(int milliseconds)
    {
        QElapsedTimer timer;
        timer.start();
        while (timer.elapsed() < milliseconds) {
            step();
            waitFor([] { return false; }, 20);
        }
    }

    /// All devices plugged in and with the local system, and the connection up.
    bool comesToRest()
    {
        for (const QString &device : qAsConst(m_devices))
            world("plug", device);
        m_redirect.unRedirectDeviceAll();
        return waitFor(
            [this] {
                tidyEmulation();
                return m_ports == Ports
                    && std::all_of(m_devices.begin(), m_devices.end(), [this](const QString &device) {
                           return world("driver", device) == m_drivers[device];
                       });
            },
            60000);
    }

    void stop()
    {
        m_stopping = true;
        m_redirect.setQuitFlag(true);
        m_redirect.realeaseDeviceResource();
        m_session.reset();
    }

    void printCounts() const
    {
        for (auto count = m_count.begin(); count != m_count.end(); ++count)
            std::printf("%s %d, ", count.key().constData(), count.value());
        std::printf("lists %d\n", lists);
    }

    /// Otherwise nothing has been shown.
    bool hasWorked() const
    {
        return m_count["connections"] > 1 && m_count["channels"] > 1 && m_count["shared"] > 0 && lists > 0;
    }

private:
    QByteArray world(const QByteArray &command, const QString &device)
    {
        const QByteArray port = device.section(QLatin1Char(':'), 0, 0).toUtf8();
        return askSocket(qEnvironmentVariable("USBWORLD_CONTROL"), command + ' ' + port + '\n', "\n");
    }

    void connectAgain()
    {
        if (m_stopping)
            return;
        ++m_count["connections"];
        m_ports = 0;
        m_session = std::make_unique<SpicePortSession>();
        connect(m_session.get(), &SpicePortSession::portFound, this,
                [this](SpicePortChannel *channel, const QString &name, bool isOpened) {
                    ++m_count["channels"];
                    ++m_ports;
                    Q_EMIT m_redirect.checkRedirChannelByThread(channel, name, isOpened);
                });
        connect(
            m_session.get(), &SpicePortSession::closed, this,
            [this] { QTimer::singleShot(300, this, &Soak::connectAgain); }, Qt::QueuedConnection);
        m_session->connectTo(m_address);
    }

    void step()
    {
        tidyEmulation();
        const QString device = m_devices[QRandomGenerator::global()->bounded(m_devices.size())];
        const int choice = QRandomGenerator::global()->bounded(100);
        if (choice < 35)
            m_redirect.deviceOperate(device, QStringLiteral("share"));
        else if (choice < 60)
            m_redirect.deviceOperate(device, QStringLiteral("unshare"));
        else if (choice < 80)
            m_redirect.getDeviceListFromUniqueFrame();
        else if (choice < 88)
            world("unplug", device);
        else if (choice < 96)
            world("plug", device);
        else if (choice < 97)
            m_redirect.notifyUsbInfo(QStringLiteral("Device:%1:1:0").arg(device.section(QLatin1Char(':'), 0, 0)));
        else if (choice < 98)
            m_redirect.unRedirectDeviceAll();
        else if (choice < 99)
            m_session->disconnectFromServer(); // channel loss, seen from this end
        ++m_count["steps"];
    }

    const SpiceAddress m_address;
    const QStringList m_devices;
    QMap<QString, QByteArray> m_drivers; ///< the local one of each
    bool m_stopping = false;
    QMap<QByteArray, int> m_count;
    int m_ports = 0; ///< of this connection
    std::unique_ptr<SpicePortSession> m_session;
    DevRedirectInterface m_redirect{nullptr};
};

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    QLoggingCategory::setFilterRules(QStringLiteral("*=false"));
    const QStringList arguments = application.arguments();
    const int minutes = arguments.value(2).toInt();
    if (minutes < 2 || arguments.size() < 4) {
        std::fprintf(stderr, "usage: soak SPICE_URI MINUTES DEVICE_ID..., at least 2 minutes\n");
        return 2;
    }
    Soak soak(arguments[1], arguments.mid(3));
    soak.workFor(60000);
    bool rest = soak.comesToRest();
    const Usage before;
    before.print("after the first minute");
    printWhatThereIs();
    for (int minute = 1; minute < minutes; ++minute) {
        soak.workFor(60000);
        Usage().print("working");
    }
    rest = soak.comesToRest() && rest;
    const Usage after;
    after.print("at the end");
    printWhatThereIs();
    soak.printCounts();
    soak.stop();

    const bool steady = after.threads <= before.threads && after.descriptors <= before.descriptors + AllowedDescriptors
        && after.residentKib <= before.residentKib + AllowedGrowthKib;
    std::printf("%s, %s%s\n", steady ? "nothing grew beyond what is allowed" : "GREW",
                rest ? "every device has its local driver" : "A DEVICE HAS THE WRONG DRIVER, OR NO CONNECTION CAME UP",
                soak.hasWorked() ? "" : ", BUT NOTHING WAS SHARED");
    return steady && rest && soak.hasWorked() ? 0 : 1;
}
