// SPDX-License-Identifier: LGPL-2.1-or-later

// The whole path between a component and a virtual machine: the library, the stock SPICE client and a SPICE server.

#include "interface/devredirectinterface.h"
#include "support/component.h"
#include "support/eventlist.h"
#include "support/logrecorder.h"
#include "support/logtext.h"
#include "support/portwrites.h"
#include "support/printing.h"
#include "support/resources.h"
#include "support/spiceserver.h"
#include "support/waitfor.h"
#include "worker/portchannelglue.h"

#include <gtest/gtest.h>

#include <QTemporaryDir>
#include <QThread>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <memory>
#include <thread>

#include <malloc.h>

namespace {

const std::string portName = "org.example.redir.0";
const std::string otherName = "org.example.redir.1";
const std::string strangeName = "org.example.other";
constexpr int Minute = 60000;

class SpicePath : public ::testing::Test
{
protected:
    SpicePath()
    {
        g_log_set_always_fatal(GLogLevelFlags(G_LOG_LEVEL_ERROR | G_LOG_LEVEL_CRITICAL));
        script.init = [this](SendCallback send, const EventCallback &, const std::string &, const std::string &) {
            componentsSend = std::move(send);
            return true;
        };
        script.check = [this](const std::string &name, void **context) {
            *context = name == portName ? &contexts[0] : name == otherName ? &contexts[1] : nullptr;
            return *context != nullptr;
        };
        script.setupContext = [this](void *context, void *channel) {
            channels[context == &contexts[1] ? 1 : 0] = channel;
            return !wantsToBeTold;
        };
        script.handler = [this](char *data, int length, void *context) {
            received[context == &contexts[1] ? 1 : 0].append(data, std::size_t(length));
            receivedOn = QThread::currentThread();
        };
        script.eventHandler = [this](ChannelEvent event, char *, int, void *context) {
            events.push_back(context == &contexts[0] ? int(event) : 1000 + event);
        };
        redirect->setNotifyEventCallback([](void *, RedirEvent, const char *, int) {});
        Q_EMIT redirect->loadDynamicLib();
        Q_EMIT redirect->loadDevRedirComponentByThread(QStringLiteral("vm-7"));
        log.clear();
    }

    /// Binds the port of this name once it is open, as a host does.
    bool bind(const std::string &name = portName)
    {
        SpicePortChannel *const channel = client->waitForChannel(name);
        if (!channel)
            return false;
        Q_EMIT redirect->checkRedirChannelByThread(channel, QString::fromStdString(name), TestClient::isOpen(channel));
        return channels[name == otherName ? 1 : 0] == channel;
    }

    int send(const std::string &message, int port = 0)
    {
        std::string borrowed = message;
        const int result = componentsSend(channels[port], borrowed.data(), int(borrowed.size()));
        borrowed.assign(borrowed.size(), '#'); // the bytes were only lent
        return result;
    }

    bool machineReceives(const std::string &bytes, std::size_t port = 0)
    {
        return waitFor([&] { return server->port(port).received().size() >= bytes.size(); })
            && server->port(port).received() == bytes;
    }

    bool componentReceives(const std::string &bytes)
    {
        return waitFor([&] { return received[0].size() >= bytes.size(); }) && received[0] == bytes;
    }

    QStringList warnings() const { return log.linesWith(QStringLiteral("warning: ")); }

    LogRecorder log;
    Script &script = Component::script();
    int contexts[2];
    void *channels[2] = {nullptr, nullptr};
    bool wantsToBeTold = false;
    std::string received[2];
    QThread *receivedOn = nullptr;
    std::vector<int> events;
    SendCallback componentsSend;
    std::unique_ptr<DevRedirectInterface> redirect = std::make_unique<DevRedirectInterface>(nullptr);
    std::unique_ptr<TestServer> server =
        std::make_unique<TestServer>(std::vector<std::string>{portName, otherName, strangeName});
    std::unique_ptr<TestClient> client = std::make_unique<TestClient>(*server);
};

std::string pattern(std::size_t size)
{
    std::string bytes(size, '\0');
    std::uint32_t state = 12345;
    for (char &byte : bytes) {
        state = state * 1664525 + 1013904223;
        byte = char(state >> 24);
    }
    return bytes;
}

} // namespace

