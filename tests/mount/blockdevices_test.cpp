// SPDX-License-Identifier: LGPL-2.1-or-later
#include "mount/lister.h"
#include "mount/systemcalls.h"
#include "mount/watchmountworker.h"
#include "support/logrecorder.h"
#include "support/printing.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

const char listerCommand[] = "-J -o NAME,MOUNTPOINT";

QByteArray listing(const QByteArray &devices)
{
    return "{\n   \"blockdevices\": [" + devices + "]\n}\n";
}

QString debugLine(const char *text)
{
    return QStringLiteral("debug: ") + QString::fromUtf8(text);
}

QString outputLine(const QByteArray &answer)
{
    return QStringLiteral("debug: mountDone excuCmd:lsblk -J -o NAME,MOUNTPOINT,result is  ")
        + QString::fromUtf8(answer);
}

QStringList sysLines(const QByteArray &name, const QByteArray &target)
{
    return {QStringLiteral("debug: isUsbDev excuCmd: /sys/block/") + QString::fromUtf8(name),
            QStringLiteral("debug: isUsbDev result: ") + QString::fromUtf8(target)};
}

} // namespace

class UsbDisks : public ::testing::Test
{
protected:
    bool mountDone(const QByteArray &answer)
    {
        const Lister lister({answer});
        const bool done = worker.mountDone();
        EXPECT_EQ(lister.calls(), QList<QByteArray>{listerCommand});
        return done;
    }

    // sda and sdb sit on USB, vda and sdc do not, every other name is missing.
    BlockDevices devices{{{QStringLiteral("sda"), BlockDevices::usbDisk("sda")},
                          {QStringLiteral("sdb"), BlockDevices::usbDisk("sdb")},
                          {QStringLiteral("sdc"), BlockDevices::sataDisk("sdc")},
                          {QStringLiteral("vda"), "../devices/pci0000:00/0000:00:03.0/virtio0/block/vda"}}};
    WatchMountWorker worker;
    LogRecorder log;
};

TEST_F(UsbDisks, are_all_mounted_or_not)
{
    const struct
    {
        const char *devices;
        bool done;
    } listings[] = {
        // nothing to wait for
        {"", true},
        {R"({"name":"vda","mountpoint":"/"})", true},
        {R"({"name":"vda","mountpoint":null},{"name":"sdc","mountpoint":null})", true},
        {R"({"name":"sdc","mountpoint":null,"children":[{"name":"sdc1","mountpoint":null}]})", true},
        {R"({"name":"sdz","mountpoint":null})", true}, // not in /sys/block
        // one disk on USB
        {R"({"name":"sda","mountpoint":"/media/stick"})", true},
        {R"({"name":"sda","mountpoint":null})", false},
        {R"({"name":"sda","mountpoint":""})", false},
        {R"({"name":"sda"})", false},
        {R"({"name":"sda","mountpoint":7})", false},
        {R"({"name":"sda","mountpoint":["/media/stick"]})", false},
        // and its partitions
        {R"({"name":"sda","mountpoint":null,"children":[{"name":"sda1","mountpoint":"/media/stick"}]})", true},
        {R"({"name":"sda","mountpoint":null,"children":[{"name":"sda1","mountpoint":null},)"
         R"({"name":"sda2","mountpoint":"/media/stick"}]})",
         true},
        {R"({"name":"sda","mountpoint":null,"children":[{"name":"sda1","mountpoint":null}]})", false},
        {R"({"name":"sda","mountpoint":null,"children":[{"name":"sda1","mountpoint":""},{"name":"sda2"}]})", false},
        {R"({"name":"sda","mountpoint":"/media/a","children":[{"name":"sda1","mountpoint":null}]})", true},
        {R"({"name":"sda","mountpoint":null,"children":[]})", false},
        {R"({"name":"sda","mountpoint":null,"children":null})", false},
        {R"({"name":"sda","mountpoint":null,"children":{"name":"sda1","mountpoint":"/media/stick"}})", false},
        {R"({"name":"sda","mountpoint":null,"children":["/media/stick"]})", false},
        // what lies below a partition is not looked at
        {R"({"name":"sda","mountpoint":null,"children":[{"name":"sda1","mountpoint":null,)"
         R"("children":[{"name":"crypt","mountpoint":"/media/stick"}]}]})",
         false},
        // several disks
        {R"({"name":"sda","mountpoint":"/media/a"},{"name":"sdb","mountpoint":"/media/b"})", true},
        {R"({"name":"sda","mountpoint":"/media/a"},{"name":"sdb","mountpoint":null})", false},
        {R"({"name":"sda","mountpoint":null},{"name":"sdb","mountpoint":"/media/b"})", false},
        {R"({"name":"vda","mountpoint":"/"},{"name":"sda","mountpoint":null})", false},
        {R"({"name":"sda","children":[{"name":"sda1","mountpoint":"/a"}]},{"name":"sdb","children":[{"name":"sdb1"}]})",
         false},
        // entries of another shape have no name
        {R"("sda",7,null)", true},
        {R"({"NAME":"sda","MOUNTPOINT":null})", true},
    };
    for (const auto &entry : listings)
        EXPECT_EQ(mountDone(listing(entry.devices)), entry.done) << entry.devices;
}

