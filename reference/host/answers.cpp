// SPDX-License-Identifier: LGPL-2.1-or-later

// What the component says of its devices when it is asked: why one cannot be shared, and how those do that are.

#include "host.h"
#include "reference/client/componentcommand.h"

#include <QJsonArray>

namespace {

QString text(const QJsonObject &object, const char *key)
{
    return object.value(QLatin1String(key)).toString();
}

QString megabytes(const QJsonValue &direction)
{
    return QString::number(direction[QStringLiteral("bytes")].toDouble() / 1e6, 'f', 1);
}

QList<QJsonObject> gatesOf(const QString &deviceId)
{
    QList<QJsonObject> gates;
    const QJsonArray answer = askComponent(QStringLiteral("explain"), deviceId).value_or(QJsonArray());
    for (const QJsonValue gate : answer.at(0)[QStringLiteral("gates")].toArray())
        gates.append(gate.toObject());
    return gates;
}

bool isPassed(const QJsonObject &gate)
{
    return gate.value(QLatin1String("passed")).toBool();
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

// For a refusal: what helps against the first thing that is in the way.
QString Host::cureFor(const QString &deviceId)
{
    for (const QJsonObject &gate : gatesOf(deviceId)) {
        if (!isPassed(gate))
            return QStringLiteral(". What helps: ") + text(gate, "cure");
    }
    return {};
}

void Host::statistics(const QString &)
{
    const auto answer = askComponent(QStringLiteral("stats"));
    if (!answer)
        requestFailed(QStringLiteral("no statistics: this component does not count"), QString());
    else if (answer->isEmpty())
        m_output.tell(Event::Nothing, QStringLiteral("no device is shared"));
    for (const QJsonValue one : answer.value_or(QJsonArray())) {
        const QJsonObject device = one.toObject();
        m_output.tell(Event::Statistics,
                      QStringLiteral("%1 on %2 since %3: %4 MB from the device, %5 MB to it, %6 errors, %7 packets "
                                     "dropped, %8 ms (99 %: %9 ms) a transfer")
                          .arg(text(device, "deviceId"), text(device, "channel"), text(device, "since"),
                               megabytes(device.value(QLatin1String("fromDevice"))),
                               megabytes(device.value(QLatin1String("toDevice"))))
                          .arg(device.value(QLatin1String("errors")).toDouble())
                          .arg(device.value(QLatin1String("isochronousDrops")).toDouble())
                          .arg(device.value(QLatin1String("medianMilliseconds")).toDouble())
                          .arg(device.value(QLatin1String("percentile99Milliseconds")).toDouble()),
                      device);
    }
}