TEST_F(SpicePath, a_message_of_the_machine_reaches_the_component_with_its_bytes_and_its_context)
{
    ASSERT_TRUE(bind());
    const std::string message("from the\0machine\xff", 17);
    server->port().send(message);
    EXPECT_TRUE(componentReceives(message));
    EXPECT_EQ(received[1], "") << "the other context";
    EXPECT_EQ(receivedOn, QThread::currentThread());
}

TEST_F(SpicePath, messages_of_the_machine_keep_their_order)
{
    ASSERT_TRUE(bind());
    std::string all;
    for (int i = 0; i < 200; ++i) {
        const std::string message = "message " + std::to_string(i) + "\n";
        all += message;
        server->port().send(message);
    }
    EXPECT_TRUE(componentReceives(all));
}

TEST_F(SpicePath, a_large_message_of_the_machine_arrives_whole)
{
    ASSERT_TRUE(bind());
    const std::string message = pattern(1 << 20);
    server->port().send(message);
    EXPECT_TRUE(componentReceives(message));
}

TEST_F(SpicePath, a_message_of_the_component_reaches_the_machine)
{
    ASSERT_TRUE(bind());
    const std::string message("to the\0machine\xff", 15);
    EXPECT_EQ(send(message), 15);
    EXPECT_TRUE(machineReceives(message));
    EXPECT_EQ(server->port(1).received(), "");
    EXPECT_EQ(warnings(), QStringList());
}

TEST_F(SpicePath, messages_of_the_component_keep_their_order)
{
    ASSERT_TRUE(bind());
    std::string all;
    for (int i = 0; i < 2000; ++i) {
        const std::string message = "message " + std::to_string(i) + "\n";
        all += message;
        EXPECT_EQ(send(message), int(message.size()));
    }
    EXPECT_TRUE(machineReceives(all));
}

TEST_F(SpicePath, a_large_message_of_the_component_arrives_whole)
{
    ASSERT_TRUE(bind());
    const std::string message = pattern((4 << 20) + 1);
    EXPECT_EQ(send(message), int(message.size()));
    send("the end");
    EXPECT_TRUE(machineReceives(message + "the end"));
}

TEST_F(SpicePath, messages_from_four_threads_arrive_whole_and_each_threads_in_order)
{
    struct Frame
    {
        std::uint32_t thread;
        std::uint32_t number;
    };
    constexpr std::uint32_t Threads = 4;
    constexpr std::uint32_t Messages = 2000;
    ASSERT_TRUE(bind());
    std::atomic<int> wrongResults{0};
    std::vector<std::thread> threads;
    for (std::uint32_t thread = 0; thread < Threads; ++thread) {
        threads.emplace_back([&, thread] {
            for (std::uint32_t number = 0; number < Messages; ++number) {
                Frame frame{thread, number};
                char bytes[sizeof frame];
                std::memcpy(bytes, &frame, sizeof frame);
                if (componentsSend(channels[0], bytes, sizeof bytes) != int(sizeof bytes))
                    ++wrongResults;
            }
        });
    }
    const std::string &arrived = server->port().received();
    EXPECT_TRUE(waitFor([&] { return arrived.size() >= Threads * Messages * sizeof(Frame); }));
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(wrongResults, 0);

    ASSERT_EQ(arrived.size(), Threads * Messages * sizeof(Frame));
    std::uint32_t next[Threads] = {};
    for (std::size_t at = 0; at < arrived.size(); at += sizeof(Frame)) {
        Frame frame{};
        std::memcpy(&frame, arrived.data() + at, sizeof frame);
        ASSERT_LT(frame.thread, Threads);
        ASSERT_EQ(frame.number, next[frame.thread]++) << "thread " << frame.thread;
    }
}

