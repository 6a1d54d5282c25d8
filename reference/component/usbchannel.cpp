// SPDX-License-Identifier: LGPL-2.1-or-later
#include "usbchannel.h"

#include "component/entrypoints.h"
#include "logging.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include <dlfcn.h>
#include <usbredirproto.h>

namespace {

constexpr std::chrono::milliseconds LongestRead(5);
// Bytes. Who reads asks for some MiB at a time, who writes waits for the answers to some dozen requests, and a message
// has at most 128 MiB.
constexpr uint64_t MostWaiting = 512 << 20;
constexpr std::size_t MostUnread = 256 << 20;

void writeLog(void *, int level, const char *message)
{
    if (level <= usbredirparser_warning)
        qCWarning(logComponent, "usbredir: %s", message);
    else
        qCDebug(logComponent, "usbredir: %s", message);
}

// Usbredirhost hands these to libusb even without a device, which libusb does not survive.
bool needsDevice(uint32_t messageType)
{
    return messageType == usb_redir_alloc_bulk_streams || messageType == usb_redir_free_bulk_streams;
}

// Usbredirhost begins to send when half of a stream's packets are there. Of one packet there is no half: it never
// begins, and has no room for the second.
bool startsStreamOfOnePacket(const char *message, const GuestMessages::Piece &piece)
{
    usb_redir_start_iso_stream_header start;
    if (piece.type != usb_redir_start_iso_stream || piece.size != piece.headerSize + sizeof start)
        return false;
    std::memcpy(&start, message + piece.headerSize, sizeof start);
    return !(start.endpoint & LIBUSB_ENDPOINT_IN) && start.pkts_per_urb * start.no_urbs == 1;
}

// Usbredirhost takes the number of an alternate setting for its place.
bool hasSettingsInPlace(const libusb_config_descriptor &config)
{
    for (int i = 0; i < config.bNumInterfaces; ++i) {
        const libusb_interface &interface = config.interface[i];
        for (int place = 0; place < interface.num_altsetting; ++place) {
            if (interface.altsetting[place].bAlternateSetting >= interface.num_altsetting)
                return false;
        }
    }
    return true;
}

bool hasSettingsInPlace(libusb_device *device)
{
    libusb_device_descriptor descriptor{};
    libusb_get_device_descriptor(device, &descriptor);
    bool inPlace = true;
    for (uint8_t i = 0; inPlace && i < descriptor.bNumConfigurations; ++i) {
        libusb_config_descriptor *config = nullptr;
        if (libusb_get_config_descriptor(device, i, &config) != LIBUSB_SUCCESS)
            continue; // usbredirhost will not get it either
        inPlace = hasSettingsInPlace(*config);
        libusb_free_config_descriptor(config);
    }
    return inPlace;
}

// The library's function, if this library has it.
BytesWaiting *findBytesWaiting()
{
    const char *const name = "devredirectBytesWaiting";
    void *found = dlsym(RTLD_DEFAULT, name);
    if (!found) { // a host may have loaded the library for itself alone
        void *const library = dlopen("libdevredirecthandler.so.1", RTLD_NOLOAD | RTLD_LAZY);
        found = library ? dlsym(library, name) : nullptr;
    }
    return reinterpret_cast<BytesWaiting *>(found);
}

BytesWaiting *bytesWaiting()
{
    static BytesWaiting *const found = findBytesWaiting();
    return found;
}

} // namespace

UsbChannel::UsbChannel(QString name, SendCallback send, std::chrono::milliseconds longestAge)
    : m_name(std::move(name)), m_send(std::move(send)), m_longestAge(longestAge)
{
}

UsbChannel::~UsbChannel() = default;

void UsbChannel::open(libusb_context *usb)
{
    close();
    m_host.reset(usbredirhost_open_full(
        usb, nullptr, writeLog,
        [](void *self, uint8_t *buffer, int size) { return static_cast<UsbChannel *>(self)->take(buffer, size); },
        [](void *self, uint8_t *bytes, int size) { return static_cast<UsbChannel *>(self)->send(bytes, size); },
        [](void *) {}, // the USB thread flushes after each round
        nullptr, nullptr, nullptr, nullptr, this, "devredir 1", usbredirparser_warning,
        usbredirhost_fl_write_cb_owns_buffer));
    // Asked how much waits, and packets are dropped if it is much: that follows from its age.
    usbredirhost_set_buffered_output_size_cb(m_host.get(), [](void *self) {
        return static_cast<UsbChannel *>(self)->isLate() ? std::numeric_limits<uint64_t>::max() : 0;
    });
    flush();
}

void UsbChannel::close()
{
    m_host.reset();
    m_deviceId.clear();
    m_hasDevice = false;
    std::string().swap(m_received); // with its memory
    m_hasUnread = false;
    m_taken = m_shown = 0;
    m_messages = {};
    m_sendAge = {};
}

