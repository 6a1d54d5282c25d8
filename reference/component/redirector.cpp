// SPDX-License-Identifier: LGPL-2.1-or-later
#include "redirector.h"

#include "gates.h"
#include "logging.h"

#include <QJsonDocument>
#include <QMutexLocker>

#include <fcntl.h>

static constexpr std::chrono::milliseconds LongestAnswer(100);

Redirector::Redirector(SendCallback send, EventCallback notify, const Config &config, MayShare mayShare)
    : m_send([this, send = std::move(send)](void *channel, char *data, int length) {
          return send && !m_isSilent ? send(channel, data, length) : -1;
      }),
      m_notify(std::move(notify)), m_config(config), m_mayShare(std::move(mayShare)), m_usb([this] {
          for (auto &[number, channel] : m_channels) {
              if (channel->flush())
                  continue;
              qCWarning(logComponent, "%s: nobody reads what is sent", quoted(channel->name()).constData());
              giveUp(*channel);
          }
          watchArrivals();
      })
{
    m_usb.post([this] { watchPlugs(); });
}

Redirector::~Redirector()
{
    stop();
}

void Redirector::stop()
{
    m_usb.post([this] {
        if (m_plugWatch)
            libusb_hotplug_deregister_callback(m_usb.usb(), m_plugWatch);
        for (auto &[number, channel] : m_channels)
            release(*channel);
        m_channels.clear();
        m_stopping = true;
    });
    m_usb.stop();
}

// --- channels ---

quintptr Redirector::addChannel(const QString &name)
{
    static std::atomic<quintptr> last{0}; // of this process: an old channel may tell of itself after a new start
    const quintptr number = ++last;
    m_usb.post([this, number, name] {
        for (auto entry = m_channels.begin(); entry != m_channels.end();) {
            if (entry->second->name() == name) {
                giveUp(*entry->second);
                entry = m_channels.erase(entry);
            } else {
                ++entry;
            }
        }
        m_channels.emplace(
            number, std::make_unique<UsbChannel>(name, m_send, std::chrono::milliseconds(m_config.isochronousAge)));
    });
    return number;
}

UsbChannel *Redirector::find(quintptr channel)
{
    const auto entry = m_channels.find(channel);
    return entry == m_channels.end() ? nullptr : entry->second.get();
}

void Redirector::setSpiceChannel(quintptr channel, void *spiceChannel)
{
    m_usb.post([=] {
        if (UsbChannel *found = find(channel))
            found->setSpiceChannel(spiceChannel);
    });
}

void Redirector::channelOpened(quintptr channel)
{
    m_usb.post([=] {
        UsbChannel *found = find(channel);
        if (!found || !m_usb.usb())
            return;
        giveUp(*found);
        found->open(m_usb.usb());
        noteAnswers();
    });
}

void Redirector::channelLost(quintptr channel)
{
    m_usb.post([=] {
        if (UsbChannel *found = find(channel))
            giveUp(*found);
    });
}

void Redirector::receive(quintptr channel, std::string bytes)
{
    m_usb.post([this, channel, bytes = std::move(bytes)] {
        UsbChannel *found = find(channel);
        if (!found)
            return;
        const bool isBeingRead = found->hasUnread();
        if (!found->receive(bytes)) {
            qCWarning(logComponent, "%s: more comes in than can be read", quoted(found->name()).constData());
            giveUp(*found);
        } else if (!isBeingRead) {
            read(channel);
        }
    });
}

// A part at a time, so that commands and USB events get their turn while a device takes long.
void Redirector::read(quintptr channel)
{
    UsbChannel *found = find(channel);
    if (!found)
        return;
    const QString deviceId = found->deviceId();
    switch (found->read()) {
    case UsbChannel::Read::Fine:
        break;
    case UsbChannel::Read::DeviceRejected:
        reject(*found);
        break;
    case UsbChannel::Read::DeviceLost:
        keepChannel(channel, DeviceIdentity::portPathIn(deviceId), true);
        release(*found);
        break;
    case UsbChannel::Read::Broken:
        qCWarning(logComponent, "%s: what came in cannot be read", quoted(found->name()).constData());
        giveUp(*found);
        break;
    }
    if (found->hasUnread())
        m_usb.post([this, channel] { read(channel); });
}

