// SPDX-License-Identifier: LGPL-2.1-or-later
#include "mount/lister.h"
#include "mount/systemcalls.h"

#include <gtest/gtest.h>

#include <QFile>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace {

void write(const QString &path, const QByteArray &content)
{
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    ASSERT_EQ(file.write(content), content.size());
}

const char script[] = R"sh(#!/bin/sh
cd "$(dirname "$0")" || exit 1
echo "$@" >> calls
call=$(wc -l < calls)
last=$(cat last)
[ "$call" -gt "$last" ] && call=$last
cat "answer.$call"
)sh";

} // namespace

Lister::Lister(const QList<QByteArray> &answers) : m_pathOfBefore(qgetenv("PATH"))
{
    for (int i = 0; i < answers.size(); ++i)
        write(m_directory.filePath(QStringLiteral("answer.%1").arg(i + 1)), answers[i]);
    write(m_directory.filePath(QStringLiteral("last")), QByteArray::number(answers.size()));
    const QString lister = m_directory.filePath(QStringLiteral("lsblk"));
    write(lister, script);
    EXPECT_TRUE(QFile::setPermissions(lister, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
    qputenv("PATH", QFile::encodeName(m_directory.path()) + ':' + m_pathOfBefore);
}

Lister::~Lister()
{
    qputenv("PATH", m_pathOfBefore);
}

QList<QByteArray> Lister::calls() const
{
    QFile file(m_directory.filePath(QStringLiteral("calls")));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    QList<QByteArray> lines = file.readAll().split('\n');
    lines.removeLast(); // behind the last line's end
    return lines;
}

NoLister::NoLister() : m_pathOfBefore(qgetenv("PATH"))
{
    qputenv("PATH", QFile::encodeName(m_directory.path()));
}

NoLister::~NoLister()
{
    qputenv("PATH", m_pathOfBefore);
}

BlockDevices::BlockDevices(const QMap<QString, QByteArray> &targets)
{
    SystemCalls::onReadlink([targets](const std::string &path, char *buffer, std::size_t size) -> ssize_t {
        const auto target = targets.constFind(QString::fromStdString(path.substr(std::strlen("/sys/block/"))));
        if (target == targets.constEnd()) {
            errno = ENOENT;
            return -1;
        }
        const std::size_t length = std::min(size, std::size_t(target->size()));
        std::memcpy(buffer, target->constData(), length);
        return ssize_t(length);
    });
}

BlockDevices::~BlockDevices()
{
    SystemCalls::onReadlink(nullptr);
}

QByteArray BlockDevices::usbDisk(const QByteArray &name)
{
    return "../devices/pci0000:00/0000:00:14.0/usb1/1-1/1-1:1.0/host6/target6:0:0/6:0:0:0/block/" + name;
}

QByteArray BlockDevices::sataDisk(const QByteArray &name)
{
    return "../devices/pci0000:00/0000:00:17.0/ata1/host0/target0:0:0/0:0:0:0/block/" + name;
}
