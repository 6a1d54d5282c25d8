// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <QString>

#include <optional>

/// The first line of a file; nothing, and one line in \a error with the cure, if it cannot be read.
std::optional<QString> passwordIn(const QString &path, QString &error);

/// Asks whoever sits at the terminal, and waits; what is typed is not shown. Nothing without a terminal, or if the
/// answer is Ctrl+C or Ctrl+D.
std::optional<QString> askForPassword(const QString &prompt);
