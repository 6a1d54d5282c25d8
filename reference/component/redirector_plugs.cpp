// SPDX-License-Identifier: LGPL-2.1-or-later

// Devices that are plugged in and pulled out.

#include "redirector.h"

#include <QMutexLocker>

static constexpr int LookMilliseconds = 20; // a camera makes a thousand rounds a second
static constexpr int LongestArrivalMilliseconds = 3000;
static constexpr int KeepChannelMilliseconds = 10000;

void Redirector::watchPlugs()
{
    for (const UsbDevice &device : UsbDevice::all())
        m_idByPortPath.insert(device.portPath, device.id());
    if (!m_usb.usb())
        return;
    giveBackLeftBehind();
    if (!libusb_has_capability(LIBUSB_CAP_HAS_HOTPLUG))
        return;
    libusb_hotplug_register_callback(m_usb.usb(),
                                     LIBUSB_HOTPLUG_EVENT_DEVICE_ARRIVED | LIBUSB_HOTPLUG_EVENT_DEVICE_LEFT, 0,
                                     LIBUSB_HOTPLUG_MATCH_ANY, LIBUSB_HOTPLUG_MATCH_ANY, LIBUSB_HOTPLUG_MATCH_ANY,
                                     &Redirector::onPlug, this, &m_plugWatch);
}

// Called by libusb, which must not be used from here: the work is done in the next round.
int Redirector::onPlug(libusb_context *, libusb_device *device, libusb_hotplug_event event, void *self)
{
    auto *redirector = static_cast<Redirector *>(self);
    const QString portPath = DeviceIdentity::portPathOf(device);
    redirector->m_usb.post([redirector, portPath, event] {
        if (event == LIBUSB_HOTPLUG_EVENT_DEVICE_ARRIVED)
            redirector->m_arriving[portPath].start();
        else
            redirector->deviceLeft(portPath);
    });
    return 0;
}

// A device is there before its interfaces are, and those are before its disk. It is reported when it is complete, so
// that a list which is fetched then shows what it is.
void Redirector::watchArrivals()
{
    if (m_arriving.isEmpty() || !m_lastLook.hasExpired(LookMilliseconds))
        return;
    m_lastLook.start();
    for (const UsbDevice &device : UsbDevice::all()) {
        const auto arriving = m_arriving.constFind(device.portPath);
        if (arriving == m_arriving.constEnd())
            continue;
        if (!device.isComplete() && !arriving->hasExpired(LongestArrivalMilliseconds))
            continue;
        m_arriving.erase(arriving);
        m_idByPortPath.insert(device.portPath, device.id());
        report(RedirEventDeviceArrived,
               {{QStringLiteral("deviceId"), device.id()}, {QStringLiteral("name"), device.name}});
        shareAgain(device);
    }
    for (auto arriving = m_arriving.begin(); arriving != m_arriving.end();) // hubs, and what has gone again
        arriving = arriving->hasExpired(LongestArrivalMilliseconds) ? m_arriving.erase(arriving) : std::next(arriving);
}

void Redirector::deviceLeft(const QString &portPath)
{
    QMutexLocker lock(&m_mutex);
    const auto descriptor = m_descriptors.extract(portPath); // closed when the device has been given back
    lock.unlock();
    m_arriving.remove(portPath);
    const auto kept = m_kept.find(portPath);
    if (kept != m_kept.end())
        kept->hasLeft = true;
    const QString deviceId = m_idByPortPath.take(portPath);
    if (deviceId.isEmpty())
        return; // a hub, or gone before it was complete
    for (auto &[number, channel] : m_channels) {
        if (channel->deviceId() != deviceId)
            continue;
        keepChannel(number, portPath, true);
        release(*channel);
    }
    noteFailure(deviceId, {}); // no list will show it any more
    report(RedirEventDeviceLeft, {{QStringLiteral("deviceId"), deviceId}});
}

// --- what comes back at the same port: a device that was pulled by mistake, or one that has got other numbers ---

void Redirector::keepChannel(quintptr channel, const QString &portPath, bool hasLeft)
{
    KeptChannel &kept = m_kept[portPath];
    kept.channel = channel;
    kept.hasLeft = hasLeft;
    kept.since.start();
}

bool Redirector::isKept(quintptr channel, const QString &exceptFor) const
{
    for (auto kept = m_kept.begin(); kept != m_kept.end(); ++kept) {
        if (kept->channel == channel && kept->hasLeft && kept.key() != exceptFor
            && !kept->since.hasExpired(KeepChannelMilliseconds))
            return true;
    }
    return false;
}

void Redirector::shareAgain(const UsbDevice &device)
{
    const auto kept = m_kept.find(device.portPath);
    if (kept == m_kept.end() || !kept->hasLeft || isShared(device.id()))
        return;
    const UsbChannel *channel = find(kept->channel);
    const bool isInTime = channel && channel->isOpen() && !kept->since.hasExpired(KeepChannelMilliseconds);
    const bool isAllowed = m_config.family.allow(device.kind().usbClass, device.vendorId, device.productId, true);
    if (!isInTime || !isAllowed) {
        m_kept.erase(kept);
        return;
    }
    if (shareNow(device) && isShared(device.id())) // and not taken back by who has heard of it
        m_cameBack.insert(device.id());
}
