// SPDX-License-Identifier: LGPL-2.1-or-later
#include "devices/devicelistreaders.h"

#include <QJsonArray>
#include <QJsonObject>

#include <algorithm>
#include <limits>
#include <mutex>
#include <numeric>
#include <vector>

#include <simdjson.h>

// One way to read a record, and two ways to get at a JSON value: a value is a QJsonValue or simdjson's.

namespace {

namespace dom = simdjson::dom;
using Key = std::string_view;

constexpr int Shared = 2;
constexpr int NotShared = 0;

enum class Case { AsListed, Upper };

struct TextKey
{
    Key key;
    QString ExterDeviceInfo::*member;
    Case transformation;
};

constexpr TextKey TextKeys[] = {
    {"rdrName", &ExterDeviceInfo::rdrName, Case::AsListed},
    {"context", &ExterDeviceInfo::context, Case::AsListed},
    {"vendorId", &ExterDeviceInfo::vendorId, Case::Upper},
    {"productId", &ExterDeviceInfo::productId, Case::Upper},
    {"devicePosition", &ExterDeviceInfo::devicePosition, Case::Upper},
    {"deviceName", &ExterDeviceInfo::deviceName, Case::AsListed},
    {"deviceClass", &ExterDeviceInfo::deviceClass, Case::Upper},
    {"storeLetter", &ExterDeviceInfo::storeLetter, Case::AsListed},
    {"deviceId", &ExterDeviceInfo::deviceId, Case::AsListed},
    {"usbHub", &ExterDeviceInfo::usbHub, Case::AsListed},
    {"usbPort", &ExterDeviceInfo::usbPort, Case::AsListed},
    {"vmId", &ExterDeviceInfo::vmId, Case::AsListed},
    {"usbProt", &ExterDeviceInfo::usbProt, Case::Upper},
    {"deviceRel", &ExterDeviceInfo::deviceRel, Case::Upper},
    {"deviceSubClass", &ExterDeviceInfo::deviceSubClass, Case::Upper},
    {"errCode", &ExterDeviceInfo::errCode, Case::Upper},
    {"errString", &ExterDeviceInfo::errString, Case::Upper},
};
constexpr Key OtherKeys[] = {"isShared", "readOnly", "founctionBitmapMask", "founctionInfo"};
constexpr Key FunctionKeys[] = {"founctionClass", "founctionId", "founctionBitmapMask"};

// --- values: one of another type than is asked for reads as empty, false or an empty list ---

QString textIn(const QJsonValue &value)
{
    return value.toString();
}

QString textIn(const dom::element &value)
{
    Key text;
    return value.get(text) ? QString() : QString::fromUtf8(text.data(), int(text.size()));
}

bool flagIn(const QJsonValue &value)
{
    return value.toBool();
}

bool flagIn(const dom::element &value)
{
    bool flag = false;
    return !value.get(flag) && flag;
}

template<typename Use>
void forEachEntry(const QJsonValue &list, const Use &use)
{
    for (const QJsonValue entry : list.toArray())
        use(entry);
}

template<typename Use>
void forEachEntry(const dom::element &list, const Use &use)
{
    dom::array entries;
    if (list.get(entries))
        return;
    for (const dom::element entry : entries)
        use(entry);
}

// Calls use(key, value) at least for those of these keys that the object has; for one that comes twice, the last call
// counts. Qt looks a key up, simdjson goes through all.
template<typename Use>
void forEachMember(const QJsonValue &object, const std::vector<Key> &keys, const Use &use)
{
    const QJsonObject members = object.toObject();
    for (const Key key : keys)
        use(key, members.value(QLatin1String(key.data(), int(key.size()))));
}

template<typename Use>
void forEachMember(const dom::element &object, const std::vector<Key> &, const Use &use)
{
    dom::object members;
    if (object.get(members))
        return;
    for (const dom::key_value_pair member : members)
        use(member.key, member.value);
}

bool isObject(const QJsonValue &value)
{
    return value.isObject();
}

bool isObject(const dom::element &value)
{
    return value.is_object();
}

// --- records ---

QString orEmpty(QString text)
{
    return text.isEmpty() ? emptyText() : text;
}

// The component sends its integers as JSON strings; anything else reads as 0.
int integerIn(const QJsonValue &value)
{
    return textIn(value).toInt();
}

// A few digits, which most of them are, need no QString.
int integerIn(const dom::element &value)
{
    constexpr std::size_t FewDigits = 9;
    Key text;
    if (value.get(text) || text.empty())
        return 0;
    if (text.size() > FewDigits || text.find_first_not_of("0123456789") != Key::npos)
        return textIn(value).toInt();
    return std::accumulate(text.begin(), text.end(), 0, [](int sum, char digit) { return sum * 10 + (digit - '0'); });
}

// The component counts functions from 0, the host from 1. The largest number has no successor and stays.
int countedFromOne(int listedId)
{
    return listedId == std::numeric_limits<int>::max() ? listedId : listedId + 1;
}

template<typename Value>
FunctionInfo readFunction(const Value &object)
{
    static const std::vector<Key> Keys(std::begin(FunctionKeys), std::end(FunctionKeys));
    FunctionInfo function;
    function.founctionId = countedFromOne(0);
    forEachMember(object, Keys, [&function](Key key, const Value &value) {
        if (key == "founctionClass")
            function.founctionClass = orEmpty(textIn(value));
        else if (key == "founctionId")
            function.founctionId = countedFromOne(integerIn(value));
        else if (key == "founctionBitmapMask")
            function.founctionBitmapMask = integerIn(value);
    });
    return function;
}

template<typename Value>
void readMember(Key key, const Value &value, ExterDeviceInfo &device)
{
    const auto text = std::find_if(std::begin(TextKeys), std::end(TextKeys),
                                   [key](const TextKey &candidate) { return candidate.key == key; });
    if (text != std::end(TextKeys)) {
        QString listed = orEmpty(textIn(value));
        if (text->transformation == Case::Upper)
            listed = std::move(listed).toUpper();
        device.*text->member = std::move(listed);
    } else if (key == "isShared") {
        device.status = integerIn(value) != 0 ? Shared : NotShared;
    } else if (key == "readOnly") {
        device.readOnly = flagIn(value);
    } else if (key == "founctionBitmapMask") {
        device.founctionBitmapMask = integerIn(value);
    } else if (key == "founctionInfo") {
        device.functions.clear();
        forEachEntry(value, [&device](const Value &entry) { device.functions.append(readFunction(entry)); });
    }
}

std::vector<Key> allDeviceKeys()
{
    std::vector<Key> keys(std::begin(OtherKeys), std::end(OtherKeys));
    for (const TextKey &text : TextKeys)
        keys.push_back(text.key);
    return keys;
}

template<typename Value>
void readDevice(const Value &object, ExterDeviceInfo &device)
{
    static const std::vector<Key> Keys = allDeviceKeys();
    forEachMember(object, Keys, [&device](Key key, const Value &value) { readMember(key, value, device); });
    device.parsedStatus = device.status;
    device.isCompositeDevice = !device.functions.isEmpty();
    device.spareFlagA = false;
    device.spareFlagB = true;
}

// Copied, since making one takes a call for each text. Never destroyed: a list may be read until the process has ended.
const ExterDeviceInfo &blank()
{
    static const auto *const made = new ExterDeviceInfo;
    return *made;
}

template<typename Value>
DeviceListReaders::Content readContent(const Value &document)
{
    static const std::vector<Key> Keys{"devices"};
    DeviceListReaders::Content content;
    forEachEntry(document, [&content](const Value &element) {
        ++content.elements;
        std::optional<Value> devices;
        forEachMember(element, Keys, [&devices](Key key, const Value &value) {
            if (key == "devices")
                devices.emplace(value);
        });
        if (!devices)
            return;
        forEachEntry(*devices, [&content](const Value &entry) {
            if (!isObject(entry))
                return;
            content.devices.append(blank()); // read where it stays, since a copy touches every text
            readDevice(entry, content.devices.last());
        });
    });
    return content;
}

/// simdjson's, made while the library is being loaded and never destroyed: what simdjson makes parsers with goes when
/// the process ends, and a thread may still read a list then.
class Parser
{
public:
    static Parser &instance() { return s_instance; }

