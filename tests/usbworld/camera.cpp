// SPDX-License-Identifier: LGPL-2.1-or-later
#include "camera.h"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace usbworld {

namespace {

constexpr std::uint8_t StreamEndpoint = 0x81;
constexpr std::uint8_t StatusEndpoint = 0x83;
constexpr unsigned StreamInterface = 1;

enum Format : std::uint8_t { Uncompressed = 1, MotionJpeg = 2 };

struct Picture
{
    Format format;
    std::uint8_t number; ///< of the frame descriptor
    std::uint16_t width, height;
    std::uint32_t intervals[3]; ///< between frames, in units of 100 ns as the class counts; the shortest first

    std::uint32_t largest() const { return format == Uncompressed ? width * height * 2u : width * height / 8u; }
};
constexpr Picture Pictures[] = {
    {Uncompressed, 1, 160, 120, {666666, 1000000, 2000000}},
    {Uncompressed, 2, 640, 480, {5000000, 10000000, 20000000}},
    {MotionJpeg, 1, 160, 120, {666666, 1000000, 2000000}},
    {MotionJpeg, 2, 640, 480, {666666, 1000000, 2000000}},
};

constexpr std::uint8_t HeaderSize = 12;
constexpr std::uint32_t PacketSizes[] = {256, 512, 1024, 2048, 3072}; // of the alternate settings
constexpr std::uint8_t EveryMillisecond = 4; // as an exponent of microframes, of which each has 125 microseconds
constexpr std::uint64_t MicrosecondsOfAPacket = 125 << (EveryMillisecond - 1);
constexpr std::uint32_t BulkPayload = 16384;
constexpr std::uint32_t ClockFrequency = 1000000;

// --- descriptors ---

constexpr std::uint8_t ClassSpecific = 0x24;

Bytes formatDescriptor(Format format, std::uint8_t frames)
{
    if (format == MotionJpeg)
        return {11, ClassSpecific, 6, format, frames, 0, 1, 0, 0, 0, 0};
    return {27, ClassSpecific, 4, format, frames, 'Y',  'U', 'Y', '2', 0, 0, 0x10, 0, 0x80, 0,
            0,  0xaa,          0, 0x38,   0x9b,   0x71, 16,  1,   0,   0, 0, 0};
}

Bytes frameDescriptor(const Picture &picture)
{
    Bytes bytes{std::uint8_t(26 + 4 * std::size(picture.intervals)), ClassSpecific,
                std::uint8_t(picture.format == MotionJpeg ? 7 : 5), picture.number, 0};
    append16(bytes, picture.width);
    append16(bytes, picture.height);
    const auto bitsPerSecond = [&](std::uint32_t interval) {
        return std::uint32_t(std::uint64_t(picture.largest()) * 8 * 10000000 / interval);
    };
    append32(bytes, bitsPerSecond(picture.intervals[2]));
    append32(bytes, bitsPerSecond(picture.intervals[0]));
    append32(bytes, picture.largest());
    append32(bytes, picture.intervals[0]);
    append(bytes, {std::uint8_t(std::size(picture.intervals))});
    for (const std::uint32_t interval : picture.intervals)
        append32(bytes, interval);
    return bytes;
}

Bytes controlDescriptors()
{
    const Bytes units{
        18, ClassSpecific, 2, 1, 1, 2, 0, 0, 0, 0, 0, 0, 0, 0, 3, 0, 0, 0, // terminal 1: the camera
        9,  ClassSpecific, 3, 2, 1, 1, 0, 1, 0, // terminal 2: the stream, which comes from 1
    };
    Bytes bytes{13, ClassSpecific, 1, 0x10, 0x01};
    append16(bytes, std::uint32_t(13 + units.size()));
    append32(bytes, ClockFrequency);
    append(bytes, {1, StreamInterface});
    append(bytes, units);
    return bytes;
}

Bytes streamDescriptors()
{
    Bytes formats;
    for (const Format format : {Uncompressed, MotionJpeg}) {
        append(formats, formatDescriptor(format, 2));
        for (const Picture &picture : Pictures) {
            if (picture.format == format)
                append(formats, frameDescriptor(picture));
        }
        append(formats, {6, ClassSpecific, 13, 1, 1, 4}); // colours
    }
    Bytes bytes{15, ClassSpecific, 1, 2};
    append16(bytes, std::uint32_t(15 + formats.size()));
    append(bytes, {StreamEndpoint, 0, 2, 0, 0, 0, 1, 0, 0});
    append(bytes, formats);
    return bytes;
}

// Up to three packets of 1024 bytes go into one microframe.
UsbEndpoint isochronousEndpoint(std::uint32_t size)
{
    const std::uint32_t more = (size - 1) / 1024;
    return {StreamEndpoint, UsbEndpoint::Isochronous, std::uint16_t(size / (more + 1) | more << 11), EveryMillisecond};
}

} // namespace

