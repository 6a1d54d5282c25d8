// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <QDebug>
#include <QLoggingCategory>

Q_DECLARE_LOGGING_CATEGORY(logComponent)

/// A name from a server or a device, for the log: in quotes, and what would steer a terminal escaped.
inline QByteArray quoted(const QString &name)
{
    QString text;
    QDebug(&text).nospace() << name;
    return text.toUtf8();
}