TEST_F(SpicePath, a_message_sent_before_one_of_another_thread_arrives_before_it)
{
    ASSERT_TRUE(bind());
    std::string all;
    for (int i = 0; i < 50; ++i) {
        const std::string mine = "host " + std::to_string(i) + "\n";
        const std::string theirs = "thread " + std::to_string(i) + "\n";
        send(mine);
        std::thread([&] { send(theirs); }).join();
        all += mine + theirs;
    }
    EXPECT_TRUE(machineReceives(all));
}

TEST_F(SpicePath, an_empty_message_sends_nothing_and_the_channel_lives_on)
{
    ASSERT_TRUE(bind());
    EXPECT_EQ(send(""), 0);
    std::thread([&] { EXPECT_EQ(send(""), 0); }).join();
    EXPECT_EQ(componentsSend(channels[0], nullptr, 0), 0);
    EXPECT_EQ(send("after it"), 8);
    EXPECT_TRUE(machineReceives("after it"));
    server->port().send("answer");
    EXPECT_TRUE(componentReceives("answer"));
    EXPECT_EQ(events, std::vector<int>());
    EXPECT_EQ(warnings(), QStringList());
    EXPECT_EQ(PortWrites::countEmpty(), 0);
}

TEST_F(SpicePath, the_component_can_answer_from_inside_its_handler)
{
    ASSERT_TRUE(bind());
    script.handler = [this](char *data, int length, void *) {
        const std::string message(data, std::size_t(length));
        received[0] += message;
        send("answer to " + message);
    };
    std::string expected;
    for (int i = 0; i < 20; ++i) {
        const std::string question = "question " + std::to_string(i) + ";";
        server->port().send(question);
        expected += "answer to " + question;
        ASSERT_TRUE(machineReceives(expected)) << i;
    }
}

TEST_F(SpicePath, eight_mebibytes_against_an_echoing_machine_come_back_whole)
{
    ASSERT_TRUE(bind());
    server->port().echo();
    const std::string all = pattern(8 << 20);
    const std::size_t step = 64 * 1024;
    std::thread component([&] {
        for (std::size_t at = 0; at < all.size(); at += step)
            send(all.substr(at, step));
    });
    EXPECT_TRUE(waitFor([&] { return received[0].size() >= all.size(); }, Minute)) << received[0].size();
    component.join();
    EXPECT_TRUE(received[0] == all);
    EXPECT_EQ(events, std::vector<int>());
}

TEST_F(SpicePath, the_channel_is_never_given_more_than_it_can_write_before_it_has_to_read_again)
{
    ASSERT_TRUE(bind());
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([this] {
            for (int message = 0; message < 200; ++message)
                send(std::string(1000 + std::size_t(message) * 100, 'x'));
        });
    }
    const std::size_t all = 4 * (200 * 1000 + 100 * 199 * 200 / 2);
    EXPECT_TRUE(waitFor([&] { return server->port().received().size() == all; }));
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(PortWrites::count(), 800);
    EXPECT_GT(PortWrites::mostOutstanding(), 100000u);
    EXPECT_LE(PortWrites::mostOutstanding(), 128u * 1024);
}

TEST_F(SpicePath, the_channel_is_given_messages_by_the_main_loop_only)
{
    ASSERT_TRUE(bind());
    send("from the host's thread");
    EXPECT_EQ(PortWrites::count(), 0) << "the main loop has not run yet";
    std::thread([&] {
        for (int i = 0; i < 200; ++i)
            send(std::string(4096, 'x'));
    }).join();
    EXPECT_TRUE(waitFor([this] { return server->port().received().size() == 22 + 200 * 4096; }));
    EXPECT_EQ(PortWrites::count(), 201);
    EXPECT_EQ(PortWrites::countFromOtherThreads(), 0);
    EXPECT_EQ(PortWrites::countFromCallbacks(), 0);
}

