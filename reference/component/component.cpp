// SPDX-License-Identifier: LGPL-2.1-or-later
#include "component.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QMutexLocker>

#include <algorithm>
#include <optional>

namespace {

const QString DeviceId = QStringLiteral("deviceId");

QJsonArray describeFunctions(const UsbDevice &device)
{
    QJsonArray functions;
    for (int i = 0; i < device.interfaces.size(); ++i) {
        functions.append(QJsonObject{
            {QStringLiteral("founctionClass"), device.interfaces[i].usbClass},
            {QStringLiteral("founctionId"), QString::number(i)},
            {QStringLiteral("founctionBitmapMask"), QString::number(1 << qMin(i, 30))},
        });
    }
    return functions;
}

std::optional<UsbDevice> deviceWith(const QString &deviceId)
{
    for (const UsbDevice &device : UsbDevice::all()) {
        if (device.id() == deviceId)
            return device;
    }
    return std::nullopt;
}

const Outcome Missing{Refusal::NoSuchDevice, QStringLiteral("no such device")};
const Outcome Denied{Refusal::DeniedByPolicy, QStringLiteral("the camera policy denies it")};
// USB redirection hands over the whole disk, so there is no way to keep the virtual machine from writing.
const Outcome ReadOnly{Refusal::ReadOnly, QStringLiteral("read-only: it would be writable in the virtual machine")};

} // namespace

Component::Component(SendCallback send, EventCallback notify, Config config)
    : m_config(std::move(config)), m_redirector(std::move(send), std::move(notify), m_config,
                                                [this](const UsbDevice &device) { return mayShare(device); })
{
}

Outcome Component::run(const QByteArray &command, QByteArray &reply)
{
    const Outcome outcome = dispatch(QJsonDocument::fromJson(command).object(), reply);
    if (reply.isEmpty()) {
        reply =
            QJsonDocument(QJsonObject{{QStringLiteral("code"), outcome.code}, {QStringLiteral("text"), outcome.text}})
                .toJson(QJsonDocument::Compact);
    }
    return outcome;
}

Outcome Component::dispatch(const QJsonObject &command, QByteArray &reply)
{
    const QString word = command.value(QLatin1String("command")).toString();
    if (word == QLatin1String("list")) {
        reply = list();
        return {};
    }
    if (word == QLatin1String("share"))
        return share(command);
    if (word == QLatin1String("unshare"))
        return unshare(command);
    if (word == QLatin1String("unshareall"))
        return unshareAll();
    if (word == QLatin1String("devchange"))
        return deviceChanged(command);
    if (word == QLatin1String("setpolicy"))
        return setPolicy(command);
    if (word == QLatin1String("explain"))
        return explain(command, reply);
    if (word == QLatin1String("stats")) {
        reply = QJsonDocument(m_redirector.statistics()).toJson(QJsonDocument::Compact);
        return {};
    }
    return {Refusal::UnknownCommand, QStringLiteral("unknown command: ") + word};
}

// --- the list ---

QByteArray Component::list()
{
    QJsonArray devices;
    QHash<QString, QString> first; // of devices that cannot be told apart but by their place
    for (const UsbDevice &device : UsbDevice::all()) {
        QJsonObject entry = describe(device);
        const QString numbers = device.vendorId + device.productId + device.serial;
        if (first.contains(numbers))
            entry.insert(QStringLiteral("deviceName"),
                         QStringLiteral("%1 (same as %2)").arg(device.name, first.value(numbers)));
        else if (!device.serial.isEmpty())
            first.insert(numbers, device.id());
        devices.append(entry);
    }
    for (QJsonObject device : m_config.devices) {
        const QString deviceId = device.value(DeviceId).toString();
        addState(device, deviceId, isDescribedShared(deviceId));
        devices.append(device);
    }
    return QJsonDocument(QJsonArray{QJsonObject{{QStringLiteral("devices"), devices}}}).toJson(QJsonDocument::Compact);
}

