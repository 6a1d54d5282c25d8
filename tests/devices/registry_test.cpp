// SPDX-License-Identifier: LGPL-2.1-or-later
#include "devices/devredirectmanger.h"
#include "devices/samplerecords.h"
#include "support/logrecorder.h"
#include "support/printing.h"
#include "worker/devredirectworker.h"

#include <gtest/gtest.h>

#include <QMetaObject>
#include <QPointer>
#include <QThread>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

DevRedirectManger &registry()
{
    return *DevRedirectManger::instance();
}

void setDevices(QList<ExterDeviceInfo> devices)
{
    registry().setDevListInfo(devices);
}

void setMapDevices(QList<ExterDeviceInfo> devices)
{
    registry().setMapsDevListInfo(devices);
}

ExterDeviceInfo named(const QString &deviceId, const QString &deviceName)
{
    ExterDeviceInfo device = recordWithId(deviceId);
    device.deviceName = deviceName;
    return device;
}

} // namespace

TEST(Registry, is_one_for_the_process)
{
    DevRedirectManger *const first = DevRedirectManger::instance();
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(DevRedirectManger::instance(), first);
    EXPECT_EQ(first->parent(), nullptr);
}

TEST(Registry, is_a_qt_object_with_nothing_of_its_own)
{
    const QMetaObject &meta = DevRedirectManger::staticMetaObject;
    EXPECT_STREQ(meta.className(), "DevRedirectManger");
    EXPECT_STREQ(meta.superClass()->className(), "QObject");
    EXPECT_EQ(meta.methodCount(), meta.methodOffset());
    EXPECT_EQ(meta.propertyCount(), meta.propertyOffset());
    EXPECT_EQ(meta.enumeratorCount(), meta.enumeratorOffset());
    EXPECT_EQ(meta.constructorCount(), 0);
    EXPECT_EQ(registry().metaObject(), &meta);
    EXPECT_EQ(registry().qt_metacast("DevRedirectManger"), static_cast<void *>(&registry()));
    EXPECT_EQ(registry().qt_metacast("DevRedirectManager"), nullptr);
}

TEST(Registry, starts_empty_and_armed)
{
    DevRedirectManger fresh(nullptr);
    const std::unique_ptr<DevRedirectWorker> worker(fresh.getRedirectWorkerInstance());
    EXPECT_TRUE(fresh.getDevListInfo().isEmpty());
    EXPECT_TRUE(fresh.getMapDevListInfo().isEmpty());
    EXPECT_EQ(fresh.getdevListJsonStr(), QString());
    EXPECT_TRUE(fresh.getIsHandlerNotifyEvent());
}

TEST(Registry, keeps_both_lists_apart)
{
    setMapDevices({});
    setDevices({recordWithId(QStringLiteral("a"))});
    EXPECT_EQ(registry().getDevListInfo(), QList<ExterDeviceInfo>{recordWithId(QStringLiteral("a"))});
    EXPECT_TRUE(registry().getMapDevListInfo().isEmpty());

    setMapDevices({recordWithId(QStringLiteral("m"))});
    EXPECT_EQ(registry().getDevListInfo(), QList<ExterDeviceInfo>{recordWithId(QStringLiteral("a"))});
    EXPECT_EQ(registry().getMapDevListInfo(), QList<ExterDeviceInfo>{recordWithId(QStringLiteral("m"))});

    setDevices({recordWithId(QStringLiteral("b")), recordWithId(QStringLiteral("c"))});
    EXPECT_EQ(registry().getMapDevListInfo(), QList<ExterDeviceInfo>{recordWithId(QStringLiteral("m"))});
}

TEST(Registry, a_list_is_replaced_whole)
{
    setDevices({recordWithId(QStringLiteral("a")), recordWithId(QStringLiteral("b"))});
    setDevices({filledRecord()});
    EXPECT_EQ(registry().getDevListInfo(), QList<ExterDeviceInfo>{filledRecord()});
    setMapDevices({recordWithId(QStringLiteral("a")), recordWithId(QStringLiteral("b"))});
    setMapDevices({filledRecord()});
    EXPECT_EQ(registry().getMapDevListInfo(), QList<ExterDeviceInfo>{filledRecord()});

    setDevices({});
    setMapDevices({});
    EXPECT_TRUE(registry().getDevListInfo().isEmpty());
    EXPECT_TRUE(registry().getMapDevListInfo().isEmpty());
}

TEST(Registry, a_list_that_it_has_already_may_be_set_again)
{
    QList<ExterDeviceInfo> devices{filledRecord()};
    registry().setDevListInfo(devices);
    registry().setDevListInfo(devices);
    EXPECT_EQ(registry().getDevListInfo(), QList<ExterDeviceInfo>{filledRecord()});
    registry().setMapsDevListInfo(devices);
    registry().setMapsDevListInfo(devices);
    EXPECT_EQ(registry().getMapDevListInfo(), QList<ExterDeviceInfo>{filledRecord()});
    EXPECT_EQ(devices, QList<ExterDeviceInfo>{filledRecord()});
}