// Noted before the host hears of it: it may share the device anew at once.
void Redirector::reject(UsbChannel &channel)
{
    const QString deviceId = channel.deviceId();
    const QJsonObject taken = takeBack(channel, {});
    if (taken.isEmpty())
        return;
    const Outcome rejected{Refusal::RejectedByGuest, QStringLiteral("the virtual machine refuses it")};
    noteFailure(deviceId, rejected);
    report(RedirEventUnshared, taken);
    reportFailure(deviceId, rejected);
}

// Closes a channel; a device on it goes back to the local system.
void Redirector::giveUp(UsbChannel &channel)
{
    if (!channel.deviceId().isEmpty()) {
        report(RedirEventChannelLost,
               {{QStringLiteral("deviceId"), channel.deviceId()}, {QStringLiteral("channel"), channel.name()}});
    }
    // Closed before the host hears of the device: it may share another at once.
    const QJsonObject taken = takeBack(channel, {});
    channel.close();
    noteAnswers();
    if (!taken.isEmpty())
        report(RedirEventUnshared, taken);
}

// --- sharing ---

Outcome Redirector::share(const UsbDevice &device)
{
    const Outcome stopped{Refusal::UsbError, QStringLiteral("the component is stopping")};
    return m_usb.call(stopped, [&] {
        if (m_cameBack.remove(device.id())) { // what is asked for has been done
            report(RedirEventShared, {{QStringLiteral("deviceId"), device.id()}});
            return Outcome();
        }
        return shareNow(device);
    });
}

Outcome Redirector::shareNow(const UsbDevice &device)
{
    const Outcome allowed = m_mayShare(device);
    const Outcome outcome = allowed ? connectDevice(device) : allowed;
    setFailure(device.id(), outcome);
    if (outcome) {
        m_kept.remove(device.portPath);
        m_idByPortPath.insert(device.portPath, device.id()); // it may leave before its arrival is reported
        noteShared(device.id(), true);
        report(RedirEventShared, {{QStringLiteral("deviceId"), device.id()}});
    }
    return outcome;
}

Outcome Redirector::connectDevice(const UsbDevice &device)
{
    if (isShared(device.id()))
        return {Refusal::AlreadyShared, QStringLiteral("already shared")};
    const quintptr number = freeChannel(device.portPath);
    UsbChannel *const channel = find(number);
    if (!channel)
        return {Refusal::NoFreeChannel, QStringLiteral("no free channel")};
    libusb_device_handle *handle = nullptr;
    Outcome outcome = open(device, handle);
    if (!outcome)
        return outcome;
    m_notes.try_emplace(device.id(), device.id());
    if (!channel->connectDevice(device.id(), handle, outcome.text)) {
        outcome.code = Refusal::UsbError;
        m_notes.erase(device.id());
        keepChannel(number, device.portPath, false);
    }
    return outcome;
}

// The one that is kept for this port, or any that is kept for none; 0 if there is none.
quintptr Redirector::freeChannel(const QString &portPath) const
{
    const quintptr kept = m_kept.value(portPath).channel;
    quintptr found = 0;
    for (const auto &[number, channel] : m_channels) {
        if (!channel->isOpen() || !channel->deviceId().isEmpty() || isKept(number, portPath))
            continue;
        if (found == 0 || kept == number)
            found = number;
    }
    return found;
}

