// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "devices/exterdeviceinfo.h"
#include "reference/rules.h"

#include <optional>

/**
 * The user's rules, in "devredir/rules.conf" of the folder for configuration (usually ~/.config).
 *
 * Each group is a rule, and its title the rule's name: "action" is allow or deny; "class", "vendor", "product",
 * "serial" and "port" say which devices it fits; with "interfaces", a list, it fits only devices that have no other
 * interfaces.
 */
namespace RulesFile {

QString path();

/// No rules if there is no such file; nothing, and one line in \a error with the cure, if it cannot be read.
std::optional<DeviceRules> read(const QString &path, QString &error);

/// Adds a rule behind the others that allows this very device, by its serial number or else by its port; or takes that
/// rule out again. What else stands in the file stays. Empty, or one line with the cure.
QString allow(const QString &path, const ExterDeviceInfo &device);
QString forget(const QString &path, const ExterDeviceInfo &device);

} // namespace RulesFile

/// What rules see of a device in a list.
DeviceTraits traitsOf(const ExterDeviceInfo &device);
