// SPDX-License-Identifier: LGPL-2.1-or-later

// Answers that change nothing: why a device cannot be shared, how those do that are, and which rule decides.

#include "host.h"
#include "reference/client/componentcommand.h"
#include "reference/client/rulesfile.h"

#include <algorithm>
#include <utility>

namespace {

QString text(const QJsonObject &object, const char *key)
{
    return object.value(QLatin1String(key)).toString();
}

} // namespace

void Host::explain(const QString &deviceId)
{
    const QList<QJsonObject> gates = gatesOf(deviceId);
    if (gates.isEmpty())
        requestFailed(QStringLiteral("not explained: %1: no such device, or a component that does not explain; "
                                     "\"list\" shows what there is")
                          .arg(deviceId),
                      deviceId);
    for (const QJsonObject &gate : gates) {
        m_output.tell(Event::Explained,
                      isPassed(gate) ? QStringLiteral("ok   ") + text(gate, "gate")
                                     : QStringLiteral("NO   %1: %2. What helps: %3")
                                           .arg(text(gate, "gate"), text(gate, "text"), text(gate, "cure")),
                      gate);
    }
}

void Host::statistics(const QString &)
{
    showStatistics(false);
}

void Host::showStatistics(bool live)
{
    if (const auto speeds = m_speeds.look())
        m_output.statistics(*speeds, live);
    else if (!live || std::exchange(m_showsSpeeds, false))
        requestFailed(QStringLiteral("no statistics: this component does not count"), QString());
}

// Which rule decides whether a device is shared by itself.
void Host::testRules(const QString &which)
{
    const QString deviceId = which.section(QLatin1Char(' '), 1);
    const QList<ExterDeviceInfo> devices = m_client->devices().list().value_or(QList<ExterDeviceInfo>());
    const auto device = std::find_if(devices.begin(), devices.end(),
                                     [&](const ExterDeviceInfo &one) { return one.deviceId == deviceId; });
    if (!which.startsWith(QLatin1String("test ")) || device == devices.end()) {
        requestFailed(QStringLiteral("no rule tested: %1: no such device; \"list\" shows what there is")
                          .arg(deviceId.isEmpty() ? which : deviceId),
                      deviceId);
        return;
    }
    DeviceRules rules;
    if (!readRules(rules))
        return;
    const DeviceRule *const rule = rules.firstThatFits(traitsOf(*device));
    m_output.tell(
        Event::Explained,
        rule ? QStringLiteral("%1: [%2] %3 it")
                   .arg(deviceId, rule->name, rule->allow ? QStringLiteral("allows") : QStringLiteral("denies"))
             : QStringLiteral("%1: no rule fits, so it is not shared by itself").arg(deviceId),
        {{QStringLiteral("deviceId"), deviceId},
         {QStringLiteral("rule"), rule ? rule->name : QString()},
         {QStringLiteral("allowed"), rule && rule->allow}});
}