TEST_F(UsbDisks, count_as_mounted_when_the_listing_cannot_be_read)
{
    const QByteArray unmounted = R"({"name":"sda","mountpoint":null})";
    const QByteArray answers[] = {
        "",
        "\n",
        "no JSON",
        "[]",
        "{}",
        "[{\"blockdevices\":[" + unmounted + "]}]",
        "{\"blockdevices\":" + unmounted + "}",
        "{\"blockDevices\":[" + unmounted + "]}",
        "{\"blockdevices\":[" + unmounted + "]",
        "{\"blockdevices\":null}",
    };
    for (const QByteArray &answer : answers) {
        log.clear();
        EXPECT_TRUE(mountDone(answer)) << answer.constData();
        EXPECT_EQ(log.lines(), QStringList{outputLine(answer)});
    }
}

TEST_F(UsbDisks, with_and_without_mounted_partitions_are_logged_step_by_step)
{
    const QByteArray answer =
        listing(R"({"name":"sdc","mountpoint":"/"},)"
                R"({"name":"sda","mountpoint":null,"children":[{"name":"sda1","mountpoint":"/media/stick"},)"
                R"({"name":"sda2","mountpoint":null},{"name":"sda3","mountpoint":"/media/other"}]},)"
                R"({"name":"sdb","mountpoint":null},{"name":"sda","mountpoint":null})");
    EXPECT_FALSE(mountDone(answer));
    QStringList expected{outputLine(answer), debugLine("mountDone devName \"sdc\""),
                         debugLine("mountDone devMountPoint \"/\"")};
    expected += sysLines("sdc", BlockDevices::sataDisk("sdc"));
    expected += {debugLine("mountDone devName \"sda\""), debugLine("mountDone devMountPoint \"\"")};
    expected += sysLines("sda", BlockDevices::usbDisk("sda"));
    expected += {debugLine("mountDone childname \"sda1\""),    debugLine("mountDone childMountPoint \"/media/stick\""),
                 debugLine("mountDone childname \"sda2\""),    debugLine("mountDone childMountPoint \"\""),
                 debugLine("mountDone childname \"sda3\""),    debugLine("mountDone childMountPoint \"/media/other\""),
                 debugLine("mountDone lstChildMount count 2"), debugLine("mountDone devName \"sdb\""),
                 debugLine("mountDone devMountPoint \"\"")};
    expected += sysLines("sdb", BlockDevices::usbDisk("sdb"));
    expected +=
        {debugLine("mountDone lstChildMount count 0"), debugLine("mountDone mountDone has not find return failed")};
    EXPECT_EQ(log.lines(), expected);
}

TEST_F(UsbDisks, that_are_mounted_themselves_have_their_partitions_logged_too)
{
    const QByteArray answer =
        listing(R"({"name":"sda","mountpoint":"/media/a","children":[{"name":"sda1","mountpoint":null}]})");
    EXPECT_TRUE(mountDone(answer));
    EXPECT_EQ(log.lines(),
              (QStringList{outputLine(answer), debugLine("mountDone devName \"sda\""),
                           debugLine("mountDone devMountPoint \"/media/a\"")}
               + sysLines("sda", BlockDevices::usbDisk("sda"))
               + QStringList{debugLine("mountDone childname \"sda1\""), debugLine("mountDone childMountPoint \"\""),
                             debugLine("mountDone lstChildMount count 0")}));
}

TEST_F(UsbDisks, count_as_mounted_without_a_lister)
{
    const NoLister none;
    EXPECT_TRUE(worker.mountDone());
    EXPECT_EQ(log.lines(), QStringList{outputLine("")});
}

TEST_F(UsbDisks, count_as_mounted_when_no_command_can_be_started)
{
    const SystemCalls::NoMorePipes exhausted;
    EXPECT_TRUE(worker.mountDone());
    EXPECT_EQ(log.lines(),
              (QStringList{
                  QStringLiteral("warning: excuCmd \"popen lsblk -J -o NAME,MOUNTPOINT  error.\""),
                  QStringLiteral("warning: mountDone excuCmd error."),
              }));
}

TEST_F(UsbDisks, count_as_mounted_when_the_listing_is_too_long)
{
    QByteArray many;
    while (many.size() < 9000)
        many += "      {\"name\":\"sda\", \"mountpoint\":null},\n";
    EXPECT_TRUE(mountDone(listing(many + R"({"name":"sdb","mountpoint":null})")));
    EXPECT_EQ(log.lines().value(0),
              QStringLiteral("warning: excuCmd Get Disk data error bacause data memery is too large."));
    EXPECT_EQ(log.lines().size(), 2);
}

