// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "devices/redirectconstants.h"
#include "devredirectexport.h"

#include <QList>
#include <QMetaType>
#include <QString>

/// \file
/// What the library knows of a device.

/// A text that is empty and not null. \thread any
inline QString emptyText()
{
    return QString(QLatin1String(""));
}

/// One function (interface) of a composite USB device, as the component lists it; a plain value. The form "founction"
/// is the component's own. \thread any
struct DEVREDIRECT_EXPORT FunctionInfo
{
    int founctionId = 0; ///< function number, counted from 1: the listed number plus one
    QString founctionClass = emptyText(); ///< USB class code as listed, hexadecimal digits in the component's own case
    int founctionBitmapMask = 0; ///< this function's bit in the device's mask
};

/// One external device (a USB device, a USB disk or a camera) as the component reports it.
///
/// A plain value: it owns nothing outside its members, copies are cheap (the texts and the list are implicitly
/// shared), and it travels by value through queued signals. A default-constructed record stands for "no device": every
/// text but transportMode is empty, and none but spareTextB is null.
///
/// Texts marked "upper case" are upper-cased when a device list is read. Codes are hexadecimal digits.
///
/// \thread any; a record itself is not guarded, every thread uses its own copy.
class DEVREDIRECT_EXPORT ExterDeviceInfo
{
public:
    /// The record on one line, for the log: "Device info: deviceGUID = …". The texts are filled in one after the other,
    /// so a text that itself contains a placeholder such as "%9" takes part in the filling that follows.
    QString getDevInfo() const;

    QString rdrName = emptyText(); ///< redirector: USBRDR, DISKRDR or CAMRDR
    QString context = emptyText(); ///< the component's own word for the device; passed back unread
    QString vendorId = emptyText(); ///< USB vendor id, upper case
    QString productId = emptyText(); ///< USB product id, upper case
    QString deviceId = emptyText(); ///< the name by which the host asks for the device; look-ups match it exactly
    bool readOnly = false; ///< to be redirected read-only
    QString devicePosition = emptyText(); ///< physical position or unique id, upper case; deviceId where none is listed
    QString deviceName = emptyText(); ///< display name
    QString deviceClass = emptyText(); ///< USB class code, upper case
    int status = 0; ///< share state: 2 shared, 0 not shared
    int parsedStatus = 0; ///< status as the list had it
    QString storeLetter = emptyText(); ///< drive letter or store name of a disk
    int spareValueA = 1; ///< carried only
    int nFunctionId = 0; ///< function id of the device
    bool spareFlagA = false; ///< carried only; false in every listed device
    bool spareFlagB = true; ///< carried only; true in every listed device
    QString usbHub = emptyText(); ///< hub to which the device is attached
    QString usbPort = emptyText(); ///< port on that hub
    bool isCompositeDevice = false; ///< at least one function is listed
    bool isCDROM = false; ///< an optical drive
    bool isMatchContext = false; ///< matched the component's context
    QString transportMode = SPICEMODE; ///< SPICEMODE or TCPMODE
    int founctionBitmapMask = 0; ///< bits of all functions
    int spareValueB = 0; ///< carried only
    QList<FunctionInfo> functions; ///< the functions, in list order
    int spareValueC = 0; ///< carried only
    QString spareTextA = emptyText(); ///< for the host: sent as "deviceId" instead of deviceId when a USBRDR device is
                                      ///< shared; never filled by the library, empty means unused
    QString vmId = emptyText(); ///< virtual machine to which the device is bound
    QString spareTextB; ///< carried only; null until somebody fills it
    QString usbProt = emptyText(); ///< USB protocol code, upper case
    QString deviceRel = emptyText(); ///< release number (bcdDevice), upper case
    QString deviceSubClass = emptyText(); ///< USB subclass code, upper case
    QString errCode = emptyText(); ///< the component's last error code for the device, upper case
    QString errString = emptyText(); ///< the component's last error text for the device, upper case
};

Q_DECLARE_METATYPE(ExterDeviceInfo)