TEST_F(SpicePath, one_message_of_eight_mebibytes_against_an_echoing_machine_comes_back_whole)
{
    ASSERT_TRUE(bind());
    server->port().echo();
    const std::string all = pattern(8 << 20);
    EXPECT_EQ(send(all), int(all.size()));
    EXPECT_TRUE(waitFor([&] { return received[0].size() >= all.size(); }, Minute)) << received[0].size();
    EXPECT_TRUE(received[0] == all);
    EXPECT_EQ(events, std::vector<int>());
}

TEST_F(SpicePath, two_channels_are_kept_apart)
{
    ASSERT_TRUE(bind());
    ASSERT_TRUE(bind(otherName));
    send("first", 0);
    send("second", 1);
    EXPECT_TRUE(machineReceives("first", 0));
    EXPECT_TRUE(machineReceives("second", 1));
    server->port(1).send("to the second");
    EXPECT_TRUE(waitFor([this] { return !received[1].empty(); }));
    EXPECT_EQ(received[1], "to the second");
    EXPECT_EQ(received[0], "");
    server->port(1).raiseEvent(7);
    EXPECT_TRUE(waitFor([this] { return !events.empty(); }));
    EXPECT_EQ(events, std::vector<int>{1007});
}

TEST_F(SpicePath, a_channel_of_another_name_is_not_bound)
{
    SpicePortChannel *const channel = client->waitForChannel(strangeName);
    ASSERT_NE(channel, nullptr);
    Q_EMIT redirect->checkRedirChannelByThread(channel, QString::fromStdString(strangeName), true);
    EXPECT_TRUE(log.has(moduleLine(
        "critical", "onCheckRedirChannelByWorker",
        QStringLiteral(
            "It is detected that the channel is not registered! str_channelName 000:  \"org.example.other\""))));
    bool delivered = false;
    const auto note = [](SpicePortChannel *, gpointer, int, gpointer flag) { *static_cast<bool *>(flag) = true; };
    g_signal_connect(channel, "port-data", G_CALLBACK(+note), &delivered);
    server->port(2).send("to nobody");
    ASSERT_TRUE(waitFor([&delivered] { return delivered; }));
    server->port(2).close();
    ASSERT_EQ(client->waitForChannel(strangeName, false), channel);
    EXPECT_EQ(received[0] + received[1], "");
    EXPECT_EQ(events, std::vector<int>());
}

TEST_F(SpicePath, events_of_the_port_reach_the_component_by_their_numbers)
{
    ASSERT_TRUE(bind());
    const auto happens = [this](const std::vector<int> &expected) {
        return waitFor([&] { return events.size() >= expected.size(); }) && events == expected;
    };
    server->port().close();
    EXPECT_TRUE(happens({1}));
    server->port().open();
    EXPECT_TRUE(happens({1, 0}));
    server->port().raiseEvent(2);
    EXPECT_TRUE(happens({1, 0, 2}));
    server->port().raiseEvent(200);
    EXPECT_TRUE(happens({1, 0, 2, 200}));
    send("still there");
    EXPECT_TRUE(machineReceives("still there"));
}

TEST_F(SpicePath, an_open_channel_is_announced_to_a_component_that_wants_to_be_told)
{
    wantsToBeTold = true;
    ASSERT_TRUE(bind());
    EXPECT_EQ(events, std::vector<int>{0});
    server->port().send("first words");
    EXPECT_TRUE(componentReceives("first words"));
}

TEST_F(SpicePath, an_open_channel_is_not_announced_to_a_component_that_looks_itself)
{
    ASSERT_TRUE(bind());
    server->port().send("first words");
    EXPECT_TRUE(componentReceives("first words"));
    EXPECT_EQ(events, std::vector<int>());
}

