// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "devredirectexport.h"

#include <QObject>
#include <QString>

/// \file
/// The watch over the mount table.

/// Waits for the local mount table to change, then until every USB disk is mounted.
///
/// A DevRedirectInterface has one on a thread of its own, the mount thread, and asks it to look with every
/// DevRedirectInterface::notifyEvent(). It needs neither the component nor a channel.
///
/// \ownership The interface's: its worker dies with the mount thread.
/// \thread mount; one call at a time.
class DEVREDIRECT_EXPORT WatchMountWorker : public QObject
{
    Q_OBJECT

public:
    /// The room that excuCmd() needs for its output: 4096 bytes, one more line and a terminator.
    static constexpr int OutputSize = 4096 + 4095 + 1;

    explicit WatchMountWorker(QObject *parent = nullptr); ///< watches nothing until it is asked to
    ~WatchMountWorker() override; ///< does not end a watch: destroy it when none runs

    /// Runs mountDone() again and again until it returns true or 60 seconds have passed, then emits mountSuccesful()
    /// in both cases. Blocks for that long.
    void doCheckMount();

    /// Asks the block-device lister ("lsblk"), and waits for it, whether every USB disk has a mount point on itself or
    /// on a partition. True also if there is no USB disk, or if the lister cannot be run or read.
    bool mountDone();

    /// Does the block device of this kernel name ("sda") sit on USB? False also if "/sys/block" has no such device.
    bool isUsbDev(QString name);

    /// Runs a shell command of at most 4095 bytes (a longer one ends the program with qFatal) and appends what it
    /// prints to \a output, a zeroed buffer of OutputSize bytes; reading stops with the line that passes 4096. False
    /// only if the command could not be started. Its exit status is not looked at.
    /// \ownership Both are borrowed for the call.
    bool excuCmd(const char *command, char *output);

Q_SIGNALS:
    /// The watch is over: every USB disk is mounted, or the time is up. Emitted on the mount thread.
    void mountSuccesful();

public Q_SLOTS:
    /// Waits for one change of the mount table (/proc/mounts) and then checks with doCheckMount(). There is no other
    /// way out, except that a failing or interrupted poll ends the watch without a check. If the table cannot be
    /// opened, the wait never ends.
    void watchMount();
};
