// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QString>

#include <optional>
#include <string_view>

#include <simdjson.h>

/**
 * A second opinion on JSON for the fuzz targets: what simdjson makes of a text, as Qt's values.
 *
 * Nothing where two good readers may differ: numbers that are no integers, a byte order mark at the start of a text, a
 * name that comes twice in one object.
 */
namespace SecondReader {

inline QString textOf(std::string_view text)
{
    return QString::fromUtf8(text.data(), int(text.size()));
}

inline std::optional<QJsonValue> valueOf(const simdjson::dom::element &element)
{
    using Type = simdjson::dom::element_type;
    switch (element.type()) {
    case Type::ARRAY: {
        QJsonArray array;
        for (const simdjson::dom::element entry : simdjson::dom::array(element.get_array())) {
            const auto value = valueOf(entry);
            if (!value)
                return std::nullopt;
            array.append(*value);
        }
        return array;
    }
    case Type::OBJECT: {
        QJsonObject object;
        for (const simdjson::dom::key_value_pair member : simdjson::dom::object(element.get_object())) {
            const auto value = valueOf(member.value);
            if (!value || member.key.substr(0, 3) == "\xef\xbb\xbf" || object.contains(textOf(member.key)))
                return std::nullopt;
            object.insert(textOf(member.key), *value);
        }
        return object;
    }
    case Type::STRING: {
        const std::string_view text = element.get_string().value_unsafe();
        if (text.substr(0, 3) == "\xef\xbb\xbf")
            return std::nullopt;
        return textOf(text);
    }
    case Type::BOOL:
        return element.get_bool().value_unsafe();
    case Type::DOUBLE:
        return std::nullopt;
    case Type::NULL_VALUE:
        return QJsonValue();
    default:
        return 1; // some integer: nobody looks at its value
    }
}

/// Nothing also if the text is no array or object.
inline std::optional<QJsonValue> read(std::string_view text)
{
    simdjson::dom::parser parser;
    simdjson::dom::element document;
    if (text.empty() || parser.parse(text.data(), text.size()).get(document)
        || !(document.is_array() || document.is_object()))
        return std::nullopt;
    return valueOf(document);
}

} // namespace SecondReader