TEST(Registry, hands_out_copies)
{
    QList<ExterDeviceInfo> given{recordWithId(QStringLiteral("a"))};
    registry().setDevListInfo(given);
    registry().setMapsDevListInfo(given);
    given[0].deviceId = QStringLiteral("changed");
    registry().getDevListInfo().clear();
    QList<ExterDeviceInfo> taken = registry().getDevListInfo();
    taken.append(ExterDeviceInfo());
    EXPECT_EQ(registry().getDevListInfo(), QList<ExterDeviceInfo>{recordWithId(QStringLiteral("a"))});
    EXPECT_EQ(registry().getMapDevListInfo(), QList<ExterDeviceInfo>{recordWithId(QStringLiteral("a"))});
}

TEST(Registry, keeps_the_text_that_was_set_last)
{
    registry().setDevListJsonStr(QStringLiteral("one"));
    registry().setDevListJsonStr(QStringLiteral("two"));
    EXPECT_EQ(registry().getdevListJsonStr(), QStringLiteral("two"));
}

TEST(Registry, the_gate_closes_and_opens)
{
    registry().setIsHandlerNotifyEvent(false);
    EXPECT_FALSE(registry().getIsHandlerNotifyEvent());
    registry().setIsHandlerNotifyEvent(true);
    EXPECT_TRUE(registry().getIsHandlerNotifyEvent());
}

TEST(Registry, a_second_one_has_a_state_of_its_own)
{
    DevRedirectManger other(nullptr);
    const std::unique_ptr<DevRedirectWorker> worker(other.getRedirectWorkerInstance());
    registry().setIsHandlerNotifyEvent(true);
    registry().setDevListJsonStr(QStringLiteral("mine"));
    other.setIsHandlerNotifyEvent(false);
    other.setDevListJsonStr(QStringLiteral("its own"));
    EXPECT_TRUE(registry().getIsHandlerNotifyEvent());
    EXPECT_EQ(registry().getdevListJsonStr(), QStringLiteral("mine"));
    EXPECT_NE(registry().getRedirectWorkerInstance(), worker.get());
}

TEST(RegistryWorker, is_made_with_the_registry_and_has_no_parent)
{
    DevRedirectWorker *const worker = registry().getRedirectWorkerInstance();
    ASSERT_NE(worker, nullptr);
    EXPECT_EQ(worker->parent(), nullptr);
    EXPECT_EQ(worker->thread(), QThread::currentThread());
    EXPECT_EQ(registry().getRedirectWorkerInstance(), worker);
}

TEST(RegistryWorker, outlives_its_registry)
{
    QPointer<DevRedirectWorker> worker;
    {
        DevRedirectManger other(nullptr);
        worker = other.getRedirectWorkerInstance();
    }
    EXPECT_FALSE(worker.isNull());
    delete worker;
}

TEST(RegistryWorker, is_a_new_one_once_the_last_has_died)
{
    const QPointer<DevRedirectWorker> first(registry().getRedirectWorkerInstance());
    delete first.data();
    ASSERT_TRUE(first.isNull());

    const QPointer<DevRedirectWorker> second(registry().getRedirectWorkerInstance());
    ASSERT_FALSE(second.isNull());
    EXPECT_EQ(second->thread(), QThread::currentThread());
    EXPECT_EQ(registry().getRedirectWorkerInstance(), second.data());

    delete second.data();
    const QPointer<DevRedirectWorker> third(registry().getRedirectWorkerInstance());
    EXPECT_FALSE(third.isNull());
}

TEST(RegistryWorker, that_dies_on_another_thread_is_replaced_too)
{
    QPointer<DevRedirectWorker> first(registry().getRedirectWorkerInstance());
    QThread thread;
    first->moveToThread(&thread);
    QObject::connect(&thread, &QThread::finished, first.data(), &QObject::deleteLater);
    thread.start();
    thread.quit();
    ASSERT_TRUE(thread.wait(20000));
    ASSERT_TRUE(first.isNull());

    const QPointer<DevRedirectWorker> second(registry().getRedirectWorkerInstance());
    ASSERT_FALSE(second.isNull());
    EXPECT_EQ(second->thread(), QThread::currentThread());
}

