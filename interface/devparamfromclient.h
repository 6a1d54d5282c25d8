// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <QString>

/// \file
/// The host's own parameters.

/// What the host tells the library about its connection. A plain value; empty texts are allowed. \thread any
struct DevparamfromClient
{
    QString localIp; ///< the client machine's own address, as text
    QString vmIp; ///< the virtual machine's address, as text
};
