// SPDX-License-Identifier: LGPL-2.1-or-later
#include "componentcommand.h"

#include "component/redirecthandler.h"
#include "worker/devredirectworker.h"

#include <QJsonDocument>
#include <QJsonObject>

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
