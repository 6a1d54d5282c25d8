// SPDX-License-Identifier: LGPL-2.1-or-later

// Interfaces that come and go at the worst moment.

#include "stress/stressbench.h"
#include "support/logrecorder.h"
#include "support/portwrites.h"
#include "worker/portchannelglue.h"

#include <QPointer>

#include <dlfcn.h>
#include <spice-client.h>

namespace {

thread_local unsigned long wakeUpMicroseconds = 0; ///< how long this thread is held up before it wakes another
std::atomic<int> heldUp{0}; ///< how often one has been

} // namespace

extern "C" __attribute__((visibility("default"))) void g_main_context_wakeup(GMainContext *context)
{
    static const auto realWakeUp =
        reinterpret_cast<void (*)(GMainContext *)>(dlsym(RTLD_NEXT, "g_main_context_wakeup"));
    if (wakeUpMicroseconds > 0) {
        ++heldUp;
        QThread::usleep(wakeUpMicroseconds);
    }
    realWakeUp(context);
}

namespace {

class LifeCycle : public StressBench
{
protected:
    /// A command that takes a moment, so that the worker has always something to do.
    static int slowly(const std::string &, char *, int &length)
    {
        QThread::usleep(100);
        length = 0;
        return 0;
    }

    void queueWork()
    {
        redirect->redirectDeviceById(device("diskrdr"));
        redirect->unRedirectDeviceById(device("camrdr"));
        redirect->unRedirectDeviceAll();
        redirect->vmRebootReset();
        redirect->getDeviceListFromUniqueFrame();
    }
};

constexpr long AllowedKibibytes = 4096; // how much more memory a process may hold after many more rounds

DevRedirectInterface *doomed = nullptr;

/// waitFor() runs no event loop of its own, and what was to be deleted outside of one waits for one.
bool goes(const QPointer<DevRedirectInterface> &interface)
{
    return waitFor([&interface] {
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        return interface.isNull();
    });
}

/// Two real channels that have come, been written to and gone, before anything is counted: GLib's own thread stays.
struct ChannelsBefore
{
    ChannelsBefore()
    {
        for (int i = 0; i < 2; ++i) {
            SpiceSession *const session = spice_session_new();
            SpiceChannel *const channel = spice_channel_new(session, SPICE_CHANNEL_PORT, 0);
            spice_port_channel_write_async(
                SPICE_PORT_CHANNEL(channel), "x", 1, nullptr, [](GObject *, GAsyncResult *, gpointer) {}, nullptr);
            spice_session_disconnect(session);
            g_object_unref(session);
            for (int turn = 0; turn < 10; ++turn)
                QCoreApplication::processEvents();
        }
    }
};

class LifeCycleOfChannels : private ChannelsBefore, public LifeCycle
{
protected:
    LifeCycleOfChannels()
    {
        script.init = [this](SendCallback toMachine, EventCallback, const std::string &, const std::string &) {
            send = std::move(toMachine);
            return true;
        };
        script.setupContext = [this](void *, void *channel) { return given = channel, true; };
        Q_EMIT redirect->loadDevRedirComponentByThread(QStringLiteral("vm-7"));
    }

    /// Binds a new channel, which ends with its session; null from then on.
    struct Bound
    {
        Bound(LifeCycleOfChannels &test, SpiceSession *session)
            : channel(spice_channel_new(session, SPICE_CHANNEL_PORT, 0))
        {
            Q_EMIT test.redirect->checkRedirChannelByThread(SPICE_PORT_CHANNEL(channel), QStringLiteral("name"), false);
            EXPECT_EQ(test.given, channel);
            g_object_add_weak_pointer(G_OBJECT(channel), &channel);
        }
        ~Bound()
        {
            if (channel)
                g_object_remove_weak_pointer(G_OBJECT(channel), &channel);
        }
        Bound(const Bound &) = delete;
        Bound &operator=(const Bound &) = delete;
        gpointer channel;
    };

    static void end(SpiceSession *session)
    {
        spice_session_disconnect(session);
        g_object_unref(session);
    }

    SendCallback send;
    void *given = nullptr; ///< the channel that the component was given last
};

} // namespace

// --- created and destroyed ---

TEST_F(LifeCycle, created_and_destroyed_1000_times)
{
    redirect.reset();
    for (int round = 0; round < 1000; ++round)
        redirect = std::make_unique<DevRedirectInterface>(nullptr), redirect.reset();
    makeInterface();
    expectThatAListComesThrough(2);
}

