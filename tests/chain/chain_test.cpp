// SPDX-License-Identifier: LGPL-2.1-or-later

// A USB stick, from the plug to the virtual machine and back, with real parts at both ends.

#include "chain/chain.h"
#include "support/waitfor.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QElapsedTimer>

#include <csignal>

#include <sched.h>
#include <unistd.h>

namespace {

const QString Id = QStringLiteral("1-1:11");
const QString SecondId = QStringLiteral("1-2:12");

QList<Chain::Stick> oneStick(const QString &options = QString())
{
    return {{QStringLiteral("1-1"), QStringLiteral("TEXT ON THE FIRST STICK"), 0, options}};
}

QList<Chain::Stick> twoSticks()
{
    return oneStick() + QList<Chain::Stick>{{QStringLiteral("1-2"), QStringLiteral("TEXT ON THE SECOND"), 0, {}}};
}

std::string textOf(const QJsonObject &event)
{
    return event.value(QLatin1String("text")).toString().toStdString();
}

bool isShared(const QJsonObject &listed)
{
    return listed.value(QLatin1String("shared")).toBool();
}

#define SHARE(chain, id)                                                                                               \
    (chain).ask(QStringLiteral("share ") + (id));                                                                      \
    ASSERT_FALSE((chain).event(QStringLiteral("shared"), (id)).isEmpty())

// The refusal's text, and that nothing changed.
void expectRefused(Chain &chain, const QString &id, const std::string &reason)
{
    chain.ask(QStringLiteral("share ") + id);
    EXPECT_NE(textOf(chain.event(QStringLiteral("failed"), id)).find(reason), std::string::npos) << reason;
    EXPECT_FALSE(isShared(chain.listed(id)));
}

QStringList ofItsOwnMounts()
{
    return {QStringLiteral("unshare"), geteuid() == 0 ? QStringLiteral("-m") : QStringLiteral("-rm")};
}

bool mayMount()
{
    return QProcess::execute(ofItsOwnMounts()[0], {ofItsOwnMounts()[1], QStringLiteral("true")}) == 0;
}

// Stands before a command that is to see \a source mounted at \a place.
QStringList afterMount(const QString &source, const QString &place)
{
    return ofItsOwnMounts()
        + QStringList{QStringLiteral("sh"), QStringLiteral("-c"),
                      QStringLiteral("mount %1 '%2' && exec \"$@\"").arg(source, place), QStringLiteral("sh")};
}

} // namespace

TEST(Chain, a_machine_boots_from_a_shared_stick_and_the_local_system_gets_it_back)
{
    Chain chain;
    QList<Chain::Stick> sticks = oneStick();
    chain.startVm();
    chain.startHost(sticks);
    EXPECT_EQ(chain.world(QStringLiteral("driver 1-1")), "ok usb-storage");
    const QJsonObject before = chain.listed(Id);
    EXPECT_EQ(before.value(QLatin1String("redirector")).toString(), QStringLiteral("diskrdr"));
    EXPECT_EQ(before.value(QLatin1String("class")).toString(), QStringLiteral("08"));
    EXPECT_EQ(before.value(QLatin1String("disk")).toString(), QStringLiteral("sda"));
    EXPECT_FALSE(isShared(before));

    SHARE(chain, Id);
    EXPECT_TRUE(isShared(chain.listed(Id)));
    EXPECT_TRUE(chain.prints(sticks[0].text));
    EXPECT_TRUE(chain.getsDriver(QStringLiteral("1-1"), QStringLiteral("usbfs")));

    chain.ask(QStringLiteral("unshare ") + Id);
    EXPECT_FALSE(chain.event(QStringLiteral("unshared"), Id).isEmpty());
    EXPECT_TRUE(chain.getsDriver(QStringLiteral("1-1"), QStringLiteral("usb-storage")));
    EXPECT_FALSE(isShared(chain.listed(Id)));

    chain.ask(QStringLiteral("quit"));
    EXPECT_EQ(chain.hostStatus(), 0);
}

