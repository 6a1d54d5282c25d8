// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <QString>

QT_BEGIN_NAMESPACE
class QThread;
QT_END_NAMESPACE

/**
 * The mount table that the library watches in this test program.
 *
 * poll() is defined here once more, and the dynamic linker finds this one first. A poll that waits for a changed mount
 * table gets the changes that the test makes; every other poll is the real one. \thread any
 */
namespace MountTable {

/// Each watch sees one change and ends; the one that runs now is the first.
void change(int count = 1);
/// How many changes no watch has seen yet.
int unseenChanges();
/// How many polls have waited for a change.
int polls();
/// The thread of the latest of them; null before the first.
QThread *watchingThread();

/// From now on the block-device lister of this process prints \a json. False if it could not be set up.
bool setLister(const QString &json);

} // namespace MountTable
