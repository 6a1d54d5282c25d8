// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <QString>

/// Whose process this is; the number of a user who has no name.
QString userName();
