// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QList>
#include <QString>

#include <optional>

/**
 * Asks the component what the library has no call for: "stats", or "explain" with a device. Nothing if the component
 * does not know the command, or has no answer.
 *
 * Returns when the component does. \thread any, while the component is started
 */
std::optional<QJsonArray> askComponent(const QString &word, const QString &deviceId = QString());

/// What has to be so before a device can be shared, from "explain"; nothing if there is no answer.
QList<QJsonObject> gatesOf(const QString &deviceId);
bool isPassed(const QJsonObject &gate);
/// The first of them that keeps it here for certain; empty if there is none. Another program that has it open does so
/// only if it has claimed it.
QJsonObject obstacleTo(const QString &deviceId);
/// ". What helps: …" against the first thing that is not as it has to be, after a refusal; empty if there is none.
QString cureFor(const QString &deviceId);
