// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <QString>

/// \a text on one line and without what steers a terminal: names come from virtual machines and devices.
QString escaped(const QString &text);
