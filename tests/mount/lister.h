// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <QByteArray>
#include <QList>
#include <QMap>
#include <QString>
#include <QTemporaryDir>

/**
 * Stands in for the block-device lister: a script "lsblk" that comes first in PATH.
 *
 * The n-th call prints the n-th answer, every later one prints the last. One at a time.
 */
class Lister
{
public:
    explicit Lister(const QList<QByteArray> &answers);
    ~Lister();
    Lister(const Lister &) = delete;
    Lister &operator=(const Lister &) = delete;

    /// The arguments of each call, in order.
    QList<QByteArray> calls() const;

private:
    QTemporaryDir m_directory;
    QByteArray m_pathOfBefore;
};

/// PATH leads nowhere, so that there is no lister at all.
class NoLister
{
public:
    NoLister();
    ~NoLister();
    NoLister(const NoLister &) = delete;
    NoLister &operator=(const NoLister &) = delete;

private:
    QTemporaryDir m_directory;
    QByteArray m_pathOfBefore;
};

/// What "/sys/block" shows until the object dies: link targets by device name. Every other name is missing.
class BlockDevices
{
public:
    explicit BlockDevices(const QMap<QString, QByteArray> &targets);
    ~BlockDevices();
    BlockDevices(const BlockDevices &) = delete;
    BlockDevices &operator=(const BlockDevices &) = delete;

    static QByteArray usbDisk(const QByteArray &name);
    static QByteArray sataDisk(const QByteArray &name);
};
