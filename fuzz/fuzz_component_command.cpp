// SPDX-License-Identifier: LGPL-2.1-or-later

// Commands to the reference component. It sees three made-up devices and one that only its configuration knows;
// libusb sees none, so that sharing gets as far as the look for the device itself.
//
// An input: commands, one a line, to one component.

#include "component.h"
#include "logging.h"
#include "target.h"

#include <QJsonArray>
#include <QJsonDocument>

#include <atomic>

Q_LOGGING_CATEGORY(logComponent, "devredir.component", QtWarningMsg)

namespace {

constexpr int MostCommands = 16;

UsbDevice made(const char *portPath, const char *vendorId, const char *productId, const char *usbClass)
{
    UsbDevice device;
    device.portPath = QString::fromLatin1(portPath);
    device.vendorId = QString::fromLatin1(vendorId);
    device.productId = QString::fromLatin1(productId);
    device.own.usbClass = QString::fromLatin1(usbClass);
    device.interfaces = {device.own, device.own};
    return device;
}

void checkEvent(void *, RedirEvent event, const char *text, int length)
{
    expect(event >= RedirEventDeviceArrived && event <= RedirEventChannelLost, "a known event");
    const QJsonDocument document = QJsonDocument::fromJson(QByteArray(text, length));
    expect(document.isObject(), "an event's text is a JSON object");
    expect(document.object().value(QLatin1String("deviceId")).isString(), "an event names its device");
}

void checkReply(const QByteArray &command, const Outcome &outcome, const QByteArray &reply)
{
    expect(outcome.code == 0 || outcome.code >= Refusal::UnknownCommand, "codes are 0 or from 2 on");
    expect(outcome.code == 0 || !outcome.text.isEmpty(), "a refusal says why");
    expect(outcome.code <= Refusal::BadArgument, "a known code");

    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(reply, &error);
    expect(error.error == QJsonParseError::NoError && !document.isNull(), "the reply is JSON");

    const QString word = QJsonDocument::fromJson(command).object().value(QLatin1String("command")).toString();
    if (word == QLatin1String("list")) {
        expect(outcome.code == 0 && document.isArray(), "a list succeeds and is an array");
        const QJsonArray devices = document.array().at(0).toObject().value(QLatin1String("devices")).toArray();
        expectEqual(devices.size(), 4, "number of listed devices");
        return;
    }
    if (outcome && (word == QLatin1String("stats") || word == QLatin1String("explain"))) {
        expect(document.isArray(), "data is an array");
        return;
    }
    expect(document.isObject(), "the reply is an object");
    expectEqual(document.object().value(QLatin1String("code")).toInt(-1), outcome.code, "the reply's code");
    const bool known = word == QLatin1String("share") || word == QLatin1String("unshare")
        || word == QLatin1String("unshareall") || word == QLatin1String("devchange")
        || word == QLatin1String("setpolicy") || word == QLatin1String("explain");
    expectEqual(known, outcome.code != Refusal::UnknownCommand, "a command is known or refused as unknown");
}

} // namespace

QList<UsbDevice> UsbDevice::all()
{
    UsbDevice disk = made("1-1", "0781", "5591", "08");
    disk.disks = QStringList{QStringLiteral("sdz")};
    UsbDevice mounted = made("1-2", "0951", "1666", "08");
    mounted.disks = QStringList{QStringLiteral("sdy")};
    return {disk, mounted, made("1-3", "046d", "0825", "0e")};
}

UsbDevice::Interface UsbDevice::kind() const
{
    return own;
}

bool UsbDevice::isComplete() const
{
    return true;
}

QStringList UsbDevice::nodes() const
{
    return {}; // nobody has them open
}

QStringList UsbDevice::holders() const
{
    return {};
}

QString UsbDevice::mountPoint() const
{
    return disks.contains(QStringLiteral("sdy")) ? QStringLiteral("/media/stick") : QString();
}

int LLVMFuzzerInitialize(int *, char ***)
{
    switchLogOff();
    libusb_set_option(nullptr, LIBUSB_OPTION_NO_DEVICE_DISCOVERY);
    return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size)
{
    Config config;
    config.devices.append(QJsonObject{{QStringLiteral("deviceId"), QStringLiteral("described")}});
    Component component([](void *, char *, int length) { return length; }, checkEvent, config);

    int left = MostCommands;
    for (const QByteArray &command : bytesOf(data, size).split('\n')) {
        if (left-- == 0)
            break;
        QByteArray reply;
        const Outcome outcome = component.run(command, reply);
        checkReply(command, outcome, reply);
    }
    component.redirector().stop();
    return 0;
}
