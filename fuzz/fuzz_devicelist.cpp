// SPDX-License-Identifier: LGPL-2.1-or-later

// Device-list documents: what the quick reader makes of them is what Qt's makes of them, field by field.

#include "devices/devicelistreaders.h"
#include "devices/externaldevicelistparser.h"
#include "target.h"

#include <QJsonDocument>

#include <algorithm>
#include <memory>
#include <set>

#include <simdjson.h>

namespace {

constexpr QString ExterDeviceInfo::*Texts[] = {
    &ExterDeviceInfo::rdrName,    &ExterDeviceInfo::context,     &ExterDeviceInfo::vendorId,
    &ExterDeviceInfo::productId,  &ExterDeviceInfo::deviceId,    &ExterDeviceInfo::devicePosition,
    &ExterDeviceInfo::deviceName, &ExterDeviceInfo::deviceClass, &ExterDeviceInfo::storeLetter,
    &ExterDeviceInfo::usbHub,     &ExterDeviceInfo::usbPort,     &ExterDeviceInfo::transportMode,
    &ExterDeviceInfo::spareTextA, &ExterDeviceInfo::vmId,        &ExterDeviceInfo::spareTextB,
    &ExterDeviceInfo::usbProt,    &ExterDeviceInfo::deviceRel,   &ExterDeviceInfo::deviceSubClass,
    &ExterDeviceInfo::errCode,    &ExterDeviceInfo::errString,
};
constexpr int ExterDeviceInfo::*Numbers[] = {
    &ExterDeviceInfo::status,      &ExterDeviceInfo::parsedStatus,        &ExterDeviceInfo::spareValueA,
    &ExterDeviceInfo::nFunctionId, &ExterDeviceInfo::founctionBitmapMask, &ExterDeviceInfo::spareValueB,
    &ExterDeviceInfo::spareValueC,
};
constexpr bool ExterDeviceInfo::*Flags[] = {
    &ExterDeviceInfo::readOnly,          &ExterDeviceInfo::spareFlagA, &ExterDeviceInfo::spareFlagB,
    &ExterDeviceInfo::isCompositeDevice, &ExterDeviceInfo::isCDROM,    &ExterDeviceInfo::isMatchContext,
};

void compareDevice(const ExterDeviceInfo &quick, const ExterDeviceInfo &qt)
{
    for (const auto text : Texts) {
        expectEqual(quick.*text, qt.*text, "a text");
        expectEqual((quick.*text).isNull(), text == &ExterDeviceInfo::spareTextB, "only one text is null");
        expectEqual((qt.*text).isNull(), text == &ExterDeviceInfo::spareTextB, "only one text is null");
    }
    for (const auto number : Numbers)
        expectEqual(quick.*number, qt.*number, "a number");
    for (const auto flag : Flags)
        expectEqual(quick.*flag, qt.*flag, "a flag");
    expectEqual(quick.functions.size(), qt.functions.size(), "number of functions");
    for (int i = 0; i < quick.functions.size(); ++i) {
        expectEqual(quick.functions[i].founctionId, qt.functions[i].founctionId, "a function's id");
        expectEqual(quick.functions[i].founctionClass, qt.functions[i].founctionClass, "a function's class");
        expectEqual(quick.functions[i].founctionBitmapMask, qt.functions[i].founctionBitmapMask, "a function's mask");
    }
}

void compare(const DeviceListReaders::Content &quick, const DeviceListReaders::Content &qt)
{
    expectEqual(quick.elements, qt.elements, "number of elements");
    expectEqual(quick.devices.size(), qt.devices.size(), "number of devices");
    for (int i = 0; i < quick.devices.size(); ++i)
        compareDevice(quick.devices[i], qt.devices[i]);
}

// Qt sorts the members of an object; of more than 16 it may then keep any of two with one name.
bool keepsQtTheLast(const simdjson::dom::element &value)
{
    constexpr std::size_t MostInOrder = 16;
    simdjson::dom::array entries;
    if (!value.get(entries)) {
        for (const simdjson::dom::element entry : entries) {
            if (!keepsQtTheLast(entry))
                return false;
        }
        return true;
    }
    simdjson::dom::object members;
    if (value.get(members))
        return true;
    std::set<std::string_view> names;
    std::size_t count = 0;
    for (const simdjson::dom::key_value_pair member : members) {
        names.insert(member.key);
        ++count;
        if (!keepsQtTheLast(member.value))
            return false;
    }
    return count <= MostInOrder || names.size() == count;
}

bool isWithoutDoubtForQt(const QByteArray &bytes)
{
    simdjson::dom::parser parser;
    simdjson::dom::element document;
    return !parser.parse(bytes.constData(), std::size_t(bytes.size())).get(document) && keepsQtTheLast(document);
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
    const QByteArray bytes = bytesOf(data, size);
    const QJsonDocument qt = whereQtReads([&bytes] { return QJsonDocument::fromJson(bytes); });

    const auto quick = DeviceListReaders::readQuickly({document.get(), size});
    if (quick) {
        expect(qt.isArray(), "the quick reader takes what Qt refuses");
        if (isWithoutDoubtForQt(bytes))
            compare(*quick, DeviceListReaders::readWithQt(qt));
    }

    QList<ExterDeviceInfo> devices{ExterDeviceInfo()}; // what is there already has to stay
    const auto parse = [&] { return parseExternalDeviceList(document.get(), unsigned(size), devices); };
    const bool isJson = quick ? parse() : whereQtReads(parse);
    expectEqual(isJson, !qt.isNull(), "whether it is JSON");
    const int expected = quick ? quick->devices.size() : DeviceListReaders::readWithQt(qt).devices.size();
    expectEqual(devices.size(), 1 + expected, "earlier records stay, and all are added");
    return 0;
}