UsbIdentity Camera::identity(Transfer transfer)
{
    UsbInterface control{
        0x0e, 1, 0, {{StatusEndpoint, UsbEndpoint::Interrupt, 16, 8, {5, 0x25, 3, 16, 0}}}, "uvcvideo"};
    control.classSpecific = controlDescriptors();
    control.associated = 2;
    UsbInterface stream{0x0e, 2, 0, {}, "uvcvideo"};
    stream.classSpecific = streamDescriptors();
    if (transfer == Transfer::Bulk) {
        stream.endpoints = {{StreamEndpoint, UsbEndpoint::Bulk, 512}};
        return {TestVendorId, 0x13, MiscellaneousClass, "Example", "Bulk camera", "CAMERA0002", {control, stream}};
    }
    for (const std::uint32_t size : PacketSizes)
        stream.alternates.push_back({isochronousEndpoint(size)});
    return {TestVendorId, 0x10, MiscellaneousClass, "Example", "Camera", "CAMERA0001", {control, stream}};
}

// --- what the host asks for ---

bool Camera::control(const Setup &setup, const Bytes &data, Bytes &answer)
{
    constexpr unsigned Probe = 1, Commit = 2;
    const unsigned selector = setup.value >> 8;
    if (setup.index != StreamInterface || (selector != Probe && selector != Commit))
        return false;
    switch (setup.request) {
    case 0x2101: // SET_CUR
        if (!takeProbe(data))
            return false;
        if (selector == Commit && m_transfer == Transfer::Bulk)
            start();
        return true;
    case 0xa181: // GET_CUR
    case 0xa187: // GET_DEF
        answer = probe(m_interval);
        return true;
    case 0xa182: // GET_MIN
        answer = probe(0);
        return true;
    case 0xa183: // GET_MAX
        answer = probe(2);
        return true;
    default:
        return false;
    }
}

std::uint32_t Camera::frameInterval() const
{
    return Pictures[m_picture].intervals[m_interval];
}

Bytes Camera::probe(unsigned interval) const
{
    const Picture &picture = Pictures[m_picture];
    Bytes bytes;
    append16(bytes, 1); // the interval is kept
    append(bytes, {picture.format, picture.number});
    append32(bytes, picture.intervals[interval]);
    append(bytes, Bytes(8, 0));
    append16(bytes, 32); // milliseconds of delay
    append32(bytes, picture.largest());
    append32(bytes, payloadSize());
    append32(bytes, ClockFrequency);
    append(bytes, {3, 0, 1, 1}); // both marks of a frame's end are used
    return bytes;
}

bool Camera::takeProbe(const Bytes &data)
{
    if (data.size() < 26)
        return false;
    const auto *picture = std::find_if(std::begin(Pictures), std::end(Pictures), [&data](const Picture &one) {
        return one.format == data[2] && one.number == data[3];
    });
    if (picture == std::end(Pictures))
        return false;
    m_picture = unsigned(picture - Pictures);
    const std::uint32_t wanted = numberAt(&data[4]);
    const auto *interval = std::find_if(std::begin(picture->intervals), std::end(picture->intervals) - 1,
                                        [wanted](std::uint32_t one) { return wanted <= one; });
    m_interval = unsigned(interval - picture->intervals);
    return true;
}