bool UsbChannel::connectDevice(const QString &deviceId, libusb_device_handle *handle, QString &error)
{
    if (!hasSettingsInPlace(libusb_get_device(handle))) {
        libusb_close(handle);
        error = QStringLiteral("its alternate settings are not numbered one after the other");
        return false;
    }
    const int result = usbredirhost_set_device(m_host.get(), handle);
    if (result != usb_redir_success) {
        error = QStringLiteral("the device cannot be taken from the local system (usbredir result %1)").arg(result);
        return false;
    }
    m_deviceId = deviceId;
    m_hasDevice = true;
    m_statistics = {};
    m_dropsBefore = 0;
    return true;
}

void UsbChannel::disconnectDevice()
{
    if (m_hasDevice)
        usbredirhost_set_device(m_host.get(), nullptr);
    m_hasDevice = false;
    m_deviceId.clear();
}

// --- what comes in ---

bool UsbChannel::receive(const std::string &bytes)
{
    if (!m_host)
        return true; // left over from before the channel was closed
    if (m_taken > m_received.size() / 2) { // little is left to be moved
        m_received.erase(0, m_taken);
        m_shown -= m_taken;
        m_taken = 0;
    }
    m_received += bytes;
    m_hasUnread = true;
    return m_received.size() - m_taken <= MostUnread;
}

UsbChannel::Read UsbChannel::read()
{
    const auto end = std::chrono::steady_clock::now() + LongestRead;
    Read result = Read::Fine;
    while (m_hasUnread && result != Read::Broken) {
        m_hasUnread = showNextMessage();
        if (m_hasUnread)
            result = std::max(result, readMessage());
        if (std::chrono::steady_clock::now() >= end)
            break;
    }
    return result;
}

// One at a time: what the next may do depends on whether this one made the device go.
bool UsbChannel::showNextMessage()
{
    const char *const message = m_received.data() + m_shown;
    const GuestMessages::Piece piece = m_messages.next(message, m_received.size() - m_shown);
    m_shown += piece.size;
    m_statistics.fromGuest(message, piece, m_messages);
    if (piece.isWhole && ((needsDevice(piece.type) && !m_hasDevice) || startsStreamOfOnePacket(message, piece))) {
        qCWarning(logComponent, "%s: a message of type %u is dropped", quoted(m_name).constData(), piece.type);
        m_taken = m_shown;
    }
    return piece.size > 0;
}

UsbChannel::Read UsbChannel::readMessage()
{
    switch (usbredirhost_read_guest_data(m_host.get())) {
    case usbredirhost_read_device_rejected:
        usbredirhost_set_device(m_host.get(), nullptr);
        m_hasDevice = false;
        return Read::DeviceRejected;
    case usbredirhost_read_device_lost:
        m_hasDevice = false;
        return Read::DeviceLost;
    case usbredirhost_read_io_error:
    case usbredirhost_read_parse_error:
        return Read::Broken;
    default:
        return Read::Fine;
    }
}

bool UsbChannel::flush()
{
    if (!m_host || !usbredirhost_has_data_to_write(m_host.get()))
        return true;
    usbredirhost_write_guest_data(m_host.get());
    return waiting() <= MostWaiting;
}

int UsbChannel::take(uint8_t *buffer, int size)
{
    const std::size_t count = std::min(std::size_t(size), m_shown - m_taken);
    std::memcpy(buffer, m_received.data() + m_taken, count);
    m_taken += count;
    return int(count);
}

// All or nothing, as usbredirhost wants it from whoever takes its buffers over.
int UsbChannel::send(uint8_t *bytes, int size)
{
    if (!m_send || m_send(m_spiceChannel, reinterpret_cast<char *>(bytes), size) < 0)
        return -1;
    m_statistics.toGuest(bytes, m_messages);
    m_sendAge.sent(uint64_t(size));
    m_sendAge.age(waiting()); // forgets what has been written
    usbredirhost_free_write_buffer(m_host.get(), bytes);
    return size;
}

// 0 as well if it cannot be known.
uint64_t UsbChannel::waiting() const
{
    return bytesWaiting() ? uint64_t(std::max<int64_t>(bytesWaiting()(m_spiceChannel), 0)) : 0;
}

// Asked for each isochronous packet, which is dropped if so.
bool UsbChannel::isLate()
{
    if (m_sendAge.age(waiting()) > m_longestAge) {
        if (m_statistics.drops() == m_dropsBefore)
            qCWarning(logComponent, "%s: isochronous data is late and dropped", quoted(m_name).constData());
        m_statistics.dropped();
        return true;
    }
    if (m_statistics.drops() > m_dropsBefore)
        qCWarning(logComponent, "%s: isochronous data is in time again, %llu packets were dropped",
                  quoted(m_name).constData(), static_cast<unsigned long long>(m_statistics.drops() - m_dropsBefore));
    m_dropsBefore = m_statistics.drops();
    return false;
}
