// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <QJsonArray>
#include <QString>

#include <optional>

/**
 * Asks the component what the library has no call for: "stats", or "explain" with a device. Nothing if the component
 * does not know the command, or has no answer.
 *
 * Returns when the component does. \thread any, while the component is started
 */
std::optional<QJsonArray> askComponent(const QString &word, const QString &deviceId = QString());
