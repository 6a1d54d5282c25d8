// SPDX-License-Identifier: LGPL-2.1-or-later
#include "output.h"

#include "reference/client/escaped.h"

#include <QJsonArray>
#include <QJsonDocument>

#include <algorithm>
#include <cstdio>
#include <utility>

#include <unistd.h>

namespace {

constexpr const char Bold[] = "\033[1m";
constexpr const char Red[] = "\033[31m";
constexpr const char Green[] = "\033[32m";
constexpr const char Yellow[] = "\033[33m";
constexpr const char Plain[] = "\033[m";
constexpr const char ClearLine[] = "\r\033[K";
constexpr const char ClearScreen[] = "\033[H\033[J";

struct EventKind
{
    const char *name;
    Event event;
    bool isAnswer; ///< on standard output; the others are progress and failures, on standard error
    const char *colour = nullptr;
};

constexpr EventKind EventKinds[] = {
    {"list", Event::List, true},
    {"shared", Event::Shared, true, Green},
    {"unshared", Event::Unshared, true},
    {"nothing", Event::Nothing, true},
    {"arrived", Event::Arrived, true},
    {"left", Event::Left, true},
    {"channel lost", Event::ChannelLost, true, Yellow},
    {"stopped", Event::Stopped, true, Yellow},
    {"explained", Event::Explained, true},
    {"statistics", Event::Statistics, true},
    {"waiting", Event::Waiting, false},
    {"loading", Event::Loading, false},
    {"started", Event::Started, false},
    {"connected", Event::Connected, false},
    {"channel", Event::Channel, false},
    {"leaving", Event::Leaving, false},
    {"bye", Event::Bye, false},
    {"failed", Event::Failed, false, Red},
    {"error", Event::Error, false, Red},
    {"disconnected", Event::Disconnected, false, Red},
};

const EventKind &kindOf(Event event)
{
    return *std::find_if(std::begin(EventKinds), std::end(EventKinds),
                         [event](const EventKind &kind) { return kind.event == event; });
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

QStringList rowFor(const ExterDeviceInfo &device)
{
    return {device.status ? QStringLiteral("shared") : QStringLiteral("local"),
            device.deviceId,
            device.rdrName.toLower(),
            device.vendorId + QLatin1Char(':') + device.productId,
            device.deviceName,
            (device.storeLetter + (device.readOnly ? QStringLiteral(" read-only") : QString())).trimmed()};
}

QString megabytes(double bytes)
{
    return QString::number(bytes / 1e6, 'f', 1);
}

QStringList rowFor(const TransferSpeed &speed)
{
    const auto text = [&](const char *key) {
        return speed.statistics.value(QLatin1String(key)).toVariant().toString();
    };
    const auto total = [&](const char *direction) {
        return megabytes(speed.statistics.value(QLatin1String(direction))[QStringLiteral("bytes")].toDouble());
    };
    return {text("deviceId"),
            text("channel"),
            total("fromDevice"),
            total("toDevice"),
            megabytes(speed.fromDevice),
            megabytes(speed.toDevice),
            text("errors"),
            text("isochronousDrops"),
            text("medianMilliseconds"),
            text("percentile99Milliseconds"),
            text("since")};
}

} // namespace

Output::Output(bool json)
    : m_json(json), m_hasTerminal(!json && isatty(STDOUT_FILENO) && isatty(STDERR_FILENO)),
      m_hasColours(m_hasTerminal && qEnvironmentVariableIsEmpty("NO_COLOR") && qgetenv("TERM") != "dumb")
{
}

void Output::print(Event event, const QString &line)
{
    const EventKind &kind = kindOf(event);
    FILE *const stream = kind.isAnswer ? stdout : stderr;
    if (std::exchange(m_hasProgress, false))
        std::fputs(ClearLine, stderr);
    const bool isColoured = m_hasColours && kind.colour;
    std::fprintf(stream, "%s%s%s\n", isColoured ? kind.colour : "", qUtf8Printable(line), isColoured ? Plain : "");
    std::fflush(stream);
}

void Output::progress(const QString &text)
{
    if (!m_hasTerminal || (text.isEmpty() && !m_hasProgress))
        return;
    m_hasProgress = !text.isEmpty();
    std::fprintf(stderr, "%s%s", ClearLine, qUtf8Printable(escaped(text)));
}

void Output::tell(Event event, const QString &text, QJsonObject details)
{
    if (!m_json) {
        print(event, escaped(text));
        return;
    }
    details.insert(QStringLiteral("text"), text);
    tellJson(event, details);
}

void Output::tellJson(Event event, QJsonObject object)
{
    object.insert(QStringLiteral("event"), QLatin1String(kindOf(event).name));
    print(event, QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact)));
}

// The first row has the headings.
void Output::table(Event event, const QList<QStringList> &rows)
{
    QList<int> widths;
    for (int i = 0; i < rows.first().size(); ++i) {
        const auto widest = std::max_element(rows.begin(), rows.end(), [i](const QStringList &a, const QStringList &b) {
            return escaped(a[i]).size() < escaped(b[i]).size();
        });
        widths.append(int(escaped((*widest)[i]).size()));
    }
    const char *emphasis = m_hasColours ? Bold : "";
    for (const QStringList &row : rows) {
        QString line;
        for (int i = 0; i < row.size(); ++i)
            line += escaped(row[i]).leftJustified(widths[i] + 2);
        print(event, QLatin1String(emphasis) + line.trimmed() + QLatin1String(*emphasis ? Plain : ""));
        emphasis = "";
    }
}

void Output::list(const QList<ExterDeviceInfo> &devices)
{
    if (m_json) {
        QJsonArray all;
        for (const ExterDeviceInfo &device : devices)
            all.append(describe(device));
        tellJson(Event::List, {{QStringLiteral("devices"), all}});
        return;
    }
    if (devices.isEmpty()) {
        tell(Event::List, QStringLiteral("no devices"));
        return;
    }
    QList<QStringList> rows{{QStringLiteral("STATE"), QStringLiteral("ID"), QStringLiteral("KIND"),
                             QStringLiteral("NUMBERS"), QStringLiteral("NAME"), QStringLiteral("DISK")}};
    for (const ExterDeviceInfo &device : devices)
        rows.append(rowFor(device));
    table(Event::List, rows);
}

void Output::statistics(const QList<TransferSpeed> &speeds, bool live)
{
    if (live && m_hasTerminal)
        std::fputs(ClearScreen, stdout);
    if (speeds.isEmpty() && (!live || m_hasTerminal))
        tell(Event::Nothing, QStringLiteral("no device is shared"));
    if (m_json) {
        for (const TransferSpeed &speed : speeds)
            tellJson(Event::Statistics, speed.statistics);
        return;
    }
    if (speeds.isEmpty())
        return;
    QList<QStringList> rows{
        QStringLiteral("ID,CHANNEL,MB FROM,MB TO,MB/s FROM,MB/s TO,ERRORS,DROPS,MEDIAN ms,99 % ms,SINCE")
            .split(QLatin1Char(','))};
    for (const TransferSpeed &speed : speeds)
        rows.append(rowFor(speed));
    table(Event::Statistics, rows);
}
