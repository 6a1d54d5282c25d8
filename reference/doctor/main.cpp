// SPDX-License-Identifier: LGPL-2.1-or-later

// devredir-doctor: says what keeps devices from being shared on this machine, and what helps.

#include "checks.h"
#include "reference/client/escaped.h"
#include "reference/client/spiceoptions.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>
#include <cstdio>

namespace {

enum ExitCode { Well = 0, Unwell = 1, Usage = 2 };

void printForPeople(const Findings &findings)
{
    for (const Finding &finding : findings) {
        std::printf("%s  %s: %s\n", finding.isGood ? "ok " : "BAD", qUtf8Printable(escaped(finding.subject)),
                    qUtf8Printable(escaped(finding.text)));
        if (!finding.isGood)
            std::printf("       cure: %s\n", qUtf8Printable(escaped(finding.cure)));
    }
}

void printForScripts(const Findings &findings)
{
    QJsonArray all;
    for (const Finding &finding : findings) {
        all.append(QJsonObject{{QStringLiteral("subject"), finding.subject},
                               {QStringLiteral("ok"), finding.isGood},
                               {QStringLiteral("text"), finding.text},
                               {QStringLiteral("cure"), finding.cure}});
    }
    std::printf("%s\n", QJsonDocument(all).toJson().constData());
}

int wrongUsage(const QString &text)
{
    std::fprintf(stderr, "devredir-doctor: %s\n", qUtf8Printable(escaped(text)));
    return Usage;
}

} // namespace

int main(int argc, char **argv)
{
    const QString error = takeSpiceOptions(argc, argv);
    if (!error.isEmpty())
        return wrongUsage(error);
    const QCoreApplication application(argc, argv);
    const QCommandLineOption help(QStringLiteral("help"), QStringLiteral("Show this help."));
    const QCommandLineOption version(QStringLiteral("version"), QStringLiteral("Show the version."));
    const QCommandLineOption component(QStringLiteral("component"),
                                       QStringLiteral("Where libdevredir.so and config.json are; \"Device Redirect\" "
                                                      "beside this program without this."),
                                       QStringLiteral("FOLDER"),
                                       QCoreApplication::applicationDirPath() + QStringLiteral("/Device Redirect"));
    const QCommandLineOption uri(QStringLiteral("uri"),
                                 QStringLiteral("Also connect to this virtual machine: its SPICE address, or its .vv "
                                                "file."),
                                 QStringLiteral("ADDRESS"));
    const QCommandLineOption passwordFile(QStringLiteral("password-file"),
                                          QStringLiteral("Its password is the first line of this file."),
                                          QStringLiteral("FILE"));
    const QCommandLineOption spiceHelp(QStringLiteral("help-spice"),
                                       QStringLiteral("Show the options that every SPICE client has: certificates, "
                                                      "TLS."));
    const QCommandLineOption log(QStringLiteral("log"),
                                 QStringLiteral("Only read this log of a client, and name the likely causes."),
                                 QStringLiteral("FILE"));
    const QCommandLineOption json(QStringLiteral("json"), QStringLiteral("One JSON array."));
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Says what keeps USB devices from being shared on this machine, and what helps. The component is\n"
        "loaded and not started; nothing is changed.\n"
        "\n"
        "Exit codes: 0 all is well, 1 something is not, 2 wrong usage."));
    parser.addOptions({help, spiceHelp, version, component, uri, passwordFile, log, json});
    if (!parser.parse(QCoreApplication::arguments()))
        return wrongUsage(parser.errorText());
    if (!parser.positionalArguments().isEmpty())
        return wrongUsage(QStringLiteral("unexpected word: ") + parser.positionalArguments().constFirst());
    if (parser.isSet(help) || parser.isSet(version)) {
        std::puts(parser.isSet(help) ? qUtf8Printable(parser.helpText().trimmed())
                                     : "devredir-doctor " DEVREDIRECT_VERSION);
        return Well;
    }

    if (parser.isSet(spiceHelp)) {
        std::puts(qUtf8Printable(spiceOptionsHelp()));
        return Well;
    }

    const QString folder = parser.value(component);
    Findings findings = parser.isSet(log)
        ? checkLog(parser.value(log))
        : checkComponent(folder) + checkConfiguration(folder) + checkDevices() + checkMounts() + checkSpice();
    if (parser.isSet(uri))
        findings += checkServer(parser.value(uri), parser.value(passwordFile), folder);
    parser.isSet(json) ? printForScripts(findings) : printForPeople(findings);
    return std::all_of(findings.begin(), findings.end(), [](const Finding &one) { return one.isGood; }) ? Well : Unwell;
}