TEST_F(SpicePath, a_channel_that_is_bound_while_its_port_is_closed_is_announced_when_it_opens)
{
    wantsToBeTold = true;
    server->port().close();
    SpicePortChannel *const channel = client->waitForChannel(portName, false);
    ASSERT_NE(channel, nullptr);
    Q_EMIT redirect->checkRedirChannelByThread(channel, QString::fromStdString(portName), false);
    EXPECT_EQ(events, std::vector<int>());
    server->port().open();
    ASSERT_TRUE(waitFor([this] { return !events.empty(); }));
    EXPECT_EQ(events, std::vector<int>{0});
    send("now");
    EXPECT_TRUE(machineReceives("now"));
}

TEST_F(SpicePath, a_server_that_is_gone_is_a_break)
{
    ASSERT_TRUE(bind());
    server->dropConnections();
    ASSERT_TRUE(waitFor([this] { return !events.empty(); }));
    EXPECT_EQ(events.front(), 2);
    EXPECT_EQ(
        log.linesWith(QStringLiteral("debug: [ PortChannelEvent ] [REDIR_MODULE]  Port channel event =  ")).isEmpty(),
        false);
}

TEST_F(SpicePath, a_channel_that_the_client_closes_is_a_break)
{
    ASSERT_TRUE(bind());
    spice_channel_disconnect(SPICE_CHANNEL(channels[0]), SPICE_CHANNEL_CLOSED);
    ASSERT_TRUE(waitFor([this] { return !events.empty(); }));
    EXPECT_EQ(events, std::vector<int>{2});
    EXPECT_TRUE(log.has(moduleLine("debug", "PortChannelEvent", QStringLiteral(" Port channel event =  12"))));
}

TEST_F(SpicePath, messages_for_a_lost_channel_are_dropped_with_one_warning)
{
    ASSERT_TRUE(bind());
    send("before");
    ASSERT_TRUE(machineReceives("before"));
    server->dropConnections();
    ASSERT_TRUE(waitFor([this] { return !events.empty(); }));
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(send("lost"), 4) << "the component is told that all was sent";
        std::thread([&] { EXPECT_EQ(send("lost too"), 8); }).join();
    }
    EXPECT_TRUE(waitFor([this] { return !warnings().isEmpty(); }));
    QCoreApplication::processEvents();
    EXPECT_EQ(warnings().size(), 1);
    EXPECT_EQ(server->port().received(), "before");
}

TEST_F(SpicePath, messages_for_a_channel_that_is_gone_reach_nobody_and_a_new_channel_works)
{
    for (int round = 0; round < 5; ++round) {
        const std::string sign = std::to_string(round);
        ASSERT_TRUE(bind()) << round;
        const std::string before = server->port().received();
        send("sent " + sign + ";");
        ASSERT_TRUE(machineReceives(before + "sent " + sign + ";")) << round;

        client.reset();
        log.clear();
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(send("lost"), 4);
            std::thread([&] { EXPECT_EQ(send("lost too"), 8); }).join();
        }
        EXPECT_TRUE(waitFor([this] { return !warnings().isEmpty(); }));
        QCoreApplication::processEvents();
        EXPECT_EQ(warnings().size(), 1) << round;

        client = std::make_unique<TestClient>(*server);
        ASSERT_NE(client->waitForChannel(portName), nullptr);
        EXPECT_EQ(server->port().received(), before + "sent " + sign + ";") << "nothing was lost into the new channel";
    }
}

TEST_F(SpicePath, the_first_message_for_a_channel_may_come_when_it_is_gone)
{
    mallopt(M_PERTURB, 0xa5); // freed memory is overwritten, so a dead channel does not look alive
    ASSERT_TRUE(bind());
    client.reset();
    EXPECT_EQ(send("lost"), 4);
    EXPECT_TRUE(waitFor([this] { return !warnings().isEmpty(); }));
    EXPECT_EQ(warnings().size(), 1);

    client = std::make_unique<TestClient>(*server);
    ASSERT_TRUE(bind());
    send("found");
    EXPECT_TRUE(machineReceives("found"));
}