    simdjson::simdjson_result<dom::element> parse(std::string_view text, dom::document &memory)
    {
        const simdjson::padded_string padded(text);
        const std::lock_guard<std::mutex> lock(m_mutex);
        auto result = m_parser.parse_into_document(memory, padded);
        if (text.size() > UsualSize && m_parser.allocate(UsualSize, DeepestNesting))
            return simdjson::MEMALLOC;
        return result;
    }

private:
    static constexpr std::size_t UsualSize = 163840; // the most that a component is asked for
    static constexpr std::size_t DeepestNesting = 1000; // a little less than Qt's

    Parser()
    {
        const simdjson::error_code error = m_parser.allocate(UsualSize, DeepestNesting);
        Q_UNUSED(error) // without memory parse() will say so
    }

    static Parser &s_instance;
    std::mutex m_mutex;
    dom::parser m_parser;
};
Parser &Parser::s_instance = *new Parser; // clazy:exclude=non-pod-global-static

// Qt refuses numbers that are too small for it, and of a text it may drop a byte order mark.
bool isReadAlike(const dom::element &value)
{
    switch (value.type()) {
    case dom::element_type::ARRAY: {
        const dom::array entries = value.get_array().value_unsafe();
        for (const dom::element entry : entries) {
            if (!isReadAlike(entry))
                return false;
        }
        return true;
    }
    case dom::element_type::OBJECT: {
        const dom::object members = value.get_object().value_unsafe();
        for (const dom::key_value_pair member : members) {
            if (!isReadAlike(member.value))
                return false;
        }
        return true;
    }
    case dom::element_type::STRING:
        return value.get_string().value_unsafe().substr(0, 3) != "\xef\xbb\xbf";
    default:
        return !value.is_double();
    }
}

} // namespace

std::optional<DeviceListReaders::Content> DeviceListReaders::readQuickly(std::string_view text)
{
    dom::document memory;
    dom::element document;
    if (text.empty() || Parser::instance().parse(text, memory).get(document))
        return std::nullopt;
    if (!document.is_array() || !isReadAlike(document))
        return std::nullopt;
    return readContent(document);
}

DeviceListReaders::Content DeviceListReaders::readWithQt(const QJsonDocument &document)
{
    return readContent(QJsonValue(document.array()));
}
