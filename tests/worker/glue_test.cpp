// SPDX-License-Identifier: LGPL-2.1-or-later
#include "support/standinchannel.h"
#include "worker/portchannelglue.h"
#include "worker/workerbench.h"

#include <thread>

namespace {

/// One call of "redirEventHandler".
struct Notice
{
    int event;
    char *data;
    int length;
    void *context;

    bool operator==(const Notice &other) const
    {
        return event == other.event && data == other.data && length == other.length && context == other.context;
    }
};

std::ostream &operator<<(std::ostream &stream, const Notice &notice)
{
    return stream << "event " << notice.event << ", length " << notice.length << ", context " << notice.context;
}

class Glue : public WorkerBench
{
protected:
    Glue()
    {
        script.eventHandler = [this](ChannelEvent event, char *data, int length, void *context) {
            notices.push_back({event, data, length, context});
        };
    }

    void bind(const StandInChannel &reported, bool isOpened = false)
    {
        worker.onCheckRedirChannelByWorker(reported.get(), QStringLiteral("org.example.redir.0"), isOpened);
    }

    Notice noticeOf(int event) { return {event, nullptr, 0, &script.defaultContext}; }

    QStringList linesOf(const char *method) const
    {
        return log.linesWith(QStringLiteral("[ %1 ]").arg(QLatin1String(method)));
    }

    template<typename Function>
    static void *address(Function *function)
    {
        return reinterpret_cast<void *>(function);
    }

    std::vector<Notice> notices;
    StandInChannel channel;
};

const char slotName[] = "onCheckRedirChannelByWorker";
const QString checked = moduleLine(
    "debug", slotName, QStringLiteral(" Check redirect channel regist status! channelName:  \"org.example.redir.0\""));
const QString unknown = moduleLine(
    "critical", slotName,
    QStringLiteral("It is detected that the channel is not registered! str_channelName 000:  \"org.example.redir.0\""));

} // namespace

TEST_F(Glue, a_message_goes_out_on_the_named_channel_with_its_length_and_109)
{
    char message[] = "to the machine";
    EXPECT_EQ(sendDevRedirectMsgToSpice(channel.get(), message, 6), 6);
    const auto sent = StandInChannel::sent().all();
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0].channel, channel.get());
    EXPECT_EQ(sent[0].message, message);
    EXPECT_EQ(sent[0].length, 6);
    EXPECT_EQ(sent[0].type, 109);
}

TEST_F(Glue, the_length_comes_back_whatever_the_channel_reports)
{
    char message[100] = {};
    for (const int reported : {0, -1, 1, 100}) {
        StandInChannel::sendResult = reported;
        for (const int length : {0, 1, 100})
            EXPECT_EQ(sendDevRedirectMsgToSpice(channel.get(), message, length), length) << reported;
    }
    EXPECT_EQ(StandInChannel::sent().count(), 12u);
    EXPECT_EQ(log.lines(), QStringList());
}

TEST_F(Glue, with_the_quit_flag_set_nothing_is_sent)
{
    char message[] = "abc";
    worker.setQuitFlag(true);
    for (const int length : {0, 3}) {
        log.clear();
        EXPECT_EQ(sendDevRedirectMsgToSpice(channel.get(), message, length), -1);
        EXPECT_EQ(log.lines(),
                  QStringList{moduleLine("info", "sendDevRedirectMsgToSpice",
                                         QStringLiteral("app is exiting, ignore message."))});
    }
    EXPECT_EQ(StandInChannel::sent().count(), 0u);

    worker.setQuitFlag(false);
    EXPECT_EQ(sendDevRedirectMsgToSpice(channel.get(), message, 3), 3);
    EXPECT_EQ(StandInChannel::sent().count(), 1u);
}

