// SPDX-License-Identifier: LGPL-2.1-or-later

// Texts about plugged USB devices: one command for each entry of four fields, with just these fields in it, then one
// request for the list.

#include "component/redirecthandler.h"
#include "target.h"
#include "worker/devredirectworker.h"

#include <QCoreApplication>
#include <QJsonDocument>
#include <QJsonObject>

#include <string>
#include <vector>

namespace {

std::vector<std::string> commands;
DevRedirectWorker *worker = nullptr;

using Entry = std::vector<QString>;

// Pieces between separators, found without QString's help.
std::vector<QString> pieces(const QString &text, ushort separator)
{
    std::vector<QString> found(1);
    for (const QChar c : text) {
        if (c.unicode() == separator)
            found.emplace_back();
        else
            found.back().append(c);
    }
    return found;
}

std::vector<Entry> usableEntries(const QString &text)
{
    std::vector<Entry> usable;
    for (const QString &entry : pieces(text, ';')) {
        const Entry fields = pieces(entry, ':');
        if (fields.size() >= 4)
            usable.push_back(fields);
    }
    return usable;
}

QJsonObject objectIn(const std::string &command)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(QByteArray::fromStdString(command), &error);
    expectEqual(error.errorString(), QStringLiteral("no error occurred"), "a command is JSON");
    expect(document.isObject(), "a command is an object");
    return document.object();
}

void compareCommand(const std::string &command, const Entry &fields)
{
    const QJsonObject object = objectIn(command);
    expectEqual(object.size(), 6, "number of members");
    expectEqual(object[QLatin1String("command")].toString(), QStringLiteral("devchange"), "command");
    expectEqual(object[QLatin1String("rdrName")].toString(), QStringLiteral("usbrdr"), "rdrName");
    expectEqual(object[QLatin1String("deviceName")].toString(), fields[0], "deviceName");
    expectEqual(object[QLatin1String("devicePosition")].toString(), fields[1], "devicePosition");
    expectEqual(object[QLatin1String("deviceAttach")].toString(), fields[2], "deviceAttach");
    expect(object[QLatin1String("fd")].isDouble(), "fd is a number");
    bool certain = false;
    const int descriptor = numberIn(fields[3], certain);
    if (certain)
        expectEqual(object[QLatin1String("fd")].toInt(-1234567), descriptor, "fd");
}

} // namespace

extern "C" __attribute__((visibility("default"))) int answerCommand(const std::string &command, char *, int &length)
{
    commands.push_back(command);
    length = 0;
    return 0;
}

int LLVMFuzzerInitialize(int *argc, char ***argv)
{
    switchLogOff();
    new QCoreApplication(*argc, *argv);
    DevRedirectWorker::m_redirectHandler->loadDynamicLib();
    worker = new DevRedirectWorker(nullptr);
    return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size)
{
    const QString text = QString::fromUtf8(bytesOf(data, size));
    commands.clear();
    worker->notifyUsbInfo(text);

    const std::vector<Entry> expected = usableEntries(text);
    expectEqual(int(commands.size()), int(expected.size()) + 1, "number of commands");
    for (std::size_t i = 0; i < expected.size(); ++i)
        compareCommand(commands[i], expected[i]);
    expect(commands.back() == R"({"command":"list"})", "the list is fetched at the end");
    return 0;
}
