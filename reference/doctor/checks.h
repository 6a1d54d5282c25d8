// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <QList>
#include <QString>

/// What one look found out.
struct Finding
{
    QString subject;
    bool isGood;
    QString text;
    QString cure; ///< what helps; empty if all is well
};

using Findings = QList<Finding>;

inline Finding good(const QString &subject, const QString &text)
{
    return {subject, true, text, QString()};
}

inline Finding bad(const QString &subject, const QString &text, const QString &cure)
{
    return {subject, false, text, cure};
}

/// The component in \a folder: found, loaded, complete. It is loaded, but none of its functions is called.
Findings checkComponent(const QString &folder);
/// The component's config.json in \a folder.
Findings checkConfiguration(const QString &folder);
/// The devices of this machine: whether this user may open them, and who else has them open.
Findings checkDevices();
/// What tells the library which disks are mounted: the lister of block devices, and the mount table.
Findings checkMounts();
/// The virtual machine at \a place (an address or a connection file): whether it lets us in, and its ports. \a folder
/// is the component's, \a passwordFile may be empty. Runs an event loop.
Findings checkServer(const QString &place, const QString &passwordFile, const QString &folder);
/// The SPICE library that this program got.
Findings checkSpice();
/// The likely causes of trouble that a client's log in \a path shows.
Findings checkLog(const QString &path);
