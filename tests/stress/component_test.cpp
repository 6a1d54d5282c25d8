// SPDX-License-Identifier: LGPL-2.1-or-later

// A component that misbehaves: one broken world for each test.

#include "stress/stressbench.h"
#include "support/standinchannel.h"
#include "worker/portchannelglue.h"

#include <QElapsedTimer>

#include <climits>
#include <cstring>
#include <functional>
#include <stdexcept>

#include <dlfcn.h>

namespace {

constexpr int AtOnceMilliseconds = 5000; // generous: the alternative is to wait for ever

class Misbehaving : public StressBench
{
protected:
    Misbehaving() { noteOutcomes(); }

    void noteOutcomes()
    {
        using Interface = DevRedirectInterface;
        QObject::connect(redirect.get(), &Interface::shareDeviceResultByInterface, redirect.get(),
                         [this](const ExterDeviceInfo &, bool result) { outcomes.push_back(result); });
        QObject::connect(redirect.get(), &Interface::unRedirectDeviceByIdResult, redirect.get(),
                         [this](const ExterDeviceInfo &, bool result) { outcomes.push_back(result); });
        QObject::connect(redirect.get(), &Interface::unRedirectDeviceAllResult, redirect.get(),
                         [this](bool result) { outcomes.push_back(result); });
    }

    /// Whatever the host may ask of the library without waiting returns at once.
    void expectThatTheHostIsNotHeldUp()
    {
        QElapsedTimer timer;
        timer.start();
        redirect->redirectDeviceById(device("camrdr"));
        redirect->unRedirectDeviceById(device("camrdr"));
        redirect->deviceOperate(QStringLiteral("1-1"), QStringLiteral("share"));
        redirect->unRedirectDeviceAll();
        redirect->vmRebootReset();
        redirect->notifyEvent();
        redirect->getDeviceListFromUniqueFrame();
        redirect->getDeviceInfo(QStringLiteral("1-1"));
        redirect->getDeviceList();
        redirect->setClientParam({QStringLiteral("192.0.2.10"), QStringLiteral("198.51.100.7")});
        redirect->setQuitFlag(true);
        redirect->setQuitFlag(false);
        redirect->infoLogOutput(QStringLiteral("text"));
        QCoreApplication::processEvents();
        EXPECT_LT(timer.elapsed(), AtOnceMilliseconds);
    }

    /// The call waits in the component, on a thread of its own; neither the host nor the worker waits with it.
    void expectThatOnlyItsCallerWaits(Barrier &barrier, const std::function<void()> &call)
    {
        std::atomic<bool> returned{false};
        std::thread caller([&] {
            call();
            returned = true;
        });
        EXPECT_TRUE(barrier.waitUntilHeld());
        expectThatTheHostIsNotHeldUp();
        EXPECT_TRUE(waitFor([this] { return outcomes.size() == 5; })) << outcomes.size();
        EXPECT_FALSE(returned);
        barrier.open();
        caller.join();
        EXPECT_TRUE(returned);
    }

    void start() { Q_EMIT redirect->loadDevRedirComponentByThread(QStringLiteral("vm-7")); }

    /// Starts the component and takes the callbacks that it was given.
    void startAndKeepTheCallbacks()
    {
        script.init = [this](SendCallback toMachine, EventCallback toHost, const std::string &, const std::string &) {
            send = std::move(toMachine);
            notify = std::move(toHost);
            return true;
        };
        start();
        ASSERT_TRUE(send);
        ASSERT_TRUE(notify);
    }

    void bind(const StandInChannel &bound, bool isOpened = false)
    {
        Q_EMIT redirect->checkRedirChannelByThread(bound.get(), QStringLiteral("org.example.redir.0"), isOpened);
    }

    int context = 0;
    std::vector<bool> outcomes; ///< of shares, unshares and unshares of everything
    SendCallback send;
    EventCallback notify;
    StandInChannel channel;
};

void throwStandardOne()
{
    throw std::runtime_error("the component's own trouble");
}

void throwNumber()
{
    throw 5;
}

const std::function<void()> throwers[] = {throwStandardOne, throwNumber};

} // namespace

