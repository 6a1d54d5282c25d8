// SPDX-License-Identifier: LGPL-2.1-or-later
#include "options.h"

#include "reference/client/commandline.h"

#include <QCommandLineParser>
#include <QRegularExpression>

namespace {

constexpr int LongestTimeout = 24 * 60 * 60;
constexpr int LastPort = 65535;

const char *const Purpose =
    "Shares USB devices with a virtual machine over SPICE.\n"
    "\n"
    "Actions run in the order list, explain, share, unshare. A program that shares a device stays until it is "
    "interrupted; "
    "then\n"
    "it takes its devices back. --list, --explain and --watch need no virtual machine. Without an action it reads\n"
    "requests from standard input: list, explain ID, stats, rules test ID, share [--wait] ID|all, unshare ID|all, "
    "quit.\n"
    "\n"
    "Answers go to standard output, progress and failures to standard error.\n"
    "\n"
    "Exit codes: 0 success, 1 a request failed, 2 wrong usage, 3 no component, 4 no connection or lost, 5 no channel,\n"
    "6 wrong password, 7 the server's certificate is not trusted.";

struct OptionText
{
    const char *name;
    const char *description;
    const char *value; ///< null: it takes none
};

constexpr OptionText OptionTexts[] = {
    {"uri", "SPICE address: spice://HOST:PORT, spice+tls://HOST:PORT or spice+unix:///PATH.", "ADDRESS"},
    {"host", "SPICE server.", "NAME"},
    {"port", "Its port.", "NUMBER"},
    {"password-file", "Read the password from the first line of this file.", "FILE"},
    {"vm-id", "Identifier of the virtual machine; vm without this.", "ID"},
    {"list", "List the devices.", nullptr},
    {"share", "Share a device by what --list calls it, such as 1-1:SERIAL, or all.", "ID"},
    {"wait", "With --share, wait until the device is plugged in and nothing keeps it from being shared.", nullptr},
    {"unshare", "Take a device back, or all.", "ID"},
    {"stats", "Show every second what the shared devices transfer.", nullptr},
    {"auto",
     "Share what is plugged in by rules, separated by commas: allow[:CLASS]:VENDOR:PRODUCT or deny...; * is any, the "
     "first that fits decides.",
     "RULES"},
    {"by-rules",
     "Share what is plugged in by the rules of ~/.config/devredir/rules.conf: sections with action=allow or deny and "
     "any of class, vendor, product, serial, port and interfaces; the first that fits decides.",
     nullptr},
    {"explain", "Say what has to be so before a device can be shared, and what helps.", "ID"},
    {"watch", "Stay and tell of plugs.", nullptr},
    {"reconnect",
     "Stay until interrupted. When the connection is lost, try again until it is back, and share again what was "
     "shared; also after the virtual machine has been reset.",
     nullptr},
    {"no-restore", "With --reconnect, share nothing again.", nullptr},
    {"timeout", "Longest wait for the virtual machine and for the outcome of a request; 15 without this.", "SECONDS"},
    {"json", "One JSON object a line.", nullptr},
    {"log-rules",
     "What the log on standard error shows besides warnings: CATEGORY[.TYPE]=true|false, separated by ';', for example "
     "'*=true'.",
     "RULES"},
};

void declare(QCommandLineParser &parser)
{
    parser.setApplicationDescription(QString::fromUtf8(Purpose));
    parser.addPositionalArgument(QStringLiteral("rules test ID"),
                                 QStringLiteral("Say which of those rules decides for a device."),
                                 QStringLiteral("[rules test ID]"));
    parser.addPositionalArgument(QStringLiteral("FILE.vv"),
                                 QStringLiteral("A connection file of a virtual machine, in place of its address."),
                                 QStringLiteral("[FILE.vv]"));
    parser.addOptions(commonOptions());
    for (const OptionText &text : OptionTexts)
        parser.addOption(option(text.name, text.description, text.value));
}

// The parser takes any word for a value, also an option; no value of ours begins like one.
QString missingValue(const QCommandLineParser &parser)
{
    for (const OptionText &text : OptionTexts) {
        for (const QString &value : parser.values(QString::fromUtf8(text.name))) {
            if (value.trimmed().isEmpty() || value.startsWith(QLatin1String("--")))
                return QStringLiteral("--%1 needs a value: %2")
                    .arg(QLatin1String(text.name), QLatin1String(text.value));
        }
    }
    return {};
}

// Qt takes a rule that it cannot read for one that is not there.
bool areLogRules(const QStringList &rules)
{
    static const QRegularExpression form(
        QStringLiteral("^\\s*(?!=)\\*?[^\\s*=]*\\*?(\\.(debug|info|warning|critical))?\\s*=\\s*(true|false)\\s*$"));
    return !rules.isEmpty()
        && std::all_of(rules.begin(), rules.end(), [](const QString &rule) { return form.match(rule).hasMatch(); });
}

QString addressIn(const QCommandLineParser &parser)
{
    if (parser.isSet(QStringLiteral("uri")))
        return parser.value(QStringLiteral("uri"));
    const QString host = parser.value(QStringLiteral("host"));
    const bool isIp6 = host.contains(QLatin1Char(':')) && !host.startsWith(QLatin1Char('['));
    return host.isEmpty()
        ? QString()
        : QStringLiteral("spice://%1:%2")
              .arg(isIp6 ? QLatin1Char('[') + host + QLatin1Char(']') : host, parser.value(QStringLiteral("port")));
}

} // namespace

