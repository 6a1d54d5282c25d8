// SPDX-License-Identifier: LGPL-2.1-or-later
#include "sharenote.h"

#include "logging.h"

#include <QDir>
#include <QFile>
#include <QRandomGenerator>

#include <memory>

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

namespace {

// Another user's folder, or one that others may write to, could hold anything.
bool isOwn(const Descriptor &folder)
{
    struct stat status
    {
    };
    return fstat(folder.get(), &status) == 0 && status.st_uid == geteuid()
        && (status.st_mode & (S_IRWXG | S_IRWXO)) == 0;
}

Descriptor openFolder()
{
    const QByteArray runtimeFolder = qgetenv("XDG_RUNTIME_DIR");
    const QByteArray path = (runtimeFolder.isEmpty() ? QFile::encodeName(QDir::tempPath()) : runtimeFolder)
        + "/devredir-" + QByteArray::number(geteuid());
    mkdir(path.constData(), S_IRWXU);
    Descriptor folder(open(path.constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (folder && isOwn(folder))
        return folder;
    qCWarning(logComponent, "%s is no folder of this user's alone: devices stay taken if this process is killed",
              path.constData());
    return Descriptor();
}

// Process numbers come again, and exist twice where one of two processes lives in a container.
QByteArray newFileName()
{
    return QByteArray::number(QRandomGenerator::system()->generate64(), 36);
}

QList<QByteArray> filesIn(const Descriptor &folder)
{
    struct Close
    {
        void operator()(DIR *open) const { closedir(open); }
    };
    QList<QByteArray> names;
    const std::unique_ptr<DIR, Close> open(fdopendir(openat(folder.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC)));
    // NOLINTNEXTLINE(concurrency-mt-unsafe): no other thread reads this stream
    while (const dirent *entry = open ? readdir(open.get()) : nullptr) {
        if (entry->d_name[0] != '.')
            names.append(entry->d_name);
    }
    return names;
}

// The device in a note whose process has ended; empty if it lives. One that is still being written is empty, too.
QString deviceIn(const Descriptor &note)
{
    if (flock(note.get(), LOCK_EX | LOCK_NB) != 0)
        return QString();
    char text[512];
    const ssize_t length = read(note.get(), text, sizeof text);
    return QString::fromUtf8(text, int(qMax<ssize_t>(length, 0)));
}

} // namespace

ShareNote::ShareNote(const QString &deviceId)
    : m_folder(openFolder()), m_fileName(newFileName()),
      m_file(openat(m_folder.get(), m_fileName.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR))
{
    const QByteArray text = deviceId.toUtf8();
    const bool isWritten =
        flock(m_file.get(), LOCK_EX) == 0 && write(m_file.get(), text.constData(), size_t(text.size())) == text.size();
    if (m_folder && !isWritten)
        qCWarning(logComponent, "no note of a shared device can be written");
}

ShareNote::~ShareNote()
{
    unlinkat(m_folder.get(), m_fileName.constData(), 0);
}

QStringList ShareNote::takeLeftBehind()
{
    QStringList devices;
    const Descriptor folder = openFolder();
    for (const QByteArray &name : filesIn(folder)) {
        const Descriptor note(openat(folder.get(), name.constData(), O_RDONLY | O_CLOEXEC));
        const QString device = deviceIn(note);
        if (device.isEmpty())
            continue;
        unlinkat(folder.get(), name.constData(), 0);
        devices.append(device);
    }
    return devices;
}
