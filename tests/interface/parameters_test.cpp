// SPDX-License-Identifier: LGPL-2.1-or-later
#include "interface/interfacebench.h"

#include <thread>

namespace {

class Parameters : public InterfaceBench
{
protected:
    Parameters()
    {
        script.init = [this](SendCallback send, EventCallback notify, const std::string &, const std::string &) {
            componentsSend = std::move(send);
            componentsNotify = std::move(notify);
            return true;
        };
        redirect->sendMapCommandByDevModel([](QList<ExterDeviceInfo> &) {});
    }

    SendCallback componentsSend;
    EventCallback componentsNotify;
};

} // namespace

TEST_F(Parameters, the_addresses_are_logged_as_one_text_and_sent_with_the_next_command)
{
    redirect->setClientParam({QStringLiteral("192.0.2.10"), QStringLiteral("198.51.100.7")});
    EXPECT_EQ(log.lines(),
              QStringList{moduleLine("debug", "setClientParam",
                                     QStringLiteral(" enter, \"Client  info: localIp = 192.0.2.10, vmIp = "
                                                    "198.51.100.7\""))});
    redirect->unRedirectDeviceAll();
    waitForWorker();
    ASSERT_EQ(script.commands().size(), 1u);
    EXPECT_NE(script.commands()[0].find(R"("localIp":"192.0.2.10")"), std::string::npos);
    EXPECT_NE(script.commands()[0].find(R"("remoteIp":"198.51.100.7","remotePort":"")"), std::string::npos);
}

TEST_F(Parameters, empty_addresses_replace_the_earlier_ones)
{
    redirect->setClientParam({QStringLiteral("192.0.2.10"), QStringLiteral("198.51.100.7")});
    log.clear();
    redirect->setClientParam({});
    EXPECT_EQ(log.lines(),
              QStringList{moduleLine("debug", "setClientParam",
                                     QStringLiteral(" enter, \"Client  info: localIp = , vmIp = \""))});
    redirect->unRedirectDeviceAll();
    waitForWorker();
    ASSERT_EQ(script.commands().size(), 1u);
    EXPECT_NE(script.commands()[0].find(R"("localIp":"")"), std::string::npos);
    EXPECT_NE(script.commands()[0].find(R"("remoteIp":"")"), std::string::npos);
}

TEST_F(Parameters, the_component_reaches_the_hosts_event_callback_from_its_own_threads)
{
    struct Event
    {
        void *context;
        int code;
        std::string text;
        std::thread::id thread;
    };
    EventList<Event> seen;
    redirect->setNotifyEventCallback([&seen](void *context, RedirEvent event, const char *text, int length) {
        seen.add({context, event, std::string(text, std::size_t(length)), std::this_thread::get_id()});
    });
    Q_EMIT redirect->loadDevRedirComponentByThread(QStringLiteral("vm-7"));
    ASSERT_TRUE(componentsNotify);

    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([this, i] {
            const std::string text = "text " + std::to_string(i);
            for (int round = 0; round < 50; ++round)
                componentsNotify(&script, RedirEvent(1000 + i), text.c_str(), int(text.size()));
        });
    }
    std::vector<std::thread::id> ids;
    for (std::thread &thread : threads) {
        ids.push_back(thread.get_id());
        thread.join();
    }
    ASSERT_EQ(seen.count(), 200u);
    for (const Event &event : seen.all()) {
        const int i = event.code - 1000;
        ASSERT_TRUE(i >= 0 && i < 4);
        EXPECT_EQ(event.context, &script);
        EXPECT_EQ(event.text, "text " + std::to_string(i));
        EXPECT_EQ(event.thread, ids[std::size_t(i)]);
    }
}

TEST_F(Parameters, the_component_may_call_back_while_the_host_and_the_worker_use_it)
{
    std::atomic<int> seen{0};
    std::atomic<bool> end{false};
    script.ctrl = Component::listing("[]");
    redirect->setNotifyEventCallback([&seen](void *, RedirEvent, const char *, int) { ++seen; });
    Q_EMIT redirect->loadDevRedirComponentByThread(QStringLiteral("vm-7"));
    redirect->setQuitFlag(true);
    std::thread component([&] {
        char message[] = "abc";
        while (!end) {
            componentsNotify(nullptr, RedirEventShared, "", 0);
            EXPECT_EQ(componentsSend(message, message, 3), -1);
        }
    });
    for (int i = 0; i < 20; ++i) {
        redirect->unRedirectDeviceAll();
        redirect->getDeviceListFromUniqueFrame();
        redirect->setClientParam({QStringLiteral("192.0.2.10"), QStringLiteral("198.51.100.7")});
        redirect->notifyUsbInfo(QStringLiteral("a:b:1:2"));
    }
    waitForWorker();
    EXPECT_TRUE(waitFor([&seen] { return seen > 0; }));
    end = true;
    component.join();
    EXPECT_EQ(script.commands().size(), 80u);
}

TEST_F(Parameters, no_component_is_started_without_an_event_callback)
{
    Q_EMIT redirect->loadDevRedirComponentByThread(QStringLiteral("vm-7"));
    EXPECT_EQ(script.calls(), std::vector<std::string>());
    EXPECT_TRUE(
        log.has(moduleLine("critical", "onLoadDevRedirComponentByWorker",
                           QStringLiteral("load devRedir Component by worker failed: notifyDevRedirEvent is null!"))));
}

