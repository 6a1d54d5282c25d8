// SPDX-License-Identifier: LGPL-2.1-or-later
#include "usbidentity.h"

namespace usbworld {

namespace {

enum DescriptorType : std::uint8_t { Device = 1, Configuration = 2, String = 3, Interface = 4, Endpoint = 5 };
enum TransferType : std::uint8_t { Bulk = 2, Interrupt = 3 };

constexpr std::uint8_t HubClass = 0x09;
constexpr std::uint8_t MiscellaneousClass = 0xef;
constexpr std::uint8_t ProtocolOfInterfaceAssociation = 1;

// Vendor number and product numbers that are set aside for tests, so that no real device is meant.
constexpr std::uint16_t TestVendorId = 0x1209;
constexpr std::uint16_t CameraProductId = 0x0010;

std::uint8_t low(std::uint16_t value)
{
    return std::uint8_t(value & 0xff);
}

std::uint8_t high(std::uint16_t value)
{
    return std::uint8_t(value >> 8);
}

void append(Bytes &bytes, std::initializer_list<std::uint8_t> more)
{
    bytes.insert(bytes.end(), more);
}

} // namespace

Bytes UsbIdentity::deviceDescriptor() const
{
    const std::uint8_t subClass = deviceClass == MiscellaneousClass ? 2 : 0;
    const std::uint8_t protocol = deviceClass == MiscellaneousClass ? ProtocolOfInterfaceAssociation : 0;
    return {18,
            Device,
            0x00,
            0x02,
            deviceClass,
            subClass,
            protocol,
            64,
            low(vendorId),
            high(vendorId),
            low(productId),
            high(productId),
            0x00,
            0x01,
            1,
            2,
            3,
            1};
}

Bytes UsbIdentity::configurationDescriptor() const
{
    Bytes body;
    std::uint8_t number = 0;
    for (const UsbInterface &one : interfaces) {
        append(body,
               {9, Interface, number++, 0, std::uint8_t(one.endpoints.size()), one.interfaceClass, one.subClass,
                one.protocol, 0});
        for (const UsbEndpoint &endpoint : one.endpoints) {
            const std::uint8_t interval = endpoint.attributes == Interrupt ? 8 : 0;
            append(body,
                   {7, Endpoint, endpoint.address, endpoint.attributes, low(endpoint.packetSize),
                    high(endpoint.packetSize), interval});
        }
    }
    const auto total = std::uint16_t(9 + body.size());
    const auto count = std::uint8_t(interfaces.size());
    body.insert(body.begin(), {9, Configuration, low(total), high(total), count, 1, 0, 0x80, 50});
    return body;
}

Bytes UsbIdentity::stringDescriptor(std::uint8_t index) const
{
    if (index == 0)
        return {4, String, 0x09, 0x04}; // the one language: English
    if (index > 3)
        return {};
    const std::string &text = index == 1 ? manufacturer : index == 2 ? product : serial;
    Bytes bytes{std::uint8_t(2 + 2 * text.size()), String};
    for (const char c : text)
        append(bytes, {std::uint8_t(c), 0});
    return bytes;
}

UsbIdentity rootHubIdentity()
{
    return {0x1d6b,
            0x0002,
            HubClass,
            "Linux",
            "Host Controller",
            "0000:00:14.0",
            {{HubClass, 0, 0, {{0x81, Interrupt, 4}}, "hub"}}};
}

UsbIdentity stickIdentity(std::uint16_t vendorId, std::uint16_t productId, const std::string &product,
                          const std::string &serial)
{
    const std::vector<UsbEndpoint> endpoints{{0x81, Bulk, 512}, {0x02, Bulk, 512}};
    return {vendorId, productId, 0, "Example", product, serial, {{0x08, 0x06, 0x50, endpoints, "usb-storage"}}};
}

UsbIdentity cameraIdentity()
{
    return {TestVendorId,
            CameraProductId,
            MiscellaneousClass,
            "Example",
            "Camera",
            "CAMERA0001",
            {{0x0e, 0x01, 0x00, {{0x83, Interrupt, 16}}, "uvcvideo"}, {0x0e, 0x02, 0x00, {}, "uvcvideo"}}};
}

} // namespace usbworld
