// SPDX-License-Identifier: LGPL-2.1-or-later
#include "mount/lister.h"
#include "mount/privatemounts.h"
#include "mount/systemcalls.h"
#include "mount/watchmountworker.h"
#include "support/fakeclock.h"
#include "support/logrecorder.h"
#include "support/printing.h"
#include "support/waitfor.h"

#include <gtest/gtest.h>

#include <QMetaMethod>
#include <QTemporaryDir>
#include <QTemporaryFile>
#include <QThread>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <thread>

#include <fcntl.h>
#include <unistd.h>

namespace {

const QByteArray nothingListed = "{\"blockdevices\":[]}";
const QByteArray unmountedStick = "{\"blockdevices\":[{\"name\":\"sda\",\"mountpoint\":null}]}";
const QByteArray mountedStick = "{\"blockdevices\":[{\"name\":\"sda\",\"mountpoint\":\"/media/stick\"}]}";

/// Collects what is written to standard output until taken.
class StandardOutput
{
public:
    StandardOutput()
    {
        std::fflush(stdout);
        m_before = dup(STDOUT_FILENO);
        EXPECT_TRUE(m_file.open());
        EXPECT_GE(dup2(m_file.handle(), STDOUT_FILENO), 0);
    }
    ~StandardOutput() { restore(); }
    StandardOutput(const StandardOutput &) = delete;
    StandardOutput &operator=(const StandardOutput &) = delete;

    std::string take()
    {
        restore();
        m_file.seek(0);
        return m_file.readAll().toStdString();
    }

private:
    void restore()
    {
        if (m_before < 0)
            return;
        std::fflush(stdout);
        dup2(m_before, STDOUT_FILENO);
        close(m_before);
        m_before = -1;
    }

    QTemporaryFile m_file;
    int m_before = -1;
};

bool isOpen(int descriptor)
{
    return fcntl(descriptor, F_GETFD) != -1;
}

} // namespace

/// A watcher on a thread of its own.
class Watch : public ::testing::Test
{
protected:
    Watch()
    {
        QObject::connect(&worker, &WatchMountWorker::mountSuccesful, [this] { ++signalCount; });
        FakeClock::advanceWithEachReading(0);
    }
    ~Watch() override
    {
        if (thread.joinable()) {
            failEveryPoll(EBADF);
            thread.join();
        }
        SystemCalls::onPoll(nullptr);
    }

    void start()
    {
        returned = false;
        thread = std::thread([this] {
            worker.watchMount();
            returned = true;
        });
    }
    bool waitForPolls(int count)
    {
        const int enough = SystemCalls::polls() + count;
        return waitFor([this, enough] { return SystemCalls::polls() >= enough || returned; }) && !returned;
    }
    bool waitForEnd()
    {
        if (!waitFor([this] { return returned.load(); }))
            return false;
        thread.join();
        return true;
    }

    void failEveryPoll(int error)
    {
        SystemCalls::onPoll([this, error](pollfd *descriptors, nfds_t, int) {
            descriptor = descriptors->fd;
            errno = error;
            return -1;
        });
    }
    void reportAChange()
    {
        SystemCalls::onPoll([this](pollfd *descriptors, nfds_t, int) {
            descriptor = descriptors->fd;
            descriptors->revents = POLLPRI | POLLERR;
            return 1;
        });
    }

    WatchMountWorker worker;
    std::atomic<int> signalCount{0};
    std::atomic<bool> returned{false};
    std::atomic<int> descriptor{-1}; ///< which the scripted poll saw last
    std::thread thread;
    LogRecorder log;
};

/// With a mount table that the test can change.
class WatchOfRealMounts : public Watch
{
protected:
    void SetUp() override
    {
        if (!PrivateMounts::whyNot().empty())
            GTEST_SKIP() << "The mount table cannot be changed here: " << PrivateMounts::whyNot();
    }

    QTemporaryDir directory;
    std::string place = directory.path().toStdString();
};

TEST_F(WatchOfRealMounts, ends_with_a_check_and_the_signal_when_something_is_mounted)
{
    const Lister lister({nothingListed});
    StandardOutput output;
    start();
    ASSERT_TRUE(waitForPolls(3));
    EXPECT_EQ(signalCount, 0);
    EXPECT_EQ(lister.calls().size(), 0);

    const PrivateMounts::Mount mount(place);
    ASSERT_TRUE(mount.mounted);
    ASSERT_TRUE(waitForEnd());
    EXPECT_EQ(signalCount, 1);
    EXPECT_EQ(lister.calls().size(), 1);
    EXPECT_EQ(output.take(), "Mount points changed. 0.\n");
}

