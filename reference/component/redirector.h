// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "component/redirevents.h"
#include "outcome.h"
#include "sharenote.h"
#include "usbchannel.h"
#include "usbdevice.h"
#include "usbthread.h"

#include <QElapsedTimer>
#include <QHash>
#include <QJsonObject>
#include <QMutex>

#include <atomic>
#include <map>
#include <memory>

/**
 * Redirects USB devices over port channels, one device a channel.
 *
 * Every member may be called on any thread; devices and channels are touched on the USB thread only. Events are
 * reported on the USB thread.
 */
class Redirector
{
public:
    Redirector(SendCallback send, EventCallback notify);
    ~Redirector();
    Redirector(const Redirector &) = delete;
    Redirector &operator=(const Redirector &) = delete;

    /// Gives every device back and ends the USB thread. Nothing is reported any more once it has returned.
    void stop();
    bool isUsbThread() const { return m_usb.isCurrent(); }

    /// A new channel of this name; the result stands for it in the calls that follow. An older channel of the same
    /// name is given up.
    quintptr addChannel(const QString &name);
    void setSpiceChannel(quintptr channel, void *spiceChannel);
    void channelOpened(quintptr channel);
    void channelLost(quintptr channel);
    void receive(quintptr channel, std::string bytes);

    Outcome share(const UsbDevice &device);
    Outcome unshare(const QString &deviceId);
    void unshareAll();

    bool isShared(const QString &deviceId) const;
    /// What went wrong last with this device; the default if nothing did since it was shared.
    Outcome lastFailure(const QString &deviceId) const;
    void setFailure(const QString &deviceId, const Outcome &failure);

    void report(RedirEvent event, const QJsonObject &details);

private:
    UsbChannel *find(quintptr channel);
    UsbChannel *freeChannel();
    Outcome open(const UsbDevice &device, libusb_device_handle *&handle);
    Outcome connectDevice(const UsbDevice &device);
    void giveBackLeftBehind();
    void attachDrivers(const UsbDevice &device);
    void release(UsbChannel &channel);
    void giveUp(UsbChannel &channel);
    void noteShared(const QString &deviceId, bool shared);
    void noteFailure(const QString &deviceId, const Outcome &outcome);

    void watchPlugs();
    static int onPlug(libusb_context *, libusb_device *device, libusb_hotplug_event event, void *self);
    void watchArrivals();
    void deviceLeft(const QString &portPath);

    const SendCallback m_send;
    const EventCallback m_notify;

    // On the USB thread only.
    std::map<quintptr, std::unique_ptr<UsbChannel>> m_channels;
    std::map<QString, ShareNote> m_notes; ///< by device, of those that are shared
    QHash<QString, QString> m_idByPortPath;
    QHash<QString, QElapsedTimer> m_arriving; ///< since when, by port path
    libusb_hotplug_callback_handle m_plugWatch = 0;
    bool m_stopping = false;

    std::atomic<quintptr> m_lastChannel{0};
    mutable QMutex m_mutex; ///< guards what follows
    QStringList m_shared;
    QHash<QString, Outcome> m_failures;

    UsbThread m_usb; ///< last: its thread ends before what it uses
};
