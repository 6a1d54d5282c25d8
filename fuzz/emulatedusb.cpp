// SPDX-License-Identifier: LGPL-2.1-or-later
#include "emulatedusb.h"

#include "target.h"

#include <sanitizer/asan_interface.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <set>
#include <thread>

namespace {

struct InterfaceState
{
    bool hasDriver = true, isClaimed = false;
};

} // namespace

struct libusb_device
{
    EmulatedDevice shape;
    std::vector<uint8_t> endpoints;
    std::vector<std::vector<libusb_endpoint_descriptor>> endpointDescriptors;
    std::vector<std::vector<libusb_interface_descriptor>> settingDescriptors;
    std::vector<libusb_interface> interfaceDescriptors;
    libusb_config_descriptor config{};
    std::vector<InterfaceState> interfaces;
    bool isOpen = false, detachesDrivers = false, wasMadeToFail = false, isGone = false;
};

struct libusb_device_handle
{
    libusb_device *device;
};

namespace {

constexpr int LargestMemory = 16 << 20; // what the kernel lets all transfers of all devices take
constexpr int MostRounds = 1000;
constexpr std::size_t MostSettings = 256; // their number is a byte

struct State
{
    std::unique_ptr<libusb_device> device;
    libusb_device_handle handle{};
    std::set<libusb_transfer *> transfers;
    std::vector<libusb_transfer *> underWay, cancelled;
    int borrowedDescriptors = 0, idleRounds = 0;
    unsigned callsUntilFailure = 0;
    int failure = LIBUSB_SUCCESS;
    std::chrono::milliseconds slowness{0};
} state;

libusb_device &deviceOf(libusb_device_handle *handle)
{
    expect(handle && handle == &state.handle && state.device && state.device->isOpen, "the device is open");
    return *handle->device;
}

// What a call that can fail returns before it does its work.
int resultOf(libusb_device &device)
{
    std::this_thread::sleep_for(state.slowness);
    if (device.isGone)
        return LIBUSB_ERROR_NO_DEVICE;
    if (state.failure == LIBUSB_SUCCESS || state.callsUntilFailure-- > 0)
        return LIBUSB_SUCCESS;
    device.wasMadeToFail = true;
    return std::exchange(state.failure, LIBUSB_SUCCESS);
}

int resultOf(libusb_device_handle *handle)
{
    return resultOf(deviceOf(handle));
}

// A call about an interface: null, and the result, if the call fails before it does its work. The number is what
// counts, not the place; of two with the same number the kernel looks at the first.
InterfaceState *interfaceOf(libusb_device_handle *handle, int number, int &result)
{
    libusb_device &device = deviceOf(handle);
    result = resultOf(device);
    if (result != LIBUSB_SUCCESS)
        return nullptr;
    for (std::size_t place = 0; place < device.interfaces.size(); ++place) {
        if (device.shape.interfaces[place].front().interface == number)
            return &device.interfaces[place];
    }
    result = LIBUSB_ERROR_NOT_FOUND;
    return nullptr;
}

libusb_endpoint_descriptor described(const EmulatedEndpoint &endpoint)
{
    libusb_endpoint_descriptor descriptor{};
    descriptor.bEndpointAddress = endpoint.address;
    descriptor.bmAttributes = endpoint.attributes;
    descriptor.wMaxPacketSize = endpoint.maxPacketSize;
    descriptor.bInterval = endpoint.interval;
    descriptor.bRefresh = uint8_t(endpoint.streams); // for the companion descriptor
    return descriptor;
}

void describe(libusb_device &device)
{
    const auto &interfaces = device.shape.interfaces;
    device.interfaces.resize(interfaces.size());
    for (const auto &settings : interfaces) {
        auto &descriptors = device.settingDescriptors.emplace_back();
        for (const EmulatedSetting &setting : settings) {
            auto &endpoints = device.endpointDescriptors.emplace_back();
            for (const EmulatedEndpoint &endpoint : setting.endpoints) {
                endpoints.push_back(described(endpoint));
                device.endpoints.push_back(endpoint.address);
            }
            libusb_interface_descriptor descriptor{};
            descriptor.bInterfaceNumber = setting.interface;
            descriptor.bAlternateSetting = setting.alternate;
            descriptor.bInterfaceClass = setting.usbClass;
            descriptor.bNumEndpoints = uint8_t(endpoints.size());
            descriptor.endpoint = endpoints.data(); // stays where it is when the vector around it moves
            descriptors.push_back(descriptor);
        }
        libusb_interface_descriptor beyond{}; // whoever counts too far meets an endpoint that cannot be read
        beyond.bNumEndpoints = 1;
        descriptors.resize(MostSettings, beyond);
        device.interfaceDescriptors.push_back({descriptors.data(), int(settings.size())});
    }
    device.config.bNumInterfaces = uint8_t(interfaces.size());
    device.config.bConfigurationValue = 1;
    device.config.interface = device.interfaceDescriptors.data();
}

void finish(libusb_transfer *transfer, libusb_transfer_status status, int length)
{
    const auto remove = [transfer](std::vector<libusb_transfer *> &list) {
        list.erase(std::remove(list.begin(), list.end(), transfer), list.end());
    };
    remove(state.underWay);
    remove(state.cancelled);
    const bool isControl = transfer->type == LIBUSB_TRANSFER_TYPE_CONTROL;
    const int head = isControl ? int(LIBUSB_CONTROL_SETUP_SIZE) : 0;
    const bool reads = (isControl ? transfer->buffer[0] : transfer->endpoint) & LIBUSB_ENDPOINT_IN;
    transfer->status = status;
    transfer->actual_length = std::clamp(length, 0, transfer->length - head);
    if (reads && transfer->actual_length > 0)
        std::memset(transfer->buffer + head, 0xd5, std::size_t(transfer->actual_length));
    for (int i = 0; i < transfer->num_iso_packets; ++i) {
        libusb_iso_packet_descriptor &packet = transfer->iso_packet_desc[i];
        packet.status = i % 3 ? LIBUSB_TRANSFER_COMPLETED : status;
        packet.actual_length = std::min(packet.length, unsigned(std::max(length, 0)));
    }
    transfer->callback(transfer);
}

} // namespace

