// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "devices/exterdeviceinfo.h"

#include <QJsonObject>
#include <QString>

/// What the program tells. The table in the source file gives each its name for scripts and its stream.
enum class Event {
    List,
    Shared,
    Unshared,
    Nothing, ///< there is nothing to share or to take back
    Arrived,
    Left,
    ChannelLost,
    Stopped, ///< a device is not shared by itself any more
    Explained, ///< one of the things that must be so before a device can be shared
    Statistics,
    Loading,
    Started,
    Connected,
    Channel,
    Leaving,
    Bye,
    Failed, ///< a request
    Error,
    Disconnected,
};

/// What the program says: a readable line, or one JSON object a line for scripts.
class Output
{
public:
    explicit Output(bool json) : m_json(json) { }

    /// Something happened. \a details are for scripts, \a text for people.
    void tell(Event event, const QString &text, QJsonObject details = {}) const;
    void list(const QList<ExterDeviceInfo> &devices) const;

private:
    void tellJson(Event event, QJsonObject object) const;

    const bool m_json;
};
