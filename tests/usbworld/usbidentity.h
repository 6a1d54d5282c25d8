// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "function.h"

namespace usbworld {

/** One endpoint as its descriptor tells it. */
struct UsbEndpoint
{
    enum Type : std::uint8_t { Bulk = 2, Interrupt = 3, Isochronous = 5 };

    std::uint8_t address;
    Type type;
    std::uint16_t packetSize;
    std::uint8_t interval = 0;
    Bytes classSpecific{}; ///< descriptors that follow its own
};

/** One interface, and the kernel driver that binds to it when the device appears. */
struct UsbInterface
{
    std::uint8_t interfaceClass;
    std::uint8_t subClass;
    std::uint8_t protocol;
    std::vector<UsbEndpoint> endpoints;
    std::string kernelDriver;
    Bytes classSpecific{}; ///< descriptors that follow its own
    std::vector<std::vector<UsbEndpoint>> alternates{}; ///< the endpoints of the settings 1, 2 and so on
    std::uint8_t associated = 0; ///< how many interfaces from this one make one function; 0: not told
};

/** Everything a USB device says about itself; it does not change when the device is plugged again. */
struct UsbIdentity
{
    static constexpr int SuperSpeed = 5000;

    std::uint16_t vendorId;
    std::uint16_t productId;
    std::uint8_t deviceClass;
    std::string manufacturer;
    std::string product;
    std::string serial;
    std::vector<UsbInterface> interfaces;
    int speed = 480; ///< in Mbit/s

    Bytes deviceDescriptor() const;
    Bytes configurationDescriptor() const;
    Bytes storeDescriptor() const; ///< what it can do beyond USB 2; empty if that is nothing

    /** The string descriptor \a index, or nothing when there is none. */
    Bytes stringDescriptor(std::uint8_t index) const;

    /** The interface that has \a endpoint in one of its settings; minus one: none. */
    int interfaceOf(unsigned endpoint) const;
};

constexpr std::uint16_t TestVendorId = 0x1209; ///< set aside for tests, like its products 1 to 255
constexpr std::uint8_t MiscellaneousClass = 0xef; ///< of a device that says of its interfaces which belong together

UsbIdentity rootHubIdentity();
UsbInterface diskInterface(std::uint16_t packetSize);

// Numbers on the wire: the low byte comes first.
std::uint32_t numberAt(const std::uint8_t *bytes);
void append(Bytes &bytes, const Bytes &more);
void append16(Bytes &bytes, std::uint32_t value);
void append32(Bytes &bytes, std::uint32_t value);

} // namespace usbworld