QJsonObject Component::describe(const UsbDevice &device)
{
    const UsbDevice::Interface kind = device.kind();
    const bool composite = device.interfaces.size() > 1;
    const int mask = composite ? (1 << qMin(device.interfaces.size(), 30)) - 1 : 0;
    QJsonObject entry{
        {QStringLiteral("rdrName"), redirectorOf(device)},
        {QStringLiteral("context"), device.node},
        {QStringLiteral("vendorId"), device.vendorId},
        {QStringLiteral("productId"), device.productId},
        {QStringLiteral("devicePosition"), device.portPath},
        {QStringLiteral("deviceName"), device.name},
        {QStringLiteral("deviceClass"), kind.usbClass},
        {QStringLiteral("deviceSubClass"), kind.subClass},
        {QStringLiteral("usbProt"), kind.protocol},
        {QStringLiteral("deviceRel"), device.release},
        {QStringLiteral("storeLetter"), device.disks.isEmpty() ? QString() : device.disks.first()},
        {DeviceId, device.id()},
        {QStringLiteral("readOnly"), isReadOnly(device)},
        {QStringLiteral("usbHub"), device.hub()},
        {QStringLiteral("usbPort"), device.port()},
        {QStringLiteral("founctionBitmapMask"), QString::number(mask)},
        {QStringLiteral("founctionInfo"), composite ? describeFunctions(device) : QJsonArray()},
    };
    addState(entry, device.id(), m_redirector.isShared(device.id()));
    return entry;
}

void Component::addState(QJsonObject &entry, const QString &deviceId, bool shared) const
{
    const Outcome last = m_redirector.lastFailure(deviceId);
    entry.insert(QStringLiteral("isShared"), shared ? QStringLiteral("1") : QStringLiteral("0"));
    entry.insert(QStringLiteral("errCode"), QString::number(last.code));
    entry.insert(QStringLiteral("errString"), last.text);
}

QString Component::redirectorOf(const UsbDevice &device) const
{
    return m_config.redirectors.value(device.kind().usbClass, QStringLiteral("usbrdr"));
}

bool Component::isReadOnly(const UsbDevice &device) const
{
    return device.writeProtected || m_config.readOnly.contains(device.vendorId + QLatin1Char(':') + device.productId);
}

// --- commands ---

bool Component::isDescribed(const QString &deviceId) const
{
    return std::any_of(m_config.devices.begin(), m_config.devices.end(),
                       [&](const QJsonObject &device) { return device.value(DeviceId).toString() == deviceId; });
}

bool Component::isDescribedShared(const QString &deviceId)
{
    const QMutexLocker lock(&m_mutex);
    return m_sharedDescribed.contains(deviceId);
}

bool Component::noteDescribed(const QString &deviceId, bool shared)
{
    {
        const QMutexLocker lock(&m_mutex);
        if (m_sharedDescribed.contains(deviceId) == shared)
            return false;
        if (shared)
            m_sharedDescribed.insert(deviceId);
        else
            m_sharedDescribed.remove(deviceId);
    }
    m_redirector.report(shared ? RedirEventShared : RedirEventUnshared, {{DeviceId, deviceId}});
    return true;
}

Outcome Component::shareDescribed(const QString &deviceId)
{
    Outcome outcome;
    if (!noteDescribed(deviceId, true))
        outcome = {Refusal::AlreadyShared, QStringLiteral("already shared")};
    m_redirector.setFailure(deviceId, outcome);
    return outcome;
}

Outcome Component::unshareDescribed(const QString &deviceId)
{
    if (noteDescribed(deviceId, false))
        return {};
    return {Refusal::NotShared, QStringLiteral("not shared")};
}

Outcome Component::share(const QJsonObject &command)
{
    const QString deviceId = command.value(DeviceId).toString();
    if (isDescribed(deviceId))
        return shareDescribed(deviceId);
    const std::optional<UsbDevice> device = deviceWith(deviceId);
    if (device && !command.value(QLatin1String("readOnly")).toBool())
        return m_redirector.share(*device);
    const Outcome refusal = device ? ReadOnly : Missing;
    m_redirector.setFailure(deviceId, refusal);
    return refusal;
}

bool Component::isDenied(const UsbDevice &device)
{
    if (redirectorOf(device) != QLatin1String("camrdr"))
        return false;
    const QMutexLocker lock(&m_mutex);
    return !m_cameraPolicy.allow(device.kind().usbClass, device.vendorId, device.productId, true);
}

