// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <QList>
#include <QString>
#include <QStringList>

/**
 * Which cameras may be redirected: ordered rules "allow:vendor:product" and "deny:vendor:product".
 *
 * Vendor and product are hexadecimal, "*" stands for any. The first rule that fits decides; a camera that none fits is
 * allowed.
 */
class Policy
{
public:
    /// Replaces the rules; false, and nothing is replaced, if one of them cannot be read.
    bool set(const QStringList &rules);
    bool allows(const QString &vendorId, const QString &productId) const;

private:
    struct Rule
    {
        bool allow;
        QString vendorId;
        QString productId;
    };
    QList<Rule> m_rules;
};
