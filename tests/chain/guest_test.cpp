// SPDX-License-Identifier: LGPL-2.1-or-later

// A Linux guest uses what is redirected into it.

#include "chain/chain.h"
#include "support/waitfor.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QRegularExpression>

namespace {

const QString Camera = QStringLiteral("1-1:CAMERA0001");
const QString Serial = QStringLiteral("1-1:SERIAL0001");

QString text(const char *latin1)
{
    return QString::fromLatin1(latin1);
}

QProcessEnvironment environment(const char *kinds, const char *check, const QString &textToWrite)
{
    QProcessEnvironment environment;
    environment.insert(QStringLiteral("GUEST_KINDS"), text(kinds));
    environment.insert(QStringLiteral("GUEST_CHECK"), text(check));
    environment.insert(QStringLiteral("GUEST_TEXT"), textToWrite);
    return environment;
}

class Guest : public ::testing::Test
{
protected:
    void start(const char *kinds, const char *check, const QStringList &worldOptions)
    {
        chain.startGuest(environment(kinds, check, textToWrite));
        chain.startHost(sticks, worldOptions);
        ASSERT_FALSE(chain.next(QStringLiteral("GUEST WAITS"), 2 * Chain::Deadline).isEmpty())
            << chain.printed().constData();
    }

    void share(const QString &deviceId)
    {
        chain.ask(QStringLiteral("share ") + deviceId);
        ASSERT_FALSE(chain.event(QStringLiteral("shared"), deviceId).isEmpty());
    }

    bool says(const char *pattern) { return !chain.next(text(pattern)).isEmpty(); }

    /// What the guest counted of the next run of the camera: good, wrong, damaged, missing.
    QList<int> frames(const char *run)
    {
        QStringList counts =
            chain.next(text(run) + text(" good (\\d+) wrong (\\d+) damaged (\\d+) missing (\\d+)"), 30000);
        QList<int> numbers;
        for (const QString &count : counts.mid(1))
            numbers.append(count.toInt());
        return numbers.isEmpty() ? QList<int>{0, -1, 0, 0} : numbers;
    }

    qint64 hostKibibytes() const
    {
        QFile status(QStringLiteral("/proc/%1/status").arg(chain.hostPid()));
        status.open(QIODevice::ReadOnly);
        const QRegularExpression size(QStringLiteral("VmRSS:\\s+(\\d+)"));
        return size.match(QString::fromLatin1(status.readAll())).captured(1).toLongLong();
    }

    void TearDown() override
    {
        if (HasFailure())
            std::printf("--- what the guest printed ---\n%s\n", chain.printed().constData());
    }

    void makeStick(const char *port, const char *options, const char *type = "ext2")
    {
        Chain::run(QStringLiteral("mkimage.sh"),
                   {chain.path(text(port)), QStringLiteral("hello from ") + text(port), text(type)});
        sticks.append({text(port), QString(), 0, text(options)});
    }

    QByteArray fileOf(const char *port, const QString &name)
    {
        return Chain::run(QStringLiteral("readimage.sh"), {chain.path(text(port)), name});
    }

    Chain chain;
    QList<Chain::Stick> sticks;
    QString textToWrite = QStringLiteral("hello from the guest");
};

} // namespace

TEST_F(Guest, mounts_every_kind_of_stick_and_what_it_writes_stays_on_it)
{
    makeStick("1-1", "");
    makeStick("1-2", ",with-serial");
    makeStick("1-3", ",superspeed,becomes-vid=1209,becomes-pid=0033");
    makeStick("1-4", ",card-reader");
    start("disk serial", "serial 16384", {QStringLiteral("--disks-follow-driver")});

    for (const char *port : {"1-1", "1-2", "1-3", "1-4"}) {
        const QString id = text(port) + QLatin1Char(':') + QString(text(port)).remove(QLatin1Char('-'));
        chain.ask(QStringLiteral("share ") + id);
        if (id.startsWith(QStringLiteral("1-4"))) {
            EXPECT_TRUE(chain.getsDriver(text(port), QStringLiteral("usbfs")));
            EXPECT_EQ(chain.world(QStringLiteral("tell 1-4 insert")), "ok");
        }
        EXPECT_TRUE(says((std::string("GUEST READ hello from ") + port).c_str()));
        EXPECT_TRUE(says("GUEST DONE"));
        if (id.startsWith(QStringLiteral("1-2"))) {
            EXPECT_TRUE(chain.prints(QStringLiteral("GUEST SERIAL 16384 bytes came back")));
        } else if (id.startsWith(QStringLiteral("1-3"))) {
            EXPECT_EQ(chain.listed(id).value(QLatin1String("productId")).toString(), QStringLiteral("0033"));
        }
        chain.ask(QStringLiteral("unshare ") + id);
        EXPECT_TRUE(says("GUEST GONE"));
        EXPECT_TRUE(chain.getsDriver(text(port), QStringLiteral("usb-storage")));
        EXPECT_EQ(fileOf(port, QStringLiteral("from-guest.txt")).trimmed(), "hello from the guest") << port;
    }
}