TEST_F(WatchOfRealMounts, ends_when_something_is_unmounted)
{
    const Lister lister({nothingListed});
    {
        const PrivateMounts::Mount mount(place);
        ASSERT_TRUE(mount.mounted);
        start();
        ASSERT_TRUE(waitForPolls(3));
        EXPECT_EQ(signalCount, 0);
    }
    ASSERT_TRUE(waitForEnd());
    EXPECT_EQ(signalCount, 1);
    EXPECT_EQ(lister.calls().size(), 1);
}

TEST_F(WatchOfRealMounts, goes_on_as_long_as_nothing_changes)
{
    const Lister lister({nothingListed});
    StandardOutput output;
    {
        const PrivateMounts::Mount before(place);
        ASSERT_TRUE(before.mounted);
    }
    start();
    ASSERT_TRUE(waitForPolls(50));
    EXPECT_EQ(signalCount, 0);
    EXPECT_EQ(lister.calls().size(), 0);
    EXPECT_EQ(log.lines(), QStringList());
    EXPECT_EQ(output.take(), "");

    const PrivateMounts::Mount mount(place);
    EXPECT_TRUE(waitForEnd());
}

TEST_F(WatchOfRealMounts, can_be_repeated)
{
    const Lister lister({nothingListed});
    for (int i = 1; i <= 3; ++i) {
        start();
        ASSERT_TRUE(waitForPolls(2));
        const PrivateMounts::Mount mount(place);
        ASSERT_TRUE(waitForEnd());
        EXPECT_EQ(signalCount, i);
    }
}

TEST_F(WatchOfRealMounts, repeats_the_check_until_the_stick_is_mounted)
{
    const BlockDevices devices({{QStringLiteral("sda"), BlockDevices::usbDisk("sda")}});
    const Lister lister({unmountedStick, unmountedStick, mountedStick});
    start();
    ASSERT_TRUE(waitForPolls(2));
    const PrivateMounts::Mount mount(place);
    ASSERT_TRUE(waitForEnd());
    EXPECT_EQ(lister.calls().size(), 3);
    EXPECT_EQ(signalCount, 1);
    EXPECT_EQ(log.count(QStringLiteral("debug: mountDone mountDone has not find return failed")), 2);
}

TEST_F(WatchOfRealMounts, closes_its_descriptor)
{
    const Lister lister({nothingListed});
    SystemCalls::onPoll([this](pollfd *descriptors, nfds_t count, int timeout) {
        descriptor = descriptors->fd;
        return SystemCalls::reallyPoll(descriptors, count, timeout);
    });
    start();
    ASSERT_TRUE(waitForPolls(2));
    EXPECT_TRUE(isOpen(descriptor));
    const PrivateMounts::Mount mount(place);
    ASSERT_TRUE(waitForEnd());
    EXPECT_FALSE(isOpen(descriptor));
}

TEST_F(WatchOfRealMounts, goes_on_silently_when_there_is_no_mount_table_to_open)
{
    const Lister lister({nothingListed});
    StandardOutput output;
    {
        const PrivateMounts::Mount overProc("/proc");
        ASSERT_TRUE(overProc.mounted);
        std::atomic<int> validDescriptors{0};
        SystemCalls::onPoll([&](pollfd *descriptors, nfds_t count, int timeout) {
            validDescriptors += descriptors->fd >= 0;
            return SystemCalls::reallyPoll(descriptors, count, timeout);
        });
        start();
        EXPECT_TRUE(waitForPolls(10));
        EXPECT_EQ(validDescriptors, 0);
        failEveryPoll(EBADF);
        EXPECT_TRUE(waitForEnd());
    }
    EXPECT_EQ(signalCount, 0);
    EXPECT_EQ(log.lines(), QStringList());
    EXPECT_EQ(lister.calls().size(), 0);
    EXPECT_EQ(output.take(), "");
}

TEST_F(Watch, polls_the_mount_table_every_5_milliseconds_with_cleared_events)
{
    std::atomic<int> other{0};
    std::string opened;
    int flags = -1;
    SystemCalls::onPoll([&](pollfd *descriptors, nfds_t count, int timeout) {
        other += count != 1 || timeout != 5 || descriptors->events != (POLLPRI | POLLERR) || descriptors->revents != 0;
        if (flags == -1) {
            char target[4096];
            const std::string link = "/proc/self/fd/" + std::to_string(descriptors->fd);
            const ssize_t length = readlink(link.c_str(), target, sizeof(target));
            opened.assign(target, length < 0 ? 0 : std::size_t(length));
            flags = fcntl(descriptors->fd, F_GETFL);
        }
        descriptors->revents = POLLPRI;
        return 1;
    });
    start();
    ASSERT_TRUE(waitForPolls(20));
    failEveryPoll(EBADF);
    ASSERT_TRUE(waitForEnd());
    EXPECT_EQ(other, 0);
    EXPECT_EQ(opened, "/proc/" + std::to_string(getpid()) + "/mounts");
    EXPECT_EQ(flags & O_ACCMODE, O_RDONLY);
}

