// SPDX-License-Identifier: LGPL-2.1-or-later
#include "componentcommand.h"

#include "component/redirecthandler.h"
#include "worker/devredirectworker.h"

#include <QJsonDocument>

namespace {
constexpr int LongestAnswer = 65536;
} // namespace

std::optional<QJsonArray> askComponent(const QString &word, const QString &deviceId)
{
    const QJsonObject command{{QStringLiteral("command"), word}, {QStringLiteral("deviceId"), deviceId}};
    QByteArray answer(LongestAnswer, '\0');
    int length = LongestAnswer;
    const int code = DevRedirectWorker::m_redirectHandler->handlerRedirCtrlCommand(
        QJsonDocument(command).toJson(QJsonDocument::Compact).toStdString(), answer.data(), length);
    const QJsonDocument document = QJsonDocument::fromJson(answer.left(qBound(0, length, LongestAnswer)));
    return code == 0 && document.isArray() ? std::optional(document.array()) : std::nullopt;
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

QJsonObject obstacleTo(const QString &deviceId)
{
    for (const QJsonObject &gate : gatesOf(deviceId)) {
        if (!isPassed(gate) && gate.value(QLatin1String("gate")) != QLatin1String("not in use"))
            return gate;
    }
    return {};
}

QString cureFor(const QString &deviceId)
{
    for (const QJsonObject &gate : gatesOf(deviceId)) {
        if (!isPassed(gate))
            return QStringLiteral(". What helps: ") + gate.value(QLatin1String("cure")).toString();
    }
    return {};
}
