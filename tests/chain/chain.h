// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <QByteArray>
#include <QElapsedTimer>
#include <QJsonObject>
#include <QProcess>
#include <QStringList>
#include <QTemporaryDir>

#include <csignal>

/**
 * The whole chain, each part a process of its own: a virtual machine with USB ports on SPICE, and an emulated computer
 * with USB sticks on which the reference host runs. Everything lies in a folder that goes with this object, and every
 * process ends with it.
 */
class Chain
{
public:
    struct Stick
    {
        QString port; ///< "1-1"; its serial number is the port without the dash, so its id "1-1:11"
        QString text; ///< stands in its second sector; the virtual machine prints it when it boots
        int readMib = 0; ///< more than 0: the virtual machine reads so much and prints a checksum
        QString options; ///< further options of usbworld's --stick, such as ",ro"
        QString checksum{}; ///< set by startHost(): what the virtual machine will print for readMib
    };

    static constexpr int Deadline = 60000; ///< milliseconds

    Chain();
    ~Chain();
    Chain(const Chain &) = delete;
    Chain &operator=(const Chain &) = delete;

    QString path(const QString &name) const { return m_directory.filePath(name); }

    /// A virtual machine with so many USB ports. It boots from the first stick that it gets.
    void startVm(int ports = 1);
    /// A virtual machine with a Linux guest that mounts the stick, reads "hello.txt" and writes "from-guest.txt", or
    /// that uses what the environment says (GUEST_KINDS and GUEST_CHECK, see vm/qemu-guest.sh).
    void startGuest(const QProcessEnvironment &environment, int ports = 1);
    /// What a script of vm prints.
    static QByteArray run(const QString &script, const QStringList &arguments);
    void killVm();
    /// Its process does nothing any more until it goes on (SIGSTOP, SIGCONT).
    void signalVm(int signal);
    /// A command for its monitor, such as "device_del usb0"; its answer.
    QByteArray monitor(const QString &command);
    /// Waits until it has printed \a text.
    bool prints(const QString &text) const;
    QByteArray printed() const;
    /// Waits until it prints \a pattern behind what was waited for before; what the pattern captures.
    QStringList next(const QString &pattern, int milliseconds = Deadline);

    /// The host, which takes requests; \a worldOptions go to usbworld, \a wrapper stands before the whole command.
    /// It may be started again when it has ended.
    void startHost(QList<Stick> &sticks, const QStringList &worldOptions = {}, const QStringList &wrapper = {},
                   const QStringList &hostOptions = {});
    void ask(const QString &request);
    /// The next line of the host with this "event" (and this device, if given) that has not been returned yet; empty
    /// when the deadline passes.
    QJsonObject event(const QString &name, const QString &deviceId = QString(), int milliseconds = Deadline);
    /// Asks for the list and returns the entry of a device.
    QJsonObject listed(const QString &deviceId);
    void interruptHost(int signal = SIGINT);
    void closeRequests();
    /// Waits for the host to end and returns its status.
    int hostStatus();

    /// A command for the emulated computer, "unplug 1-1"; its answer.
    QByteArray world(const QString &command);
    /// Which driver the stick at \a port has, once it is \a name.
    bool getsDriver(const QString &port, const QString &name);

    QByteArray hostLog() const;
    qint64 hostPid() const;

private:
    void waitForVm();
    void makeImage(Stick &stick);
    void readEvents();

    QTemporaryDir m_directory;
    QProcess m_vm;
    QProcess m_host;
    int m_readOfPrinted = 0; ///< bytes in which next() has looked
    QList<QJsonObject> m_events;
    qint64 m_logRead = 0; ///< bytes of the host's log in which events have been looked for
};