TEST_F(Watch, is_ended_by_the_mark_of_a_change_and_by_no_other_event)
{
    const Lister lister({nothingListed});
    for (const short events : {short(POLLPRI), short(POLLNVAL), short(POLLHUP), short(POLLPRI | POLLHUP)}) {
        SystemCalls::onPoll([events](pollfd *descriptors, nfds_t, int) {
            descriptors->revents = events;
            return 1;
        });
        start();
        EXPECT_TRUE(waitForPolls(5)) << events;
        EXPECT_EQ(signalCount, 0) << events;
        failEveryPoll(EBADF);
        ASSERT_TRUE(waitForEnd()) << events;
    }
    int ends = 0;
    for (const short events : {short(POLLERR), short(POLLPRI | POLLERR), short(POLLERR | POLLHUP)}) {
        SystemCalls::onPoll([events](pollfd *descriptors, nfds_t, int) {
            descriptors->revents = events;
            return 1;
        });
        start();
        ASSERT_TRUE(waitForEnd()) << events;
        EXPECT_EQ(signalCount, ++ends) << events;
    }
}

TEST_F(Watch, is_ended_silently_by_a_failing_or_interrupted_poll)
{
    const Lister lister({nothingListed});
    for (const int error : {EINTR, EBADF, ENOMEM, EINVAL}) {
        StandardOutput output;
        std::atomic<int> calls{0};
        std::atomic<bool> openDuringPoll{false};
        SystemCalls::onPoll([&, error](pollfd *descriptors, nfds_t, int) {
            descriptor = descriptors->fd;
            openDuringPoll = isOpen(descriptors->fd);
            if (++calls < 3)
                return 0;
            descriptors->revents = POLLERR; // means nothing when the call fails
            errno = error;
            return -1;
        });
        start();
        ASSERT_TRUE(waitForEnd()) << error;
        EXPECT_EQ(calls, 3) << error;
        EXPECT_TRUE(openDuringPoll) << error;
        EXPECT_FALSE(isOpen(descriptor)) << error;
        EXPECT_EQ(output.take(), "") << error;
    }
    EXPECT_EQ(signalCount, 0);
    EXPECT_EQ(lister.calls().size(), 0);
    EXPECT_EQ(log.lines(), QStringList());
}

TEST_F(Watch, keeps_its_descriptor_until_the_check_is_over)
{
    const Lister lister({mountedStick});
    std::atomic<bool> openDuringCheck{false};
    reportAChange();
    SystemCalls::onReadlink([&](const std::string &, char *, std::size_t) -> ssize_t {
        openDuringCheck = isOpen(descriptor);
        return -1;
    });
    start();
    ASSERT_TRUE(waitForEnd());
    SystemCalls::onReadlink(nullptr);
    EXPECT_TRUE(openDuringCheck);
    EXPECT_FALSE(isOpen(descriptor));
}

TEST_F(Watch, writes_its_line_for_each_change)
{
    const Lister lister({nothingListed});
    reportAChange();
    StandardOutput output;
    worker.watchMount();
    worker.watchMount();
    EXPECT_EQ(output.take(), "Mount points changed. 0.\nMount points changed. 0.\n");
    EXPECT_EQ(signalCount, 2);
}

TEST_F(Watch, that_is_asked_for_twice_runs_one_after_the_other)
{
    const Lister lister({nothingListed});
    std::atomic<int> changes{0};
    std::atomic<int> watching{0};
    std::atomic<int> together{0};
    SystemCalls::onPoll([&](pollfd *descriptors, nfds_t, int) {
        together += ++watching > 1;
        QThread::msleep(1);
        if (changes > 0) {
            --changes;
            descriptors->revents = POLLERR;
        }
        --watching;
        return descriptors->revents ? 1 : 0;
    });
    QThread mountThread;
    worker.moveToThread(&mountThread);
    mountThread.start();
    ASSERT_TRUE(QMetaObject::invokeMethod(&worker, "watchMount", Qt::QueuedConnection));
    ASSERT_TRUE(QMetaObject::invokeMethod(&worker, "watchMount", Qt::QueuedConnection));
    ASSERT_TRUE(waitForPolls(5));
    EXPECT_EQ(signalCount, 0);
    changes = 1;
    ASSERT_TRUE(waitFor([this] { return signalCount == 1; }));
    ASSERT_TRUE(waitForPolls(5));
    EXPECT_EQ(signalCount, 1);
    changes = 1;
    ASSERT_TRUE(waitFor([this] { return signalCount == 2; }));
    EXPECT_EQ(together, 0);

    mountThread.quit();
    ASSERT_TRUE(mountThread.wait(20000));
}

