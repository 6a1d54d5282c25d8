// SPDX-License-Identifier: LGPL-2.1-or-later
#include "escaped.h"

// Control characters, marks that change the direction of writing, and line ends of every kind.
static bool steersTerminal(QChar c)
{
    switch (c.category()) {
    case QChar::Other_Control:
    case QChar::Other_Format:
    case QChar::Separator_Line:
    case QChar::Separator_Paragraph:
        return true;
    default:
        return false;
    }
}

QString escaped(const QString &text)
{
    QString result;
    for (const QChar c : text) {
        if (c == QLatin1Char('\\'))
            result += QLatin1String("\\\\");
        else if (c == QLatin1Char('\n'))
            result += QLatin1String("\\n");
        else if (!steersTerminal(c))
            result += c;
        else if (c.unicode() < 0x100)
            result += QStringLiteral("\\x%1").arg(c.unicode(), 2, 16, QLatin1Char('0'));
        else
            result += QStringLiteral("\\u%1").arg(c.unicode(), 4, 16, QLatin1Char('0'));
    }
    return result;
}
