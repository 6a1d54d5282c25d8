// SPDX-License-Identifier: LGPL-2.1-or-later

// QThread::wait() returns a moment before the thread has given its own data back. A program that links this file waits
// for that after its tests, so that the leak check does not come in between.

#include "support/waitfor.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>

namespace {

bool anyQtThreadIsLeft()
{
    const QDir tasks(QStringLiteral("/proc/self/task"));
    for (const QString &task : tasks.entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        QFile name(tasks.filePath(task + QStringLiteral("/comm")));
        if (name.open(QIODevice::ReadOnly) && name.readAll().trimmed() == "QThread")
            return true;
    }
    return false;
}

class ThreadEnds : public ::testing::Environment
{
public:
    void TearDown() override
    {
        waitFor([] { return !anyQtThreadIsLeft(); }, 5000);
    }
};

const ::testing::Environment *const environment = ::testing::AddGlobalTestEnvironment(new ThreadEnds);

} // namespace