TEST_F(Watch, emits_its_signal_on_the_thread_that_it_runs_on)
{
    const Lister lister({nothingListed});
    std::atomic<std::thread::id> emitter{std::this_thread::get_id()};
    QObject::connect(&worker, &WatchMountWorker::mountSuccesful, [&] { emitter = std::this_thread::get_id(); });
    std::thread other([this] { worker.doCheckMount(); });
    const std::thread::id expected = other.get_id();
    other.join();
    EXPECT_EQ(emitter.load(), expected);
}

TEST_F(Watch, checks_once_when_there_is_nothing_to_wait_for)
{
    const BlockDevices devices({{QStringLiteral("sda"), BlockDevices::sataDisk("sda")}});
    const Lister lister({unmountedStick});
    worker.doCheckMount();
    EXPECT_EQ(lister.calls().size(), 1);
    EXPECT_EQ(signalCount, 1);
}

TEST_F(Watch, checks_until_every_stick_is_mounted)
{
    const BlockDevices devices({{QStringLiteral("sda"), BlockDevices::usbDisk("sda")}});
    const Lister lister({unmountedStick, unmountedStick, unmountedStick, mountedStick});
    worker.doCheckMount();
    EXPECT_EQ(lister.calls().size(), 4);
    EXPECT_EQ(signalCount, 1);
}

TEST_F(Watch, checks_for_60_seconds_at_most_and_emits_its_signal_all_the_same)
{
    const struct
    {
        int step; // milliseconds between two readings of the clock
        int checks;
    } clocks[] = {{60001, 0}, {60000, 0}, {59999, 1}, {30000, 1}, {29999, 2}, {20000, 2}, {19999, 3}, {12000, 4}};
    const BlockDevices devices({{QStringLiteral("sda"), BlockDevices::usbDisk("sda")}});
    FakeClock::set(QTime(23, 59, 30)); // the date counts too
    int watches = 0;
    for (const auto &clock : clocks) {
        const Lister lister({unmountedStick});
        FakeClock::advanceWithEachReading(clock.step);
        worker.doCheckMount();
        EXPECT_EQ(lister.calls().size(), clock.checks) << clock.step;
        EXPECT_EQ(signalCount, ++watches) << clock.step;
    }
}

TEST_F(Watch, emits_its_signal_without_a_lister)
{
    const NoLister none;
    worker.doCheckMount();
    EXPECT_EQ(signalCount, 1);
}

TEST(Watcher, has_one_signal_and_one_slot)
{
    const QMetaObject &meta = WatchMountWorker::staticMetaObject;
    EXPECT_STREQ(meta.className(), "WatchMountWorker");
    EXPECT_STREQ(meta.superClass()->className(), "QObject");
    ASSERT_EQ(meta.methodCount() - meta.methodOffset(), 2);

    const QMetaMethod signal = meta.method(meta.methodOffset());
    EXPECT_EQ(signal.methodType(), QMetaMethod::Signal);
    EXPECT_EQ(signal.methodSignature(), QByteArray("mountSuccesful()"));
    EXPECT_STREQ(signal.typeName(), "void");

    const QMetaMethod slot = meta.method(meta.methodOffset() + 1);
    EXPECT_EQ(slot.methodType(), QMetaMethod::Slot);
    EXPECT_EQ(slot.methodSignature(), QByteArray("watchMount()"));
    EXPECT_STREQ(slot.typeName(), "void");
    EXPECT_EQ(slot.access(), QMetaMethod::Public);

    EXPECT_EQ(meta.propertyCount(), meta.propertyOffset());
    EXPECT_EQ(meta.enumeratorCount(), meta.enumeratorOffset());
}

TEST(Watcher, has_no_parent_and_answers_to_its_name)
{
    WatchMountWorker worker;
    EXPECT_EQ(worker.parent(), nullptr);
    EXPECT_EQ(worker.qt_metacast("WatchMountWorker"), static_cast<void *>(&worker));
    EXPECT_EQ(worker.qt_metacast("MountWorker"), nullptr);
    EXPECT_EQ(worker.metaObject(), &WatchMountWorker::staticMetaObject);
    EXPECT_EQ(sizeof(WatchMountWorker), sizeof(QObject));
}