QList<Gate> Component::rules(const UsbDevice &device)
{
    Gate policy{QStringLiteral("camera policy"), {}, QStringLiteral("another policy, from whoever sets it")};
    if (isDenied(device))
        policy.outcome = Denied;
    Gate writable{QStringLiteral("writable"),
                  {},
                  QStringLiteral("the write-protect switch on it, or \"readOnly\" in config.json")};
    if (isReadOnly(device))
        writable.outcome = ReadOnly;
    return {policy, writable, mountGate(device)};
}

Outcome Component::mayShare(const UsbDevice &device)
{
    for (const Gate &gate : rules(device)) {
        if (!gate.outcome)
            return gate.outcome;
    }
    return {};
}

Outcome Component::unshare(const QJsonObject &command)
{
    const QString deviceId = command.value(DeviceId).toString();
    if (isDescribed(deviceId))
        return unshareDescribed(deviceId);
    return m_redirector.unshare(deviceId);
}

Outcome Component::unshareAll()
{
    m_redirector.unshareAll();
    for (const QJsonObject &device : m_config.devices)
        noteDescribed(device.value(DeviceId).toString(), false);
    return {};
}

// libusb sees plugs by itself on this kind of machine; the host's word only makes it certain that nobody waits for it,
// and may bring what opens the device.
Outcome Component::deviceChanged(const QJsonObject &command)
{
    const QString position = command.value(QLatin1String("devicePosition")).toString();
    const bool attached = command.value(QLatin1String("deviceAttach")).toString() == QLatin1String("1");
    for (const UsbDevice &device : UsbDevice::all()) {
        if (device.portPath.compare(position, Qt::CaseInsensitive) != 0)
            continue;
        if (!attached)
            m_redirector.unshare(device.id());
        const int descriptor = command.value(QLatin1String("fd")).toInt(); // 0 is none
        if (m_config.openByDescriptor)
            m_redirector.setDescriptor(device, attached && descriptor > 0 ? descriptor : -1);
        if (attached)
            m_redirector.report(RedirEventDeviceArrived,
                                {{DeviceId, device.id()}, {QStringLiteral("name"), device.name}});
        return {};
    }
    return attached ? Missing : Outcome(); // it has gone, as the host says
}

Outcome Component::setPolicy(const QJsonObject &command)
{
    {
        const QMutexLocker lock(&m_mutex);
        const QJsonValue policy = command.value(QLatin1String("policy"));
        if (!policy.isArray() || !m_cameraPolicy.set(policy.toArray()))
            return {Refusal::BadArgument,
                    QStringLiteral("a rule reads allow[:class]:vendor:product or deny[:class]:vendor:product")};
    }
    for (const UsbDevice &device : UsbDevice::all()) {
        if (isDenied(device))
            m_redirector.unshare(device.id(), Denied);
    }
    return {};
}

Outcome Component::explain(const QJsonObject &command, QByteArray &reply)
{
    const QString deviceId = command.value(DeviceId).toString();
    const std::optional<UsbDevice> device = deviceWith(deviceId);
    if (!device)
        return Missing;
    Gate permission = permissionGate(*device);
    if (m_redirector.hasDescriptor(*device))
        permission.outcome = {};
    Gate channel{QStringLiteral("free channel"),
                 {},
                 QStringLiteral("a virtual machine that is connected, with one more USB port")};
    const bool isShared = m_redirector.isShared(deviceId);
    if (!isShared && !m_redirector.hasFreeChannel())
        channel.outcome = {Refusal::NoFreeChannel, QStringLiteral("no free channel")};
    Gate use = useGate(*device);
    if (isShared) // which says more than who has it open for that
        use = {
            use.name, {Refusal::AlreadyShared, QStringLiteral("already shared")}, QStringLiteral("take it back first")};
    QJsonArray gates;
    for (const Gate &gate : QList<Gate>{permission} + rules(*device) + QList<Gate>{channel, use})
        gates.append(gate.toJson());
    reply = QJsonDocument(QJsonArray{QJsonObject{{DeviceId, deviceId}, {QStringLiteral("gates"), gates}}})
                .toJson(QJsonDocument::Compact);
    return {};
}