// --- blocks ---

TEST_F(Misbehaving, component_that_blocks_in_redirInit_holds_up_its_caller_only)
{
    Barrier barrier;
    script.init = [&](const SendCallback &, const EventCallback &, const std::string &, const std::string &) {
        return barrier.enter(), true;
    };
    expectThatOnlyItsCallerWaits(barrier, [this] { start(); });
}

TEST_F(Misbehaving, component_that_blocks_in_redirCheck_holds_up_its_caller_only)
{
    Barrier barrier;
    script.check = [&](const std::string &, void **) { return barrier.enter(), true; };
    expectThatOnlyItsCallerWaits(barrier, [this] {
        void *out = nullptr;
        redirect->checkRedirChannel("name", &out);
    });
}

TEST_F(Misbehaving, component_that_blocks_in_redirSetupContext_holds_up_its_caller_only)
{
    Barrier barrier;
    script.setupContext = [&](void *, void *) { return barrier.enter(), true; };
    expectThatOnlyItsCallerWaits(barrier, [this] { redirect->setupRedirContext(&context, nullptr); });
}

TEST_F(Misbehaving, component_that_blocks_in_redirHandler_holds_up_its_caller_only)
{
    Barrier barrier;
    script.handler = [&](char *, int, void *) { barrier.enter(); };
    expectThatOnlyItsCallerWaits(barrier, [this] { redirect->handlerRedirData(nullptr, 0, &context); });
}

TEST_F(Misbehaving, component_that_blocks_in_redirEventHandler_holds_up_its_caller_only)
{
    Barrier barrier;
    script.eventHandler = [&](ChannelEvent, char *, int, void *) { barrier.enter(); };
    expectThatOnlyItsCallerWaits(
        barrier, [this] { redirect->handlerRedirNoticeEvent(ChannelEventBreak, nullptr, 0, &context); });
}

TEST_F(Misbehaving, component_that_blocks_in_redirDeinit_holds_up_its_caller_only)
{
    Barrier barrier;
    script.deinit = [&] { barrier.enter(); };
    expectThatOnlyItsCallerWaits(barrier, [this] { redirect->realeaseDeviceResource(); });
}

TEST_F(Misbehaving, component_that_blocks_in_redirCtrl_holds_up_the_worker_and_not_the_host)
{
    startAndKeepTheCallbacks();
    Barrier barrier;
    script.ctrl = [&](const std::string &, char *, int &length) {
        barrier.enter();
        length = 0;
        return 0;
    };
    redirect->redirectDeviceById(device("camrdr"));
    ASSERT_TRUE(barrier.waitUntilHeld());
    expectThatTheHostIsNotHeldUp();
    bind(channel);
    channel.emitPortEvent(1);
    char message[] = "x";
    EXPECT_EQ(send(channel.get(), message, 1), 1);
    notify(nullptr, RedirEventShared, "", 0);
    EXPECT_EQ(events.count(), 1u);
    EXPECT_EQ(script.commands().size(), 1u);
    EXPECT_TRUE(outcomes.empty());
    barrier.open();
    EXPECT_TRUE(waitFor([this] { return outcomes.size() == 6; })) << outcomes.size();
    destroyInterface(); // its worker still asks for lists, and so passes the barrier
}

TEST_F(Misbehaving, component_that_blocks_in_redirCtrl_can_be_cut_off_and_stopped_meanwhile)
{
    Barrier barrier;
    script.ctrl = [&](const std::string &, char *, int &) { return barrier.enter(), 0; };
    redirect->redirectDeviceById(device("camrdr"));
    ASSERT_TRUE(barrier.waitUntilHeld());
    redirect->stopMappingFunctionByDevRedirInter();
    redirect->realeaseDeviceResource();
    redirect->unRedirectDeviceById(device("camrdr"));
    barrier.open();
    EXPECT_TRUE(waitFor([this] { return outcomes.size() == 2; }));
    EXPECT_EQ(outcomes, (std::vector<bool>{true, false})) << "the second was not let through to the component";
    EXPECT_EQ(script.commands().size(), 1u);
}

