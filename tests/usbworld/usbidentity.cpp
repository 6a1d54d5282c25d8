// SPDX-License-Identifier: LGPL-2.1-or-later
#include "usbidentity.h"

#include <algorithm>

namespace usbworld {

namespace {

enum DescriptorType : std::uint8_t {
    Device = 1,
    Configuration = 2,
    String = 3,
    Interface = 4,
    Endpoint = 5,
    InterfaceAssociation = 11,
    DeviceCapability = 16,
    ObjectStore = 15,
    EndpointCompanion = 48,
};

constexpr std::uint8_t HubClass = 0x09;
constexpr std::uint8_t ProtocolOfInterfaceAssociation = 1;

void appendSetting(Bytes &body, const UsbInterface &one, std::uint8_t number, std::uint8_t setting,
                   const std::vector<UsbEndpoint> &endpoints, bool superSpeed)
{
    append(body,
           {9, Interface, number, setting, std::uint8_t(endpoints.size()), one.interfaceClass, one.subClass,
            one.protocol, 0});
    if (setting == 0)
        append(body, one.classSpecific);
    for (const UsbEndpoint &endpoint : endpoints) {
        append(body, {7, Endpoint, endpoint.address, endpoint.type});
        append16(body, endpoint.packetSize);
        append(body, {endpoint.interval});
        if (superSpeed)
            append(body, {6, EndpointCompanion, 0, 0, 0, 0});
        append(body, endpoint.classSpecific);
    }
}

} // namespace

std::uint32_t numberAt(const std::uint8_t *bytes)
{
    return std::uint32_t(bytes[3]) << 24 | std::uint32_t(bytes[2]) << 16 | std::uint32_t(bytes[1]) << 8 | bytes[0];
}

void append(Bytes &bytes, const Bytes &more)
{
    bytes.insert(bytes.end(), more.begin(), more.end());
}

void append16(Bytes &bytes, std::uint32_t value)
{
    append(bytes, {std::uint8_t(value), std::uint8_t(value >> 8)});
}

void append32(Bytes &bytes, std::uint32_t value)
{
    append16(bytes, value);
    append16(bytes, value >> 16);
}

Bytes UsbIdentity::deviceDescriptor() const
{
    const std::uint8_t subClass = deviceClass == MiscellaneousClass ? 2 : 0;
    const std::uint8_t protocol = deviceClass == MiscellaneousClass ? ProtocolOfInterfaceAssociation : 0;
    const bool isSuper = speed == SuperSpeed;
    // The packet size of endpoint 0 is told as a power of 2 by a SuperSpeed device.
    Bytes bytes{18,          Device,   0,        std::uint8_t(isSuper ? 3 : 2),
                deviceClass, subClass, protocol, std::uint8_t(isSuper ? 9 : 64)};
    append16(bytes, vendorId);
    append16(bytes, productId);
    append(bytes, {0, 1, 1, 2, 3, 1});
    return bytes;
}

Bytes UsbIdentity::configurationDescriptor() const
{
    Bytes body;
    std::uint8_t number = 0;
    for (const UsbInterface &one : interfaces) {
        if (one.associated > 0) {
            append(
                body,
                {8, InterfaceAssociation, number, one.associated, one.interfaceClass, one.subClass, one.protocol, 0});
        }
        appendSetting(body, one, number, 0, one.endpoints, speed == SuperSpeed);
        for (std::size_t i = 0; i < one.alternates.size(); ++i)
            appendSetting(body, one, number, std::uint8_t(i + 1), one.alternates[i], speed == SuperSpeed);
        ++number;
    }
    Bytes bytes{9, Configuration};
    append16(bytes, std::uint32_t(9 + body.size()));
    append(bytes, {number, 1, 0, 0x80, 50});
    append(bytes, body);
    return bytes;
}

Bytes UsbIdentity::storeDescriptor() const
{
    if (speed != SuperSpeed)
        return {};
    return {5,  ObjectStore,      22, 0, 2, //
            7,  DeviceCapability, 2,  2, 0,    0, 0, // USB 2: it saves power on its link
            10, DeviceCapability, 3,  0, 0x0e, 0, 1, 10, 0xff, 0x07}; // SuperSpeed: from full speed on
}

int UsbIdentity::interfaceOf(unsigned endpoint) const
{
    const auto has = [endpoint](const std::vector<UsbEndpoint> &endpoints) {
        return std::any_of(endpoints.begin(), endpoints.end(),
                           [endpoint](const UsbEndpoint &one) { return one.address == endpoint; });
    };
    for (std::size_t i = 0; i < interfaces.size(); ++i) {
        const auto &alternates = interfaces[i].alternates;
        if (has(interfaces[i].endpoints) || std::any_of(alternates.begin(), alternates.end(), has))
            return int(i);
    }
    return -1;
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
            {{HubClass, 0, 0, {{0x81, UsbEndpoint::Interrupt, 4, 8}}, "hub"}}};
}

UsbInterface diskInterface(std::uint16_t packetSize)
{
    return {0x08,
            0x06,
            0x50,
            {{0x81, UsbEndpoint::Bulk, packetSize}, {0x02, UsbEndpoint::Bulk, packetSize}},
            "usb-storage"};
}

} // namespace usbworld
