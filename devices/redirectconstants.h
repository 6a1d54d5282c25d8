// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "devredirectexport.h"

#include <QString>

/// \file
/// The words of ExterDeviceInfo::rdrName and ExterDeviceInfo::transportMode, which the component fixed. They are made
/// while the library is being loaded and stay valid until the process has ended. \thread any

extern DEVREDIRECT_EXPORT const QString DISKRDR; ///< "diskrdr": a USB disk, handled by the disk redirector
extern DEVREDIRECT_EXPORT const QString CAMRDR; ///< "camrdr": a camera, handled by the camera redirector
extern DEVREDIRECT_EXPORT const QString USBRDR; ///< "usbrdr": any other USB device, handled by the USB redirector

extern DEVREDIRECT_EXPORT const QString SPICEMODE; ///< "spice": redirected over the SPICE session
extern DEVREDIRECT_EXPORT const QString TCPMODE; ///< "tcp": redirected over a connection of its own