TEST_F(LifeCycle, created_and_destroyed_1000_times_with_work_queued)
{
    for (int round = 0; round < 1000; ++round) {
        queueWork();
        if (round % 2)
            QCoreApplication::processEvents();
        if (round % 3 == 0)
            redirect->stopMappingFunctionByDevRedirInter();
        if (round % 5 == 0) {
            MountTable::change();
            redirect->notifyEvent();
        }
        redirect.reset();
        makeInterface();
    }
    expectThatAListComesThrough(2);
}

TEST_F(LifeCycle, the_component_is_loaded_and_unloaded_100_times_and_works)
{
    RedirectHandler &handler = *DevRedirectWorker::m_redirectHandler;
    for (int round = 0; round < 100; ++round) {
        expectThatAListComesThrough(1 + round % 3);
        redirect->realeaseDeviceResource();
        redirect->stopMappingFunctionByDevRedirInter();
        ASSERT_TRUE(handler.unLoad());
        redirect->unRedirectDeviceAll();
        waitForWorker();
        Q_EMIT redirect->loadDynamicLib();
    }
    expectThatAListComesThrough(2);
}

// --- destroyed at a bad moment ---

TEST_F(LifeCycle, destroyed_while_the_worker_is_busy)
{
    script.ctrl = slowly;
    for (int round = 0; round < 200; ++round) {
        script.forgetCalls();
        queueWork();
        ASSERT_TRUE(waitFor([this] { return !script.commands().empty(); }));
        redirect.reset();
        makeInterface();
    }
}

TEST_F(LifeCycle, destroyed_while_a_thread_ends_before_it_is_woken_for_that)
{
    script.ctrl = [](const std::string &, char *, int &) {
        QThread::usleep(2000);
        return 0;
    };
    g_log_set_always_fatal(G_LOG_LEVEL_CRITICAL); // so GLib takes it when what is woken has gone
    for (int round = 0; round < 20; ++round) {
        script.forgetCalls();
        queueWork();
        ASSERT_TRUE(waitFor([this] { return !script.commands().empty(); }));
        wakeUpMicroseconds = 10000;
        redirect.reset();
        wakeUpMicroseconds = 0;
        makeInterface();
    }
}

TEST_F(LifeCycle, destroyed_while_the_watch_is_about_to_wake_the_worker)
{
    redirect->notifyEvent();
    MountTable::change();
    ASSERT_TRUE(waitFor([] { return MountTable::unseenChanges() == 0; }));
    QObject inWatch; // runs when that watch has ended
    inWatch.moveToThread(MountTable::watchingThread());
    QMetaObject::invokeMethod(
        &inWatch, [] { wakeUpMicroseconds = 200000; }, Qt::BlockingQueuedConnection);

    g_log_set_always_fatal(G_LOG_LEVEL_CRITICAL);
    heldUp = 0;
    redirect->notifyEvent();
    MountTable::change();
    ASSERT_TRUE(waitFor([] { return heldUp > 0; }));
    redirect.reset();
}

TEST_F(LifeCycle, destroyed_with_requests_that_have_not_begun_drops_them)
{
    Barrier first;
    Barrier second;
    script.ctrl = [&](const std::string &, char *, int &) {
        const std::size_t begun = script.commands().size();
        if (begun <= 2)
            (begun == 1 ? first : second).enter();
        return 0;
    };
    redirect->redirectDeviceById(device("camrdr"));
    ASSERT_TRUE(first.waitUntilHeld());
    for (int i = 0; i < 5; ++i) // the worker takes all of these out of its queue at once
        redirect->unRedirectDeviceById(device("camrdr"));
    first.open();
    ASSERT_TRUE(second.waitUntilHeld());
    for (int i = 0; i < 5; ++i)
        redirect->unRedirectDeviceById(device("camrdr"));
    std::thread opener = whenThisThreadWaits([&second] { second.open(); });
    redirect.reset();
    opener.join();
    EXPECT_EQ(script.commands().size(), 2u);
}

TEST_F(LifeCycle, destroyed_while_a_watch_waits_ends_with_the_next_change_however_many_were_asked_for)
{
    for (int round = 0; round < 40; ++round) {
        const int polls = MountTable::polls();
        for (int i = 0; i <= round % 3; ++i)
            redirect->notifyEvent();
        ASSERT_TRUE(waitFor([&] { return MountTable::polls() > polls + 1; }));
        std::thread changer = whenThisThreadWaits([] { MountTable::change(); });
        redirect.reset();
        changer.join();
        EXPECT_EQ(MountTable::unseenChanges(), 0);
        makeInterface();
    }
}