libusb_device_handle *EmulatedUsb::open(const EmulatedDevice &shape)
{
    expect(!state.device || !state.device->isOpen, "the device before it is closed");
    state.device = std::make_unique<libusb_device>();
    state.device->shape = shape;
    describe(*state.device);
    state.device->isOpen = true;
    state.handle.device = state.device.get();
    return &state.handle;
}

void EmulatedUsb::unplug()
{
    if (state.device)
        state.device->isGone = true;
}

void EmulatedUsb::failAfter(unsigned calls, libusb_error error)
{
    state.callsUntilFailure = calls;
    state.failure = error;
}

void EmulatedUsb::slowDown(std::chrono::milliseconds time)
{
    state.slowness = time;
}

const std::vector<uint8_t> &EmulatedUsb::endpoints()
{
    static const std::vector<uint8_t> none;
    return state.device ? state.device->endpoints : none;
}

int EmulatedUsb::underWay()
{
    return int(state.underWay.size());
}

void EmulatedUsb::complete(int number, libusb_transfer_status status, int length)
{
    libusb_transfer *transfer = state.underWay[std::size_t(number)];
    if (state.device->isGone)
        status = LIBUSB_TRANSFER_NO_DEVICE;
    else if (std::count(state.cancelled.begin(), state.cancelled.end(), transfer) > 0)
        status = LIBUSB_TRANSFER_CANCELLED;
    finish(transfer, status, status == LIBUSB_TRANSFER_NO_DEVICE ? 0 : length);
}

void EmulatedUsb::expectTidy()
{
    expect(!state.device || !state.device->isOpen, "the device is closed");
    expect(state.underWay.empty(), "no transfer is under way");
    expect(state.transfers.empty(), "each transfer is freed");
    expect(state.borrowedDescriptors == 0, "each descriptor is freed");
    expectDrivers();
    state = State();
}

void EmulatedUsb::expectDrivers()
{
    if (!state.device || state.device->isGone || state.device->wasMadeToFail)
        return;
    for (const InterfaceState &interface : state.device->interfaces)
        expect(interface.hasDriver, "the local drivers are back");
}

// --- what libusb offers ---

#pragma GCC visibility push(default)

