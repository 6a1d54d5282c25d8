// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <QtGlobal>

/// Marks what hosts, tests and tools may link against. Everything else in the library is hidden.
#if defined(DEVREDIRECT_BUILDING_LIBRARY)
#    define DEVREDIRECT_EXPORT Q_DECL_EXPORT
#else
#    define DEVREDIRECT_EXPORT Q_DECL_IMPORT
#endif
