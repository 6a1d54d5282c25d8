// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "devices/exterdeviceinfo.h"

#include <QJsonDocument>
#include <QList>

#include <optional>
#include <string_view>

/**
 * Two readers of the device-list document that give the same records.
 *
 * The quick one reads what a well-behaved component writes, in about half of the time that Qt takes for the JSON
 * alone. Where it might differ from Qt it reads nothing, and Qt decides.
 *
 * \thread any
 */
namespace DeviceListReaders {

struct Content
{
    int elements = 0; ///< of the top-level array
    QList<ExterDeviceInfo> devices;
};

/// Reads with simdjson. Nothing if that refuses the text, if it is no array, or if it holds a number that is no
/// integer: those simdjson and Qt do not judge alike.
std::optional<Content> readQuickly(std::string_view text);

/// Reads what Qt's reader has made of the text; nothing of a null document.
Content readWithQt(const QJsonDocument &document);

} // namespace DeviceListReaders
