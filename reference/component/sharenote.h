// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <utility>

#include <unistd.h>

/// Owns one file descriptor.
class Descriptor
{
public:
    explicit Descriptor(int number = -1) : m_number(number) { }
    ~Descriptor()
    {
        if (m_number >= 0)
            ::close(m_number);
    }
    Descriptor(Descriptor &&other) noexcept : m_number(std::exchange(other.m_number, -1)) { }
    Descriptor &operator=(Descriptor &&other) noexcept
    {
        std::swap(m_number, other.m_number);
        return *this;
    }

    int get() const { return m_number; }
    explicit operator bool() const { return m_number >= 0; }

private:
    int m_number;
};

/**
 * Says, while it lives, that this process has taken a USB device from the local system. A process that is killed leaves
 * its notes behind, and whoever starts next knows which devices are to be given back.
 *
 * A note is a file in a folder of the user's own, below XDG_RUNTIME_DIR or else the folder for temporary files. It is
 * locked: the kernel takes the lock away when the process ends, however that happens. Where there is no such folder a
 * warning is logged and there are no notes.
 */
class ShareNote
{
public:
    explicit ShareNote(const QString &deviceId);
    ~ShareNote();
    ShareNote(const ShareNote &) = delete;
    ShareNote &operator=(const ShareNote &) = delete;

    /// The devices in the notes of processes that have ended. Those notes are gone afterwards.
    static QStringList takeLeftBehind();

private:
    const Descriptor m_folder;
    const QByteArray m_fileName;
    const Descriptor m_file;
};
