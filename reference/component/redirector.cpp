// SPDX-License-Identifier: LGPL-2.1-or-later
#include "redirector.h"

#include "logging.h"

#include <QJsonDocument>
#include <QMutexLocker>

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

// --- what is known ---

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