// The smallest packet that carries the stream, with a little to spare for the headers.
std::uint32_t Camera::payloadSize() const
{
    if (m_transfer == Transfer::Bulk)
        return BulkPayload;
    const std::uint64_t bytesPerSecond = std::uint64_t(Pictures[m_picture].largest()) * 10000000 / frameInterval();
    const auto *size = std::find_if(std::begin(PacketSizes), std::end(PacketSizes) - 1, [&](std::uint32_t one) {
        return (one - HeaderSize) * (1000000 / MicrosecondsOfAPacket) > bytesPerSecond * 21 / 20;
    });
    return *size;
}

void Camera::setAlternate(unsigned interface, unsigned alternate)
{
    if (interface != StreamInterface)
        return;
    if (alternate > 0)
        start();
    else
        stop();
}

// Bulk streams have no alternate setting: this is how the host ends one.
void Camera::clearHalt(unsigned endpoint)
{
    if (endpoint == StreamEndpoint)
        stop();
}

// --- the stream ---

void Camera::start()
{
    m_streaming = true;
    m_began = Clock::now();
    m_packets = m_due = 0;
    m_frame.clear();
    m_sent = 0;
}

// Microseconds since the stream began: isochronous packets are the clock themselves.
std::uint64_t Camera::now()
{
    using std::chrono::microseconds;
    if (m_transfer == Transfer::Isochronous)
        return m_packets++ * MicrosecondsOfAPacket;
    return std::uint64_t(std::chrono::duration_cast<microseconds>(Clock::now() - m_began).count());
}

void Camera::makeFrame()
{
    const Picture &picture = Pictures[m_picture];
    const std::uint32_t half = picture.largest() / 2;
    std::uint32_t random = ++m_number * 2654435761U | 1U;
    const auto next = [&random] {
        random ^= random << 13;
        random ^= random >> 17;
        random ^= random << 5;
        return random;
    };
    const std::uint32_t size = picture.format == MotionJpeg ? half + next() % (half - 16) : picture.largest();
    Bytes content(size - 4);
    const auto put = [&content](std::size_t at, std::uint32_t number) {
        std::memcpy(&content[at], &number, std::min(sizeof number, content.size() - at));
    };
    put(0, m_number);
    for (std::size_t at = 4; at < content.size(); at += 4)
        put(at, next());
    std::uint32_t sum = 2166136261U;
    for (const std::uint8_t byte : content)
        sum = (sum ^ byte) * 16777619U;
    m_frame.clear();
    if (picture.format == MotionJpeg) {
        const std::size_t comment = content.size() + 4 + 2;
        append(m_frame, {0xff, 0xd8, 0xff, 0xfe, std::uint8_t(comment >> 8), std::uint8_t(comment)});
    }
    append32(m_frame, sum);
    append(m_frame, content);
    if (picture.format == MotionJpeg)
        append(m_frame, {0xff, 0xd9});
    m_sent = 0;
}

void Camera::skip(unsigned, std::uint64_t packets)
{
    m_packets += packets;
    m_sent = std::size_t(std::min<std::uint64_t>(m_frame.size(), m_sent + packets * (payloadSize() - HeaderSize)));
}

// One payload: a header and as much of the frame as there is room for. Isochronous packets have a header at least.
Function::In Camera::in(unsigned endpoint, std::size_t room)
{
    if (endpoint != StreamEndpoint || !m_streaming || room <= HeaderSize)
        return notYet();
    const std::uint64_t time = now();
    if (m_sent == m_frame.size() && time >= m_due) {
        makeFrame();
        m_due = time + frameInterval() / 10;
    }
    const std::size_t left = m_frame.size() - m_sent;
    if (left == 0 && m_transfer == Transfer::Bulk)
        return notYet();
    const std::size_t count = std::min(std::min<std::size_t>(room, payloadSize()) - HeaderSize, left);
    const bool isLast = count > 0 && count == left;
    m_payload = {HeaderSize, std::uint8_t(0x8c | (isLast ? 2 : 0) | (m_number & 1))};
    append32(m_payload, std::uint32_t(m_due)); // when the frame was taken, and now: both are of the device's clock
    append32(m_payload, std::uint32_t(time));
    append16(m_payload, std::uint32_t(time / 1000) & 0x7ff);
    const auto from = m_frame.begin() + std::ptrdiff_t(m_sent);
    m_payload.insert(m_payload.end(), from, from + std::ptrdiff_t(count));
    m_sent += count;
    return give(m_payload);
}

} // namespace usbworld
