// SPDX-License-Identifier: LGPL-2.1-or-later
#include "rules.h"

#include <QRegularExpression>

namespace {

const QString Any = QStringLiteral("*");

bool fits(const QString &pattern, const QString &code)
{
    return pattern == Any || pattern.compare(code, Qt::CaseInsensitive) == 0;
}

} // namespace

bool DeviceRules::set(const QJsonArray &rules)
{
    const QRegularExpression form(
        QStringLiteral("^(allow|deny)(?::(\\*|[0-9a-f]{2}))?:(\\*|[0-9a-f]{4}):(\\*|[0-9a-f]{4})$"),
        QRegularExpression::CaseInsensitiveOption);
    QList<Rule> read;
    for (const QJsonValue rule : rules) {
        const QRegularExpressionMatch match = form.match(rule.toString().trimmed());
        if (!match.hasMatch())
            return false;
        const QString deviceClass = match.captured(2);
        read.append({match.captured(1).startsWith(QLatin1Char('a'), Qt::CaseInsensitive),
                     deviceClass.isEmpty() ? Any : deviceClass, match.captured(3), match.captured(4)});
    }
    m_rules = read;
    return true;
}

bool DeviceRules::allow(const QString &deviceClass, const QString &vendorId, const QString &productId,
                        bool otherwise) const
{
    for (const Rule &rule : m_rules) {
        if (fits(rule.deviceClass, deviceClass) && fits(rule.vendorId, vendorId) && fits(rule.productId, productId))
            return rule.allow;
    }
    return otherwise;
}