TEST_F(Parameters, the_hosts_send_callback_is_kept_and_never_called)
{
    auto token = std::make_shared<int>(0);
    const std::weak_ptr<int> kept = token;
    int asked = 0;
    redirect->setSendDevRedirectMsgToSpiceCallback(
        [token = std::move(token), &asked](void *, char *, int) { return ++asked; });
    redirect->setNotifyEventCallback([](void *, RedirEvent, const char *, int) {});
    Q_EMIT redirect->loadDevRedirComponentByThread(QStringLiteral("vm-7"));
    ASSERT_TRUE(componentsSend);
    redirect->setQuitFlag(true);
    char message[] = "abc";
    EXPECT_EQ(componentsSend(message, message, 3), -1);
    EXPECT_EQ(asked, 0);
    EXPECT_FALSE(kept.expired());
}

TEST_F(Parameters, the_quit_flag_is_that_of_the_process)
{
    redirect->setQuitFlag(true);
    EXPECT_TRUE(DevRedirectWorker::m_bQuit);
    redirect->setQuitFlag(false);
    EXPECT_FALSE(DevRedirectWorker::m_bQuit);
}

TEST_F(Parameters, after_the_quit_flag_requests_still_work)
{
    redirect->setQuitFlag(true);
    redirect->unRedirectDeviceAll();
    waitForWorker();
    EXPECT_EQ(script.commands().size(), 1u);
}

TEST_F(Parameters, pass_through_calls_reach_the_component_on_the_callers_thread_with_what_they_were_given)
{
    int context = 0;
    void *out = nullptr;
    char data[] = "data";
    QThread *ranOn = nullptr;
    std::string name;
    script.check = [&](const std::string &channelName, void **result) {
        name = channelName;
        ranOn = QThread::currentThread();
        *result = &context;
        return true;
    };
    const int claimed = redirect->checkRedirChannel("a name", &out);
    EXPECT_EQ(claimed, 1);
    EXPECT_EQ(name, "a name");
    EXPECT_EQ(out, &context);
    EXPECT_EQ(ranOn, QThread::currentThread());

    script.check = [](const std::string &, void **result) {
        *result = nullptr;
        return true;
    };
    EXPECT_EQ(redirect->checkRedirChannel("a name", &out), 1) << "no check is added";
    script.check = [](const std::string &, void **) { return false; };
    EXPECT_EQ(redirect->checkRedirChannel("a name", &out), 0);

    std::vector<void *> pointers;
    for (const bool result : {true, false}) {
        script.setupContext = [&](void *first, void *second) {
            pointers = {first, second};
            return result;
        };
        EXPECT_EQ(redirect->setupRedirContext(&context, data), result);
        EXPECT_EQ(pointers, (std::vector<void *>{&context, data}));
    }

    std::string bytes;
    script.handler = [&](char *pointer, int length, void *user) {
        bytes.assign(pointer, std::size_t(length));
        pointers = {pointer, user};
    };
    redirect->handlerRedirData(data, 3, &context);
    EXPECT_EQ(bytes, "dat");
    EXPECT_EQ(pointers, (std::vector<void *>{data, &context}));

    int event = -1;
    script.eventHandler = [&](ChannelEvent code, char *text, int length, void *user) {
        event = code;
        bytes.assign(text, std::size_t(length));
        pointers = {text, user};
    };
    redirect->handlerRedirNoticeEvent(ChannelEventBreak, data, 2, &context);
    EXPECT_EQ(event, 2);
    EXPECT_EQ(bytes, "da");
    EXPECT_EQ(pointers, (std::vector<void *>{data, &context}));
}

TEST_F(Parameters, notifying_an_event_requests_the_list_then_the_watch_and_then_says_so)
{
    const QString left = QStringLiteral("debug: notifyEvent DEVICE_REDIR notifyEvent  leave.");
    std::vector<std::string> order;
    QObject::connect(redirect.get(), &DevRedirectInterface::notifyEventHandler, &listener,
                     [&] { order.push_back(log.has(left) ? "late" : "notifyEventHandler"); });
    QObject::connect(redirect.get(), &DevRedirectInterface::myWatchMount, &listener,
                     [&] { order.push_back(log.has(left) ? "late" : "myWatchMount"); });
    redirect->notifyEvent();
    EXPECT_EQ(order, (std::vector<std::string>{"notifyEventHandler", "myWatchMount"}));
    EXPECT_EQ(log.count(left), 1);
}

TEST_F(Parameters, notifying_an_event_returns_while_the_worker_is_busy)
{
    Hold hold;
    script.ctrl = std::ref(hold);
    redirect->unRedirectDeviceAll();
    ASSERT_TRUE(hold.waitUntilHeld());
    redirect->notifyEvent();
    EXPECT_EQ(script.commands().size(), 1u);
    hold.letGo();
    hold.letGo();
    waitForWorker();
    EXPECT_EQ(script.commands().size(), 2u);
    script.ctrl = nullptr; // the watch that was started fetches the list once more when it ends
}

TEST_F(Parameters, notifying_twice_queues_two_list_requests_and_two_watches_one_after_the_other)
{
    script.ctrl = Component::listing("[]");
    const auto lists = [this] { return script.commands().size(); };
    redirect->notifyEvent();
    redirect->notifyEvent();
    waitForWorker();
    EXPECT_EQ(lists(), 2u);

    ASSERT_TRUE(waitFor([] { return MountTable::polls() > 0; }));
    MountTable::change();
    ASSERT_TRUE(waitFor([&] { return lists() == 3; })) << "the first watch has ended";
    const int pollsOfTheFirst = MountTable::polls();
    ASSERT_TRUE(waitFor([&] { return MountTable::polls() > pollsOfTheFirst + 1; })) << "the second watch polls";
    EXPECT_EQ(lists(), 3u);
    MountTable::change();
    ASSERT_TRUE(waitFor([&] { return lists() == 4; }));

    const int pollsOfBoth = MountTable::polls();
    redirect->unRedirectDeviceAll();
    waitForWorker();
    EXPECT_EQ(MountTable::polls(), pollsOfBoth) << "there is no third watch";
}