TEST_F(Glue, what_the_component_sends_reaches_the_channel_and_never_the_hosts_send_callback)
{
    int asked = 0;
    SendCallback componentsSend;
    worker.setEventCallback([](void *, RedirEvent, const char *, int) {});
    worker.setSendDevRedirectMsgToSpiceCallback([&asked](void *, char *, int) { return ++asked; });
    script.init = [&componentsSend](SendCallback send, const EventCallback &, const std::string &,
                                    const std::string &) {
        componentsSend = std::move(send);
        return true;
    };
    worker.onLoadDevRedirComponentByWorker(QStringLiteral("vm-7"));
    ASSERT_TRUE(componentsSend);

    char message[] = "abc";
    int result = 0;
    std::thread([&] { result = componentsSend(channel.get(), message, 3); }).join();
    EXPECT_EQ(result, 3);
    ASSERT_EQ(StandInChannel::sent().count(), 1u);
    EXPECT_EQ(StandInChannel::sent().all()[0].channel, channel.get());
    EXPECT_EQ(asked, 0);
}

TEST_F(Glue, a_received_message_reaches_the_component_with_its_context)
{
    char bytes[] = "from the machine";
    std::string received;
    void *context = nullptr;
    char *data = nullptr;
    script.handler = [&](char *pointer, int length, void *user) {
        data = pointer;
        received.assign(pointer, std::size_t(length));
        context = user;
    };
    EXPECT_EQ(onPortMsgProcess(nullptr, 12345, bytes, 4, &script), 0);
    EXPECT_EQ(data, bytes);
    EXPECT_EQ(received, "from");
    EXPECT_EQ(context, &script);
    EXPECT_EQ(log.lines(), QStringList()) << "the data path is silent";
}

TEST_F(Glue, a_port_event_is_handed_on_as_it_is)
{
    for (const int event : {0, 1, 2, 3, 7, 255, -1}) {
        notices.clear();
        EXPECT_EQ(onPortEvent(nullptr, event, &script), 0);
        EXPECT_EQ(notices, std::vector<Notice>{(Notice{event, nullptr, 0, &script})});
    }
}

TEST_F(Glue, a_closed_or_failed_channel_is_a_break_and_any_other_event_is_only_logged)
{
    for (int event = 0; event <= 30; ++event) {
        notices.clear();
        log.clear();
        PortChannelEvent(channel.get(), SpiceChannelEvent(event), &script);
        const bool isBreak = event == 12 || (event >= 20 && event <= 24);
        EXPECT_EQ(notices, isBreak ? std::vector<Notice>{(Notice{2, nullptr, 0, &script})} : std::vector<Notice>())
            << event;
        EXPECT_EQ(log.lines().value(0),
                  moduleLine("debug", "PortChannelEvent", QStringLiteral(" Port channel event =  %1").arg(event)));
        if (!isBreak) {
            EXPECT_EQ(log.lines().size(), 1) << event;
        }
    }
}

TEST_F(Glue, an_event_without_a_context_does_not_reach_the_component)
{
    EXPECT_EQ(onPortEvent(nullptr, 1, nullptr), 0);
    PortChannelEvent(channel.get(), SPICE_CHANNEL_CLOSED, nullptr);
    EXPECT_EQ(notices, std::vector<Notice>());
}

TEST_F(Glue, a_known_channel_gets_three_handlers_with_the_context_as_user_data)
{
    bind(channel);
    void *const context = &script.defaultContext;
    EXPECT_EQ(channel.handlers("port-channel-msg", address(onPortMsgProcess), context), 1u);
    EXPECT_EQ(channel.handlers("port-event", address(onPortEvent), context), 1u);
    EXPECT_EQ(channel.handlers("channel-event", address(PortChannelEvent), context), 1u);
    EXPECT_EQ(channel.handlers(), 3u);
}

TEST_F(Glue, the_handlers_are_connected_in_this_order)
{
    bind(channel);
    const auto idOf = [this](void *function) {
        return g_signal_handler_find(channel.get(), G_SIGNAL_MATCH_FUNC, 0, 0, nullptr, function, nullptr);
    };
    const gulong message = idOf(address(onPortMsgProcess));
    const gulong portEvent = idOf(address(onPortEvent));
    const gulong channelEvent = idOf(address(PortChannelEvent));
    EXPECT_GT(message, 0u);
    EXPECT_GT(portEvent, message);
    EXPECT_GT(channelEvent, portEvent);
}

