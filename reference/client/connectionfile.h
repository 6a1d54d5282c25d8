// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "address.h"

/**
 * The place that \a text names: an address, or the path of a connection file (".vv", as web portals of virtual machines
 * hand it out). A file that asks for it is deleted when it has been read. The password is the first line of \a
 * passwordFile, unless that is empty. Nothing, and one line in \a error with the cure, if one of them cannot be read.
 */
std::optional<SpiceAddress> placeOf(const QString &text, const QString &passwordFile, QString &error);
