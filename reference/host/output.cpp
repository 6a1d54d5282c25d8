// SPDX-License-Identifier: LGPL-2.1-or-later
#include "output.h"

#include "reference/client/escaped.h"

#include <QJsonArray>
#include <QJsonDocument>

#include <cstdio>

namespace {

struct EventKind
{
    const char *name;
    Event event;
    bool isAnswer; ///< on standard output; the others are progress and failures, on standard error
};

constexpr EventKind EventKinds[] = {
    {"list", Event::List, true},
    {"shared", Event::Shared, true},
    {"unshared", Event::Unshared, true},
    {"nothing", Event::Nothing, true},
    {"arrived", Event::Arrived, true},
    {"left", Event::Left, true},
    {"channel lost", Event::ChannelLost, true},
    {"stopped", Event::Stopped, true},
    {"explained", Event::Explained, true},
    {"statistics", Event::Statistics, true},
    {"loading", Event::Loading, false},
    {"started", Event::Started, false},
    {"connected", Event::Connected, false},
    {"channel", Event::Channel, false},
    {"leaving", Event::Leaving, false},
    {"bye", Event::Bye, false},
    {"failed", Event::Failed, false},
    {"error", Event::Error, false},
    {"disconnected", Event::Disconnected, false},
};

const EventKind &kindOf(Event event)
{
    return *std::find_if(std::begin(EventKinds), std::end(EventKinds),
                         [event](const EventKind &kind) { return kind.event == event; });
}

void print(Event event, const QByteArray &line)
{
    FILE *const stream = kindOf(event).isAnswer ? stdout : stderr;
    std::fprintf(stream, "%s\n", line.constData());
    std::fflush(stream);
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

QString lineFor(const ExterDeviceInfo &device)
{
    return QStringLiteral("%1 %2 %3 %4:%5 %6%7%8")
        .arg(device.status ? QStringLiteral("[shared]") : QStringLiteral("[local] "), device.deviceId, device.rdrName,
             device.vendorId, device.productId, device.deviceName,
             device.storeLetter.isEmpty() ? QString() : QStringLiteral(", disk ") + device.storeLetter,
             device.readOnly ? QStringLiteral(", read-only") : QString());
}

} // namespace

void Output::tell(Event event, const QString &text, QJsonObject details) const
{
    if (!m_json) {
        print(event, escaped(text).toUtf8());
        return;
    }
    details.insert(QStringLiteral("text"), text);
    tellJson(event, details);
}

void Output::tellJson(Event event, QJsonObject object) const
{
    object.insert(QStringLiteral("event"), QLatin1String(kindOf(event).name));
    print(event, QJsonDocument(object).toJson(QJsonDocument::Compact));
}

void Output::list(const QList<ExterDeviceInfo> &devices) const
{
    if (m_json) {
        QJsonArray all;
        for (const ExterDeviceInfo &device : devices)
            all.append(describe(device));
        tellJson(Event::List, {{QStringLiteral("devices"), all}});
        return;
    }
    if (devices.isEmpty())
        tell(Event::List, QStringLiteral("no devices"));
    for (const ExterDeviceInfo &device : devices)
        tell(Event::List, lineFor(device));
}
