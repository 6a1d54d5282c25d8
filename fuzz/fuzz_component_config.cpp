// SPDX-License-Identifier: LGPL-2.1-or-later

// "config.json" of the reference component: whether it is accepted and what is read from it.

#include "config.h"
#include "jsonreader.h"
#include "target.h"

#include <algorithm>

namespace {

bool isListOf(const Json::Value &value, Json::Value::Kind kind)
{
    if (value.kind == Json::Value::Kind::Absent)
        return true;
    return value.isArray() && std::all_of(value.entries.begin(), value.entries.end(), [kind](const Json::Value &entry) {
               return entry.kind == kind;
           });
}

bool isRedirectorTable(const Json::Value &value)
{
    if (value.kind == Json::Value::Kind::Absent)
        return true;
    return value.isObject() && std::all_of(value.members.begin(), value.members.end(), [](const auto &member) {
               const QString name = member.second.text;
               return name == QLatin1String("usbrdr") || name == QLatin1String("diskrdr")
                   || name == QLatin1String("camrdr");
           });
}

bool isAcceptable(const Json::Value &document)
{
    const Json::Value &prefix = document["channelPrefix"];
    return document.isObject() && (prefix.kind == Json::Value::Kind::Absent || !prefix.text.isEmpty())
        && isListOf(document["readOnly"], Json::Value::Kind::Text)
        && isListOf(document["devices"], Json::Value::Kind::Object) && isRedirectorTable(document["redirectors"]);
}

void compare(const Config &config, const Json::Value &document)
{
    const Json::Value &prefix = document["channelPrefix"];
    expectEqual(config.channelPrefix, prefix.isText() ? prefix.text : Config().channelPrefix, "channelPrefix");

    const std::vector<Json::Value> &readOnly = document["readOnly"].entries;
    expectEqual(config.readOnly.size(), int(readOnly.size()), "number of read-only disks");
    for (int i = 0; i < config.readOnly.size(); ++i)
        expectEqual(config.readOnly[i], readOnly[std::size_t(i)].text.toLower(), "read-only disk");

    const std::vector<Json::Value> &devices = document["devices"].entries;
    expectEqual(config.devices.size(), int(devices.size()), "number of devices");
    for (int i = 0; i < config.devices.size(); ++i) {
        const Json::Value &device = devices[std::size_t(i)];
        expectEqual(config.devices[i].size(), int(device.members.size()), "number of a device's members");
        // Member by member: Qt's look-up misses some names when others have characters beyond U+E000.
        for (auto member = config.devices[i].begin(); member != config.devices[i].end(); ++member) {
            const auto found = device.members.find(member.key());
            expect(found != device.members.end(), "a device's member");
            if (found->second.isText())
                expectEqual(member.value().toString(), found->second.text, "a device's text");
        }
    }

    // Of two spellings of one class the table keeps one.
    const std::map<QString, Json::Value> &table = document["redirectors"].members;
    for (const auto &listed : table) {
        const QString usbClass = listed.first.toLower();
        const QString kept = config.redirectors.value(usbClass);
        expect(std::any_of(
                   table.begin(), table.end(),
                   [&](const auto &other) { return other.first.toLower() == usbClass && other.second.text == kept; }),
               "redirector of a class");
    }
}

} // namespace

int LLVMFuzzerInitialize(int *, char ***)
{
    switchLogOff();
    return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size)
{
    Config config;
    QString error;
    const bool accepted = Config::parse(bytesOf(data, size), config, error);
    expect(accepted == error.isEmpty(), "a refusal says why");

    Json::Value document;
    const char *const text = reinterpret_cast<const char *>(data);
    Json::Reader reader(text, text + size);
    if (reader.read(document) && !reader.hadNameTwiceInLargeObject()) {
        expectEqual(accepted, isAcceptable(document), "whether the configuration is accepted");
        if (accepted)
            compare(config, document);
    }
    return 0;
}
