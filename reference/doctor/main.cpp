// SPDX-License-Identifier: LGPL-2.1-or-later

// devredir-doctor: says what keeps devices from being shared on this machine, and what helps.

#include "checks.h"
#include "reference/client/commandline.h"
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

constexpr const char Name[] = "devredir-doctor";
enum ExitCode { Well = 0, Unwell = 1 };

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

} // namespace

int main(int argc, char **argv)
{
    const QString error = takeSpiceOptions(argc, argv);
    if (!error.isEmpty())
        return wrongUsage(Name, error);
    const QCoreApplication application(argc, argv);
    QCommandLineOption component = option(
        "component", "Where libdevredir.so and config.json are; \"Device Redirect\" beside this program without this.",
        "FOLDER");
    component.setDefaultValue(QCoreApplication::applicationDirPath() + QStringLiteral("/Device Redirect"));
    const QCommandLineOption uri =
        option("uri", "Also connect to this virtual machine: its SPICE address, or its .vv file.", "ADDRESS");
    const QCommandLineOption passwordFile =
        option("password-file", "Its password is the first line of this file.", "FILE");
    const QCommandLineOption log = option("log", "Only read this log of a client, and name the likely causes.", "FILE");
    const QCommandLineOption json = option("json", "One JSON array.");
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Says what keeps USB devices from being shared on this machine, and what helps. The component is\n"
        "loaded and not started; nothing is changed.\n"
        "\n"
        "Exit codes: 0 all is well, 1 something is not, 2 wrong usage."));
    parser.addOptions(commonOptions());
    parser.addOptions({component, uri, passwordFile, log, json});
    if (!parser.parse(QCoreApplication::arguments()))
        return wrongUsage(Name, parser.errorText());
    if (!parser.positionalArguments().isEmpty())
        return wrongUsage(Name, QStringLiteral("unexpected word: ") + parser.positionalArguments().constFirst());
    const QString answer = commonAnswer(parser, "devredir-doctor " DEVREDIRECT_VERSION);
    if (!answer.isEmpty()) {
        std::puts(qUtf8Printable(answer));
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