// --- fails ---

TEST_F(Misbehaving, component_that_fails_in_redirInit_can_be_started_again)
{
    script.init = [](const SendCallback &, const EventCallback &, const std::string &, const std::string &) {
        return false;
    };
    start();
    startAndKeepTheCallbacks();
    expectThatAListComesThrough(3);
}

TEST_F(Misbehaving, component_that_fails_in_redirCheck_gets_no_channel)
{
    script.check = [this](const std::string &, void **out) { return *out = &context, false; };
    bind(channel, true);
    script.check = [](const std::string &, void **) { return true; };
    bind(channel, true);
    EXPECT_EQ(channel.handlers(), 0u);
    expectThatAListComesThrough(3);
}

TEST_F(Misbehaving, component_that_fails_in_redirSetupContext_is_told_that_the_channel_is_open)
{
    int told = -1;
    script.setupContext = [](void *, void *) { return false; };
    script.eventHandler = [&](ChannelEvent event, char *, int, void *) { told = event; };
    bind(channel, true);
    EXPECT_EQ(told, int(ChannelEventOpened));
}

TEST_F(Misbehaving, component_that_fails_every_command_leaves_each_request_with_its_outcome)
{
    script.ctrl = [](const std::string &, char *, int &) { return INT_MIN; };
    expectThatTheHostIsNotHeldUp();
    EXPECT_TRUE(waitFor([this] { return outcomes.size() == 5; })) << outcomes.size();
    EXPECT_EQ(outcomes, std::vector<bool>(5, false));
    waitForWorker();
    EXPECT_EQ(published(), 0);
    expectThatAListComesThrough(3);
}

// --- answers late ---

TEST_F(Misbehaving, component_that_answers_a_list_late_does_not_keep_others_from_getting_theirs)
{
    Barrier barrier;
    std::atomic<int> asked{0};
    script.ctrl = [&, early = Component::listing(documentOf(2)),
                   late = Component::listing(documentOf(5))](const std::string &command, char *buffer, int &length) {
        if (++asked > 1)
            return early(command, buffer, length);
        barrier.enter();
        return late(command, buffer, length);
    };
    redirect->getDeviceListFromUniqueFrame();
    ASSERT_TRUE(barrier.waitUntilHeld());
    redirect->notifyUsbInfo(QString()); // on this thread
    EXPECT_TRUE(waitFor([] { return published() == 1; }));
    EXPECT_EQ(redirect->getDeviceList().size(), 2);
    barrier.open();
    EXPECT_TRUE(waitFor([] { return published() == 2; }));
    EXPECT_EQ(redirect->getDeviceList().size(), 5);
}

TEST_F(Misbehaving, component_that_answers_after_the_destruction_began_is_waited_for)
{
    Barrier barrier;
    EventList<std::string> order;
    script.ctrl = [&](const std::string &, char *, int &) {
        barrier.enter();
        order.add("answered");
        return 0;
    };
    QObject::connect(redirect.get(), &QObject::destroyed, [&order] { order.add("destroyed"); });
    redirect->redirectDeviceById(device("camrdr"));
    ASSERT_TRUE(barrier.waitUntilHeld());
    std::thread opener = whenThisThreadWaits([&barrier] { barrier.open(); });
    redirect.reset();
    opener.join();
    EXPECT_EQ(order.all(), (std::vector<std::string>{"answered", "destroyed"}));
    QCoreApplication::processEvents();
    EXPECT_TRUE(outcomes.empty()) << "nobody is told any more";
}

// --- answers garbage ---

