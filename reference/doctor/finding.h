// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <QList>
#include <QString>

/// What one look found out.
struct Finding
{
    QString subject;
    bool isGood;
    QString text;
    QString cure; ///< what helps; empty if all is well
};

using Findings = QList<Finding>;

inline Finding good(const QString &subject, const QString &text)
{
    return {subject, true, text, QString()};
}

inline Finding bad(const QString &subject, const QString &text, const QString &cure)
{
    return {subject, false, text, cure};
}
