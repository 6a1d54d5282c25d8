// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "usbchannel.h"

/// Does what the redirector does with bytes from the virtual machine; false when it would give the channel up.
inline bool deliver(UsbChannel &channel, const std::string &bytes)
{
    channel.receive(bytes);
    do {
        switch (channel.read()) {
        case UsbChannel::Read::Fine:
            break;
        case UsbChannel::Read::DeviceRejected:
        case UsbChannel::Read::DeviceLost:
            channel.disconnectDevice();
            break;
        case UsbChannel::Read::Broken:
            return false;
        }
    } while (channel.hasUnread());
    channel.flush();
    return true;
}
