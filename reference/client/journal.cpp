// SPDX-License-Identifier: LGPL-2.1-or-later
#include "journal.h"

#include "escaped.h"
#include "reference/username.h"

#include <syslog.h>
#include <systemd/sd-journal.h>

void tellJournal(const ExterDeviceInfo &device, const QString &machine, const QString &why)
{
    const QString user = userName();
    const QString message =
        escaped(QStringLiteral("shared %1 \"%2\" (%3:%4) with %5 for user %6, %7")
                    .arg(device.deviceId, device.deviceName, device.vendorId, device.productId, machine, user, why));
    sd_journal_send("MESSAGE=%s", qUtf8Printable(message), "PRIORITY=%i", LOG_NOTICE, "DEVREDIR_DEVICE=%s",
                    qUtf8Printable(device.deviceId), "DEVREDIR_MACHINE=%s", qUtf8Printable(machine), "DEVREDIR_USER=%s",
                    qUtf8Printable(user), "DEVREDIR_WHY=%s", qUtf8Printable(why), nullptr);
}
