// SPDX-License-Identifier: LGPL-2.1-or-later
#include "devices/devicelistreaders.h"

#include <algorithm>
#include <limits>
#include <mutex>
#include <tuple>

#include <simdjson.h>

namespace {

namespace dom = simdjson::dom;

constexpr int Shared = 2;
constexpr int NotShared = 0;

enum class Case { AsListed, Upper };

struct TextKey
{
    std::string_view key;
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

QString textIn(const dom::element &value)
{
    std::string_view text;
    return value.get(text) || text.empty() ? emptyText() : QString::fromUtf8(text.data(), int(text.size()));
}

// The component sends its integers as JSON strings; anything else reads as 0.
int integerIn(const dom::element &value)
{
    std::string_view text;
    if (!value.get(text) && text.size() == 1 && text[0] >= '0' && text[0] <= '9')
        return text[0] - '0'; // the usual integer, for which no QString has to be made
    return textIn(value).toInt();
}

// The component counts functions from 0, the host from 1. The largest number has no successor and stays.
int countedFromOne(int listedId)
{
    return listedId == std::numeric_limits<int>::max() ? listedId : listedId + 1;
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

// Of a key that comes twice the last one counts.
template<typename Use>
void forEachMember(const dom::element &object, const Use &use)
{
    dom::object members;
    if (object.get(members))
        return;
    for (const dom::key_value_pair member : members)
        use(member.key, member.value);
}

FunctionInfo readFunction(const dom::element &object)
{
    FunctionInfo function;
    function.founctionId = countedFromOne(0);
    forEachMember(object, [&function](std::string_view key, const dom::element &value) {
        if (key == "founctionClass")
            function.founctionClass = textIn(value);
        else if (key == "founctionId")
            function.founctionId = countedFromOne(integerIn(value));
        else if (key == "founctionBitmapMask")
            function.founctionBitmapMask = integerIn(value);
    });
    return function;
}

void readMember(std::string_view key, const dom::element &value, ExterDeviceInfo &device)
{
    const auto text = std::find_if(std::begin(TextKeys), std::end(TextKeys),
                                   [key](const TextKey &candidate) { return candidate.key == key; });
    if (text != std::end(TextKeys)) {
        QString listed = textIn(value);
        device.*text->member = text->transformation == Case::Upper ? std::move(listed).toUpper() : std::move(listed);
    } else if (key == "isShared") {
        device.status = integerIn(value) != 0 ? Shared : NotShared;
    } else if (key == "readOnly") {
        device.readOnly = value.is_bool() && value.get_bool().value_unsafe();
    } else if (key == "founctionBitmapMask") {
        device.founctionBitmapMask = integerIn(value);
    } else if (key == "founctionInfo") {
        device.functions.clear();
        forEachEntry(value, [&device](const dom::element &entry) { device.functions.append(readFunction(entry)); });
    }
}

void readDevice(const dom::element &object, QList<ExterDeviceInfo> &devices)
{
    static const auto *const blank = new ExterDeviceInfo; // copied, since to make one takes a call for each text
    devices.append(*blank);
    ExterDeviceInfo &device = devices.last(); // filled where it stays, since a copy touches every text, too
    forEachMember(object, [&device](auto key, const dom::element &value) { readMember(key, value, device); });
    device.parsedStatus = device.status;
    device.isCompositeDevice = !device.functions.isEmpty();
}

DeviceListReaders::Content readContent(const dom::element &document)
{
    DeviceListReaders::Content content;
    forEachEntry(document, [&content](const dom::element &element) {
        ++content.elements;
        const auto before = content.devices.size();
        forEachMember(element, [&content, before](std::string_view key, const dom::element &devices) {
            if (key != "devices")
                return;
            content.devices.erase(content.devices.begin() + before, content.devices.end());
            forEachEntry(devices, [&content](const dom::element &entry) {
                if (entry.is_object())
                    readDevice(entry, content.devices);
            });
        });
    });
    return content;
}

/// simdjson's, made while the library is being loaded and never destroyed: what simdjson makes parsers with goes when
/// the process ends, and a thread may still read a list then.
class Parser
{
public:
    Parser() { std::ignore = m_parser.allocate(UsualSize, DeepestNesting); } // without memory parse() will say so

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
    static constexpr std::size_t DeepestNesting = 1100; // a little more than Qt's

    std::mutex m_mutex;
    dom::parser m_parser;
};
Parser &parser = *new Parser; // clazy:exclude=non-pod-global-static

// Qt refuses numbers that are too small for it and what is nested too deep; of a key it drops a byte order mark.
bool isReadAlike(const dom::element &value, int deepestNesting = 1000)
{
    bool isAlike = deepestNesting > 0 && !value.is_double();
    if (!isAlike || value.is_string()) // nothing is in it
        return isAlike;
    forEachEntry(value,
                 [&](const dom::element &entry) { isAlike = isAlike && isReadAlike(entry, deepestNesting - 1); });
    forEachMember(value, [&](std::string_view key, const dom::element &member) {
        isAlike = isAlike && key.substr(0, 1) != "\xef" && isReadAlike(member, deepestNesting - 1);
    });
    return isAlike;
}

} // namespace

std::optional<DeviceListReaders::Content> DeviceListReaders::readQuickly(std::string_view text)
{
    dom::document memory;
    dom::element document;
    if (text.empty() || !parser.parse(text, memory, document) || !document.is_array() || !isReadAlike(document))
        return std::nullopt;
    return readContent(document);
}

DeviceListReaders::Content DeviceListReaders::readWithQt(const QJsonDocument &document)
{
    const QByteArray text = document.toJson(QJsonDocument::Compact);
    dom::document memory;
    dom::element rewritten;
    const bool isRead = parser.parse({text.constData(), std::size_t(text.size())}, memory, rewritten);
    return isRead ? readContent(rewritten) : Content();
}