TEST(MapList, is_logged_whenever_it_is_read)
{
    ExterDeviceInfo quoted = recordWithId(QStringLiteral("b"));
    quoted.deviceName = QStringLiteral("the \"disk\"");
    setMapDevices({recordWithId(QStringLiteral("a")), quoted});
    LogRecorder log;
    registry().getMapDevListInfo();
    EXPECT_EQ(
        log.lines(),
        (QStringList{
            QStringLiteral("debug: [ getMapDevListInfo ] [REDIR_MODULE]  Print device map list, list size =  2"),
            QStringLiteral("debug: [ getMapDevListInfo ] i:  \"Device info: deviceGUID = , vid = , pid = , deviceName "
                           "= , devClass = , status = 0,storeLetter =, deviceId = a, readOnly = 0,rdrName = , usbHub "
                           "= , usbPort = , nFunctionId = 0, isCompositeDevice =0, isMatchContext =0, context =, rel "
                           "= , prot =, subClass =,isCDROM =0, errCode =, errStr =.\""),
            QStringLiteral("debug: [ getMapDevListInfo ] i:  \"Device info: deviceGUID = , vid = , pid = , deviceName "
                           "= the \\\"disk\\\", devClass = , status = 0,storeLetter =, deviceId = b, readOnly = "
                           "0,rdrName = , usbHub = , usbPort = , nFunctionId = 0, isCompositeDevice =0, "
                           "isMatchContext =0, context =, rel = , prot =, subClass =,isCDROM =0, errCode =, errStr "
                           "=.\""),
        }));
}

TEST(MapList, that_is_empty_is_logged_with_its_size_only)
{
    setMapDevices({});
    LogRecorder log;
    EXPECT_TRUE(registry().getMapDevListInfo().isEmpty());
    EXPECT_EQ(log.lines(),
              QStringList{QStringLiteral("debug: [ getMapDevListInfo ] [REDIR_MODULE]  Print device map list, list "
                                         "size =  0")});
}

TEST(MapList, keeps_doubles_and_their_order)
{
    const QList<ExterDeviceInfo> devices{recordWithId(QStringLiteral("b")), recordWithId(QStringLiteral("a")),
                                         recordWithId(QStringLiteral("b"))};
    setMapDevices(devices);
    EXPECT_EQ(registry().getMapDevListInfo(), devices);
}

TEST(Registry, every_other_member_logs_nothing)
{
    registry();
    LogRecorder log;
    setDevices({filledRecord()});
    setMapDevices({filledRecord()});
    registry().getDevListInfo();
    registry().setDevListJsonStr(registry().getdevListJsonStr());
    registry().setIsHandlerNotifyEvent(registry().getIsHandlerNotifyEvent());
    ExterDeviceInfo device;
    registry().getDeviceInfoByDeviceId(QStringLiteral("dev-1"), &device);
    registry().getDeviceInfoByDeviceId(QStringLiteral("none"), &device);
    registry().getDeviceInfoByDeviceId(QStringLiteral("dev-1"), nullptr);
    EXPECT_EQ(log.lines(), QStringList());
}

TEST(Lookup, without_a_place_for_the_record_finds_nothing)
{
    setDevices({filledRecord()});
    EXPECT_FALSE(registry().getDeviceInfoByDeviceId(QStringLiteral("dev-1"), nullptr));
}

TEST(Lookup, gives_every_field_except_the_spare_text_b)
{
    setDevices({recordWithId(QStringLiteral("other")), filledRecord()});
    ExterDeviceInfo found;
    EXPECT_TRUE(registry().getDeviceInfoByDeviceId(QStringLiteral("dev-1"), &found));
    ExterDeviceInfo expected = filledRecord();
    expected.spareTextB = QString();
    EXPECT_EQ(found, expected);
    EXPECT_TRUE(found.spareTextB.isNull());
}

TEST(Lookup, keeps_the_spare_text_b_and_the_functions_of_the_output)
{
    setDevices({filledRecord()});
    ExterDeviceInfo found;
    found.spareTextB = QStringLiteral("kept");
    found.functions = {{8, QStringLiteral("x"), 80}, {9, QStringLiteral("y"), 90}};
    found.deviceName = QStringLiteral("replaced");
    EXPECT_TRUE(registry().getDeviceInfoByDeviceId(QStringLiteral("dev-1"), &found));
    ExterDeviceInfo expected = filledRecord();
    expected.spareTextB = QStringLiteral("kept");
    expected.functions = {{8, QStringLiteral("x"), 80},
                          {9, QStringLiteral("y"), 90},
                          {1, QStringLiteral("08"), 1},
                          {2, QStringLiteral("03"), 2},
                          {3, QStringLiteral("0e"), 4}};
    EXPECT_EQ(found, expected);
}