TEST_F(Misbehaving, component_that_answers_a_list_of_an_impossible_length_is_read_within_the_buffer)
{
    const int lengths[] = {-1, INT_MIN, 81921, 163841, INT_MAX, 0};
    for (const char filler : {'\0', ' ', '[', '\xff', '"'}) {
        for (const int claimed : lengths) {
            script.ctrl = [&](const std::string &, char *buffer, int &length) {
                std::memset(buffer, filler, std::size_t(length)); // no NUL behind it
                length = claimed;
                return 0;
            };
            const int before = published();
            redirect->getDeviceListFromUniqueFrame();
            EXPECT_TRUE(waitFor([&] { return published() > before; })) << claimed;
            EXPECT_EQ(redirect->getDeviceList().size(), 0) << claimed;
        }
    }
}

TEST_F(Misbehaving, component_that_answers_a_whole_buffer_without_an_end_is_read_to_its_end)
{
    script.ctrl = [](const std::string &, char *buffer, int &length) {
        const std::string document = documentOf(4);
        std::memset(buffer, ' ', std::size_t(length));
        std::memcpy(buffer, document.data(), document.size());
        length = INT_MAX; // and the rest is white space, up to the capacity
        return 0;
    };
    redirect->getDeviceListFromUniqueFrame();
    EXPECT_TRUE(waitFor([] { return published() == 1; }));
    EXPECT_EQ(redirect->getDeviceList().size(), 4);
}

TEST_F(Misbehaving, component_that_writes_nothing_gives_an_empty_list)
{
    script.ctrl = [](const std::string &, char *, int &) { return 0; };
    redirect->getDeviceListFromUniqueFrame();
    EXPECT_TRUE(waitFor([] { return published() == 1; }));
    EXPECT_EQ(redirect->getDeviceList().size(), 0);
}

TEST_F(Misbehaving, component_that_answers_commands_with_garbage_succeeds_by_its_result_alone)
{
    for (const int claimed : {-1, INT_MIN, INT_MAX, 513, 0}) {
        for (const int result : {0, 7}) {
            script.ctrl = [&](const std::string &, char *buffer, int &length) {
                std::memset(buffer, '\xfe', std::size_t(length));
                length = claimed;
                return result;
            };
            outcomes.clear();
            redirect->redirectDeviceById(device("camrdr"));
            redirect->unRedirectDeviceAll();
            EXPECT_TRUE(waitFor([this] { return outcomes.size() == 2; }));
            EXPECT_EQ(outcomes, std::vector<bool>(2, result == 0));
        }
    }
}

TEST_F(Misbehaving, component_that_gives_a_wild_context_gets_it_back_unread)
{
    void *const wild = reinterpret_cast<void *>(quintptr(0x10));
    std::vector<void *> seen;
    script.check = [&](const std::string &, void **out) { return *out = wild, true; };
    script.setupContext = [&](void *given, void *) { return seen.push_back(given), false; };
    script.eventHandler = [&](ChannelEvent, char *, int, void *given) { seen.push_back(given); };
    script.handler = [&](char *, int, void *given) { seen.push_back(given); };
    bind(channel, true);
    std::string bytes = "x";
    channel.emitMessage(109, bytes);
    channel.emitChannelEvent(SPICE_CHANNEL_CLOSED);
    EXPECT_EQ(seen, (std::vector<void *>{wild, wild, wild, wild}));
}

TEST_F(Misbehaving, component_that_reports_garbage_events_is_passed_on_unread)
{
    startAndKeepTheCallbacks();
    for (const int number : {INT_MIN, -1, 0, 12345, INT_MAX})
        notify(reinterpret_cast<void *>(quintptr(0x10)), RedirEvent(number), nullptr, number);
    EXPECT_EQ(events.all(), (std::vector<int>{INT_MIN, -1, 0, 12345, INT_MAX}));
}

// --- throws ---