QString Options::read(const QStringList &arguments, QString &answer)
{
    QCommandLineParser parser;
    declare(parser);
    if (!parser.parse(arguments))
        return parser.errorText();
    QStringList words = parser.positionalArguments();
    if (words.value(0) == QLatin1String("rules")) {
        if (words.size() != 3 || words.at(1) != QLatin1String("test"))
            return QStringLiteral("rules needs: rules test ID");
        requests.append(words.join(QLatin1Char(' ')));
        words.clear();
    }
    const bool hasFile = words.value(0).endsWith(QLatin1String(".vv"));
    if (words.size() > int(hasFile))
        return QStringLiteral("unexpected word: ") + words.at(int(hasFile));
    const auto isSet = [&](const char *name) { return parser.isSet(QString::fromUtf8(name)); };
    const auto value = [&](const char *name) { return parser.value(QString::fromUtf8(name)); };
    answer = commonAnswer(parser, "devredir-host " DEVREDIRECT_VERSION);
    if (!answer.isEmpty())
        return {};

    const QString missing = missingValue(parser);
    if (!missing.isEmpty())
        return missing;
    if (isSet("timeout")) {
        timeoutSeconds = value("timeout").toInt();
        if (timeoutSeconds < 1 || timeoutSeconds > LongestTimeout)
            return QStringLiteral("--timeout needs a number of seconds from 1 to %1").arg(LongestTimeout);
    }
    if (isSet("auto") && !autoRules.set(QJsonArray::fromStringList(value("auto").split(QLatin1Char(',')))))
        return QStringLiteral(
            "--auto needs rules like allow[:CLASS]:VENDOR:PRODUCT, for example allow:08:*:* for every disk");
    const QStringList logRuleList =
        value("log-rules").split(QRegularExpression(QStringLiteral("[;\n]")), Qt::SkipEmptyParts);
    if (isSet("log-rules") && !areLogRules(logRuleList))
        return QStringLiteral("--log-rules needs rules like CATEGORY[.TYPE]=true|false, for example '*=true'");
    if (isSet("auto") && isSet("by-rules"))
        return QStringLiteral("the rules are those of --auto or of --by-rules");
    if (isSet("wait") && !isSet("share"))
        return QStringLiteral("--wait goes with --share");
    if (isSet("no-restore") && !isSet("reconnect"))
        return QStringLiteral("--no-restore goes with --reconnect");
    if (isSet("host") != isSet("port") || int(isSet("uri")) + int(isSet("host")) + int(hasFile) > 1)
        return QStringLiteral("the virtual machine's place is --uri, or --host and --port together, or a .vv file");
    const int port = value("port").toInt();
    if (isSet("port") && (port < 1 || port > LastPort))
        return QStringLiteral("--port needs a number from 1 to %1").arg(LastPort);

    address = hasFile ? words.first() : addressIn(parser);
    passwordFile = value("password-file");
    vmId = isSet("vm-id") ? value("vm-id") : QStringLiteral("vm");
    logRules = logRuleList.join(QLatin1Char('\n'));
    json = isSet("json");
    liveStatistics = isSet("stats");
    watch = isSet("watch");
    autoShare = isSet("auto") || isSet("by-rules");
    rulesInFile = !isSet("auto");
    reconnect = isSet("reconnect");
    restore = reconnect && !isSet("no-restore");
    if (isSet("list"))
        requests.append(QStringLiteral("list"));
    for (const QString &id : parser.values(QStringLiteral("explain")))
        requests.append(QStringLiteral("explain ") + id);
    for (const QString &id : parser.values(QStringLiteral("share")))
        requests.append((isSet("wait") ? QStringLiteral("share --wait ") : QStringLiteral("share ")) + id);
    for (const QString &id : parser.values(QStringLiteral("unshare")))
        requests.append(QStringLiteral("unshare ") + id);
    interactive = requests.isEmpty() && !watch && !autoShare;
    const bool isLocal = !isSet("share") && !isSet("unshare") && !autoShare && !interactive;
    if (address.isEmpty() && !isLocal)
        return QStringLiteral("where is the virtual machine? --uri, or --host and --port, or a .vv file (see --help)");
    return {};
}