TEST_F(Guest, finds_what_it_has_synced_on_a_stick_that_was_pulled)
{
    textToWrite = QString::fromLatin1("");
    makeStick("1-1", "", "ext4");
    start("disk", "", {QStringLiteral("--disks-follow-driver")});
    share(QStringLiteral("1-1:11"));
    ASSERT_TRUE(says("GUEST SYNCED 20\r"));
    EXPECT_EQ(chain.world(QStringLiteral("unplug 1-1")), "ok");
    EXPECT_TRUE(says("GUEST GONE"));

    const auto synced = chain.printed().count("GUEST SYNCED");
    EXPECT_GE(synced, 20);
    for (int file = 1; file <= synced; ++file) {
        QByteArray content;
        for (int line = file; line <= file + 300; ++line)
            content += QByteArray::number(line) + '\n';
        EXPECT_EQ(fileOf("1-1", QString::number(file)), content) << file << " of " << synced;
    }
}

TEST_F(Guest, takes_pictures_from_a_camera_that_is_unshared_in_mid_stream_and_while_the_machine_was_paused)
{
    start("camera", "camera YUYV 160 120 30 MJPG 640 480 30 YUYV 160 120 0", {QStringLiteral("--camera"), text("1-1")});
    share(Camera);
    const QList<int> raw = frames("CAMERA YUYV 160x120");
    EXPECT_GE(raw[0], 30);
    EXPECT_EQ(raw[1], 0) << "the driver calls frames good that are not";
    const QList<int> compressed = frames("CAMERA MJPG 640x480");
    EXPECT_GE(compressed[0], 30);
    // How long a compressed frame is the driver cannot know, so it does not notice that one lacks a packet.
    std::printf("damaged and missing: %d and %d of the raw, %d and %d of the compressed frames\n", raw[2], raw[3],
                compressed[1] + compressed[2], compressed[3]);
    ASSERT_TRUE(says("GUEST FRAMES [1-9]\\d+ wrong 0\r"));

    chain.ask(QStringLiteral("unshare ") + Camera);
    EXPECT_TRUE(says("GUEST LOST IT"));
    EXPECT_TRUE(chain.getsDriver(QStringLiteral("1-1"), QStringLiteral("uvcvideo")));
    share(Camera);
    ASSERT_TRUE(says("GUEST FRAMES [1-9]\\d+ wrong 0\r"));

    const qint64 before = hostKibibytes();
    const auto starts = chain.printed().count("STARTS THE STREAM AGAIN");
    chain.monitor(QStringLiteral("stop"));
    qint64 most = 0;
    waitFor([&] { return (most = qMax(most, hostKibibytes() - before)) > 8192; }, 5000);
    EXPECT_LT(most, 8192) << "what nobody takes piles up";
    chain.monitor(QStringLiteral("cont"));
    EXPECT_TRUE(says("GUEST FRAMES \\d+ wrong 0\r")) << "the picture is back";
    EXPECT_TRUE(says("GUEST FRAMES \\d+ wrong 0\r"));
    std::printf("grown by %lld KiB while it was paused; the stream was %s again\n", static_cast<long long>(most),
                chain.printed().count("STARTS THE STREAM AGAIN") > starts ? "started" : "not started");
}

TEST_F(Guest, takes_every_picture_from_a_camera_with_bulk_transfers)
{
    start("camera", "camera YUYV 160 120 50", {QStringLiteral("--bulk-camera"), text("1-1")});
    share(QStringLiteral("1-1:CAMERA0002"));
    EXPECT_EQ(frames("CAMERA YUYV 160x120"), (QList<int>{50, 0, 0, 0}));
}

TEST_F(Guest, sends_64_kib_through_a_serial_adapter_and_gets_them_back)
{
    start("serial", "serial 65536", {QStringLiteral("--serial"), text("1-1")});
    share(Serial);
    EXPECT_TRUE(says("GUEST SERIAL 65536 bytes came back"));
}

TEST_F(Guest, reads_what_is_typed_on_a_keyboard)
{
    start("keyboard", "keyboard 6", {QStringLiteral("--keyboard"), text("1-1")});
    share(QStringLiteral("1-1:KEYBOARD0001"));
    ASSERT_TRUE(says("GUEST KEYBOARD"));
    ASSERT_EQ(chain.world(QStringLiteral("tell 1-1 redir1")), "ok");
    for (const int key : {19, 18, 32, 23, 19, 2})
        EXPECT_EQ(chain.next(QStringLiteral("GUEST KEY (\\d+)")).value(1).toInt(), key);
}