TEST_F(Misbehaving, component_that_throws_everywhere_ends_no_thread_and_leaves_each_request_with_its_outcome)
{
    for (const auto &thrower : throwers) {
        outcomes.clear();
        script.init = [&](const SendCallback &, const EventCallback &, const std::string &, const std::string &) {
            return thrower(), true;
        };
        script.check = [&](const std::string &, void **) { return thrower(), true; };
        script.ctrl = [&](const std::string &, char *, int &) { return thrower(), 0; };
        script.deinit = [&] { thrower(); };
        const int before = QuietLog::exceptionLines();
        start();
        bind(channel, true);
        redirect->realeaseDeviceResource();
        EXPECT_EQ(QuietLog::exceptionLines() - before, 3);
        EXPECT_EQ(channel.handlers(), 0u);
        expectThatTheHostIsNotHeldUp();
        EXPECT_TRUE(waitFor([this] { return outcomes.size() == 5; })) << outcomes.size();
        EXPECT_EQ(outcomes, std::vector<bool>(5, false));
        redirect->notifyUsbInfo(QStringLiteral("Stick:1-1:1:5"));
        redirect->sendConfigerInforToCamera({QStringLiteral("allow:*:*")});
        redirect->syncUNRedirectDeviceAll();
        EXPECT_TRUE(waitFor([this] { return outcomes.size() == 6; }));
        waitForWorker();
        destroyInterface();
        makeInterface();
        noteOutcomes();
    }
}

TEST_F(Misbehaving, component_that_throws_from_a_channels_signals_does_not_harm_the_channel)
{
    bind(channel);
    for (const auto &thrower : throwers) {
        script.setupContext = [&](void *, void *) { return thrower(), true; };
        script.eventHandler = [&](ChannelEvent, char *, int, void *) { thrower(); };
        script.handler = [&](char *, int, void *) { thrower(); };
        const StandInChannel another;
        bind(another, true);
        EXPECT_EQ(another.handlers(), 3u);
        const int before = QuietLog::exceptionLines();
        std::string bytes = "x";
        EXPECT_EQ(channel.emitMessage(109, bytes), 0);
        channel.emitPortEvent(1);
        channel.emitChannelEvent(SPICE_CHANNEL_CLOSED);
        EXPECT_EQ(QuietLog::exceptionLines() - before, 3);
    }
    EXPECT_EQ(channel.handlers(), 3u);
}

// --- calls back from its own threads ---

TEST_F(Misbehaving, component_that_sends_from_four_threads_while_the_host_quits_gets_its_length_or_minus_one)
{
    startAndKeepTheCallbacks();
    std::atomic<bool> stop{false};
    std::atomic<int> taken{0};
    std::atomic<int> refused{0};
    std::atomic<int> other{0};
    std::vector<std::thread> threads;
    for (int length = 1; length <= 4; ++length) {
        threads.emplace_back([&, length] {
            char message[4] = {};
            while (!stop) {
                const int result = send(channel.get(), message, length);
                ++(result == length ? taken : result == -1 ? refused : other);
            }
        });
    }
    for (bool quit = true; taken < 1000 || refused < 1000; quit = !quit) {
        redirect->setQuitFlag(quit);
        QThread::usleep(100);
    }
    stop = true;
    for (std::thread &thread : threads)
        thread.join();
    redirect->setQuitFlag(false);
    EXPECT_EQ(other, 0);
    EXPECT_EQ(int(StandInChannel::sent().count()), taken);
}

TEST_F(Misbehaving, component_that_reports_events_from_four_threads_to_a_host_that_throws_goes_on)
{
    std::atomic<int> seen{0};
    redirect->setNotifyEventCallback([&](void *, RedirEvent event, const char *, int) {
        ++seen;
        throwers[event % 2]();
    });
    startAndKeepTheCallbacks();
    const int before = QuietLog::exceptionLines();
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([this] {
            for (int event = 0; event < 250; ++event)
                notify(nullptr, RedirEvent(event), "text", 4);
        });
    }
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(seen, 1000);
    EXPECT_EQ(QuietLog::exceptionLines() - before, 1000);
}

// --- calls back into the library ---

