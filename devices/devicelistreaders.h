// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "devices/exterdeviceinfo.h"

#include <QJsonDocument>
#include <QList>

#include <optional>
#include <string_view>

/// Reads the records of a device-list document. Their texts are empty, and not null, where a key is missing or has a
/// value of another type. \thread any
namespace DeviceListReaders {

struct Content
{
    int elements = 0; ///< of the top-level array
    QList<ExterDeviceInfo> devices;
};

/// Reads with simdjson. Nothing if that refuses the text, if it is no
/// array, or if it holds what Qt may judge in another way: then Qt decides.
std::optional<Content> readQuickly(std::string_view text);

/// Reads what Qt's reader has made of a text.
Content readWithQt(const QJsonDocument &document);

} // namespace DeviceListReaders
