// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "component/redirevents.h"
#include "guestmessages.h"
#include "sendage.h"
#include "transferstatistics.h"

#include <QString>

#include <memory>
#include <string>

#include <libusb.h>
#include <usbredirhost.h>

/**
 * One port channel and, while it is open, the usbredir host that carries one USB device over it.
 *
 * Used on the USB thread only. Nothing is kept from one opening to the next: both ends greet each other anew.
 */
class UsbChannel
{
public:
    /// From good to bad: of several messages the worst counts.
    enum class Read { Fine, DeviceRejected, DeviceLost, Broken };

    /// \a longestAge: isochronous data is dropped while what waits for the virtual machine is older.
    UsbChannel(QString name, SendCallback send, std::chrono::milliseconds longestAge = std::chrono::milliseconds(100));
    ~UsbChannel();
    UsbChannel(const UsbChannel &) = delete;
    UsbChannel &operator=(const UsbChannel &) = delete;

    QString name() const { return m_name; }
    bool isOpen() const { return m_host != nullptr; }
    QString deviceId() const { return m_deviceId; } ///< empty if the channel is free

    void setSpiceChannel(void *channel) { m_spiceChannel = channel; }
    /// Greets the virtual machine. The greeting must not wait for a device: the other end has sent its own already.
    void open(libusb_context *usb);
    /// Gives a device back and forgets what was under way.
    void close();

    /// Takes over \a handle; on failure it is closed and the text says why.
    bool connectDevice(const QString &deviceId, libusb_device_handle *handle, QString &error);
    /// Gives the device back to the local system; nothing happens without one.
    void disconnectDevice();

    /// Of the device that it has, since it has it.
    const TransferStatistics &statistics() const { return m_statistics; }

    /// Bytes from the virtual machine, for read(); false if so much of them is unread that it does not mean to wait for
    /// its devices.
    bool receive(const std::string &bytes);
    /// Reads what has come, until the next message after a few milliseconds. A device that is rejected or lost has been
    /// given back; it is disconnectDevice() that makes the channel free again.
    Read read();
    /// read() has more to do.
    bool hasUnread() const { return m_hasUnread; }
    /// Sends what has come together for the virtual machine; false if so much waits for it that it does not mean to
    /// read it.
    bool flush();

private:
    struct CloseHost
    {
        void operator()(usbredirhost *host) const { usbredirhost_close(host); }
    };
    bool showNextMessage();
    Read readMessage();
    int take(uint8_t *buffer, int size);
    int send(uint8_t *bytes, int size);
    uint64_t waiting() const;
    bool isLate();

    const QString m_name;
    const SendCallback m_send;
    const std::chrono::milliseconds m_longestAge;
    void *m_spiceChannel = nullptr;
    QString m_deviceId;
    bool m_hasDevice = false; ///< usbredirhost has it; it may have been lost since m_deviceId was set
    std::string m_received;
    std::size_t m_taken = 0, m_shown = 0; ///< how much of it usbredirhost has read, and may read
    bool m_hasUnread = false;
    GuestMessages m_messages;
    SendAge m_sendAge;
    TransferStatistics m_statistics;
    uint64_t m_dropsBefore = 0; ///< until the data was last in time
    std::unique_ptr<usbredirhost, CloseHost> m_host;
};