TEST_F(Misbehaving, component_that_calls_the_library_from_inside_a_command_deadlocks_nothing)
{
    thread_local int depth = 0;
    std::atomic<int> deepest{0};
    script.ctrl = [&, answer = Component::listing(documentOf(3))](const std::string &command, char *buffer,
                                                                  int &length) {
        if (depth < 4) {
            ++depth;
            for (int before = deepest; before < depth && !deepest.compare_exchange_weak(before, depth);) { }
            redirect->getDeviceList();
            redirect->getDeviceInfo(QStringLiteral("1"));
            redirect->setClientParam({QStringLiteral("192.0.2.10"), QString()});
            redirect->notifyUsbInfo(QStringLiteral("Stick:1-1:1:5"));
            char reply[16] = {};
            int capacity = sizeof reply;
            DevRedirectWorker::m_redirectHandler->handlerRedirCtrlCommand("{}", reply, capacity);
            --depth;
        }
        return answer(command, buffer, length);
    };
    redirect->getDeviceListFromUniqueFrame();
    redirect->redirectDeviceById(device("camrdr"));
    redirect->notifyUsbInfo(QString()); // on this thread, at the same time
    EXPECT_TRUE(waitFor([this] { return outcomes.size() == 1; }));
    waitForWorker();
    EXPECT_EQ(deepest, 4);
    EXPECT_TRUE(waitFor([] { return published() > 0; }));
    EXPECT_EQ(redirect->getDeviceList().size(), 3);
}

TEST_F(Misbehaving, component_that_sends_and_reports_from_inside_every_entry_point_deadlocks_nothing)
{
    startAndKeepTheCallbacks();
    const auto callBack = [this] {
        char message[] = "x";
        EXPECT_EQ(send(channel.get(), message, 1), 1);
        notify(nullptr, RedirEventShared, "", 0);
    };
    script.init = [&](SendCallback, EventCallback, std::string, std::string) { return callBack(), true; };
    script.check = [&](std::string, void **out) { return callBack(), *out = &context, true; };
    script.setupContext = [&](void *, void *) { return callBack(), false; };
    script.handler = [&](char *, int, void *) { callBack(); };
    script.eventHandler = [&](ChannelEvent, char *, int, void *) { callBack(); };
    script.ctrl = [&](std::string, char *, int &) { return callBack(), 0; };
    script.deinit = callBack;
    start();
    bind(channel, true);
    std::string bytes = "x";
    channel.emitMessage(109, bytes);
    redirect->syncUNRedirectDeviceAll();
    redirect->realeaseDeviceResource();
    EXPECT_EQ(events.count(), 7u);
    EXPECT_EQ(StandInChannel::sent().count(), 7u);
}

TEST_F(Misbehaving, component_that_is_stopped_from_its_own_event_deadlocks_nothing)
{
    redirect->setNotifyEventCallback([this](void *, RedirEvent, const char *, int) {
        redirect->realeaseDeviceResource();
        redirect->stopMappingFunctionByDevRedirInter();
    });
    startAndKeepTheCallbacks();
    script.ctrl = [this](const std::string &, char *, int &) { return notify(nullptr, RedirEventShared, "", 0), 0; };
    redirect->redirectDeviceById(device("camrdr"));
    redirect->redirectDeviceById(device("camrdr"));
    EXPECT_TRUE(waitFor([this] { return outcomes.size() == 2; }));
    EXPECT_EQ(outcomes, (std::vector<bool>{true, false}));
    EXPECT_EQ(script.calls(), (std::vector<std::string>{"redirInit", "redirCtrl", "redirDeinit"}));
}

// --- continues after its end ---

TEST_F(Misbehaving, component_that_uses_its_callbacks_after_redirDeinit_is_still_served)
{
    startAndKeepTheCallbacks();
    redirect->realeaseDeviceResource();
    char message[] = "late";
    EXPECT_EQ(send(channel.get(), message, 4), 4);
    notify(nullptr, RedirEventUnshared, "", 0);
    EXPECT_EQ(events.count(), 1u);
    redirect->setQuitFlag(true);
    EXPECT_EQ(send(channel.get(), message, 4), -1);
    redirect->setQuitFlag(false);
}

