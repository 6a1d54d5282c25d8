// SPDX-License-Identifier: LGPL-2.1-or-later
#include "rules.h"

#include <QRegularExpression>

#include <algorithm>

namespace {

const QString Any = QStringLiteral("*");

bool fits(const QString &pattern, const QString &code)
{
    return pattern == Any || pattern.compare(code, Qt::CaseInsensitive) == 0;
}

} // namespace

bool DeviceRule::fits(const DeviceTraits &device) const
{
    const auto isKnown = [this](const QString &interfaceClass) {
        return interfaceClasses.contains(interfaceClass, Qt::CaseInsensitive);
    };
    return ::fits(deviceClass, device.deviceClass) && ::fits(vendorId, device.vendorId)
        && ::fits(productId, device.productId) && ::fits(serial, device.serial) && ::fits(port, device.port)
        && (interfaceClasses.isEmpty()
            || std::all_of(device.interfaceClasses.begin(), device.interfaceClasses.end(), isKnown));
}

bool DeviceRules::set(const QJsonArray &rules)
{
    const QRegularExpression form(
        QStringLiteral("^(allow|deny)(?::(\\*|[0-9a-f]{2}))?:(\\*|[0-9a-f]{4}):(\\*|[0-9a-f]{4})$"),
        QRegularExpression::CaseInsensitiveOption);
    QList<DeviceRule> read;
    for (const QJsonValue rule : rules) {
        const QRegularExpressionMatch match = form.match(rule.toString().trimmed());
        if (!match.hasMatch())
            return false;
        const QString deviceClass = match.captured(2);
        read.append({match.captured(1).startsWith(QLatin1Char('a'), Qt::CaseInsensitive),
                     deviceClass.isEmpty() ? Any : deviceClass,
                     match.captured(3),
                     match.captured(4),
                     Any,
                     Any,
                     {},
                     match.captured()});
    }
    m_rules = read;
    return true;
}

const DeviceRule *DeviceRules::firstThatFits(const DeviceTraits &device) const
{
    const auto found =
        std::find_if(m_rules.begin(), m_rules.end(), [&device](const DeviceRule &rule) { return rule.fits(device); });
    return found == m_rules.end() ? nullptr : &*found;
}

bool DeviceRules::allow(const QString &deviceClass, const QString &vendorId, const QString &productId,
                        bool otherwise) const
{
    const DeviceRule *const rule = firstThatFits({deviceClass, vendorId, productId, {}});
    return rule ? rule->allow : otherwise;
}