TEST_F(UsbDisks, are_read_from_a_long_listing_whose_document_ends_in_the_part_that_was_kept)
{
    const QByteArray document = "{\"blockdevices\":[{\"name\":\"sda\",\"mountpoint\":null}]}";
    EXPECT_FALSE(mountDone(document + QByteArray(4096, ' ') + '\n'));
    EXPECT_TRUE(log.has(QStringLiteral("warning: excuCmd Get Disk data error bacause data memery is too large.")));
}

TEST(BlockDevice, sits_on_usb_when_its_link_has_usb_in_it)
{
    const struct
    {
        QByteArray target;
        bool usb;
    } targets[] = {
        {BlockDevices::usbDisk("sdq"), true},
        {BlockDevices::sataDisk("sdq"), false},
        {"../devices/virtual/block/loop0", false},
        {"../devices/USB1/block/sdq", false},
        {"../devices/Usb1/block/sdq", false},
        {"../devices/u/s/b/sdq", false},
        {"usb", true},
        {"../devices/xusbx", true},
        {"", false},
    };
    WatchMountWorker worker;
    for (const auto &target : targets) {
        const BlockDevices devices({{QStringLiteral("sdq"), target.target}});
        LogRecorder log;
        EXPECT_EQ(worker.isUsbDev(QStringLiteral("sdq")), target.usb) << target.target.constData();
        EXPECT_EQ(log.lines(), sysLines("sdq", target.target));
    }
}

TEST(BlockDevice, without_a_link_is_not_on_usb)
{
    const BlockDevices none({});
    WatchMountWorker worker;
    LogRecorder log;
    EXPECT_FALSE(worker.isUsbDev(QStringLiteral("usb-disk")));
    EXPECT_EQ(log.lines(),
              sysLines("usb-disk", "")
                  + QStringList{QStringLiteral("info: isUsbDev get dev info failed,and the devname is \"usb-disk\"")});
}

TEST(BlockDevice, of_the_real_system_that_does_not_exist_is_not_on_usb)
{
    WatchMountWorker worker;
    LogRecorder log;
    EXPECT_FALSE(worker.isUsbDev(QStringLiteral("no-such-disk")));
    EXPECT_TRUE(log.has(QStringLiteral("info: isUsbDev get dev info failed,and the devname is \"no-such-disk\"")));
}

TEST(BlockDevice, is_looked_up_by_its_name_in_utf8_with_room_for_4096_bytes)
{
    std::string asked;
    std::size_t room = 0;
    SystemCalls::onReadlink([&](const std::string &path, char *buffer, std::size_t size) -> ssize_t {
        asked = path;
        room = size;
        std::memcpy(buffer, "usb", 3);
        return 3;
    });
    WatchMountWorker worker;
    EXPECT_TRUE(worker.isUsbDev(QString::fromUtf8("dé%s%n")));
    EXPECT_EQ(asked, "/sys/block/dé%s%n");
    EXPECT_EQ(room, 4096u);
    SystemCalls::onReadlink(nullptr);
}

TEST(BlockDevice, with_a_very_long_name_is_looked_up_by_what_fits_into_80_bytes)
{
    std::string asked;
    SystemCalls::onReadlink([&](const std::string &path, char *, std::size_t) -> ssize_t {
        asked = path;
        return -1;
    });
    WatchMountWorker worker;
    LogRecorder log;
    EXPECT_FALSE(worker.isUsbDev(QString(500, 'n')));
    EXPECT_EQ(asked, "/sys/block/" + std::string(79 - std::strlen("/sys/block/"), 'n'));
    EXPECT_EQ(log.lines().last(),
              QStringLiteral("info: isUsbDev get dev info failed,and the devname is \"") + QString(500, 'n')
                  + QLatin1Char('"'));
    SystemCalls::onReadlink(nullptr);
}

TEST(BlockDevice, is_judged_by_the_bytes_that_the_link_really_has)
{
    SystemCalls::onReadlink([](const std::string &, char *buffer, std::size_t) -> ssize_t {
        std::memcpy(buffer, "abcusb", 6);
        return 3;
    });
    WatchMountWorker worker;
    LogRecorder log;
    EXPECT_FALSE(worker.isUsbDev(QStringLiteral("sdq")));
    EXPECT_EQ(log.lines(), sysLines("sdq", "abc"));
    SystemCalls::onReadlink(nullptr);
}

TEST(BlockDevice, with_a_link_of_4095_bytes_is_judged_and_with_a_longer_one_not)
{
    WatchMountWorker worker;
    for (const int length : {4095, 4096, 5000}) {
        const QByteArray target = "usb" + QByteArray(length - 3, 'x');
        const BlockDevices devices({{QStringLiteral("sdq"), target}});
        LogRecorder log;
        EXPECT_EQ(worker.isUsbDev(QStringLiteral("sdq")), length == 4095) << length;
        QStringList expected = sysLines("sdq", target.left(4096));
        if (length != 4095)
            expected.append(QStringLiteral("info: isUsbDev get dev info failed,and the devname is \"sdq\""));
        EXPECT_EQ(log.lines(), expected) << length;
    }
}