extern "C" {

int libusb_set_option(libusb_context *, libusb_option, ...)
{
    return LIBUSB_SUCCESS;
}

const char *libusb_error_name(int)
{
    return "an error";
}

libusb_device *libusb_get_device(libusb_device_handle *handle)
{
    return &deviceOf(handle);
}

int libusb_get_device_speed(libusb_device *device)
{
    return device->shape.speed;
}

int libusb_get_device_descriptor(libusb_device *device, libusb_device_descriptor *descriptor)
{
    *descriptor = {};
    descriptor->bDeviceClass = device->shape.usbClass;
    descriptor->bNumConfigurations = 2; // the second cannot be read
    return LIBUSB_SUCCESS;
}

int libusb_get_active_config_descriptor(libusb_device *device, libusb_config_descriptor **config)
{
    const int result = resultOf(*device);
    return result == LIBUSB_SUCCESS ? libusb_get_config_descriptor(device, 0, config) : result;
}

int libusb_get_config_descriptor(libusb_device *device, uint8_t index, libusb_config_descriptor **config)
{
    if (index > 0)
        return LIBUSB_ERROR_NOT_FOUND;
    *config = &device->config;
    ++state.borrowedDescriptors;
    return LIBUSB_SUCCESS;
}

void libusb_free_config_descriptor(libusb_config_descriptor *config)
{
    if (config)
        --state.borrowedDescriptors;
}

int libusb_get_ss_endpoint_companion_descriptor(libusb_context *, const libusb_endpoint_descriptor *endpoint,
                                                libusb_ss_endpoint_companion_descriptor **companion)
{
    if (int8_t(endpoint->bRefresh) < 0)
        return LIBUSB_ERROR_NOT_FOUND;
    *companion = new libusb_ss_endpoint_companion_descriptor{};
    (*companion)->bmAttributes = endpoint->bRefresh;
    ++state.borrowedDescriptors;
    return LIBUSB_SUCCESS;
}

void libusb_free_ss_endpoint_companion_descriptor(libusb_ss_endpoint_companion_descriptor *companion)
{
    if (companion)
        --state.borrowedDescriptors;
    delete companion;
}

int libusb_set_auto_detach_kernel_driver(libusb_device_handle *handle, int enable)
{
    deviceOf(handle).detachesDrivers = enable != 0;
    return LIBUSB_SUCCESS;
}

int libusb_claim_interface(libusb_device_handle *handle, int number)
{
    int result;
    InterfaceState *interface = interfaceOf(handle, number, result);
    if (!interface)
        return result;
    if (interface->hasDriver && !handle->device->detachesDrivers)
        return LIBUSB_ERROR_BUSY;
    *interface = {false, true};
    return LIBUSB_SUCCESS;
}

int libusb_release_interface(libusb_device_handle *handle, int number)
{
    int result;
    InterfaceState *interface = interfaceOf(handle, number, result);
    if (!interface)
        return result;
    if (!interface->isClaimed)
        return LIBUSB_ERROR_NOT_FOUND;
    *interface = {handle->device->detachesDrivers, false};
    return LIBUSB_SUCCESS;
}

int libusb_attach_kernel_driver(libusb_device_handle *handle, int number)
{
    int result;
    InterfaceState *interface = interfaceOf(handle, number, result);
    if (!interface)
        return result;
    if (interface->isClaimed)
        return LIBUSB_ERROR_BUSY;
    interface->hasDriver = true;
    return LIBUSB_SUCCESS;
}

int libusb_set_configuration(libusb_device_handle *handle, int)
{
    return resultOf(handle);
}

int libusb_set_interface_alt_setting(libusb_device_handle *handle, int number, int alternate)
{
    int result;
    const InterfaceState *interface = interfaceOf(handle, number, result);
    if (!interface)
        return result;
    const libusb_device &device = *handle->device;
    const auto &settings = device.shape.interfaces[std::size_t(interface - device.interfaces.data())];
    const bool exists = std::any_of(settings.begin(), settings.end(), [alternate](const EmulatedSetting &setting) {
        return setting.alternate == alternate;
    });
    return interface->isClaimed && exists ? LIBUSB_SUCCESS : LIBUSB_ERROR_NOT_FOUND;
}

int libusb_clear_halt(libusb_device_handle *handle, unsigned char)
{
    return resultOf(handle);
}

int libusb_reset_device(libusb_device_handle *handle)
{
    return resultOf(handle);
}

int libusb_alloc_streams(libusb_device_handle *handle, uint32_t streams, unsigned char *endpoints, int count)
{
    expect(!__asan_region_is_poisoned(endpoints, std::size_t(count)), "there are so many endpoints");
    const int result = resultOf(handle);
    return result == LIBUSB_SUCCESS ? int(std::min<uint32_t>(streams, INT32_MAX)) : result;
}

int libusb_free_streams(libusb_device_handle *handle, unsigned char *, int)
{
    return resultOf(handle);
}

libusb_transfer *libusb_alloc_transfer(int isoPackets)
{
    expect(isoPackets >= 0 && isoPackets <= 128, "a transfer of an ordinary size"); // the kernel takes no more packets
    void *memory =
        std::calloc(1, sizeof(libusb_transfer) + sizeof(libusb_iso_packet_descriptor) * std::size_t(isoPackets));
    auto *transfer = static_cast<libusb_transfer *>(memory);
    transfer->num_iso_packets = isoPackets;
    state.transfers.insert(transfer);
    return transfer;
}

void libusb_free_transfer(libusb_transfer *transfer)
{
    if (!transfer)
        return;
    expect(state.transfers.erase(transfer) == 1, "a transfer is freed once");
    expect(std::count(state.underWay.begin(), state.underWay.end(), transfer) == 0,
           "a transfer is freed when it is done");
    if (transfer->flags & LIBUSB_TRANSFER_FREE_BUFFER)
        std::free(transfer->buffer);
    std::free(transfer);
}

void libusb_transfer_set_stream_id(libusb_transfer *transfer, uint32_t)
{
    expect(state.transfers.count(transfer) == 1, "the transfer is there");
}

int libusb_submit_transfer(libusb_transfer *transfer)
{
    expect(state.transfers.count(transfer) == 1, "the transfer is there");
    libusb_device &device = deviceOf(transfer->dev_handle);
    if (std::count(state.underWay.begin(), state.underWay.end(), transfer) > 0)
        return LIBUSB_ERROR_BUSY;
    const int result = resultOf(device);
    if (result != LIBUSB_SUCCESS)
        return result;
    expect(transfer->length >= 0, "a transfer has a length");
    qint64 memory = transfer->length;
    for (const libusb_transfer *other : state.underWay)
        memory += other->length;
    if (memory > LargestMemory)
        return LIBUSB_ERROR_NO_MEM;
    unsigned isoLength = 0;
    for (int i = 0; i < transfer->num_iso_packets; ++i)
        isoLength += transfer->iso_packet_desc[i].length;
    expect(int(isoLength) <= transfer->length, "packets lie within their transfer");
    expect(!__asan_region_is_poisoned(transfer->buffer, std::size_t(transfer->length)), "a buffer is that long");
    state.underWay.push_back(transfer);
    return LIBUSB_SUCCESS;
}

int libusb_cancel_transfer(libusb_transfer *transfer)
{
    expect(state.transfers.count(transfer) == 1, "the transfer is there");
    const auto has = [transfer](const std::vector<libusb_transfer *> &list) {
        return std::count(list.begin(), list.end(), transfer) > 0;
    };
    if (!has(state.underWay) || has(state.cancelled))
        return LIBUSB_ERROR_NOT_FOUND;
    state.cancelled.push_back(transfer);
    return state.device->isGone ? LIBUSB_ERROR_NO_DEVICE : LIBUSB_SUCCESS;
}

int libusb_handle_events_timeout(libusb_context *, timeval *)
{
    const std::vector<libusb_transfer *> ending =
        state.device && state.device->isGone ? state.underWay : state.cancelled;
    state.idleRounds = ending.empty() ? state.idleRounds + 1 : 0;
    expect(state.idleRounds < MostRounds, "nobody waits for what does not come");
    for (libusb_transfer *transfer : ending)
        finish(transfer, state.device->isGone ? LIBUSB_TRANSFER_NO_DEVICE : LIBUSB_TRANSFER_CANCELLED, 0);
    return LIBUSB_SUCCESS;
}

void libusb_close(libusb_device_handle *handle)
{
    libusb_device &device = deviceOf(handle);
    for (const libusb_transfer *transfer : state.underWay)
        expect(transfer->dev_handle != handle, "a device is closed when its transfers are done");
    device.isOpen = false;
}

} // extern "C"

#pragma GCC visibility pop