TEST(Chain, two_devices_are_shared_over_two_channels_at_once)
{
    Chain chain;
    QList<Chain::Stick> sticks = twoSticks();
    chain.startVm(2);
    chain.startHost(sticks);
    ASSERT_FALSE(chain.event(QStringLiteral("channel")).isEmpty());
    ASSERT_FALSE(chain.event(QStringLiteral("channel")).isEmpty());
    SHARE(chain, Id);
    SHARE(chain, SecondId);
    EXPECT_TRUE(chain.getsDriver(QStringLiteral("1-1"), QStringLiteral("usbfs")));
    EXPECT_TRUE(chain.getsDriver(QStringLiteral("1-2"), QStringLiteral("usbfs")));
    // It boots from one of the two; which one is the BIOS's choice.
    EXPECT_TRUE(waitFor([&] { return chain.printed().contains("TEXT ON THE"); }));

    chain.ask(QStringLiteral("unshare all"));
    EXPECT_TRUE(chain.getsDriver(QStringLiteral("1-1"), QStringLiteral("usb-storage")));
    EXPECT_TRUE(chain.getsDriver(QStringLiteral("1-2"), QStringLiteral("usb-storage")));
    chain.ask(QStringLiteral("quit"));
    EXPECT_EQ(chain.hostStatus(), 0);
}

TEST(Chain, a_second_device_finds_no_free_channel_where_there_is_one_channel)
{
    Chain chain;
    QList<Chain::Stick> sticks = twoSticks();
    chain.startVm(1);
    chain.startHost(sticks);
    SHARE(chain, Id);
    expectRefused(chain, SecondId, "no free channel");
    EXPECT_EQ(chain.world(QStringLiteral("driver 1-2")), "ok usb-storage");
    chain.ask(QStringLiteral("quit"));
    EXPECT_EQ(chain.hostStatus(), 1); // a request has failed
    EXPECT_NE(chain.hostLog().indexOf("unshareall"), -1);
}

TEST(Chain, a_device_that_is_not_there_is_refused)
{
    Chain chain;
    QList<Chain::Stick> sticks = oneStick();
    chain.startVm();
    chain.startHost(sticks);
    chain.ask(QStringLiteral("share 9-9:none"));
    EXPECT_NE(textOf(chain.event(QStringLiteral("failed"))).find("9-9:none: no such device"), std::string::npos);
    // Pulled out after it was listed: now the component has to notice.
    ASSERT_EQ(chain.world(QStringLiteral("unplug 1-1")), "ok");
    chain.ask(QStringLiteral("share ") + Id);
    EXPECT_NE(textOf(chain.event(QStringLiteral("failed"), Id)).find("no"), std::string::npos);
}

TEST(Chain, a_mounted_disk_is_refused_with_the_place_where_it_is_mounted)
{
    if (!mayMount())
        GTEST_SKIP() << "private mount namespaces are not permitted here";
    Chain chain;
    QList<Chain::Stick> sticks = oneStick();
    QDir().mkdir(chain.path(QStringLiteral("mnt")));
    chain.startVm();
    chain.startHost(sticks, {}, afterMount(QStringLiteral("-t tmpfs /dev/sda1"), chain.path(QStringLiteral("mnt"))));
    expectRefused(chain, Id, "mounted at " + chain.path(QStringLiteral("mnt")).toStdString());
    EXPECT_EQ(chain.world(QStringLiteral("driver 1-1")), "ok usb-storage");
}

TEST(Chain, a_disk_that_memory_is_swapped_to_is_refused)
{
    if (!mayMount())
        GTEST_SKIP() << "private mount namespaces are not permitted here";
    Chain chain;
    QList<Chain::Stick> sticks = oneStick();
    QFile table(chain.path(QStringLiteral("swaps")));
    ASSERT_TRUE(table.open(QIODevice::WriteOnly));
    table.write("Filename\t\t\t\tType\t\tSize\t\tUsed\t\tPriority\n"
                "/dev/sda1                               partition\t1024\t\t0\t\t-2\n");
    table.close();
    chain.startVm();
    chain.startHost(sticks, {},
                    afterMount(QStringLiteral("--bind '%1'").arg(table.fileName()), QStringLiteral("/proc/swaps")));
    expectRefused(chain, Id, "in use as swap");
}

