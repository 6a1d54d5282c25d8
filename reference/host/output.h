// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "devices/exterdeviceinfo.h"
#include "reference/client/transferspeeds.h"

#include <QJsonObject>
#include <QString>
#include <QStringList>

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
    Waiting, ///< a device cannot be shared yet
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
    explicit Output(bool json);

    /// Something happened. \a details are for scripts, \a text for people.
    void tell(Event event, const QString &text, QJsonObject details = {});
    void list(const QList<ExterDeviceInfo> &devices);
    /// \a live: in place of what the terminal shows.
    void statistics(const QList<TransferSpeed> &speeds, bool live);
    /// What is waited for, on the last line of a terminal until something else is told; empty: nothing.
    void progress(const QString &text);

private:
    void tellJson(Event event, QJsonObject object);
    void table(Event event, const QList<QStringList> &rows);
    void print(Event event, const QString &line);

    const bool m_json;
    const bool m_hasTerminal; ///< both streams go to one
    const bool m_hasColours;
    bool m_hasProgress = false; ///< on the last line
};
