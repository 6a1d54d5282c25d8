// SPDX-License-Identifier: LGPL-2.1-or-later
#include "devices/devicelistreaders.h"

#include <QJsonArray>
#include <QJsonObject>

#include <algorithm>
#include <limits>
#include <mutex>
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

QString orEmpty(const QString &text)
{
    return text.isEmpty() ? emptyText() : text;
}

// The component sends its integers as JSON strings; anything else reads as 0.
template<typename Value>
int integerIn(const Value &value)
{
    return textIn(value).toInt();
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
        const QString listed = orEmpty(textIn(value));
        device.*text->member = text->transformation == Case::Upper ? listed.toUpper() : listed;
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
ExterDeviceInfo readDevice(const Value &object)
{
    static const std::vector<Key> Keys = allDeviceKeys();
    ExterDeviceInfo device;
    forEachMember(object, Keys, [&device](Key key, const Value &value) { readMember(key, value, device); });
    device.parsedStatus = device.status;
    device.isCompositeDevice = !device.functions.isEmpty();
    device.spareFlagA = false;
    device.spareFlagB = true;
    return device;
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
            if (isObject(entry))
                content.devices.append(readDevice(entry));
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

    /// False if the text is refused. \a document lives as long as \a memory.
    bool parse(std::string_view text, dom::document &memory, dom::element &document)
    {
        const simdjson::padded_string padded(text);
        const std::lock_guard<std::mutex> lock(m_mutex);
        const simdjson::error_code refused = m_parser.parse_into_document(memory, padded).get(document);
        if (text.size() > UsualSize && m_parser.allocate(UsualSize, DeepestNesting))
            return false;
        return !refused;
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
    case dom::element_type::ARRAY:
        for (const dom::element entry : value.get_array().value_unsafe()) {
            if (!isReadAlike(entry))
                return false;
        }
        return true;
    case dom::element_type::OBJECT:
        for (const dom::key_value_pair member : value.get_object().value_unsafe()) {
            if (!isReadAlike(member.value))
                return false;
        }
        return true;
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
    if (text.empty() || !Parser::instance().parse(text, memory, document) || !document.is_array()
        || !isReadAlike(document))
        return std::nullopt;
    return readContent(document);
}

DeviceListReaders::Content DeviceListReaders::readWithQt(const QJsonDocument &document)
{
    return readContent(QJsonValue(document.array()));
}
