// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "scsidisk.h"

#include <string>
#include <vector>

namespace usbworld {

/** One endpoint as its descriptor tells it. */
struct UsbEndpoint
{
    std::uint8_t address;
    std::uint8_t attributes;
    std::uint16_t packetSize;
};

/** One interface, and the kernel driver that binds to it when the device appears. */
struct UsbInterface
{
    std::uint8_t interfaceClass;
    std::uint8_t subClass;
    std::uint8_t protocol;
    std::vector<UsbEndpoint> endpoints;
    std::string kernelDriver;
};

/** Everything a USB device says about itself; it does not change when the device is plugged again. */
struct UsbIdentity
{
    std::uint16_t vendorId;
    std::uint16_t productId;
    std::uint8_t deviceClass;
    std::string manufacturer;
    std::string product;
    std::string serial;
    std::vector<UsbInterface> interfaces;

    Bytes deviceDescriptor() const;
    Bytes configurationDescriptor() const;

    /** The string descriptor \a index, or nothing when there is none. */
    Bytes stringDescriptor(std::uint8_t index) const;
};

UsbIdentity rootHubIdentity();
UsbIdentity stickIdentity(std::uint16_t vendorId, std::uint16_t productId, const std::string &product,
                          const std::string &serial);
UsbIdentity cameraIdentity();

} // namespace usbworld