TEST_F(LifeCycle, destroyed_while_lists_arrive)
{
    script.ctrl = Component::listing(documentOf(20));
    for (int round = 0; round < 200; ++round) {
        script.forgetCalls();
        for (int i = 0; i < 5; ++i)
            redirect->getDeviceListFromUniqueFrame();
        // Now and then the host sees one of them, now and then none.
        ASSERT_TRUE(waitFor([&] { return script.commands().size() > std::size_t(round % 5); }));
        redirect.reset();
        makeInterface();
    }
}

TEST_F(LifeCycle, destroyed_before_it_published_a_list_leaves_the_next_one_able_to_publish)
{
    script.ctrl = Component::listing(documentOf(2));
    redirect->getDeviceListFromUniqueFrame();
    waitForWorker(); // the list is there, this thread has not been told yet
    redirect.reset();
    ASSERT_EQ(published(), 0);
    makeInterface();
    script.ctrl = Component::listing(documentOf(3));
    redirect->getDeviceListFromUniqueFrame();
    waitForWorker();
    QCoreApplication::processEvents();
    EXPECT_EQ(published(), 1);
    EXPECT_EQ(redirect->getDeviceList().size(), 3);
}

TEST_F(LifeCycle, destroyed_while_the_component_sends_and_reports)
{
    SendCallback send;
    EventCallback notify;
    script.init = [&](SendCallback toMachine, EventCallback toHost, const std::string &, const std::string &) {
        send = std::move(toMachine);
        notify = std::move(toHost);
        return true;
    };
    Q_EMIT redirect->loadDevRedirComponentByThread(QStringLiteral("vm-7"));
    ASSERT_TRUE(send && notify);
    std::atomic<bool> stop{false};
    std::atomic<int> wrong{0};
    std::thread component([&, send, notify] {
        char message[] = "x";
        while (!stop) {
            if (send(nullptr, message, 1) != 1)
                ++wrong;
            notify(nullptr, RedirEventShared, "", 0);
            QThread::usleep(200);
        }
    });
    for (int round = 0; round < 100; ++round) {
        queueWork();
        redirect.reset();
        makeInterface();
    }
    stop = true;
    component.join();
    EXPECT_EQ(wrong, 0);
}

// --- destroyed from a slot that it called ---

TEST_F(LifeCycle, deleted_later_from_a_slot_of_each_result)
{
    using Interface = DevRedirectInterface;
    script.ctrl = Component::listing(documentOf(2));
    for (int round = 0; round < 60; ++round) {
        QPointer<Interface> mine = redirect.release();
        const auto deleteIt = [mine] {
            if (mine)
                mine->deleteLater();
        };
        QObject::connect(mine, &Interface::shareDeviceResultByInterface, mine, deleteIt);
        QObject::connect(mine, &Interface::unRedirectDeviceByIdResult, mine, deleteIt);
        QObject::connect(mine, &Interface::unRedirectDeviceAllResult, mine, deleteIt);
        QObject::connect(mine, &Interface::deviceListResultByThread, mine, deleteIt);
        QObject::connect(mine, &Interface::diskMapResultInUsbByInter, mine, deleteIt, Qt::DirectConnection);
        switch (round % 4) {
        case 0:
            mine->redirectDeviceById(device("diskrdr"));
            break;
        case 1:
            mine->unRedirectDeviceById(device("camrdr"));
            break;
        case 2:
            mine->vmRebootReset();
            break;
        default:
            mine->syncUNRedirectDeviceAll();
        }
        mine->getDeviceListFromUniqueFrame();
        ASSERT_TRUE(goes(mine)) << round;
        makeInterface();
    }
}

TEST_F(LifeCycle, deleted_at_once_in_a_slot_of_another_object)
{
    using Interface = DevRedirectInterface;
    for (int round = 0; round < 60; ++round) {
        QObject other;
        const auto deleteIt = [this] { redirect.reset(); };
        const Qt::ConnectionType type = round % 2 ? Qt::QueuedConnection : Qt::AutoConnection;
        QObject::connect(redirect.get(), &Interface::unRedirectDeviceAllResult, &other, deleteIt, type);
        QObject::connect(redirect.get(), &Interface::shareDeviceResultByInterface, &other, deleteIt, type);
        queueWork();
        redirect->redirectDeviceById(device("camrdr"));
        ASSERT_TRUE(waitFor([this] { return !redirect; })) << round;
        makeInterface();
    }
}

