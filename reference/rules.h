// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <QJsonArray>
#include <QList>
#include <QString>
#include <QStringList>

/// What rules look at. Numbers are hexadecimal; empty: not known, which only "*" fits.
struct DeviceTraits
{
    QString deviceClass, vendorId, productId;
    QString serial, port{};
    QStringList interfaceClasses{}; ///< of all its functions
};

/// One rule. What it does not name is "*", which any device fits.
struct DeviceRule
{
    bool allow = false;
    QString deviceClass, vendorId, productId;
    QString serial, port{};
    QStringList interfaceClasses{}; ///< the device has none but these; empty: any
    QString name{}; ///< for people

    bool fits(const DeviceTraits &device) const;
};

/**
 * Ordered rules about devices. The first one that fits decides.
 */
class DeviceRules
{
public:
    /// Replaces the rules by "allow[:CLASS]:VENDOR:PRODUCT" and "deny[:CLASS]:VENDOR:PRODUCT", of which each part is
    /// hexadecimal, or "*" for any; false, and nothing is replaced, if one of them cannot be read.
    bool set(const QJsonArray &rules);
    void replaceBy(const QList<DeviceRule> &rules) { m_rules = rules; }

    /// Null if none fits. Valid until the rules change.
    const DeviceRule *firstThatFits(const DeviceTraits &device) const;
    /// \a otherwise if none fits.
    bool allow(const QString &deviceClass, const QString &vendorId, const QString &productId, bool otherwise) const;

private:
    QList<DeviceRule> m_rules;
};
