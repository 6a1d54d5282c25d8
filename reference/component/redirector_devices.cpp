// SPDX-License-Identifier: LGPL-2.1-or-later

// How devices are opened, and how they get their local drivers back.

#include "redirector.h"

#include "gates.h"
#include "logging.h"

#include <QMutexLocker>

#include <fcntl.h>

void Redirector::setDescriptor(const UsbDevice &device, int descriptor)
{
    Descriptor copy(fcntl(descriptor, F_DUPFD_CLOEXEC, 0));
    m_usb.call(0, [&] {
        if (isShared(device.id())) // by the one that there is
            return 0;
        const QMutexLocker lock(&m_mutex);
        m_descriptors.erase(device.portPath);
        if (copy)
            m_descriptors.emplace(device.portPath, std::move(copy));
        return 0;
    });
}

bool Redirector::hasDescriptor(const UsbDevice &device) const
{
    const QMutexLocker lock(&m_mutex);
    return m_descriptors.count(device.portPath) > 0;
}

int Redirector::openNode(const UsbDevice &device, libusb_device_handle *&handle)
{
    libusb_device **list = nullptr;
    const ssize_t count = m_usb.usb() ? libusb_get_device_list(m_usb.usb(), &list) : 0;
    int result = LIBUSB_ERROR_NO_DEVICE;
    for (ssize_t i = 0; i < count; ++i) {
        if (libusb_get_bus_number(list[i]) == device.bus && libusb_get_device_address(list[i]) == device.address)
            result = libusb_open(list[i], &handle);
    }
    if (list)
        libusb_free_device_list(list, 1);
    return result;
}

Outcome Redirector::open(const UsbDevice &device, libusb_device_handle *&handle)
{
    const auto brought = m_descriptors.find(device.portPath);
    const int result = brought == m_descriptors.end()
        ? openNode(device, handle)
        : libusb_wrap_sys_device(m_usb.usb(), brought->second.get(), &handle);
    if (result == LIBUSB_ERROR_ACCESS)
        return noPermission(device);
    if (result == LIBUSB_ERROR_NO_DEVICE)
        return {Refusal::NoSuchDevice, QStringLiteral("no such device")};
    if (result != LIBUSB_SUCCESS)
        return {Refusal::UsbError,
                QStringLiteral("cannot open ") + device.node + QStringLiteral(": ")
                    + QString::fromLatin1(libusb_error_name(result))};
    return {};
}

// A killed process leaves its devices without their local drivers.
void Redirector::giveBackLeftBehind()
{
    const QStringList left = ShareNote::takeLeftBehind();
    for (const UsbDevice &device : left.isEmpty() ? QList<UsbDevice>() : UsbDevice::all()) {
        if (left.contains(device.id()))
            attachDrivers(device);
    }
}

void Redirector::attachDrivers(const UsbDevice &device)
{
    libusb_device_handle *handle = nullptr;
    const Outcome opened = open(device, handle);
    if (!opened) {
        qCWarning(logComponent, "%s stays without its local driver: %s", quoted(device.id()).constData(),
                  qPrintable(opened.text));
        return;
    }
    libusb_config_descriptor *config = nullptr;
    if (libusb_get_active_config_descriptor(libusb_get_device(handle), &config) == LIBUSB_SUCCESS) {
        for (int i = 0; i < config->bNumInterfaces; ++i) // one that has its driver, or another owner, refuses
            libusb_attach_kernel_driver(handle, config->interface[i].altsetting->bInterfaceNumber);
        libusb_free_config_descriptor(config);
    }
    libusb_close(handle);
}