TEST(Chain, a_write_protected_disk_is_refused)
{
    Chain chain;
    QList<Chain::Stick> sticks = oneStick(QStringLiteral(",ro"));
    chain.startVm();
    chain.startHost(sticks);
    EXPECT_TRUE(chain.listed(Id).value(QLatin1String("readOnly")).toBool());
    expectRefused(chain, Id, "read-only");
}

TEST(Chain, a_device_node_without_permission_is_refused_with_the_rule_that_helps)
{
    Chain chain;
    QList<Chain::Stick> sticks = oneStick();
    chain.startVm();
    chain.startHost(sticks, {QStringLiteral("--no-permission"), QStringLiteral("1-1")});
    expectRefused(chain, Id, "may not open /dev/bus/usb/001/");
    EXPECT_NE(chain.hostLog().indexOf("ATTR{idVendor}"), -1);
}

TEST(Chain, a_stick_pulled_out_while_shared_can_be_shared_again_when_it_is_back)
{
    Chain chain;
    QList<Chain::Stick> sticks = oneStick();
    chain.startVm();
    chain.startHost(sticks);
    SHARE(chain, Id);
    EXPECT_TRUE(chain.prints(sticks[0].text));

    ASSERT_EQ(chain.world(QStringLiteral("unplug 1-1")), "ok");
    EXPECT_FALSE(chain.event(QStringLiteral("unshared"), Id).isEmpty());
    EXPECT_FALSE(chain.event(QStringLiteral("left"), Id).isEmpty());
    EXPECT_TRUE(chain.listed(Id).isEmpty());

    ASSERT_TRUE(chain.world(QStringLiteral("plug 1-1")).startsWith("ok"));
    EXPECT_FALSE(chain.event(QStringLiteral("arrived"), Id).isEmpty());
    EXPECT_FALSE(chain.event(QStringLiteral("shared"), Id).isEmpty()) << "it has its channel back";
    SHARE(chain, Id); // asks for what has been done
    EXPECT_TRUE(chain.getsDriver(QStringLiteral("1-1"), QStringLiteral("usbfs")));
}

TEST(Chain, a_machine_that_dies_while_it_has_a_device_gives_it_back)
{
    Chain chain;
    QList<Chain::Stick> sticks = oneStick();
    chain.startVm();
    chain.startHost(sticks);
    SHARE(chain, Id);
    EXPECT_TRUE(chain.prints(sticks[0].text));
    chain.killVm();
    EXPECT_FALSE(chain.event(QStringLiteral("disconnected")).isEmpty());
    EXPECT_TRUE(chain.getsDriver(QStringLiteral("1-1"), QStringLiteral("usb-storage")));
    EXPECT_EQ(chain.hostStatus(), 4);
}

TEST(Chain, a_port_that_the_machine_removes_gives_the_device_back)
{
    Chain chain;
    QList<Chain::Stick> sticks = oneStick();
    chain.startVm();
    chain.startHost(sticks);
    SHARE(chain, Id);
    EXPECT_TRUE(chain.prints(sticks[0].text));

    chain.monitor(QStringLiteral("device_del usb0"));
    EXPECT_FALSE(chain.event(QStringLiteral("channel lost"), Id).isEmpty());
    EXPECT_FALSE(chain.event(QStringLiteral("unshared"), Id).isEmpty());
    EXPECT_TRUE(chain.getsDriver(QStringLiteral("1-1"), QStringLiteral("usb-storage")));
    expectRefused(chain, Id, "no free channel");
}

TEST(Chain, sixty_four_mebibytes_come_through_unchanged)
{
    Chain chain;
    QList<Chain::Stick> sticks{{QStringLiteral("1-1"), QStringLiteral("BIG STICK"), 64, {}}};
    chain.startVm();
    chain.startHost(sticks);
    SHARE(chain, Id);
    ASSERT_FALSE(sticks[0].checksum.isEmpty());
    EXPECT_TRUE(chain.prints(sticks[0].checksum)) << chain.printed().constData();
}

