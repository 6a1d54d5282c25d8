// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "component/redirevents.h"
#include "config.h"
#include "outcome.h"
#include "sharenote.h"
#include "usbchannel.h"
#include "usbdevice.h"
#include "usbthread.h"

#include <QElapsedTimer>
#include <QHash>
#include <QJsonArray>
#include <QJsonObject>
#include <QMutex>
#include <QSet>

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
    /// Whether a device may be shared, asked when that is about to happen. \thread USB
    using MayShare = std::function<Outcome(const UsbDevice &)>;

    /// \a config is borrowed.
    Redirector(SendCallback send, EventCallback notify, const Config &config, MayShare mayShare);
    ~Redirector();
    Redirector(const Redirector &) = delete;
    Redirector &operator=(const Redirector &) = delete;

    /// Gives every device back and ends the USB thread. Nothing is reported any more once it has returned.
    void stop();
    bool isUsbThread() const { return m_usb.isCurrent(); }
    /// From now on nothing is sent or reported.
    void silence() { m_isSilent = true; }

    /// A new channel of this name; the result stands for it in the calls that follow. An older channel of the same
    /// name is given up.
    quintptr addChannel(const QString &name);
    void setSpiceChannel(quintptr channel, void *spiceChannel);
    void channelOpened(quintptr channel);
    void channelLost(quintptr channel);
    void receive(quintptr channel, std::string bytes);

    Outcome share(const UsbDevice &device);
    /// \a reason is reported and stays with the device, unless there is none.
    Outcome unshare(const QString &deviceId, const Outcome &reason = {});
    void unshareAll();

    /// Opens the device by a copy of this descriptor, which somebody else has opened, until it leaves; -1, or one that
    /// is not open: no more.
    void setDescriptor(const UsbDevice &device, int descriptor);
    bool hasDescriptor(const UsbDevice &device) const;

    // Two questions that no device holds up: while one takes long, the answer is the last one.
    QJsonArray statistics(); ///< of each shared device
    bool hasFreeChannel();

    bool isShared(const QString &deviceId) const;
    /// What went wrong last with this device; the default if nothing did since it was shared.
    Outcome lastFailure(const QString &deviceId) const;
    void setFailure(const QString &deviceId, const Outcome &failure);

    void report(RedirEvent event, const QJsonObject &details);

private:
    UsbChannel *find(quintptr channel);
    void read(quintptr channel);
    quintptr freeChannel(const QString &portPath = QString()) const;
    int openNode(const UsbDevice &device, libusb_device_handle *&handle);
    Outcome open(const UsbDevice &device, libusb_device_handle *&handle);
    Outcome connectDevice(const UsbDevice &device);
    void giveBackLeftBehind();
    void attachDrivers(const UsbDevice &device);
    void release(UsbChannel &channel, const Outcome &reason = {});
    void keepChannel(quintptr channel, const QString &portPath, bool hasLeft);
    bool isKept(quintptr channel, const QString &exceptFor) const;
    void shareAgain(const UsbDevice &device);
    UsbChannel *channelOf(const QString &deviceId);
    Outcome shareNow(const UsbDevice &device);
    void noteAnswers();
    QJsonObject takeBack(UsbChannel &channel, const Outcome &reason);
    void reject(UsbChannel &channel);
    void giveUp(UsbChannel &channel);
    void noteShared(const QString &deviceId, bool shared);
    void reportFailure(const QString &deviceId, const Outcome &outcome);
    void noteFailure(const QString &deviceId, const Outcome &outcome);

    void watchPlugs();
    static int onPlug(libusb_context *, libusb_device *device, libusb_hotplug_event event, void *self);
    void watchArrivals();
    void deviceLeft(const QString &portPath);

    const SendCallback m_send;
    const EventCallback m_notify;
    const Config &m_config;
    const MayShare m_mayShare;

    // On the USB thread only.
    std::map<quintptr, std::unique_ptr<UsbChannel>> m_channels;
    std::map<QString, ShareNote> m_notes; ///< by device, of those that are shared
    QHash<QString, QString> m_idByPortPath;
    QHash<QString, QElapsedTimer> m_arriving; ///< since when, by port path
    QElapsedTimer m_lastLook; ///< for those
    struct KeptChannel
    {
        quintptr channel = 0;
        QElapsedTimer since;
        bool hasLeft = false; ///< the device; what could not be shared may yet leave, and be another one then
    };
    QHash<QString, KeptChannel> m_kept; ///< for what comes back, by port path
    QSet<QString> m_cameBack; ///< shared by themselves, and nobody has asked for it yet
    libusb_hotplug_callback_handle m_plugWatch = 0;
    bool m_stopping = false;

    std::atomic<bool> m_isSilent{false};
    mutable QMutex m_mutex; ///< guards what follows
    /// By port path, where somebody else has opened the device. Changed on the USB thread only, which reads it as it
    /// is.
    std::map<QString, Descriptor> m_descriptors;
    QJsonArray m_statistics;
    bool m_hasFreeChannel = false;
    QStringList m_shared;
    QHash<QString, Outcome> m_failures;

    UsbThread m_usb; ///< last: its thread ends before what it uses
};
