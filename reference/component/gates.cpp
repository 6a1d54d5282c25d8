// SPDX-License-Identifier: LGPL-2.1-or-later
#include "gates.h"

#include "reference/username.h"
#include "sharenote.h"

#include <QDir>
#include <QFile>

#include <algorithm>
#include <set>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace {

QString helpfulRule(const UsbDevice &device)
{
    return QStringLiteral("SUBSYSTEM==\"usb\", ATTR{idVendor}==\"%1\", ATTR{idProduct}==\"%2\", TAG+=\"uaccess\"")
        .arg(device.vendorId, device.productId);
}

using FileId = std::pair<dev_t, ino_t>;

FileId fileAt(const QString &path)
{
    struct stat status = {};
    stat(QFile::encodeName(path).constData(), &status);
    return {status.st_dev, status.st_ino};
}

// Of a file that a process has open. Not stat(): the server of a file may not answer, for ever.
FileId openFileAt(const QString &link)
{
    struct statx status = {};
    statx(AT_FDCWD, QFile::encodeName(link).constData(), AT_STATX_DONT_SYNC, STATX_INO, &status);
    return {makedev(status.stx_dev_major, status.stx_dev_minor), status.stx_ino};
}

bool hasOpen(const QString &process, const std::set<FileId> &files)
{
    const QString folder = QStringLiteral("/proc/") + process + QStringLiteral("/fd/");
    const QStringList open = QDir(folder).entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot);
    return std::any_of(open.begin(), open.end(),
                       [&](const QString &number) { return files.count(openFileAt(folder + number)) > 0; });
}

} // namespace

QJsonObject Gate::toJson() const
{
    QJsonObject entry{{QStringLiteral("gate"), name}, {QStringLiteral("passed"), bool(outcome)}};
    if (!outcome) {
        entry.insert(QStringLiteral("code"), outcome.code);
        entry.insert(QStringLiteral("text"), outcome.text);
        entry.insert(QStringLiteral("cure"), cure);
    }
    return entry;
}

Outcome noPermission(const UsbDevice &device)
{
    return {Refusal::NoPermission,
            QStringLiteral("user %1 may not open %2; this udev rule helps: %3")
                .arg(userName(), device.node, helpfulRule(device))};
}

Gate permissionGate(const UsbDevice &device)
{
    Gate gate{QStringLiteral("permission"),
              {},
              QStringLiteral("that rule in /etc/udev/rules.d, or the package devredir-component-usb-rules")};
    if (!Descriptor(open(QFile::encodeName(device.node).constData(), O_RDWR | O_CLOEXEC)))
        gate.outcome = noPermission(device);
    return gate;
}

Gate mountGate(const UsbDevice &device)
{
    const QString point = device.mountPoint();
    Gate gate{QStringLiteral("not mounted"), {}, QStringLiteral("umount ") + point};
    if (!point.isEmpty()) {
        gate.outcome = {Refusal::Mounted, QStringLiteral("mounted at ") + point + QStringLiteral("; unmount it first")};
    } else if (const QStringList holders = device.holders(); !holders.isEmpty()) {
        gate.outcome = {Refusal::Mounted, QStringLiteral("in use as ") + holders.join(QStringLiteral(", "))};
        gate.cure =
            QStringLiteral("lock, stop or unmount that: udisksctl lock, vgchange -an, mdadm --stop, swapoff, umount");
    }
    return gate;
}

Gate useGate(const UsbDevice &device)
{
    Gate gate{QStringLiteral("not in use"), {}, QStringLiteral("end that program, or have it close the device")};
    std::set<FileId> files;
    for (const QString &node : device.nodes())
        files.insert(fileAt(node));
    files.erase(FileId()); // of a node that is not there
    if (files.empty())
        return gate;
    QStringList users;
    const QStringList processes = QDir(QStringLiteral("/proc")).entryList({QStringLiteral("[1-9]*")}, QDir::Dirs);
    for (const QString &process : processes) {
        if (process == QString::number(getpid()) || !hasOpen(process, files))
            continue;
        QFile name(QStringLiteral("/proc/") + process + QStringLiteral("/comm"));
        name.open(QIODevice::ReadOnly);
        users.append(process + QStringLiteral(" (") + QString::fromLocal8Bit(name.readAll().trimmed())
                     + QLatin1Char(')'));
    }
    if (!users.isEmpty())
        gate.outcome = {Refusal::UsbError, QStringLiteral("opened by process ") + users.join(QStringLiteral(", "))};
    return gate;
}
