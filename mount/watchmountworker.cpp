// SPDX-License-Identifier: LGPL-2.1-or-later
#include "mount/watchmountworker.h"

#include "log/log.h"

#include <QByteArray>
#include <QDateTime>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QScopeGuard>

#include <cstdio>
#include <cstring>
#include <memory>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace {

constexpr const char *ListCommand = "lsblk -J -o NAME,MOUNTPOINT";
constexpr int PollMilliseconds = 5;
constexpr qint64 LastCheckMilliseconds = 59999;
constexpr std::size_t CommandSize = 4096;
constexpr std::size_t LineSize = 4096;
constexpr std::size_t OutputLimit = 4096;
static_assert(WatchMountWorker::OutputSize == OutputLimit + LineSize); // excuCmd() may add a line to a full output

struct ClosePipe
{
    void operator()(FILE *stream) const { pclose(stream); }
};

// True when the mount table has changed, false when it cannot be watched.
bool waitForMountChange(int mounts)
{
    pollfd watched{mounts, POLLPRI | POLLERR, 0};
    while (!(watched.revents & POLLERR)) {
        watched.revents = 0;
        if (poll(&watched, 1, PollMilliseconds) < 0)
            return false;
    }
    return true;
}

QString memberText(const QJsonObject &object, const char *key)
{
    return object.value(QLatin1String(key)).toString();
}

// How many of a disk's partitions are mounted.
int countMounted(const QJsonArray &partitions)
{
    int mounted = 0;
    for (const QJsonValue entry : partitions) {
        const QJsonObject partition = entry.toObject();
        const QString mountPoint = memberText(partition, "mountpoint");
        Log::plain(QtDebugMsg, "mountDone", "childname", memberText(partition, "name"));
        Log::plain(QtDebugMsg, "mountDone", "childMountPoint", mountPoint);
        if (!mountPoint.isEmpty())
            ++mounted;
    }
    return mounted;
}

} // namespace

WatchMountWorker::WatchMountWorker(QObject *parent) : QObject(parent) { }

WatchMountWorker::~WatchMountWorker() = default;

void WatchMountWorker::watchMount()
{
    // If it cannot be opened, poll ignores the negative descriptor.
    const int mounts = open("/proc/mounts", O_RDONLY | O_CLOEXEC);
    const auto closesIt = qScopeGuard([mounts] { close(mounts); });
    if (!waitForMountChange(mounts))
        return;
    std::printf("Mount points changed. %d.\n", 0);
    std::fflush(stdout);
    doCheckMount();
}

void WatchMountWorker::doCheckMount()
{
    const QDateTime start = QDateTime::currentDateTime();
    bool isDone = false;
    while (!isDone && start.msecsTo(QDateTime::currentDateTime()) <= LastCheckMilliseconds)
        isDone = mountDone();
    Q_EMIT mountSuccesful();
}

bool WatchMountWorker::mountDone()
{
    char output[OutputSize] = {};
    if (!excuCmd(ListCommand, output)) {
        // Asking again would not help: a missing lister must not keep the watch busy for a minute.
        Log::plain(QtWarningMsg, "mountDone", "excuCmd error.");
        return true;
    }
    Log::plain(QtDebugMsg, "mountDone", "excuCmd:lsblk -J -o NAME,MOUNTPOINT,result is ", output);

    const QJsonObject listing = QJsonDocument::fromJson(output).object();
    const QJsonArray devices = listing.value(QLatin1String("blockdevices")).toArray();
    for (const QJsonValue entry : devices) {
        const QJsonObject device = entry.toObject();
        const QString name = memberText(device, "name");
        const QString mountPoint = memberText(device, "mountpoint");
        Log::plain(QtDebugMsg, "mountDone", "devName", name);
        Log::plain(QtDebugMsg, "mountDone", "devMountPoint", mountPoint);
        if (!isUsbDev(name))
            continue;
        const int mountedPartitions = countMounted(device.value(QLatin1String("children")).toArray());
        Log::plain(QtDebugMsg, "mountDone", "lstChildMount count", mountedPartitions);
        if (mountPoint.isEmpty() && mountedPartitions == 0) {
            Log::plain(QtDebugMsg, "mountDone", "mountDone has not find return failed");
            return false;
        }
    }
    return true;
}

bool WatchMountWorker::isUsbDev(QString name)
{
    char path[80];
    std::snprintf(path, sizeof path, "/sys/block/%s", name.toUtf8().constData());
    char target[4096];
    const ssize_t length = readlink(path, target, sizeof target);
    const QByteArray link(target, length > 0 ? int(length) : 0);
    Log::plain(QtDebugMsg, "isUsbDev", "excuCmd:", path);
    Log::plain(QtDebugMsg, "isUsbDev", "result:", link.constData());
    if (std::size_t(length) >= sizeof target) { // also the -1 of an error
        Log::plain(QtInfoMsg, "isUsbDev", "get dev info failed,and the devname is", name);
        return false;
    }
    return link.contains("usb");
}

bool WatchMountWorker::excuCmd(const char *command, char *output)
{
    if (std::strlen(command) >= CommandSize)
        QMessageLogger(nullptr, 0, nullptr).fatal("excuCmd: a command of more than %zu bytes", CommandSize - 1);
    const std::unique_ptr<FILE, ClosePipe> stream(popen(command, "re"));
    if (!stream) {
        Log::plain(QtWarningMsg, "excuCmd", QStringLiteral("popen %1  error.").arg(QString::fromUtf8(command)));
        return false;
    }
    char line[LineSize];
    std::size_t length = std::strlen(output);
    while (std::fgets(line, sizeof line, stream.get())) {
        const std::size_t added = std::strlen(line);
        std::memcpy(output + length, line, added + 1);
        length += added;
        if (length > OutputLimit) {
            Log::plain(QtWarningMsg, "excuCmd", "Get Disk data error bacause data memery is too large.");
            break;
        }
    }
    return true;
}
