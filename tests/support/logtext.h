// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <QString>

/// A text as the log shows it: in double quotes, with inner quotes and backslashes escaped. For plain ASCII texts.
inline QString quoted(QString text)
{
    text.replace(QLatin1Char('\\'), QLatin1String("\\\\"));
    text.replace(QLatin1Char('"'), QLatin1String("\\\""));
    return QLatin1Char('"') + text + QLatin1Char('"');
}

/// The line "level: [ method ] [REDIR_MODULE] rest".
inline QString moduleLine(const char *level, const char *method, const QString &rest)
{
    return QStringLiteral("%1: [ %2 ] [REDIR_MODULE] ").arg(QLatin1String(level), QLatin1String(method)) + rest;
}

/// The line "level: DEVICE_REDIR method rest".
inline QString traceLine(const char *level, const char *method, const QString &rest)
{
    return QStringLiteral("%1: DEVICE_REDIR %2 ").arg(QLatin1String(level), QLatin1String(method)) + rest;
}
