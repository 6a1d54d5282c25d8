// SPDX-License-Identifier: LGPL-2.1-or-later
#include "checks.h"
#include "reference/component/gates.h"

#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>

#include <dlfcn.h>
#include <spice-client.h>

namespace {

const QString Devices = QStringLiteral("devices");
const QString Lister = QStringLiteral("lsblk");
const QString MountTable = QStringLiteral("mount table");
const QString Spice = QStringLiteral("SPICE library");
constexpr int LongestListing = 10000;

} // namespace

Findings checkDevices()
{
    Findings findings;
    for (const UsbDevice &device : UsbDevice::all()) {
        const QString name = device.id() + QLatin1Char(' ') + device.name;
        const auto before = findings.size();
        for (const Gate &gate : {permissionGate(device), useGate(device)}) {
            if (!gate.outcome)
                findings.append(bad(name, gate.outcome.text, gate.cure));
        }
        if (findings.size() == before)
            findings.append(good(name, QStringLiteral("may be opened, and nobody else has it open")));
    }
    if (findings.isEmpty())
        findings.append(good(Devices, QStringLiteral("none is plugged in")));
    return findings;
}

static Finding checkLister()
{
    const QString cure = QStringLiteral("install util-linux, and see that lsblk is in the PATH");
    QProcess lister;
    lister.start(QStringLiteral("lsblk"),
                 {QStringLiteral("-J"), QStringLiteral("-o"), QStringLiteral("NAME,MOUNTPOINT")});
    if (!lister.waitForFinished(LongestListing) || lister.exitStatus() != QProcess::NormalExit)
        return bad(Lister, QStringLiteral("cannot be run: ") + lister.errorString(), cure);
    const QByteArray listing = lister.readAllStandardOutput();
    if (!QJsonDocument::fromJson(listing).object().contains(QLatin1String("blockdevices")))
        return bad(Lister,
                   QStringLiteral("prints no JSON: ") + QString::fromUtf8(lister.readAllStandardError().trimmed()),
                   cure);
    return good(Lister, QStringLiteral("lists the block devices"));
}

Findings checkMounts()
{
    QFile table(QStringLiteral("/proc/self/mounts"));
    const bool isReadable = table.open(QIODevice::ReadOnly);
    return {checkLister(),
            isReadable ? good(MountTable, table.fileName())
                       : bad(MountTable, table.fileName() + QStringLiteral(": ") + table.errorString(),
                             QStringLiteral("mount /proc; without it no change of the mounts is seen"))};
}

Findings checkSpice()
{
    const bool hasAdditions = dlsym(RTLD_DEFAULT, "spice_port_channel_send_msg") != nullptr;
    return {good(Spice,
                 QStringLiteral("%1, %2").arg(
                     QString::fromUtf8(spice_util_get_version_string()),
                     hasAdditions ? QStringLiteral("with port messages of its own")
                                  : QStringLiteral("the stock one: the library brings the port messages")))};
}
