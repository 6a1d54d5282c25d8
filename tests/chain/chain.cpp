// SPDX-License-Identifier: LGPL-2.1-or-later
#include "chain/chain.h"

#include "support/asksocket.h"
#include "support/waitfor.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QRegularExpression>

namespace {

QByteArray contentOf(const QString &path)
{
    QFile file(path);
    file.open(QIODevice::ReadOnly);
    return file.readAll();
}

} // namespace

Chain::Chain()
{
    m_vm.setProcessChannelMode(QProcess::ForwardedErrorChannel);
}

Chain::~Chain()
{
    signalVm(SIGCONT);
    for (QProcess *process : {&m_host, &m_vm}) {
        if (process->state() == QProcess::NotRunning)
            continue;
        process->terminate();
        if (!process->waitForFinished(10000))
            process->kill();
        process->waitForFinished(10000);
    }
    if (!::testing::Test::HasFailure())
        return;
    std::printf("--- what the host said and nobody waited for ---\n");
    for (const QJsonObject &event : qAsConst(m_events))
        std::printf("%s\n", QJsonDocument(event).toJson(QJsonDocument::Compact).constData());
    std::printf("--- the end of its log ---\n%s\n", hostLog().right(4000).constData());
}

void Chain::startVm(int ports)
{
    m_vm.start(QStringLiteral(VM_SCRIPTS "/qemu-bios.sh"), {m_directory.path(), QString::number(ports)});
    waitForVm();
}

void Chain::startGuest(const QProcessEnvironment &environment, int ports)
{
    QProcessEnvironment all = QProcessEnvironment::systemEnvironment();
    all.insert(environment);
    m_vm.setProcessEnvironment(all);
    m_vm.start(QStringLiteral(VM_SCRIPTS "/qemu-guest.sh"),
               {m_directory.path(), QStringLiteral(GUEST_DIRECTORY), QString::number(ports)});
    waitForVm();
}

QByteArray Chain::run(const QString &script, const QStringList &arguments)
{
    QProcess process;
    process.start(QStringLiteral(VM_SCRIPTS "/") + script, arguments);
    process.waitForFinished();
    return process.readAllStandardOutput();
}

void Chain::waitForVm()
{
    ASSERT_TRUE(waitFor(
        [this] {
            return QFile::exists(path(QStringLiteral("spice.sock"))) && QFile::exists(path(QStringLiteral("qmp.sock")));
        },
        Deadline));
}

void Chain::killVm()
{
    m_vm.kill();
    m_vm.waitForFinished();
}

void Chain::signalVm(int signal)
{
    if (m_vm.processId() > 0)
        kill(pid_t(m_vm.processId()), signal);
}

QByteArray Chain::monitor(const QString &command)
{
    const QJsonObject text{{QStringLiteral("command-line"), command}};
    const QJsonObject execute{{QStringLiteral("execute"), QStringLiteral("human-monitor-command")},
                              {QStringLiteral("arguments"), text},
                              {QStringLiteral("id"), 1}};
    return askSocket(path(QStringLiteral("qmp.sock")),
                     "{\"execute\":\"qmp_capabilities\"}\n" + QJsonDocument(execute).toJson(QJsonDocument::Compact)
                         + '\n',
                     "\"id\": 1}\r\n");
}

QByteArray Chain::printed() const
{
    return contentOf(path(QStringLiteral("serial.txt")));
}

bool Chain::prints(const QString &text) const
{
    return waitFor([&] { return printed().contains(text.toUtf8()); }, Deadline);
}

QStringList Chain::next(const QString &pattern, int milliseconds)
{
    const QRegularExpression expression(pattern);
    QRegularExpressionMatch match;
    waitFor(
        [&] {
            const QString all = QString::fromLatin1(printed());
            const QString whole = all.left(all.lastIndexOf(QLatin1Char('\n')) + 1); // the last line may lack its end
            match = expression.match(whole, m_readOfPrinted);
            return match.hasMatch();
        },
        milliseconds);
    if (!match.hasMatch())
        return {};
    m_readOfPrinted = int(match.capturedEnd());
    return match.capturedTexts();
}

void Chain::makeImage(Stick &stick)
{
    QProcess make;
    QStringList arguments{path(stick.port), QStringLiteral("--text"), stick.text, QStringLiteral("--size"),
                          QString::number(stick.readMib + 4)};
    if (stick.readMib)
        arguments << QStringLiteral("--read") << QString::number(stick.readMib);
    make.start(QStringLiteral(BOOTSTICK), arguments);
    ASSERT_TRUE(make.waitForFinished() && make.exitCode() == 0) << make.readAllStandardError().constData();
    stick.checksum = QRegularExpression(QStringLiteral("SUM [0-9a-fA-F]+"))
                         .match(QString::fromUtf8(make.readAllStandardOutput()))
                         .captured();
}

