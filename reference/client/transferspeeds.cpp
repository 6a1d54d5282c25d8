// SPDX-License-Identifier: LGPL-2.1-or-later
#include "transferspeeds.h"

#include "componentcommand.h"

#include <utility>

static double bytesIn(const QJsonObject &statistics, const char *direction)
{
    return statistics.value(QLatin1String(direction))[QStringLiteral("bytes")].toDouble();
}

std::optional<QList<TransferSpeed>> TransferSpeeds::look()
{
    const auto answer = askComponent(QStringLiteral("stats"));
    if (!answer)
        return std::nullopt;
    const double seconds = qMax(0.001, double(m_sinceLast.restart()) / 1000);
    const QHash<QString, Bytes> before = std::exchange(m_last, {});
    QList<TransferSpeed> speeds;
    for (const QJsonValue one : *answer) {
        const QJsonObject statistics = one.toObject();
        const QString deviceId = statistics.value(QLatin1String("deviceId")).toString();
        const Bytes now{bytesIn(statistics, "fromDevice"), bytesIn(statistics, "toDevice")};
        const Bytes then = before.value(deviceId, now);
        // It begins anew with each share.
        speeds.append({statistics, qMax(0.0, now.fromDevice - then.fromDevice) / seconds,
                       qMax(0.0, now.toDevice - then.toDevice) / seconds});
        m_last.insert(deviceId, now);
    }
    return speeds;
}
