// SPDX-License-Identifier: LGPL-2.1-or-later

// Device-list documents: every record is compared with what a second reader makes of the same document, and every error
// with what Qt's reader says of it.

#include "devices/externaldevicelistparser.h"
#include "json/readjson.h"
#include "jsonreader.h"
#include "target.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonParseError>

#include <algorithm>
#include <memory>

#include <sanitizer/lsan_interface.h>

namespace {

QString textIn(const Json::Value &object, const char *key)
{
    return object[key].isText() ? object[key].text : QString();
}

void compareNumber(int actual, const Json::Value &object, const char *key, const char *what, int added = 0)
{
    bool certain = false;
    const int listed = numberIn(textIn(object, key), certain);
    if (certain)
        expectEqual(actual, listed == 2147483647 ? listed : listed + added, what);
}

void compareFunctions(const ExterDeviceInfo &device, const Json::Value &object)
{
    const std::vector<Json::Value> &listed = object["founctionInfo"].entries;
    expectEqual(device.functions.size(), int(listed.size()), "number of functions");
    expectEqual(device.isCompositeDevice, !listed.empty(), "isCompositeDevice");
    for (std::size_t i = 0; i < listed.size(); ++i) {
        const FunctionInfo &function = device.functions[int(i)];
        expectEqual(function.founctionClass, textIn(listed[i], "founctionClass"), "founctionClass");
        compareNumber(function.founctionId, listed[i], "founctionId", "founctionId", 1);
        compareNumber(function.founctionBitmapMask, listed[i], "founctionBitmapMask", "function's mask");
    }
}

void compareDevice(const ExterDeviceInfo &device, const Json::Value &object)
{
    expectEqual(device.rdrName, textIn(object, "rdrName"), "rdrName");
    expectEqual(device.context, textIn(object, "context"), "context");
    expectEqual(device.vendorId, textIn(object, "vendorId").toUpper(), "vendorId");
    expectEqual(device.productId, textIn(object, "productId").toUpper(), "productId");
    expectEqual(device.deviceId, textIn(object, "deviceId"), "deviceId");
    const QString position = textIn(object, "devicePosition").toUpper();
    expectEqual(device.devicePosition, position.isEmpty() ? device.deviceId : position, "devicePosition");
    expectEqual(device.deviceName, textIn(object, "deviceName"), "deviceName");
    expectEqual(device.deviceClass, textIn(object, "deviceClass").toUpper(), "deviceClass");
    expectEqual(device.deviceSubClass, textIn(object, "deviceSubClass").toUpper(), "deviceSubClass");
    expectEqual(device.usbProt, textIn(object, "usbProt").toUpper(), "usbProt");
    expectEqual(device.deviceRel, textIn(object, "deviceRel").toUpper(), "deviceRel");
    expectEqual(device.storeLetter, textIn(object, "storeLetter"), "storeLetter");
    expectEqual(device.usbHub, textIn(object, "usbHub"), "usbHub");
    expectEqual(device.usbPort, textIn(object, "usbPort"), "usbPort");
    expectEqual(device.vmId, textIn(object, "vmId"), "vmId");
    expectEqual(device.errCode, textIn(object, "errCode").toUpper(), "errCode");
    expectEqual(device.errString, textIn(object, "errString").toUpper(), "errString");
    expectEqual(device.readOnly, object["readOnly"].boolean, "readOnly");
    compareNumber(device.founctionBitmapMask, object, "founctionBitmapMask", "device's mask");
    bool certain = false;
    const int shared = numberIn(textIn(object, "isShared"), certain);
    if (certain)
        expectEqual(device.status, shared != 0 ? 2 : 0, "status");
    expectEqual(device.parsedStatus, device.status, "parsedStatus");
    compareFunctions(device, object);

    // What no document can set.
    const ExterDeviceInfo fresh;
    expectEqual(device.transportMode, fresh.transportMode, "transportMode");
    expectEqual(device.spareTextA + device.spareTextB, QString(), "spare texts");
    expect(!device.spareFlagA && device.spareFlagB && !device.isCDROM && !device.isMatchContext, "fixed flags");
    expect(device.spareValueA == fresh.spareValueA && device.spareValueB == 0 && device.spareValueC == 0
               && device.nFunctionId == 0,
           "fixed numbers");
}

void compareAll(const QList<ExterDeviceInfo> &devices, int before, const Json::Value &document)
{
    int next = before;
    for (const Json::Value &element : document.entries) {
        for (const Json::Value &entry : element["devices"].entries) {
            if (!entry.isObject())
                continue;
            expect(next < devices.size(), "a listed device has no record");
            compareDevice(devices[next++], entry);
        }
    }
    expectEqual(devices.size(), next, "number of records");
}

bool isSame(const QJsonValue &actual, const Json::Value &expected);

// Member by member: Qt's look-up misses some names when others have characters beyond U+E000.
bool hasSameMembers(const QJsonObject &object, const std::map<QString, Json::Value> &expected)
{
    if (std::size_t(object.size()) != expected.size())
        return false;
    for (auto member = object.begin(); member != object.end(); ++member) {
        const auto found = expected.find(member.key());
        if (found == expected.end() || !isSame(member.value(), found->second))
            return false;
    }
    return true;
}

/// Whether Qt's reader found all of it, numbers aside, and nothing else.
bool isSame(const QJsonValue &actual, const Json::Value &expected)
{
    using Kind = Json::Value::Kind;
    switch (expected.kind) {
    case Kind::Absent:
        return actual.isUndefined();
    case Kind::Null:
        return actual.isNull();
    case Kind::Boolean:
        return actual == QJsonValue(expected.boolean);
    case Kind::Number:
        return actual.isDouble();
    case Kind::Text:
        return actual == QJsonValue(expected.text);
    case Kind::Array: {
        const QJsonArray array = actual.toArray();
        return actual.isArray()
            && std::equal(array.begin(), array.end(), expected.entries.begin(), expected.entries.end(), isSame);
    }
    case Kind::Object:
        return actual.isObject() && hasSameMembers(actual.toObject(), expected.members);
    }
    return false;
}

void compareErrors(const QByteArray &document)
{
    QJsonParseError actual;
    QJsonParseError expected;
    readJson(document, &actual);
    {
        const __lsan::ScopedDisabler known; // Qt's reader by itself loses what has a name twice
        QJsonDocument::fromJson(document, &expected);
    }
    expectEqual(actual.errorString(), expected.errorString(), "error");
    expectEqual(actual.offset, expected.offset, "where the error is");
}

} // namespace

int LLVMFuzzerInitialize(int *, char ***)
{
    switchLogOff();
    return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size)
{
    // A copy of just this size: a byte read beyond it would not go unseen.
    const auto document = std::make_unique<char[]>(size);
    std::copy(data, data + size, document.get());

    QList<ExterDeviceInfo> devices{ExterDeviceInfo()}; // what is there already has to stay
    const bool isJson = parseExternalDeviceList(document.get(), unsigned(size), devices);
    expect(isJson || devices.size() == 1, "a document that is not JSON gives no records");
    expect(devices.size() >= 1 && devices[0].deviceId.isEmpty(), "earlier records stay");

    compareErrors(bytesOf(data, size));

    Json::Value expected;
    if (Json::Reader(document.get(), document.get() + size).read(expected)) {
        expect(isJson, "a document that everybody can read was refused");
        compareAll(devices, 1, expected);
        const QJsonDocument read = readJson(bytesOf(data, size));
        expect(isSame(read.isArray() ? QJsonValue(read.array()) : QJsonValue(read.object()), expected),
               "the document differs from what was written");
    }
    return 0;
}
