// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "reference/rules.h"

#include <QJsonObject>
#include <QList>
#include <QMap>
#include <QString>
#include <QStringList>

/// What "config.json" says. Every key may be left out.
struct Config
{
    /// "channelPrefix": port channels whose names start so are the component's, one USB device each.
    QString channelPrefix = QStringLiteral("org.devredir.usb.");
    /// "redirectors": redirector by USB class, two hexadecimal digits in lower case. Others are "usbrdr".
    QMap<QString, QString> redirectors = {
        {QStringLiteral("08"), QStringLiteral("diskrdr")},
        {QStringLiteral("06"), QStringLiteral("camrdr")},
        {QStringLiteral("0e"), QStringLiteral("camrdr")},
    };
    /// "readOnly": "vendor:product" of disks that must not be written to.
    QStringList readOnly;
    /// "devices": device objects to be listed besides the machine's own. Sharing one only changes its state.
    QList<QJsonObject> devices;

    /// "isochronousAge": milliseconds after which isochronous data that waits for the virtual machine is dropped.
    int isochronousAge = 100;
    /// "family": rules for what comes back at the port of a shared device soon after that has left. It is shared, too,
    /// unless one denies it.
    DeviceRules family;
    /// "openByDescriptor": the host opens devices that this process may not open, and brings their descriptors with
    /// "devchange".
    bool openByDescriptor = false;

    /// Reads the file; false, and \a error says why, if it is not a JSON object or a key has the wrong type.
    static bool read(const QString &path, Config &config, QString &error);
    /// The same for a text.
    static bool parse(const QByteArray &text, Config &config, QString &error);
};
