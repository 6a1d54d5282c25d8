// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <QString>

#include <ostream>

/// Lets a failed assertion show texts as texts. Include it before the first assertion on one.
inline void PrintTo(const QString &text, std::ostream *stream)
{
    *stream << '\'' << text.toStdString() << '\'';
}