TEST_F(LifeCycle, deleted_later_and_deleted_at_once_from_the_map_callback)
{
    script.ctrl = Component::listing(documentOf(2));
    for (int round = 0; round < 60; ++round) {
        QPointer<DevRedirectInterface> mine = redirect.release();
        doomed = mine;
        if (round % 2)
            mine->sendMapCommandByDevModel([](QList<ExterDeviceInfo> &) { delete doomed; });
        else
            mine->sendMapCommandByDevModel([](QList<ExterDeviceInfo> &) { doomed->deleteLater(); });
        mine->getDeviceListFromUniqueFrame();
        ASSERT_TRUE(goes(mine)) << round;
        makeInterface();
    }
}

// --- shutting down ---

TEST_F(LifeCycle, everything_is_unshared_while_requests_are_queued)
{
    using Interface = DevRedirectInterface;
    script.ctrl = slowly;
    for (int round = 0; round < 50; ++round) {
        int unsharedAll = 0;
        QObject::connect(redirect.get(), &Interface::unRedirectDeviceAllResult, redirect.get(),
                         [&unsharedAll] { ++unsharedAll; });
        for (int i = 0; i < 20; ++i)
            redirect->redirectDeviceById(device("camrdr"));
        redirect->syncUNRedirectDeviceAll();
        EXPECT_EQ(unsharedAll, 1);
        script.forgetCalls();
        waitForWorker();
        script.forgetCalls();
        queueWork();
        waitForWorker();
        EXPECT_TRUE(script.commands().empty()) << "no request is taken any more";
        redirect.reset();
        makeInterface();
    }
}

TEST_F(LifeCycle, the_component_is_cut_off_while_commands_run_on_three_threads)
{
    std::atomic<bool> stop{false};
    std::vector<std::thread> threads;
    for (int i = 0; i < 2; ++i) {
        threads.emplace_back([&] {
            while (!stop)
                redirect->notifyUsbInfo(QStringLiteral("Stick:1-1:1:5"));
        });
    }
    for (int round = 0; round < 100; ++round) {
        redirect->getDeviceListFromUniqueFrame();
        redirect->unRedirectDeviceAll();
        redirect->stopMappingFunctionByDevRedirInter();
        void *context = nullptr;
        EXPECT_EQ(redirect->checkRedirChannel("name", &context), 0);
        waitForWorker();
        Q_EMIT redirect->loadDynamicLib(); // it stays in memory, so nobody is pulled out of it
        EXPECT_EQ(redirect->checkRedirChannel("name", &context), 1);
    }
    stop = true;
    for (std::thread &thread : threads)
        thread.join();
    expectThatAListComesThrough(2);
}

// --- plugged and unplugged ---

TEST_F(LifeCycle, two_threads_tell_of_usb_devices_while_the_worker_fetches_lists)
{
    std::atomic<int> asked{0};
    script.ctrl = [&, few = Component::listing(documentOf(2)),
                   many = Component::listing(documentOf(6))](const std::string &command, char *buffer, int &length) {
        return ++asked % 2 ? few(command, buffer, length) : many(command, buffer, length);
    };
    std::vector<std::thread> threads;
    std::atomic<int> running{2};
    for (int i = 0; i < 2; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < 200; ++round)
                redirect->notifyUsbInfo(QStringLiteral("Stick:1-1:1:5;Stick:1-1:0:5;too:few"));
            --running;
        });
    }
    EXPECT_TRUE(waitFor(
        [&] {
            redirect->getDeviceListFromUniqueFrame();
            waitForWorker();
            const auto devices = redirect->getDeviceList().size();
            EXPECT_TRUE(devices == 0 || devices == 2 || devices == 6) << devices;
            return running == 0;
        },
        60000));
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_GT(published(), 0);
    expectThatAListComesThrough(3);
}

