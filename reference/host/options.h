// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "reference/rules.h"

#include <QString>
#include <QStringList>

/// What the command line asks for.
struct Options
{
    QString address; ///< of the virtual machine, as given, or a connection file; empty: none
    QString passwordFile; ///< empty: none
    QString vmId;
    QString logRules;
    bool json = false;
    bool liveStatistics = false;
    bool watch = false; ///< stay and tell of plugs
    bool autoShare = false;
    bool reconnect = false; ///< when the connection is lost
    bool restore = false; ///< what was shared when a channel was lost
    DeviceRules autoRules;
    bool rulesInFile = false; ///< and not in autoRules
    QStringList requests; ///< as they would be typed
    bool interactive = false; ///< requests come from standard input
    int timeoutSeconds = 15; ///< longest wait for the virtual machine and for the outcome of a request

    /// Reads a command line without the options that every SPICE client has; empty, or what is wrong with it, as one
    /// line. If \a answer is set afterwards it was asked for ("--help"), and there is nothing else to do.
    QString read(const QStringList &arguments, QString &answer);
};