TEST_F(SpicePath, messages_for_a_port_that_is_closed_leave_the_channel_alive)
{
    ASSERT_TRUE(bind());
    server->port().close();
    ASSERT_TRUE(waitFor([this] { return !events.empty(); }));
    EXPECT_EQ(send("lost"), 4);
    EXPECT_EQ(send("lost too"), 8);
    EXPECT_TRUE(waitFor([this] { return !warnings().isEmpty(); }));
    EXPECT_EQ(warnings().size(), 1);

    server->port().open();
    ASSERT_TRUE(waitFor([this] { return events.size() == 2; }));
    EXPECT_EQ(send("found"), 5);
    EXPECT_TRUE(machineReceives("found"));
    EXPECT_EQ(events, (std::vector<int>{1, 0}));
    EXPECT_EQ(warnings().size(), 1);
}

TEST_F(SpicePath, messages_that_wait_for_a_machine_that_does_not_read_are_dropped_with_their_channel)
{
    ASSERT_TRUE(bind());
    for (int i = 0; i < 64; ++i)
        send(std::string(64 * 1024, 'x')); // no event loop runs, so none has been written yet
    client.reset();
    client = std::make_unique<TestClient>(*server);
    const std::size_t arrived = server->port().received().size();
    ASSERT_TRUE(bind());
    send("the end");
    EXPECT_TRUE(waitFor([&] { return server->port().received().size() > arrived; }));
    EXPECT_EQ(server->port().received().substr(arrived), "the end");
}

TEST_F(SpicePath, with_the_quit_flag_set_nothing_reaches_the_machine)
{
    ASSERT_TRUE(bind());
    redirect->setQuitFlag(true);
    EXPECT_EQ(send("dropped"), -1);
    redirect->setQuitFlag(false);
    EXPECT_EQ(send("sent"), 4);
    EXPECT_TRUE(machineReceives("sent"));
    EXPECT_TRUE(
        log.has(moduleLine("info", "sendDevRedirectMsgToSpice", QStringLiteral("app is exiting, ignore message."))));
}

TEST_F(SpicePath, a_channel_that_is_bound_twice_delivers_every_message_twice)
{
    ASSERT_TRUE(bind());
    ASSERT_TRUE(bind());
    server->port().send("twice");
    EXPECT_TRUE(componentReceives("twicetwice"));
    send("once");
    EXPECT_TRUE(machineReceives("once"));
}

TEST_F(SpicePath, messages_go_both_ways_over_a_listening_socket)
{
    const QTemporaryDir directory;
    const std::string path = directory.filePath(QStringLiteral("server")).toStdString();
    client.reset();
    server.reset();
    server = std::make_unique<TestServer>(std::vector<std::string>{portName}, path);
    client = std::make_unique<TestClient>(path);
    ASSERT_TRUE(bind());
    server->port().echo();
    const std::string message = pattern(100000);
    send(message);
    EXPECT_TRUE(componentReceives(message));
}

TEST_F(SpicePath, the_path_survives_the_interface_that_made_it)
{
    ASSERT_TRUE(bind());
    redirect.reset();
    server->port().send("in");
    EXPECT_TRUE(componentReceives("in"));
    send("out");
    EXPECT_TRUE(machineReceives("out"));
}