TEST(Lookup, of_the_same_device_twice_appends_its_functions_twice)
{
    setDevices({filledRecord()});
    ExterDeviceInfo found;
    EXPECT_TRUE(registry().getDeviceInfoByDeviceId(QStringLiteral("dev-1"), &found));
    EXPECT_TRUE(registry().getDeviceInfoByDeviceId(QStringLiteral("dev-1"), &found));
    EXPECT_EQ(found.functions, filledRecord().functions + filledRecord().functions);
    EXPECT_EQ(registry().getDevListInfo().value(0).functions, filledRecord().functions);
}

TEST(Lookup, gives_the_first_of_two_records_with_the_same_id)
{
    setDevices({named(QStringLiteral("a"), QStringLiteral("other")),
                named(QStringLiteral("b"), QStringLiteral("first")),
                named(QStringLiteral("b"), QStringLiteral("second"))});
    ExterDeviceInfo found;
    EXPECT_TRUE(registry().getDeviceInfoByDeviceId(QStringLiteral("b"), &found));
    EXPECT_EQ(found.deviceName, QStringLiteral("first"));
}

TEST(Lookup, without_a_match_leaves_the_output_alone)
{
    setDevices({recordWithId(QStringLiteral("dev-2"))});
    for (const char *id : {"DEV-2", "dev-", "dev-22", " dev-2", ""}) {
        ExterDeviceInfo found = filledRecord();
        EXPECT_FALSE(registry().getDeviceInfoByDeviceId(QLatin1String(id), &found)) << id;
        EXPECT_EQ(found, filledRecord()) << id;
    }
}

TEST(Lookup, of_an_empty_id_finds_a_record_without_id)
{
    setDevices({recordWithId(QStringLiteral("a")), named(QString(), QStringLiteral("nameless"))});
    ExterDeviceInfo found;
    EXPECT_TRUE(registry().getDeviceInfoByDeviceId(QString(), &found));
    EXPECT_EQ(found.deviceName, QStringLiteral("nameless"));
}

TEST(Lookup, looks_at_the_latest_list_and_not_at_the_map_list)
{
    setDevices({});
    setMapDevices({recordWithId(QStringLiteral("m"))});
    ExterDeviceInfo found;
    EXPECT_FALSE(registry().getDeviceInfoByDeviceId(QStringLiteral("m"), &found));
    setDevices({recordWithId(QStringLiteral("m"))});
    EXPECT_TRUE(registry().getDeviceInfoByDeviceId(QStringLiteral("m"), &found));
}

TEST(RegistryThreads, readers_always_see_a_whole_list_and_a_whole_text)
{
    constexpr int Rounds = 300;
    registry();
    const auto versionOf = [](int version) {
        QList<ExterDeviceInfo> devices;
        for (int i = 0; i < version % 5 + 1; ++i)
            devices.append(named(QStringLiteral("device"), QString::number(version)));
        return devices;
    };
    const auto isWhole = [](const QList<ExterDeviceInfo> &devices) {
        if (devices.isEmpty() || devices.size() != devices[0].deviceName.toInt() % 5 + 1)
            return false;
        for (const ExterDeviceInfo &device : devices) {
            if (device.deviceName != devices[0].deviceName)
                return false;
        }
        return true;
    };
    const auto textOf = [](int version) { return QString(version % 50 + 1, QChar('a' + version % 26)); };
    setDevices(versionOf(0));
    setMapDevices(versionOf(0));
    registry().setDevListJsonStr(textOf(0));

    LogRecorder log;
    std::atomic<bool> writing{true};
    std::atomic<int> torn{0};
    std::atomic<int> reads{0};
    std::vector<std::thread> readers;
    for (int i = 0; i < 3; ++i) {
        readers.emplace_back([&] {
            while (writing || reads < 3) {
                ExterDeviceInfo found;
                const QString text = registry().getdevListJsonStr();
                torn += !isWhole(registry().getDevListInfo()) || !isWhole(registry().getMapDevListInfo())
                    || !registry().getDeviceInfoByDeviceId(QStringLiteral("device"), &found)
                    || text.count(text.at(0)) != text.size();
                registry().getIsHandlerNotifyEvent();
                ++reads;
            }
        });
    }
    std::thread mapWriter([&] {
        for (int version = 0; version < Rounds; ++version) {
            setMapDevices(versionOf(version));
            registry().setIsHandlerNotifyEvent(true);
        }
    });
    for (int version = 0; version < Rounds; ++version) {
        setDevices(versionOf(version));
        registry().setDevListJsonStr(textOf(version));
        registry().setIsHandlerNotifyEvent(false);
    }
    mapWriter.join();
    writing = false;
    for (std::thread &reader : readers)
        reader.join();
    EXPECT_EQ(torn, 0);
    EXPECT_GT(reads, 2);
    EXPECT_EQ(registry().getDevListInfo(), versionOf(Rounds - 1));
    EXPECT_EQ(registry().getMapDevListInfo(), versionOf(Rounds - 1));
}
