// SPDX-License-Identifier: LGPL-2.1-or-later
#include "usbchannel.h"

#include "logging.h"

#include <cstring>

namespace {

void writeLog(void *, int level, const char *message)
{
    if (level <= usbredirparser_warning)
        qCWarning(logComponent, "usbredir: %s", message);
    else
        qCDebug(logComponent, "usbredir: %s", message);
}

} // namespace

UsbChannel::UsbChannel(QString name, SendCallback send) : m_name(std::move(name)), m_send(std::move(send)) { }

UsbChannel::~UsbChannel() = default;

void UsbChannel::open(libusb_context *usb)
{
    close();
    m_host.reset(usbredirhost_open_full(
        usb, nullptr, writeLog,
        [](void *self, uint8_t *buffer, int size) { return static_cast<UsbChannel *>(self)->take(buffer, size); },
        [](void *self, uint8_t *bytes, int size) { return static_cast<UsbChannel *>(self)->send(bytes, size); },
        [](void *) {}, // the USB thread flushes after each round
        nullptr, nullptr, nullptr, nullptr, this, "devredir 1", usbredirparser_warning, 0));
    flush();
}

void UsbChannel::close()
{
    m_host.reset();
    m_deviceId.clear();
    m_received.clear();
    m_taken = 0;
}

bool UsbChannel::connectDevice(const QString &deviceId, libusb_device_handle *handle, QString &error)
{
    const int result = usbredirhost_set_device(m_host.get(), handle);
    if (result != usb_redir_success) {
        error = QStringLiteral("the device cannot be taken from the local system (usbredir result %1)").arg(result);
        return false;
    }
    m_deviceId = deviceId;
    return true;
}

void UsbChannel::disconnectDevice()
{
    if (m_host)
        usbredirhost_set_device(m_host.get(), nullptr);
    m_deviceId.clear();
}

UsbChannel::Read UsbChannel::receive(const std::string &bytes)
{
    if (!m_host)
        return Read::Fine; // left over from before the channel was closed
    m_received.erase(0, m_taken);
    m_taken = 0;
    m_received += bytes;
    switch (usbredirhost_read_guest_data(m_host.get())) {
    case usbredirhost_read_device_rejected:
        return Read::DeviceRejected;
    case usbredirhost_read_device_lost:
        return Read::DeviceLost;
    case usbredirhost_read_io_error:
    case usbredirhost_read_parse_error:
        return Read::Broken;
    default:
        return Read::Fine;
    }
}

void UsbChannel::flush()
{
    if (m_host && usbredirhost_has_data_to_write(m_host.get()))
        usbredirhost_write_guest_data(m_host.get());
}

int UsbChannel::take(uint8_t *buffer, int size)
{
    const std::size_t count = std::min(std::size_t(size), m_received.size() - m_taken);
    std::memcpy(buffer, m_received.data() + m_taken, count);
    m_taken += count;
    return int(count);
}

int UsbChannel::send(uint8_t *bytes, int size)
{
    return m_send ? m_send(m_spiceChannel, reinterpret_cast<char *>(bytes), size) : -1;
}