TEST_F(LifeCycle, memory_does_not_grow_over_10000_times_plugged_and_unplugged)
{
    const auto with = Component::listing(documentOf(3));
    const auto without = Component::listing(documentOf(2));
    std::atomic<bool> plugged{false};
    script.ctrl = [&](const std::string &command, char *buffer, int &length) {
        return plugged ? with(command, buffer, length) : without(command, buffer, length);
    };
    long after1000 = 0;
    for (int round = 1; round <= 10000; ++round) {
        for (const bool now : {true, false}) {
            plugged = now;
            redirect->notifyUsbInfo(now ? QStringLiteral("Stick:1-1:1:5") : QStringLiteral("Stick:1-1:0:5"));
            QCoreApplication::processEvents();
            ASSERT_EQ(redirect->getDeviceList().size(), now ? 3 : 2) << round;
        }
        script.forgetCalls();
        if (round == 1000)
            after1000 = Resources::memory();
    }
    EXPECT_GT(after1000, 0);
    if (Resources::memoryIsReused) {
        EXPECT_LE(Resources::memory(), after1000 + AllowedKibibytes);
    }
}

TEST_F(LifeCycle, memory_does_not_grow_over_2000_interfaces)
{
    long after200 = 0;
    script.ctrl = Component::listing(documentOf(2));
    for (int round = 1; round <= 2000; ++round) {
        redirect->getDeviceListFromUniqueFrame();
        redirect.reset();
        redirect = std::make_unique<DevRedirectInterface>(nullptr);
        script.forgetCalls();
        if (round == 200)
            after200 = Resources::memory();
    }
    EXPECT_GT(after200, 0);
    if (Resources::memoryIsReused) {
        EXPECT_LE(Resources::memory(), after200 + AllowedKibibytes);
    }
}

// --- channels that go ---

TEST_F(LifeCycleOfChannels, a_channel_goes_while_four_threads_send_on_it)
{
    for (int round = 0; round < 20; ++round) {
        SpiceSession *const session = spice_session_new();
        const Bound bound(*this, session);
        std::atomic<bool> stop{false};
        std::atomic<int> sent{0};
        std::vector<std::thread> senders;
        for (int i = 0; i < 4; ++i) {
            senders.emplace_back([&, to = given] {
                char message[] = "message";
                while (!stop) {
                    EXPECT_EQ(send(to, message, sizeof message), int(sizeof message));
                    ++sent;
                    QThread::usleep(100);
                }
            });
        }
        EXPECT_TRUE(waitFor([&sent] { return sent > 20; }));
        end(session);
        EXPECT_TRUE(waitFor([&bound] { return !bound.channel; }));
        const int before = sent;
        EXPECT_TRUE(waitFor([&] { return sent > before + 20; }));
        stop = true;
        for (std::thread &sender : senders)
            sender.join();
    }
}

TEST_F(LifeCycleOfChannels, a_message_for_a_channel_that_has_gone_is_dropped_even_after_the_interface)
{
    SpiceSession *const session = spice_session_new();
    const Bound bound(*this, session);
    end(session);
    EXPECT_TRUE(waitFor([&bound] { return !bound.channel; }));

    char early[] = "late";
    const int before = QuietLog::warningLines();
    EXPECT_EQ(send(given, early, 4), 4);
    EXPECT_TRUE(waitFor([&] { return QuietLog::warningLines() > before; })) << "one line says that it was dropped";
    redirect->realeaseDeviceResource();
    redirect.reset();
    std::thread([this] {
        char message[] = "late";
        EXPECT_EQ(send(given, message, 4), 4);
        EXPECT_EQ(send(nullptr, message, 4), 4);
        EXPECT_EQ(send(given, nullptr, -1), -1);
    }).join();
    for (int i = 0; i < 100; ++i)
        QCoreApplication::processEvents();
}

TEST_F(LifeCycleOfChannels, a_message_for_a_channel_that_has_gone_does_not_go_to_one_that_has_its_address)
{
    SpiceSession *session = spice_session_new();
    const Bound old(*this, session);
    const void *const address = given;
    end(session);
    ASSERT_TRUE(waitFor([&old] { return !old.channel; }));
    char late[] = "late";
    EXPECT_EQ(send(given, late, 4), 4);

    session = spice_session_new();
    const int writes = PortWrites::count();
    const int warnings = QuietLog::warningLines();
    for (int i = 0; i < 1000 && (i == 0 || given != address); ++i) // until the address is taken again
        const Bound next(*this, session);
    if (given != address)
        GTEST_SKIP() << "memory is not given out again here";
    EXPECT_EQ(QuietLog::warningLines(), warnings + 1);
    for (int i = 0; i < 100; ++i)
        QCoreApplication::processEvents();
    EXPECT_EQ(PortWrites::count(), writes);
    char early[] = "early";
    EXPECT_EQ(send(given, early, 5), 5);
    EXPECT_TRUE(waitFor([writes] { return PortWrites::count() == writes + 1; }));
    end(session);
}

