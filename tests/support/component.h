// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "scriptedcomponent/script.h"

#include <QString>

/// The scripted component in its places.
namespace Component {

/// "Device Redirect/libdevredir.so" beside the test program, where the library looks for it.
QString path();
/// Variants beside it: "lacks_ctrl", "lacks_check_and_deinit", "not_a_library", "missing".
QString variant(const QString &name);
/// The script of the component at path(). Fetching it keeps the component in memory, so that an unload does not end
/// it; \a path for one of a variant.
Script &script(const QString &path = Component::path());

/// A device-list document with the given device objects, such as {"\"deviceId\":\"a\""}.
std::string listDocument(const std::vector<std::string> &devices);
/// A "redirCtrl" that answers "list" with \a document and every other command with 0 and nothing.
std::function<RedirCtrl> listing(std::string document);

} // namespace Component
