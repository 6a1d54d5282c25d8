// SPDX-License-Identifier: LGPL-2.1-or-later
#include "rules.h"

#include <QRegularExpression>

bool Rules::add(const QString &text)
{
    const QRegularExpression form(
        QStringLiteral("^(allow|deny):(\\*|[0-9a-f]{2}):(\\*|[0-9a-f]{4}):(\\*|[0-9a-f]{4})$"),
        QRegularExpression::CaseInsensitiveOption);
    for (const QString &rule : text.split(QLatin1Char(','), Qt::SkipEmptyParts)) {
        const QRegularExpressionMatch match = form.match(rule.trimmed());
        if (!match.hasMatch())
            return false;
        // The library lists codes in upper case.
        m_rules.append({match.captured(1).toLower() == QLatin1String("allow"), match.captured(2).toUpper(),
                        match.captured(3).toUpper(), match.captured(4).toUpper()});
    }
    return !m_rules.isEmpty();
}

bool Rules::allow(const ExterDeviceInfo &device) const
{
    const auto fits = [](const QString &pattern, const QString &code) {
        return pattern == QLatin1String("*") || pattern == code;
    };
    for (const Rule &rule : m_rules) {
        if (fits(rule.deviceClass, device.deviceClass) && fits(rule.vendorId, device.vendorId)
            && fits(rule.productId, device.productId))
            return rule.allow;
    }
    return false;
}
