// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "usbidentity.h"

#include <chrono>

namespace usbworld {

/**
 * A camera of the video class 1.1: uncompressed YUY2 and Motion JPEG, both in 160 x 120 and 640 x 480.
 *
 * A frame holds the checksum (FNV-1a) of what follows: its number, and random bytes that the number starts. Both have
 * 32 bits, the low byte first. In a JPEG frame all this is one comment, and there is nothing else.
 */
class Camera : public Function
{
public:
    enum class Transfer { Isochronous, Bulk };

    explicit Camera(Transfer transfer) : m_transfer(transfer) { }

    static UsbIdentity identity(Transfer transfer);

    bool control(const Setup &setup, const Bytes &data, Bytes &answer) override;
    void setAlternate(unsigned interface, unsigned alternate) override;
    In in(unsigned endpoint, std::size_t room) override;
    void skip(unsigned endpoint, std::uint64_t packets) override;
    void reset() override { stop(); }
    void clearHalt(unsigned endpoint) override;

private:
    using Clock = std::chrono::steady_clock;

    std::uint32_t frameInterval() const;
    Bytes probe(unsigned interval) const;
    bool takeProbe(const Bytes &data);
    std::uint32_t payloadSize() const;
    void start();
    void stop() { m_streaming = false; }
    std::uint64_t now();
    void makeFrame();

    const Transfer m_transfer;
    unsigned m_picture = 0; ///< which of the table
    unsigned m_interval = 0; ///< which of that picture's
    bool m_streaming = false;
    Clock::time_point m_began;
    std::uint64_t m_packets = 0; ///< since the stream began
    std::uint64_t m_due = 0; ///< microseconds after that: when the next frame begins
    std::uint32_t m_number = 0; ///< of the frame under way
    Bytes m_frame;
    std::size_t m_sent = 0;
    Bytes m_payload; ///< what was given last
};

} // namespace usbworld