TEST_F(Glue, the_handlers_run_in_their_turn_and_not_after_all_others)
{
    bind(channel);
    int noticesBefore = -1;
    const auto look = [](void *, int, void *test) {
        auto *pair = static_cast<std::pair<int *, std::vector<Notice> *> *>(test);
        *pair->first = int(pair->second->size());
    };
    std::pair<int *, std::vector<Notice> *> seen(&noticesBefore, &notices);
    g_signal_connect(channel.get(), "port-event", G_CALLBACK(+look), &seen);
    channel.emitPortEvent(1);
    EXPECT_EQ(noticesBefore, 1);
}

TEST_F(Glue, the_signals_of_a_bound_channel_reach_the_component)
{
    std::string bytes = "from the machine";
    std::string received;
    script.handler = [&received](char *data, int length, void *) { received.assign(data, std::size_t(length)); };
    bind(channel);
    EXPECT_EQ(channel.emitMessage(109, bytes), 0);
    channel.emitPortEvent(1);
    channel.emitChannelEvent(SPICE_CHANNEL_ERROR_IO);
    channel.emitChannelEvent(SPICE_CHANNEL_OPENED);
    EXPECT_EQ(received, bytes);
    EXPECT_EQ(notices, (std::vector<Notice>{noticeOf(1), noticeOf(2)}));
}

TEST_F(Glue, a_known_channel_is_set_up_after_its_handlers_are_connected)
{
    void *setUpContext = nullptr;
    void *setUpChannel = nullptr;
    unsigned int connected = 0;
    script.setupContext = [&](void *context, void *channelPointer) {
        setUpContext = context;
        setUpChannel = channelPointer;
        connected = channel.handlers();
        return true;
    };
    bind(channel);
    EXPECT_EQ(setUpContext, &script.defaultContext);
    EXPECT_EQ(setUpChannel, channel.get());
    EXPECT_EQ(connected, 3u);
    EXPECT_EQ(script.calls(), (std::vector<std::string>{"redirCheck", "redirSetupContext"}));
    EXPECT_EQ(
        linesOf(slotName),
        (QStringList{checked,
                     moduleLine("debug", slotName,
                                QStringLiteral("DevRedirectWorker::onCheckRedirChannelByWorker 666 redir channel is "
                                               "registed, bind port event and port msg."))}));
}

TEST_F(Glue, an_open_channel_is_announced_only_when_the_set_up_returns_0)
{
    const struct
    {
        bool isOpened;
        bool setUpResult;
        bool announced;
    } table[] = {{true, false, true}, {true, true, false}, {false, false, false}, {false, true, false}};
    for (const auto &row : table) {
        notices.clear();
        const StandInChannel fresh;
        script.setupContext = [&row](void *, void *) { return row.setUpResult; };
        bind(fresh, row.isOpened);
        EXPECT_EQ(notices, row.announced ? std::vector<Notice>{noticeOf(0)} : std::vector<Notice>())
            << row.isOpened << " " << row.setUpResult;
    }
}

TEST_F(Glue, a_channel_that_opens_later_is_announced_by_its_own_event)
{
    script.setupContext = [](void *, void *) { return false; };
    bind(channel, false);
    EXPECT_EQ(notices, std::vector<Notice>());
    channel.emitPortEvent(0);
    EXPECT_EQ(notices, std::vector<Notice>{noticeOf(0)});
}

TEST_F(Glue, a_channel_that_the_component_does_not_claim_stays_unbound)
{
    const struct
    {
        bool result;
        void *context;
    } table[] = {{false, nullptr}, {false, &script}, {true, nullptr}};
    for (const auto &row : table) {
        log.clear();
        script.forgetCalls();
        script.check = [&row](const std::string &, void **context) {
            *context = row.context;
            return row.result;
        };
        bind(channel, true);
        EXPECT_EQ(channel.handlers(), 0u) << row.result;
        EXPECT_EQ(script.calls(), std::vector<std::string>{"redirCheck"}) << row.result;
        EXPECT_EQ(linesOf(slotName), (QStringList{checked, unknown})) << row.result;
    }
}

