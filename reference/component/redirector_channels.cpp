// SPDX-License-Identifier: LGPL-2.1-or-later

// The channels, and what comes in over them.

#include "redirector.h"

#include "logging.h"

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

UsbChannel *Redirector::channelOf(const QString &deviceId)
{
    for (auto &[number, channel] : m_channels) {
        if (channel->deviceId() == deviceId)
            return channel.get();
    }
    return nullptr;
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
