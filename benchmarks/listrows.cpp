// SPDX-License-Identifier: LGPL-2.1-or-later

// Device lists: reading them, keeping them, looking into them.

#include "benchmarks/row.h"
#include "devices/devredirectmanger.h"
#include "devices/externaldevicelistparser.h"
#include "interface/devredirectinterface.h"
#include "worker/devredirectworker.h"

#include <QJsonDocument>

#include <benchmark/benchmark.h>

#include <cstdlib>

#include <malloc.h>
#include <time.h>

namespace {

constexpr int LongestList = 163840; // the most that a component is asked for
constexpr int DevicesInLongestList = 358;
constexpr int Devices = 1000;

QByteArray device(int number)
{
    const QByteArray n = QByteArray::number(number);
    const QByteArray id = "1-" + QByteArray::number(number % 14 + 1) + "." + n;
    return R"({"rdrName":")" + QByteArray(number % 3 ? "usbrdr" : "diskrdr") + R"(","context":"ctx-)" + n
        + R"(","vendorId":"0a5c","productId":")" + QByteArray::number(0x2000 + number, 16) + R"(","devicePosition":")"
        + id + R"(","deviceName":"Stick )" + n + R"(","deviceClass":"08","storeLetter":"sd)" + n + R"(","deviceId":")"
        + id + ":S" + QByteArray::number(1000000 + number) + R"(","usbHub":"1","usbPort":")"
        + QByteArray::number(number % 14 + 1)
        + R"(","usbProt":"50","deviceRel":"0110","deviceSubClass":"06","errCode":"0","errString":"",)"
          R"("isShared":"0","readOnly":false,"founctionBitmapMask":"1",)"
          R"("founctionInfo":[{"founctionClass":"08","founctionId":"0","founctionBitmapMask":"1"}]})";
}

QByteArray listOf(int devices)
{
    QByteArray list = R"([{"devices":[)";
    for (int number = 0; number < devices; ++number)
        list += (number ? "," : "") + device(number);
    return list + "]}]";
}

QByteArray longestList()
{
    const QByteArray list = listOf(DevicesInLongestList);
    if (list.size() > LongestList)
        qFatal("%d devices take %d bytes", DevicesInLongestList, int(list.size()));
    return list.leftJustified(LongestList, ' ');
}

QList<ExterDeviceInfo> records(int devices)
{
    const QByteArray list = listOf(devices);
    QList<ExterDeviceInfo> read;
    if (!parseExternalDeviceList(list.constData(), uint(list.size()), read) || read.size() != devices)
        std::abort();
    return read;
}

void readWithQt(int calls)
{
    static const QByteArray list = longestList();
    for (int call = 0; call < calls; ++call)
        benchmark::DoNotOptimize(QJsonDocument::fromJson(list));
}

void readWithLibrary(int calls)
{
    static const QByteArray list = longestList();
    for (int call = 0; call < calls; ++call) {
        QList<ExterDeviceInfo> devices;
        parseExternalDeviceList(list.constData(), uint(list.size()), devices);
        if (devices.size() != DevicesInLongestList)
            std::abort();
    }
}

// --- looking a device up: the last one ---

const QString &wantedId(const QList<ExterDeviceInfo> &devices)
{
    return devices.last().deviceId;
}

void searchBare(int calls)
{
    static const QList<ExterDeviceInfo> devices = records(Devices);
    const QString id(wantedId(devices).constData(), wantedId(devices).size());
    for (int call = 0; call < calls; ++call) {
        for (const ExterDeviceInfo &device : devices) {
            if (device.deviceId != id)
                continue;
            const ExterDeviceInfo copy = device;
            benchmark::DoNotOptimize(copy.status);
            break;
        }
    }
}

void searchWithLibrary(int calls)
{
    static auto *const redirect = new DevRedirectInterface(nullptr);
    static QList<ExterDeviceInfo> devices = records(Devices);
    DevRedirectManger::instance()->setDevListInfo(devices);
    const QString id(wantedId(devices).constData(), wantedId(devices).size());
    for (int call = 0; call < calls; ++call) {
        const ExterDeviceInfo found = redirect->getDeviceInfo(id);
        if (found.deviceId.isEmpty())
            std::abort();
    }
}

// --- memory ---

double allocated()
{
    const struct mallinfo2 info = mallinfo2();
    return double(info.uordblks + info.hblkhd);
}

constexpr QString ExterDeviceInfo::*Texts[] = {
    &ExterDeviceInfo::rdrName,     &ExterDeviceInfo::context,   &ExterDeviceInfo::vendorId,
    &ExterDeviceInfo::productId,   &ExterDeviceInfo::deviceId,  &ExterDeviceInfo::devicePosition,
    &ExterDeviceInfo::deviceName,  &ExterDeviceInfo::usbHub,    &ExterDeviceInfo::deviceClass,
    &ExterDeviceInfo::storeLetter, &ExterDeviceInfo::usbPort,   &ExterDeviceInfo::vmId,
    &ExterDeviceInfo::usbProt,     &ExterDeviceInfo::deviceRel, &ExterDeviceInfo::deviceSubClass,
    &ExterDeviceInfo::errCode,     &ExterDeviceInfo::errString,
};

double memoryOfTexts()
{
    const QList<ExterDeviceInfo> devices = records(Devices);
    const double before = allocated();
    QStringList texts;
    const auto add = [&texts](const QString &text) {
        if (!text.isEmpty())
            texts.append(QString(text.constData(), text.size()));
    };
    for (const ExterDeviceInfo &device : devices) {
        for (const auto text : Texts)
            add(device.*text);
        for (const FunctionInfo &function : device.functions)
            add(function.founctionClass);
    }
    return allocated() - before;
}

void publish(const QByteArray &list)
{
    QByteArray bytes = list;
    DevRedirectManger *const registry = DevRedirectManger::instance();
    registry->getRedirectWorkerInstance()->mappingDeviceInDevList(bytes.data(), uint(bytes.size()));
    if (registry->getMapDevListInfo().size() != registry->getDevListInfo().size())
        std::abort();
}

Row::Pair memoryOfLists()
{
    static auto *const redirect = new DevRedirectInterface(nullptr);
    redirect->sendMapCommandByDevModel([](QList<ExterDeviceInfo> &) {});
    const QByteArray list = listOf(Devices);
    const QByteArray nothing = listOf(0);
    publish(list);
    publish(nothing);
    const double before = allocated();
    publish(list);
    const double kept = allocated() - before;
    publish(nothing);
    return {memoryOfTexts(), kept};
}

} // namespace

std::vector<Growth> listGrowths()
{
    const auto read = [](int size) -> Row::Work {
        return [list = listOf(size), size](int calls) {
            for (int call = 0; call < calls; ++call) {
                QList<ExterDeviceInfo> devices;
                parseExternalDeviceList(list.constData(), uint(list.size()), devices);
                if (devices.size() != size)
                    std::abort();
            }
        };
    };
    return {{"devices", {1, 10, 100, 1000, 10000, 100000}, read}};
}

std::vector<Row> listRows()
{
    return {
        Row::timed("list", CLOCK_THREAD_CPUTIME_ID, 2, readWithQt, readWithLibrary),
        Row::timed("search", CLOCK_THREAD_CPUTIME_ID, 500, searchBare, searchWithLibrary),
        {"memory", memoryOfLists, 0, {}, {}},
    };
}
