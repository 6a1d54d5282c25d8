// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <QJsonArray>
#include <QList>
#include <QString>
#include <QStringList>

/**
 * Ordered rules about devices, "allow[:CLASS]:VENDOR:PRODUCT" and "deny[:CLASS]:VENDOR:PRODUCT". Each part is
 * hexadecimal, or "*" for any. The first rule that fits decides.
 */
class DeviceRules
{
public:
    /// Replaces the rules; false, and nothing is replaced, if one of them cannot be read.
    bool set(const QJsonArray &rules);
    /// \a otherwise if none fits.
    bool allow(const QString &deviceClass, const QString &vendorId, const QString &productId, bool otherwise) const;

private:
    struct Rule
    {
        bool allow;
        QString deviceClass, vendorId, productId;
    };
    QList<Rule> m_rules;
};
