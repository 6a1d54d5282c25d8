// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <QMetaType>

/// \file
/// The SPICE client library's port channel, for headers that only hand on a pointer to one.
typedef struct _SpicePortChannel SpicePortChannel; ///< the client's; this library looks into none of its members

/// So that a host may connect to a signal that carries such a pointer without that library's headers.
Q_DECLARE_OPAQUE_POINTER(SpicePortChannel *)