TEST_F(SpicePath, messages_that_wait_when_their_port_closes_do_not_reach_its_next_opening)
{
    constexpr std::size_t Size = 65536;
    constexpr std::size_t Count = 800;
    ASSERT_TRUE(bind());
    for (std::size_t i = 0; i < Count; ++i)
        send(std::string(Size, 'x')); // no event loop runs, so none has been written yet
    EXPECT_EQ(devredirectBytesWaiting(channels[0]), std::int64_t(Size * Count));
    server->port().close();
    ASSERT_TRUE(waitFor([this] { return events == std::vector<int>{1}; }));
    EXPECT_LT(devredirectBytesWaiting(channels[0]), std::int64_t(4 * Size));
    EXPECT_EQ(warnings().size(), 1);
    server->port().open();
    ASSERT_TRUE(waitFor([this] { return events.size() == 2; }));
    send("fresh");
    ASSERT_TRUE(waitFor([this] { return server->port().received().find("fresh") != std::string::npos; }));
    EXPECT_LT(server->port().received().size(), Size * Count / 4);
    EXPECT_EQ(warnings().size(), 1);
    EXPECT_TRUE(waitFor([this] { return devredirectBytesWaiting(channels[0]) == 0; }));
}

TEST_F(SpicePath, a_message_sent_just_when_the_port_closes_does_not_silence_the_channel)
{
    ASSERT_TRUE(bind());
    for (int round = 0; round < 5; ++round) {
        send("lost");
        g_signal_emit_by_name(channels[0], "port-event", SPICE_PORT_EVENT_CLOSED);
        const std::string mark = "found " + std::to_string(round);
        send(mark);
        EXPECT_TRUE(waitFor([&] { return server->port().received().find(mark) != std::string::npos; })) << round;
        EXPECT_TRUE(waitFor([this] { return devredirectBytesWaiting(channels[0]) == 0; })) << round;
    }
    EXPECT_EQ(server->port().received().find("lost"), std::string::npos);
}

TEST_F(SpicePath, nothing_waits_for_a_channel_that_nobody_sent_on)
{
    ASSERT_TRUE(bind());
    EXPECT_EQ(devredirectBytesWaiting(channels[0]), 0);
    EXPECT_EQ(devredirectBytesWaiting(nullptr), 0);
    send("seven b");
    EXPECT_EQ(devredirectBytesWaiting(channels[0]), 7);
    ASSERT_TRUE(machineReceives("seven b"));
    EXPECT_TRUE(waitFor([this] { return devredirectBytesWaiting(channels[0]) == 0; }));
}

TEST_F(SpicePath, memory_is_given_back_after_the_machine_did_not_read_for_a_while)
{
    if (!Resources::memoryIsReused)
        GTEST_SKIP() << "a sanitizer keeps what was freed";
    constexpr int Count = 1600; // 100 MiB
    ASSERT_TRUE(bind());
    server->port().countOnly();
    const long before = Resources::memory();
    std::vector<std::unique_ptr<int>> small; // what others allocate meanwhile
    std::thread([&] {
        for (int i = 0; i < Count; ++i) {
            send(std::string(65536, 'x'));
            small.push_back(std::make_unique<int>(i));
        }
    }).join();
    EXPECT_GT(Resources::memory() - before, 90 * 1024);
    EXPECT_TRUE(waitFor([this] { return server->port().counted() == 65536u * Count; }));
    EXPECT_TRUE(waitFor([before] { return Resources::memory() - before < 10 * 1024; })) << Resources::memory() - before;
}

TEST_F(SpicePath, the_memory_of_written_messages_goes_with_their_channel)
{
    if (!Resources::memoryIsReused)
        GTEST_SKIP() << "a sanitizer keeps what was freed";
    constexpr std::size_t Size = 65536;
    constexpr std::size_t All = 96 * Size; // not enough to be given back at once
    const auto allocated = [] {
        const struct mallinfo2 info = mallinfo2();
        return info.uordblks + info.hblkhd;
    };
    ASSERT_TRUE(bind());
    server->port().countOnly();
    for (std::size_t sent = 0; sent < All; sent += Size)
        send(std::string(Size, 'x'));
    ASSERT_TRUE(waitFor([&] { return server->port().counted() == All && devredirectBytesWaiting(channels[0]) == 0; }));
    const std::size_t kept = allocated();
    server->dropConnections();
    ASSERT_TRUE(waitFor([this] { return !events.empty(); }));
    EXPECT_LT(allocated() + All - 2 * Size, kept);
}
