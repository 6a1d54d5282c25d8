// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <QByteArray>
#include <QString>

/// Sends \a request to a UNIX socket and returns what is answered up to \a endsWith; less if that takes longer than ten
/// seconds, nothing if nobody listens.
QByteArray askSocket(const QString &path, const QByteArray &request, const char *endsWith);