void Chain::startHost(QList<Stick> &sticks, const QStringList &worldOptions, const QStringList &wrapper,
                      const QStringList &hostOptions)
{
    QStringList command = wrapper;
    command << QStringLiteral("umockdev-wrapper") << QStringLiteral(USBWORLD);
    for (Stick &stick : sticks) {
        if (!stick.text.isNull())
            makeImage(stick);
        QString serial = stick.port;
        command << QStringLiteral("--stick")
                << stick.port + QLatin1Char('=') + path(stick.port) + QStringLiteral(",serial=")
                + serial.remove(QLatin1Char('-')) + stick.options;
    }
    command << worldOptions << QStringLiteral("--control") << path(QStringLiteral("world.sock"))
            << QStringLiteral("--log") << path(QStringLiteral("world.log")) << QStringLiteral("--")
            << QStringLiteral(DEVREDIR_HOST) << QStringLiteral("--uri")
            << QStringLiteral("spice+unix://") + path(QStringLiteral("spice.sock")) << QStringLiteral("--json")
            << QStringLiteral("--log-rules") << QStringLiteral("*=true") << hostOptions;
    m_events.clear();
    m_logRead = 0;
    m_host.setStandardErrorFile(path(QStringLiteral("host.log")));
    m_host.start(command.takeFirst(), command);
    ASSERT_FALSE(event(QStringLiteral("started")).isEmpty());
}

void Chain::ask(const QString &request)
{
    m_host.write(request.toUtf8() + '\n');
}

// Answers come on standard output; progress and failures on standard error, among the lines of the log.
void Chain::readEvents()
{
    while (m_host.canReadLine())
        m_events.append(QJsonDocument::fromJson(m_host.readLine()).object());
    QFile log(path(QStringLiteral("host.log")));
    if (!log.open(QIODevice::ReadOnly) || !log.seek(m_logRead))
        return;
    const QByteArray added = log.readAll();
    const auto whole = added.lastIndexOf('\n') + 1;
    for (const QByteArray &line : added.left(whole).split('\n')) {
        const QJsonObject event = QJsonDocument::fromJson(line).object();
        if (event.contains(QLatin1String("event")))
            m_events.append(event);
    }
    m_logRead += whole;
}

QJsonObject Chain::event(const QString &name, const QString &deviceId, int milliseconds)
{
    QJsonObject found;
    waitFor(
        [&] {
            readEvents();
            for (int i = 0; i < m_events.size() && found.isEmpty(); ++i) {
                const QJsonObject &event = m_events[i];
                if (event.value(QLatin1String("event")).toString() == name
                    && (deviceId.isNull() || event.value(QLatin1String("deviceId")).toString() == deviceId))
                    found = m_events.takeAt(i);
            }
            return !found.isEmpty();
        },
        milliseconds);
    return found;
}

QJsonObject Chain::listed(const QString &deviceId)
{
    ask(QStringLiteral("list"));
    const QJsonArray devices = event(QStringLiteral("list")).value(QLatin1String("devices")).toArray();
    for (const QJsonValue device : devices) {
        if (device.toObject().value(QLatin1String("deviceId")).toString() == deviceId)
            return device.toObject();
    }
    return QJsonObject();
}

// The host is the only child of usbworld, which is what m_host has become or has started.
qint64 Chain::hostPid() const
{
    qint64 pid = m_host.processId();
    while (true) {
        const QByteArray children =
            contentOf(QStringLiteral("/proc/%1/task/%1/children").arg(pid)).trimmed().split(' ').first();
        if (children.isEmpty())
            return pid;
        pid = children.toLongLong();
    }
}

void Chain::interruptHost(int signal)
{
    const auto pid = pid_t(hostPid());
    if (pid > 0) // it may have ended; 0 would be this program and whoever started it
        kill(pid, signal);
}

void Chain::closeRequests()
{
    m_host.closeWriteChannel();
}

int Chain::hostStatus()
{
    if (!waitFor([this] { return m_host.state() == QProcess::NotRunning; }, Deadline))
        return -1;
    return m_host.exitStatus() == QProcess::NormalExit ? m_host.exitCode() : -2;
}

QByteArray Chain::world(const QString &command)
{
    return askSocket(path(QStringLiteral("world.sock")), command.toUtf8() + '\n', "\n").trimmed();
}

bool Chain::getsDriver(const QString &port, const QString &name)
{
    return waitFor(
        [&] {
            const QByteArray answer = world(QStringLiteral("driver ") + port);
            if (!answer.isEmpty())
                return answer == "ok " + name.toUtf8();
            // The computer has ended with the host; its log has the last word.
            const QByteArray log = contentOf(path(QStringLiteral("world.log")));
            const QByteArray driver = ' ' + port.toUtf8() + " driver ";
            return log.mid(log.lastIndexOf(driver)).startsWith(driver + name.toUtf8() + '\n');
        },
        Deadline);
}

QByteArray Chain::hostLog() const
{
    return contentOf(path(QStringLiteral("host.log")));
}