TEST(Chain, an_interrupted_host_gives_its_device_back_and_succeeds)
{
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        Chain chain;
        QList<Chain::Stick> sticks = oneStick();
        chain.startVm();
        chain.startHost(sticks, {}, {}, {QStringLiteral("--share"), Id});
        ASSERT_FALSE(chain.event(QStringLiteral("shared"), Id).isEmpty());
        chain.interruptHost(signal);
        EXPECT_EQ(chain.hostStatus(), 0) << signal;
        EXPECT_FALSE(chain.event(QStringLiteral("unshared"), Id, 1000).isEmpty());
        EXPECT_FALSE(chain.event(QStringLiteral("bye"), QString(), 1000).isEmpty());
    }
}

TEST(Chain, a_host_that_is_to_survive_its_terminal_does)
{
    Chain chain;
    QList<Chain::Stick> sticks = oneStick();
    chain.startVm();
    chain.startHost(sticks, {}, {QStringLiteral("nohup")});
    SHARE(chain, Id);
    chain.interruptHost(SIGHUP);
    EXPECT_TRUE(chain.event(QStringLiteral("leaving"), QString(), 500).isEmpty());
    EXPECT_FALSE(chain.listed(Id).isEmpty());
    chain.interruptHost();
    EXPECT_EQ(chain.hostStatus(), 0);
}

TEST(Chain, an_automatic_host_shares_what_is_plugged_in_and_its_rules_allow)
{
    Chain chain;
    QList<Chain::Stick> sticks = oneStick();
    chain.startVm();
    chain.startHost(sticks, {}, {}, {QStringLiteral("--auto"), QStringLiteral("deny:0E:*:*,allow:08:*:*")});
    ASSERT_FALSE(chain.event(QStringLiteral("shared"), Id).isEmpty());
    ASSERT_EQ(chain.world(QStringLiteral("unplug 1-1")), "ok");
    ASSERT_FALSE(chain.event(QStringLiteral("left"), Id).isEmpty());
    ASSERT_TRUE(chain.world(QStringLiteral("plug 1-1")).startsWith("ok"));
    EXPECT_FALSE(chain.event(QStringLiteral("shared"), Id).isEmpty());
    chain.interruptHost();
    EXPECT_EQ(chain.hostStatus(), 0);
}

TEST(Chain, a_machine_that_is_stopped_and_then_killed_gives_every_kind_of_device_back_within_5_seconds)
{
    constexpr int Longest = 5000;
    const struct
    {
        const char *port, *id, *driver;
    } devices[] = {
        {"1-1", "1-1:11", "usb-storage"},      {"1-2", "1-2:CAMERA0001", "uvcvideo"},
        {"1-3", "1-3:CAMERA0002", "uvcvideo"}, {"1-4", "1-4:SERIAL0001", "cdc_acm"},
        {"1-5", "1-5:KEYBOARD0001", "usbhid"},
    };
    Chain chain;
    QList<Chain::Stick> sticks = oneStick();
    chain.startVm(5);
    chain.startHost(
        sticks, QStringLiteral("--camera 1-2 --bulk-camera 1-3 --serial 1-4 --keyboard 1-5").split(QLatin1Char(' ')));
    for (std::size_t i = 0; i < std::size(devices); ++i)
        ASSERT_FALSE(chain.event(QStringLiteral("channel")).isEmpty());
    const auto shareAll = [&] {
        for (const auto &device : devices) {
            SHARE(chain, QString::fromLatin1(device.id));
        }
    };
    const auto expectBack = [&](QElapsedTimer timer) {
        for (const auto &device : devices)
            EXPECT_TRUE(chain.getsDriver(QString::fromLatin1(device.port), QString::fromLatin1(device.driver)));
        EXPECT_LT(timer.elapsed(), Longest);
    };
    shareAll();
    ASSERT_TRUE(chain.prints(sticks[0].text));

    chain.signalVm(SIGSTOP);
    QElapsedTimer timer;
    timer.start();
    for (const auto &device : devices)
        chain.ask(QStringLiteral("unshare ") + QString::fromLatin1(device.id));
    for (const auto &device : devices)
        EXPECT_FALSE(chain.event(QStringLiteral("unshared"), QString::fromLatin1(device.id)).isEmpty());
    expectBack(timer);

    chain.signalVm(SIGCONT);
    shareAll();
    timer.start();
    chain.killVm();
    expectBack(timer);
}