TEST_F(Glue, the_context_is_null_when_the_component_is_asked_and_the_name_arrives_as_utf8)
{
    std::string name;
    void *before = &script;
    script.check = [&](const std::string &channelName, void **context) {
        name = channelName;
        before = *context;
        return true; // claims it, but leaves no context
    };
    worker.onCheckRedirChannelByWorker(channel.get(), QString::fromUtf8("ger\xc3\xa4t.0"), false);
    EXPECT_EQ(name, "ger\xc3\xa4t.0");
    EXPECT_EQ(before, nullptr);
    EXPECT_EQ(channel.handlers(), 0u);
}

TEST_F(Glue, without_a_component_no_channel_is_bound)
{
    worker.stopMappingFunctionByWorker();
    bind(channel, true);
    EXPECT_EQ(channel.handlers(), 0u);
    EXPECT_EQ(linesOf(slotName), (QStringList{checked, unknown}));
    EXPECT_EQ(script.calls(), std::vector<std::string>());
}

TEST_F(Glue, the_same_channel_reported_twice_has_every_handler_twice)
{
    bind(channel);
    bind(channel);
    EXPECT_EQ(channel.handlers(), 6u);
    channel.emitPortEvent(1);
    EXPECT_EQ(notices, (std::vector<Notice>{noticeOf(1), noticeOf(1)}));
    script.forgetCalls();
    std::string bytes = "x";
    channel.emitMessage(109, bytes);
    EXPECT_EQ(script.calls(), (std::vector<std::string>{"redirHandler", "redirHandler"}));
}

TEST_F(Glue, two_channels_keep_their_contexts_apart)
{
    int contexts[2];
    int asked = 0;
    script.check = [&](const std::string &, void **context) {
        *context = &contexts[asked++];
        return true;
    };
    const StandInChannel other;
    bind(channel);
    bind(other);
    other.emitPortEvent(5);
    channel.emitPortEvent(6);
    EXPECT_EQ(notices, (std::vector<Notice>{{5, nullptr, 0, &contexts[1]}, {6, nullptr, 0, &contexts[0]}}));
}

TEST_F(Glue, the_handlers_end_with_the_channel_and_the_channel_is_not_kept)
{
    auto mine = std::make_unique<StandInChannel>();
    gpointer alive = mine->get();
    g_object_add_weak_pointer(G_OBJECT(alive), &alive);
    bind(*mine, true);
    char message[] = "abc";
    sendDevRedirectMsgToSpice(mine->get(), message, 3);
    mine.reset();
    EXPECT_EQ(alive, nullptr);
}

TEST_F(Glue, the_members_of_the_worker_forward_to_the_component_from_any_thread)
{
    DevRedirectWorker other(nullptr);
    std::thread([&] {
        int context = 0;
        void *out = nullptr;
        char data[] = "data";
        std::vector<void *> pointers;
        std::string name;
        std::string bytes;
        script.check = [&](const std::string &channelName, void **result) {
            name = channelName;
            *result = &context;
            return true;
        };
        EXPECT_TRUE(other.checkRedirChannel("a name", &out));
        EXPECT_EQ(name, "a name");
        EXPECT_EQ(out, &context);
        script.check = [](const std::string &, void **) { return false; };
        EXPECT_FALSE(other.checkRedirChannel("a name", &out));

        script.setupContext = [&](void *first, void *second) {
            pointers = {first, second};
            return true;
        };
        EXPECT_TRUE(other.setupRedirContext(&context, data));
        EXPECT_EQ(pointers, (std::vector<void *>{&context, data}));
        script.setupContext = [](void *, void *) { return false; };
        EXPECT_FALSE(other.setupRedirContext(&context, data));

        script.handler = [&](char *pointer, int length, void *user) {
            bytes.assign(pointer, std::size_t(length));
            pointers = {user};
        };
        other.handlerRedirData(data, 3, &context);
        EXPECT_EQ(bytes, "dat");
        EXPECT_EQ(pointers, std::vector<void *>{&context});

        other.handlerRedirNoticeEvent(ChannelEvent(9), data, 4, &context);
        EXPECT_EQ(notices, std::vector<Notice>{(Notice{9, data, 4, &context})});
    }).join();
}
