// SPDX-License-Identifier: LGPL-2.1-or-later
#include "address.h"

#include <QRegularExpression>
#include <QUrl>

namespace {

const QString Password = QStringLiteral("password");

QString unescaped(const QString &text)
{
    return QUrl::fromPercentEncoding(text.toUtf8());
}

// Takes the password out; what is left is "?port=…" or empty. False if there is anything else.
bool readQuery(const QString &query, SpiceAddress &address, QString &left)
{
    static const QRegularExpression form(QStringLiteral("^(?:(password)=(.*)|(?:port|tls-port)=\\d+)$"));
    for (const QString &part : query.split(QRegularExpression(QStringLiteral("[;&]")), Qt::SkipEmptyParts)) {
        const QRegularExpressionMatch match = form.match(part);
        if (!match.hasMatch())
            return false;
        if (match.captured(1) == Password)
            address.password = unescaped(match.captured(2));
        else
            left += (left.isEmpty() ? QLatin1Char('?') : QLatin1Char('&')) + part;
    }
    return true;
}

} // namespace

std::optional<SpiceAddress> SpiceAddress::parse(const QString &text)
{
    static const QRegularExpression form(
        QStringLiteral("^(?<scheme>spice(?:\\+tls)?://)"
                       "(?:(?<user>[^/]*)@)?"
                       "(?<place>(?:\\[(?<ip6>[^]/@]+)\\]|(?<host>[^]:/@[]+))(?::\\d+)?)/?$"
                       "|^(?<scheme2>spice\\+unix://)(?:(?<user2>[^/]*)@)?(?<path>[^@]+|/.+)$"));
    const auto queryAt = text.indexOf(QLatin1Char('?'));
    const QRegularExpressionMatch match = form.match(text.left(queryAt));
    SpiceAddress address;
    QString query;
    if (!match.hasMatch() || (queryAt >= 0 && !readQuery(text.mid(queryAt + 1), address, query)))
        return {};
    const QString user = match.captured(QStringLiteral("user")) + match.captured(QStringLiteral("user2"));
    if (!user.isEmpty())
        address.password = unescaped(user.section(QLatin1Char(':'), user.contains(QLatin1Char(':')) ? 1 : 0));
    address.host = match.captured(QStringLiteral("ip6")) + match.captured(QStringLiteral("host"));
    address.uri = match.captured(QStringLiteral("scheme")) + match.captured(QStringLiteral("place"))
        + match.captured(QStringLiteral("scheme2")) + match.captured(QStringLiteral("path")) + query;
    return address;
}
