// SPDX-License-Identifier: LGPL-2.1-or-later
#include "policy.h"

#include <QRegularExpression>

bool Policy::set(const QStringList &rules)
{
    const QRegularExpression form(QStringLiteral("^(allow|deny):(\\*|[0-9a-f]{4}):(\\*|[0-9a-f]{4})$"),
                                  QRegularExpression::CaseInsensitiveOption);
    QList<Rule> read;
    for (const QString &rule : rules) {
        const QRegularExpressionMatch match = form.match(rule);
        if (!match.hasMatch())
            return false;
        read.append({match.captured(1).compare(QLatin1String("allow"), Qt::CaseInsensitive) == 0,
                     match.captured(2).toLower(), match.captured(3).toLower()});
    }
    m_rules = read;
    return true;
}

bool Policy::allows(const QString &vendorId, const QString &productId) const
{
    const auto fits = [](const QString &pattern, const QString &id) {
        return pattern == QLatin1String("*") || pattern.compare(id, Qt::CaseInsensitive) == 0;
    };
    for (const Rule &rule : m_rules) {
        if (fits(rule.vendorId, vendorId) && fits(rule.productId, productId))
            return rule.allow;
    }
    return true;
}
