// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <QString>
#include <QStringList>

/**
 * Takes the place of the host's message handler and keeps every line as "level: text", for example
 * "warning: [ unLoad ] [REDIR_MODULE]  Fail to unload redirection modules library".
 *
 * A line with another category than "default", or with a file, line or function, is kept as "context: text".
 * One at a time. \thread any
 */
class LogRecorder
{
public:
    LogRecorder();
    ~LogRecorder();
    LogRecorder(const LogRecorder &) = delete;
    LogRecorder &operator=(const LogRecorder &) = delete;

    QStringList lines() const;
    /// The lines that contain \a part, in order.
    QStringList linesWith(const QString &part) const;
    /// Exactly this line was written.
    bool has(const QString &line) const { return count(line) > 0; }
    int count(const QString &line) const { return int(lines().count(line)); }
    void clear();
};
