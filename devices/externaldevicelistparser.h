// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "devices/exterdeviceinfo.h"
#include "devredirectexport.h"

#include <QList>

/// \file
/// The reader of device lists.

/// Reads the device-list document with which the component answers the "list" command.
///
/// The document is a UTF-8 JSON array; each element is an object whose "devices" array holds the device objects.
/// Numbers inside a device arrive as JSON strings. Wrong value types never fail: they read as empty text, 0 or false.
/// A "devices" entry that is no object gives no record.
///
/// \param data     the text; null with a length of 0 reads as a malformed document
/// \param length   its exact number of bytes
/// \param devices  the records are appended in document order; the list is not cleared first.
/// \return false when the text is not JSON: two critical lines, \a devices and the registry unchanged. true otherwise,
///         also when no device was found; the registry's document text is then replaced.
/// \ownership \a data is borrowed for the call; the records are copies.
/// \thread any
DEVREDIRECT_EXPORT bool parseExternalDeviceList(const char *data, unsigned int length, QList<ExterDeviceInfo> &devices);