// After what changes them, too: a device may take long before the next question.
void Redirector::noteAnswers()
{
    QJsonArray statistics;
    for (const auto &[number, channel] : m_channels) {
        if (channel->deviceId().isEmpty())
            continue;
        QJsonObject one = channel->statistics().toJson();
        one.insert(QStringLiteral("deviceId"), channel->deviceId());
        one.insert(QStringLiteral("channel"), channel->name());
        statistics.append(one);
    }
    const bool hasFreeChannel = freeChannel() != 0;
    const QMutexLocker lock(&m_mutex);
    m_statistics = statistics;
    m_hasFreeChannel = hasFreeChannel;
}

bool Redirector::hasFreeChannel()
{
    m_usb.callFor(LongestAnswer, [this] { noteAnswers(); });
    const QMutexLocker lock(&m_mutex);
    return m_hasFreeChannel;
}

QJsonArray Redirector::statistics()
{
    m_usb.callFor(LongestAnswer, [this] { noteAnswers(); });
    const QMutexLocker lock(&m_mutex);
    return m_statistics;
}

UsbChannel *Redirector::channelOf(const QString &deviceId)
{
    for (auto &[number, channel] : m_channels) {
        if (channel->deviceId() == deviceId)
            return channel.get();
    }
    return nullptr;
}

void Redirector::setDescriptor(const UsbDevice &device, int descriptor)
{
    Descriptor copy(fcntl(descriptor, F_DUPFD_CLOEXEC, 0));
    m_usb.call(0, [&] {
        if (isShared(device.id())) // by the one that there is
            return 0;
        const QMutexLocker lock(&m_mutex);
        m_descriptors.erase(device.portPath);
        if (copy)
            m_descriptors.emplace(device.portPath, std::move(copy));
        return 0;
    });
}

bool Redirector::hasDescriptor(const UsbDevice &device) const
{
    const QMutexLocker lock(&m_mutex);
    return m_descriptors.count(device.portPath) > 0;
}

int Redirector::openNode(const UsbDevice &device, libusb_device_handle *&handle)
{
    libusb_device **list = nullptr;
    const ssize_t count = m_usb.usb() ? libusb_get_device_list(m_usb.usb(), &list) : 0;
    int result = LIBUSB_ERROR_NO_DEVICE;
    for (ssize_t i = 0; i < count; ++i) {
        if (libusb_get_bus_number(list[i]) == device.bus && libusb_get_device_address(list[i]) == device.address)
            result = libusb_open(list[i], &handle);
    }
    if (list)
        libusb_free_device_list(list, 1);
    return result;
}

Outcome Redirector::open(const UsbDevice &device, libusb_device_handle *&handle)
{
    const auto brought = m_descriptors.find(device.portPath);
    const int result = brought == m_descriptors.end()
        ? openNode(device, handle)
        : libusb_wrap_sys_device(m_usb.usb(), brought->second.get(), &handle);
    if (result == LIBUSB_ERROR_ACCESS)
        return noPermission(device);
    if (result == LIBUSB_ERROR_NO_DEVICE)
        return {Refusal::NoSuchDevice, QStringLiteral("no such device")};
    if (result != LIBUSB_SUCCESS)
        return {Refusal::UsbError,
                QStringLiteral("cannot open ") + device.node + QStringLiteral(": ")
                    + QString::fromLatin1(libusb_error_name(result))};
    return {};
}

Outcome Redirector::unshare(const QString &deviceId, const Outcome &reason)
{
    const Outcome notShared{Refusal::NotShared, QStringLiteral("not shared")};
    return m_usb.call(notShared, [&] {
        m_kept.remove(DeviceIdentity::portPathIn(deviceId));
        noteAnswers();
        UsbChannel *channel = channelOf(deviceId);
        if (!channel)
            return notShared;
        release(*channel, reason);
        return Outcome();
    });
}

void Redirector::unshareAll()
{
    m_usb.call(0, [this] {
        m_kept.clear();
        noteAnswers();
        for (auto &[number, channel] : m_channels)
            release(*channel);
        return 0;
    });
}

