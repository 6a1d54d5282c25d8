// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "devices/exterdeviceinfo.h"

#include <QList>
#include <QString>

/**
 * Which devices are shared as soon as they are plugged in: ordered rules "allow:class:vendor:product" and "deny:…",
 * each part hexadecimal or "*". The first rule that fits decides; a device that none fits is left alone.
 */
class Rules
{
public:
    /// Adds rules, separated by ","; false if one cannot be read.
    bool add(const QString &text);
    bool allow(const ExterDeviceInfo &device) const;

private:
    struct Rule
    {
        bool allow;
        QString deviceClass, vendorId, productId;
    };
    QList<Rule> m_rules;
};
