// SPDX-License-Identifier: LGPL-2.1-or-later
#include "output.h"

#include <QJsonArray>
#include <QJsonDocument>

#include <cstdio>

namespace {

void print(const QByteArray &line)
{
    std::printf("%s\n", line.constData());
    std::fflush(stdout);
}

QJsonObject describe(const ExterDeviceInfo &device)
{
    return {
        {QStringLiteral("deviceId"), device.deviceId},  {QStringLiteral("redirector"), device.rdrName},
        {QStringLiteral("name"), device.deviceName},    {QStringLiteral("class"), device.deviceClass},
        {QStringLiteral("vendorId"), device.vendorId},  {QStringLiteral("productId"), device.productId},
        {QStringLiteral("disk"), device.storeLetter},   {QStringLiteral("readOnly"), device.readOnly},
        {QStringLiteral("shared"), device.status != 0}, {QStringLiteral("error"), device.errString},
    };
}

} // namespace

void Output::tell(const char *event, const QString &text, QJsonObject details) const
{
    if (!m_json) {
        print(text.toUtf8());
        return;
    }
    details.insert(QStringLiteral("event"), QLatin1String(event));
    details.insert(QStringLiteral("text"), text);
    print(QJsonDocument(details).toJson(QJsonDocument::Compact));
}

void Output::list(const QList<ExterDeviceInfo> &devices) const
{
    if (m_json) {
        QJsonArray all;
        for (const ExterDeviceInfo &device : devices)
            all.append(describe(device));
        print(QJsonDocument(
                  QJsonObject{{QStringLiteral("event"), QStringLiteral("list")}, {QStringLiteral("devices"), all}})
                  .toJson(QJsonDocument::Compact));
        return;
    }
    if (devices.isEmpty())
        print("no devices");
    for (const ExterDeviceInfo &device : devices) {
        print(QStringLiteral("%1 %2 %3 %4:%5 %6%7%8")
                  .arg(device.status ? QStringLiteral("[shared]") : QStringLiteral("[local] "), device.deviceId,
                       device.rdrName, device.vendorId, device.productId, device.deviceName,
                       device.storeLetter.isEmpty() ? QString() : QStringLiteral(", disk ") + device.storeLetter,
                       device.readOnly ? QStringLiteral(", read-only") : QString())
                  .toUtf8());
    }
}