// The device of a channel goes back to the local system.
void Redirector::release(UsbChannel &channel, const Outcome &reason)
{
    const QJsonObject taken = takeBack(channel, reason);
    if (!taken.isEmpty())
        report(RedirEventUnshared, taken);
}

// What is to be reported of that; empty if there was no device.
QJsonObject Redirector::takeBack(UsbChannel &channel, const Outcome &reason)
{
    const QString deviceId = channel.deviceId();
    if (deviceId.isEmpty())
        return {};
    channel.disconnectDevice();
    m_notes.erase(deviceId);
    m_cameBack.remove(deviceId);
    noteShared(deviceId, false);
    QJsonObject details{{QStringLiteral("deviceId"), deviceId}};
    if (!reason) {
        noteFailure(deviceId, reason);
        details.insert(QStringLiteral("code"), reason.code);
        details.insert(QStringLiteral("text"), reason.text);
    }
    return details;
}

// A killed process leaves its devices without their local drivers.
void Redirector::giveBackLeftBehind()
{
    const QStringList left = ShareNote::takeLeftBehind();
    for (const UsbDevice &device : left.isEmpty() ? QList<UsbDevice>() : UsbDevice::all()) {
        if (left.contains(device.id()))
            attachDrivers(device);
    }
}

void Redirector::attachDrivers(const UsbDevice &device)
{
    libusb_device_handle *handle = nullptr;
    const Outcome opened = open(device, handle);
    if (!opened) {
        qCWarning(logComponent, "%s stays without its local driver: %s", quoted(device.id()).constData(),
                  qPrintable(opened.text));
        return;
    }
    libusb_config_descriptor *config = nullptr;
    if (libusb_get_active_config_descriptor(libusb_get_device(handle), &config) == LIBUSB_SUCCESS) {
        for (int i = 0; i < config->bNumInterfaces; ++i) // one that has its driver, or another owner, refuses
            libusb_attach_kernel_driver(handle, config->interface[i].altsetting->bInterfaceNumber);
        libusb_free_config_descriptor(config);
    }
    libusb_close(handle);
}

// --- what is known of devices ---

void Redirector::noteShared(const QString &deviceId, bool shared)
{
    {
        const QMutexLocker lock(&m_mutex);
        m_shared.removeAll(deviceId);
        if (shared)
            m_shared.append(deviceId);
    }
    noteAnswers();
}

bool Redirector::isShared(const QString &deviceId) const
{
    const QMutexLocker lock(&m_mutex);
    return m_shared.contains(deviceId);
}

Outcome Redirector::lastFailure(const QString &deviceId) const
{
    const QMutexLocker lock(&m_mutex);
    return m_failures.value(deviceId);
}

void Redirector::noteFailure(const QString &deviceId, const Outcome &outcome)
{
    const QMutexLocker lock(&m_mutex);
    if (outcome)
        m_failures.remove(deviceId);
    else if (outcome.code != Refusal::NoSuchDevice) // no list would show it
        m_failures.insert(deviceId, outcome);
}

void Redirector::setFailure(const QString &deviceId, const Outcome &outcome)
{
    noteFailure(deviceId, outcome);
    if (!outcome)
        reportFailure(deviceId, outcome);
}

void Redirector::reportFailure(const QString &deviceId, const Outcome &outcome)
{
    report(RedirEventShareFailed,
           {{QStringLiteral("deviceId"), deviceId},
            {QStringLiteral("code"), outcome.code},
            {QStringLiteral("text"), outcome.text}});
}

void Redirector::report(RedirEvent event, const QJsonObject &details)
{
    if (!m_notify)
        return;
    const auto tell = [=] {
        if (m_stopping || m_isSilent)
            return 0;
        const QByteArray text = QJsonDocument(details).toJson(QJsonDocument::Compact);
        m_notify(nullptr, event, text.constData(), int(text.size()));
        return 0;
    };
    m_usb.call(0, tell); // a command's events are out before it returns
}