TEST_F(Misbehaving, component_that_uses_its_callbacks_after_the_interface_was_destroyed_harms_nobody)
{
    startAndKeepTheCallbacks();
    redirect->setQuitFlag(true);
    redirect->realeaseDeviceResource();
    redirect.reset();
    char message[] = "late";
    std::thread([&] {
        EXPECT_EQ(send(channel.get(), message, 4), -1);
        notify(nullptr, RedirEventUnshared, "", 0); // the copy of the host's callback lives with the component
    }).join();
    EXPECT_EQ(events.count(), 1u);
    DevRedirectWorker::m_bQuit = false;
    EXPECT_EQ(send(channel.get(), message, 4), 4);
}

TEST_F(Misbehaving, component_that_keeps_sending_while_it_is_stopped_and_the_interface_is_destroyed_harms_nobody)
{
    startAndKeepTheCallbacks();
    std::atomic<bool> stop{false};
    std::atomic<int> calls{0};
    std::thread sender([&] {
        char message[] = "x";
        while (!stop) {
            send(channel.get(), message, 1);
            notify(nullptr, RedirEventShared, "", 0);
            ++calls;
            QThread::usleep(50);
        }
    });
    EXPECT_TRUE(waitFor([&] { return calls > 10; }));
    redirect->realeaseDeviceResource();
    redirect.reset();
    const int atTheEnd = calls;
    EXPECT_TRUE(waitFor([&] { return calls > atTheEnd + 10; }));
    stop = true;
    sender.join();
    DevRedirectWorker::m_bQuit = false;
}

// --- vanishes ---

TEST_F(Misbehaving, component_that_was_cut_off_and_unloaded_is_not_called_any_more)
{
    startAndKeepTheCallbacks();
    bind(channel);
    redirect->realeaseDeviceResource();
    redirect->stopMappingFunctionByDevRedirInter();
    EXPECT_TRUE(DevRedirectWorker::m_redirectHandler->unLoad());
    script.forgetCalls();
    outcomes.clear();
    expectThatTheHostIsNotHeldUp();
    EXPECT_TRUE(waitFor([this] { return outcomes.size() == 5; }));
    EXPECT_EQ(outcomes, std::vector<bool>(5, false));
    start();
    void *out = &context;
    EXPECT_EQ(redirect->checkRedirChannel("name", &out), 0);
    EXPECT_EQ(out, &context);
    EXPECT_FALSE(redirect->setupRedirContext(&context, nullptr));
    std::string bytes = "x";
    channel.emitMessage(109, bytes);
    channel.emitPortEvent(1);
    redirect->realeaseDeviceResource();
    redirect->notifyUsbInfo(QStringLiteral("Stick:1-1:1:5"));
    waitForWorker();
    EXPECT_EQ(script.calls(), std::vector<std::string>());
}

TEST(VanishingComponent, is_gone_from_memory_and_comes_back)
{
    const Deadline deadline(100);
    const QuietLog log;
    const QByteArray path = Component::path().toLocal8Bit();
    const auto inMemory = [&path] {
        void *const library = dlopen(path.constData(), RTLD_NOW | RTLD_NOLOAD);
        if (library)
            dlclose(library);
        return library != nullptr;
    };
    DevRedirectInterface redirect(nullptr);
    RedirectHandler &handler = *DevRedirectWorker::m_redirectHandler;
    for (int round = 0; round < 100; ++round) {
        Q_EMIT redirect.loadDynamicLib();
        ASSERT_TRUE(inMemory()) << round;
        void *context = nullptr;
        ASSERT_EQ(redirect.checkRedirChannel("name", &context), 1) << round;
        redirect.unRedirectDeviceAll();
        redirect.getDeviceListFromUniqueFrame();
        QMetaObject::invokeMethod(
            DevRedirectManger::instance()->getRedirectWorkerInstance(), [] {}, Qt::BlockingQueuedConnection);
        redirect.realeaseDeviceResource();
        redirect.stopMappingFunctionByDevRedirInter();
        ASSERT_TRUE(handler.unLoad()) << round;
        ASSERT_FALSE(inMemory()) << round;
        EXPECT_EQ(redirect.checkRedirChannel("name", &context), 0) << round;
        redirect.realeaseDeviceResource();
    }
}
