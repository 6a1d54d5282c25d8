// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "devices/exterdeviceinfo.h"

#include <QJsonObject>
#include <QString>

/// What the program says, on standard output: a readable line, or one JSON object a line for scripts.
class Output
{
public:
    explicit Output(bool json) : m_json(json) { }

    /// Something happened. \a event and \a details are for scripts, \a text for people.
    void tell(const char *event, const QString &text, QJsonObject details = {}) const;
    void list(const QList<ExterDeviceInfo> &devices) const;

private:
    const bool m_json;
};