// --- replaced ---

TEST_F(LifeCycle, replaced_by_one_that_is_made_before_it_is_destroyed)
{
    redirect.reset(new DevRedirectInterface(nullptr));
    redirect->sendMapCommandByDevModel([](QList<ExterDeviceInfo> &) { ++published(); });
    bool unshared = false;
    QObject::connect(redirect.get(), &DevRedirectInterface::unRedirectDeviceAllResult, redirect.get(),
                     [&unshared] { unshared = true; });
    redirect->unRedirectDeviceAll();
    EXPECT_TRUE(waitFor([&unshared] { return unshared; }, 5000));
    redirect->notifyUsbInfo(QString());
    EXPECT_TRUE(waitFor([] { return published() > 0; }, 5000));
    redirect->syncUNRedirectDeviceAll();
}

TEST_F(LifeCycle, replaced_while_the_old_worker_handles_a_notification_publishes_the_next_list)
{
    Barrier barrier;
    script.ctrl = [&](const std::string &command, char *buffer, int &length) {
        if (script.commands().size() == 1)
            barrier.enter();
        return Component::listing(documentOf(2))(command, buffer, length);
    };
    Q_EMIT redirect->notifyEventHandler();
    ASSERT_TRUE(barrier.waitUntilHeld());
    auto *const next = new DevRedirectInterface(nullptr);
    std::thread opener = whenThisThreadWaits([&barrier] { barrier.open(); });
    redirect.reset(next);
    opener.join();
    redirect->sendMapCommandByDevModel([](QList<ExterDeviceInfo> &) { ++published(); });
    const int before = published();
    redirect->getDeviceListFromUniqueFrame();
    EXPECT_TRUE(waitFor([before] { return published() > before; }));
}

TEST_F(LifeCycle, replaced_with_a_notification_that_waits_publishes_the_newest_list)
{
    script.ctrl = Component::listing(documentOf(2));
    redirect->getDeviceListFromUniqueFrame();
    waitForWorker(); // the notification waits in this thread's queue
    auto *const next = new DevRedirectInterface(nullptr);
    next->sendMapCommandByDevModel([](QList<ExterDeviceInfo> &) { ++published(); });
    script.ctrl = Component::listing(documentOf(3));
    next->getDeviceListFromUniqueFrame();
    waitForWorker();
    redirect.reset(next);
    EXPECT_TRUE(waitFor([this] { return redirect->getDeviceList().size() == 3; }, 5000));
    EXPECT_EQ(published(), 1);
    expectThatAListComesThrough(4);
}

TEST_F(LifeCycle, destroyed_tells_how_much_is_dropped)
{
    Barrier barrier;
    script.ctrl = [&barrier](const std::string &, char *, int &) {
        barrier.enter();
        return 0;
    };
    redirect->unRedirectDeviceById(device("camrdr")); // its result is dropped, too
    ASSERT_TRUE(barrier.waitUntilHeld());
    for (int i = 0; i < 3; ++i)
        redirect->unRedirectDeviceById(device("camrdr"));
    LogRecorder lines;
    std::thread opener = whenThisThreadWaits([&barrier] { barrier.open(); });
    redirect.reset();
    opener.join();
    const QString line = QStringLiteral("debug: [ ~DevRedirectInterface ] [REDIR_MODULE]  requests and notifications "
                                        "that are dropped:  %1");
    EXPECT_EQ(lines.linesWith(QStringLiteral("dropped")), QStringList{line.arg(4)});
    lines.clear();
    makeInterface();
    redirect.reset();
    EXPECT_EQ(lines.linesWith(QStringLiteral("dropped")), QStringList());
}
TEST_F(LifeCycle, a_second_interface_finds_the_lists_and_the_quit_flag_of_the_first)
{
    expectThatAListComesThrough(3);
    redirect->setQuitFlag(true);
    redirect->realeaseDeviceResource();
    redirect.reset();
    makeInterface();
    EXPECT_EQ(redirect->getDeviceList().size(), 3);
    EXPECT_EQ(redirect->getDeviceInfo(QStringLiteral("2")).deviceId, QStringLiteral("2"));
    char message[] = "message";
    EXPECT_EQ(sendDevRedirectMsgToSpice(nullptr, message, 7), -1);
    redirect->setQuitFlag(false);
    EXPECT_EQ(sendDevRedirectMsgToSpice(nullptr, message, 7), 7);
}
