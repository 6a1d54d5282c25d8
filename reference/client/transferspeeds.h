// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <QElapsedTimer>
#include <QHash>
#include <QJsonObject>
#include <QList>

#include <optional>

/// What a shared device transfers.
struct TransferSpeed
{
    QJsonObject statistics; ///< the component's, since the device was shared
    double fromDevice = 0; ///< bytes a second since the look before; 0 at the first
    double toDevice = 0;
};

/// Looks at the component's statistics, now and then.
class TransferSpeeds
{
public:
    TransferSpeeds() { m_sinceLast.start(); }

    /// Nothing if the component does not count.
    std::optional<QList<TransferSpeed>> look();

private:
    struct Bytes
    {
        double fromDevice, toDevice;
    };
    QHash<QString, Bytes> m_last; ///< by device
    QElapsedTimer m_sinceLast;
};
