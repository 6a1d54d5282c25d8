// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "devices/exterdeviceinfo.h"

#include <QLabel>
#include <QWidget>

class QCheckBox;

/// One device in the panel: what and where it is, its switches, and what keeps it from being shared.
class DeviceRow : public QWidget
{
    Q_OBJECT

public:
    enum class State { Here, OnItsWay, Shared };

    explicit DeviceRow(QWidget *parent = nullptr);

    void show(const ExterDeviceInfo &device, State state, bool always);
    /// Why it cannot be shared, and what helps; empty: nothing is known against it.
    void setReason(const QString &reason, const QString &cure);
    /// Empty: not shown.
    void setSpeed(const QString &speed) { m_speed->setText(speed); }

Q_SIGNALS:
    void shareAsked(bool share);
    void alwaysAsked(bool always);

private:
    QLabel *m_name;
    QLabel *m_place;
    QLabel *m_speed;
    QLabel *m_reason;
    QCheckBox *m_share;
    QCheckBox *m_always;
};
