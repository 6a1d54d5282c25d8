// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "devices/exterdeviceinfo.h"

#include <QString>

/**
 * Tells the system's journal, for whoever looks after this computer, that a device has been shared: which one, with
 * which virtual machine, for whom, and why. The fields are DEVREDIR_DEVICE, DEVREDIR_MACHINE, DEVREDIR_USER and
 * DEVREDIR_WHY. Without a journal nothing happens.
 */
void tellJournal(const ExterDeviceInfo &device, const QString &machine, const QString &why);
