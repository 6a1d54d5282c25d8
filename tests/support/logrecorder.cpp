// SPDX-License-Identifier: LGPL-2.1-or-later
#include "support/logrecorder.h"

#include <QMutex>
#include <QtGlobal>

#include <cstring>

namespace {

// Never torn down: a test may end its process while the library's threads still write.
QMutex &mutex = *new QMutex;
QStringList &kept = *new QStringList;

const char *nameOf(QtMsgType type)
{
    switch (type) {
    case QtDebugMsg:
        return "debug";
    case QtInfoMsg:
        return "info";
    case QtWarningMsg:
        return "warning";
    default:
        return "critical";
    }
}

void keep(QtMsgType type, const QMessageLogContext &context, const QString &text)
{
    const bool plainContext = !context.file && !context.function && context.line == 0 && context.category
        && std::strcmp(context.category, "default") == 0;
    const QMutexLocker lock(&mutex);
    kept.append(QLatin1String(plainContext ? nameOf(type) : "context") + QStringLiteral(": ") + text);
}

} // namespace

LogRecorder::LogRecorder()
{
    clear();
    qInstallMessageHandler(keep);
}

LogRecorder::~LogRecorder()
{
    qInstallMessageHandler(nullptr);
}

QStringList LogRecorder::lines() const
{
    const QMutexLocker lock(&mutex);
    return kept;
}

QStringList LogRecorder::linesWith(const QString &part) const
{
    return lines().filter(part);
}

void LogRecorder::clear()
{
    const QMutexLocker lock(&mutex);
    kept.clear();
}
