// SPDX-License-Identifier: LGPL-2.1-or-later
#include "component/handlertest.h"

#include <atomic>
#include <cstdint>
#include <cstring>
#include <memory>
#include <thread>
#include <type_traits>

namespace {

void *const contextA = reinterpret_cast<void *>(std::uintptr_t(0xa1));
void *const contextB = reinterpret_cast<void *>(std::uintptr_t(0xb2));

QString noticeLine(const char *text)
{
    return QStringLiteral("debug: DEVICE_REDIR handlerRedirNoticeEvent ") + QLatin1String(text);
}

const QString noticeEnter = noticeLine(" enter. ");
const QString noticeNullContext = noticeLine(" context is null ");
const QString noticeNullHandlerContext = noticeLine(" eventHandler context is null ");
const QString noticeDone = noticeLine("224 after call m_funcRedirEventHandler.");

// What each call logs while its entry point is missing.
const QStringList initIsMissing{
    channelLine(QStringLiteral(" Begin to load redirect component, call RedirInit function.")),
    QStringLiteral("critical: [ loadRedirComponent ] [REDIR_MODULE]  Fail to call redirInit, due to that "
                   "m_funcRedirInit is NULL")};
const QStringList checkIsMissing{
    channelLine(QStringLiteral(" Begin to check redirect channel, call RedirCheck function.")),
    QStringLiteral("critical: [ checkRedirChannel ] [REDIR_MODULE]  Fail to call redirCheck, due to that "
                   "m_funcRedirCheck is NULL")};
const QStringList setupIsMissing{
    channelLine(QStringLiteral(" Begin to setup redirect context, call RedirSetupContext function.")),
    QStringLiteral("critical: [ setupRedirContext ] call redirSetupContext failed due to that m_funcRedirSetupContext "
                   "is NULL")};
const QStringList handlerIsMissing{
    QStringLiteral("critical: [ handlerRedirData ] call redirHandler failed due to that m_funcRedirHandler is NULL")};
const QStringList eventHandlerIsMissing{
    noticeEnter,
    QStringLiteral("critical: [ handlerRedirNoticeEvent ] call redirEventHandler failed due to that "
                   "m_funcRedirEventHandler is NULL")};
const QStringList ctrlIsMissing{
    channelLine(QStringLiteral(" Begin to handler redirect command, call redirCtrl function. command: {}")),
    QStringLiteral("critical: [ handlerRedirCtrlCommand ] call handlerRedirCtrlCommand failed due to that m_redirCtrl "
                   "is NULL")};

void expectThatSixEntryPointsAreMissing(RedirectHandler &handler, LogRecorder &log)
{
    log.clear();
    EXPECT_FALSE(handler.loadRedirComponent([](void *, char *, int) { return 0; },
                                            [](void *, RedirEvent, const char *, int) {}, "vm", "config"));
    EXPECT_EQ(log.lines(), initIsMissing);

    log.clear();
    void *context = contextA;
    EXPECT_FALSE(handler.checkRedirChannel("channel", &context));
    EXPECT_EQ(context, contextA);
    EXPECT_EQ(log.lines(), checkIsMissing);

    log.clear();
    EXPECT_FALSE(handler.setupRedirContext(contextA, contextB));
    EXPECT_EQ(log.lines(), setupIsMissing);

    log.clear();
    char data[] = "data";
    handler.handlerRedirData(data, 4, contextA);
    EXPECT_EQ(log.lines(), handlerIsMissing);

    log.clear();
    handler.handlerRedirNoticeEvent(ChannelEventOpened, nullptr, 0, contextA);
    EXPECT_EQ(log.lines(), eventHandlerIsMissing);

    log.clear();
    char reply[] = "untouched";
    int length = sizeof(reply);
    EXPECT_EQ(handler.handlerRedirCtrlCommand("{}", reply, length), 1);
    EXPECT_EQ(length, int(sizeof(reply)));
    EXPECT_STREQ(reply, "untouched");
    EXPECT_EQ(log.lines(), ctrlIsMissing);
}

} // namespace

TEST(CallWithoutComponent, gives_the_neutral_result_and_one_critical_line)
{
    LogRecorder log;
    RedirectHandler handler;
    expectThatSixEntryPointsAreMissing(handler, log);
}

TEST(CallWithoutComponent, redirDeinit_says_that_no_library_is_loaded)
{
    RedirectHandler handler;
    LogRecorder log;
    handler.redirDeinit();
    EXPECT_EQ(log.lines(),
              (QStringList{channelLine(QStringLiteral(" Begin to call RedirDeinit function.")),
                           QStringLiteral("critical: [ redirDeinit ] redirDeinit dynamic lib is NULL")}));
}

TEST(CallWithoutComponent, redirDeinit_after_a_failed_load_misses_its_entry_point)
{
    RedirectHandler handler;
    handler.load(Component::variant(QStringLiteral("missing")));
    LogRecorder log;
    handler.redirDeinit();
    EXPECT_EQ(log.lines(),
              (QStringList{channelLine(QStringLiteral(" Begin to call RedirDeinit function.")),
                           QStringLiteral("critical: [ redirDeinit ] call redirEventHandler failed due to that "
                                          "m_funcRedirDeinit is NULL")}));
}

TEST(CallWithoutComponent, an_event_with_a_null_context_is_only_logged)
{
    RedirectHandler handler;
    LogRecorder log;
    handler.handlerRedirNoticeEvent(ChannelEventBreak, nullptr, 0, nullptr);
    EXPECT_EQ(log.lines(), (QStringList{noticeEnter, noticeNullContext, noticeNullHandlerContext, noticeDone}));
}

TEST_F(LoadedHandler, is_cut_off_from_everything_but_redirDeinit_by_stopMappingFunction)
{
    handler.stopMappingFunction();
    EXPECT_EQ(log.lines(), QStringList());
    expectThatSixEntryPointsAreMissing(handler, log);
    EXPECT_EQ(script.calls(), Calls());

    log.clear();
    handler.redirDeinit();
    EXPECT_EQ(script.calls(), Calls{"redirDeinit"});
    EXPECT_EQ(log.lines(),
              (QStringList{channelLine(QStringLiteral(" Begin to call RedirDeinit function.")),
                           QStringLiteral("info: DEVICE_REDIR redirDeinit 309 dlx unload lib."),
                           channelLine(QStringLiteral(" End to call RedirDeinit function."))}));
}

TEST_F(LoadedHandler, is_whole_again_after_stopMappingFunction_and_another_load)
{
    handler.stopMappingFunction();
    EXPECT_TRUE(handler.load(Component::path()));
    int length = 0;
    EXPECT_EQ(handler.handlerRedirCtrlCommand("{}", nullptr, length), 0);
}

TEST_F(LoadedHandler, stops_the_component_and_keeps_the_library)
{
    handler.redirDeinit();
    handler.redirDeinit();
    EXPECT_EQ(script.calls(), (Calls{"redirDeinit", "redirDeinit"}));
    const QStringList once{channelLine(QStringLiteral(" Begin to call RedirDeinit function.")),
                           QStringLiteral("info: DEVICE_REDIR redirDeinit 309 dlx unload lib."),
                           channelLine(QStringLiteral(" End to call RedirDeinit function."))};
    EXPECT_EQ(log.lines(), once + once);
    EXPECT_TRUE(handler.setupRedirContext(contextA, contextB));
}

TEST_F(LoadedHandler, starts_the_component_with_both_callbacks_and_both_texts)
{
    std::vector<std::string> texts;
    SendCallback componentsSend;
    EventCallback componentsEvent;
    script.init = [&](SendCallback send, EventCallback event, std::string first, std::string second) {
        componentsSend = std::move(send);
        componentsEvent = std::move(event);
        texts = {first, second};
        return true;
    };
    struct
    {
        void *context = nullptr;
        std::string bytes;
        RedirEvent event = RedirEvent(0);
    } sent, reported;
    EXPECT_TRUE(handler.loadRedirComponent(
        [&sent](void *context, char *message, int length) {
            sent.context = context;
            sent.bytes.assign(message, std::size_t(length));
            return 42;
        },
        [&reported](void *context, RedirEvent event, const char *text, int length) {
            reported.context = context;
            reported.bytes.assign(text, std::size_t(length));
            reported.event = event;
        },
        "vm-é", "path with blank"));
    EXPECT_EQ(texts, (std::vector<std::string>{"vm-é", "path with blank"}));

    std::thread componentsThread([&] {
        char message[] = {'a', '\0', 'b'};
        EXPECT_EQ(componentsSend(contextA, message, 3), 42);
        componentsEvent(contextB, RedirEvent(4711), "text", 3);
    });
    componentsThread.join();
    EXPECT_EQ(sent.context, contextA);
    EXPECT_EQ(sent.bytes, std::string("a\0b", 3));
    EXPECT_EQ(reported.context, contextB);
    EXPECT_EQ(reported.bytes, "tex");
    EXPECT_EQ(reported.event, 4711);
}

TEST_F(LoadedHandler, hands_the_bytes_and_the_text_of_a_callback_on_where_they_are)
{
    char message[] = "message";
    const char text[] = "text";
    script.init = [&](SendCallback send, EventCallback event, std::string, std::string) {
        event(nullptr, RedirEvent(-1), text, -5);
        return send(nullptr, message, -7) == -3;
    };
    const void *sent = nullptr;
    const void *reported = nullptr;
    EXPECT_TRUE(handler.loadRedirComponent(
        [&](void *, char *bytes, int length) {
            sent = bytes;
            EXPECT_EQ(length, -7);
            return -3;
        },
        [&](void *, RedirEvent event, const char *bytes, int length) {
            reported = bytes;
            EXPECT_EQ(event, -1);
            EXPECT_EQ(length, -5);
        },
        "", ""));
    EXPECT_EQ(sent, message);
    EXPECT_EQ(reported, text);
}

TEST_F(LoadedHandler, gives_the_component_empty_callbacks_as_empty_ones)
{
    bool anySend = true;
    bool anyEvent = true;
    script.init = [&](SendCallback send, EventCallback event, std::string, std::string) {
        anySend = bool(send);
        anyEvent = bool(event);
        return true;
    };
    EXPECT_TRUE(handler.loadRedirComponent(nullptr, nullptr, "virApp", ""));
    EXPECT_FALSE(anySend);
    EXPECT_FALSE(anyEvent);
}

TEST_F(LoadedHandler, keeps_neither_of_the_callbacks)
{
    const auto ofSend = std::make_shared<int>(0);
    const auto ofEvent = std::make_shared<int>(0);
    SendCallback send = [ofSend](void *, char *, int) { return *ofSend; };
    EventCallback event = [ofEvent](void *, RedirEvent, const char *, int) { ++*ofEvent; };
    handler.loadRedirComponent(send, event, "", "");
    send = nullptr;
    event = nullptr;
    EXPECT_EQ(ofSend.use_count(), 1);
    EXPECT_EQ(ofEvent.use_count(), 1);
}

TEST_F(LoadedHandler, returns_and_logs_whether_the_component_started)
{
    for (const bool started : {true, false}) {
        script.init = [=](SendCallback, EventCallback, std::string, std::string) { return started; };
        log.clear();
        EXPECT_EQ(handler.loadRedirComponent(nullptr, nullptr, "", ""), started);
        EXPECT_EQ(log.lines(),
                  (QStringList{channelLine(QStringLiteral(" Begin to load redirect component, call RedirInit "
                                                          "function.")),
                               channelLine(QStringLiteral(" End to  call RedirInit function. result: %1")
                                               .arg(QLatin1String(started ? "true" : "false")))}));
    }
}

TEST_F(LoadedHandler, asks_the_component_for_a_channel_and_hands_its_context_back)
{
    std::string asked;
    script.check = [&](std::string name, void **context) {
        asked = std::move(name);
        *context = contextA;
        return true;
    };
    void *context = nullptr;
    EXPECT_TRUE(handler.checkRedirChannel("com.example.port.0", &context));
    EXPECT_EQ(asked, "com.example.port.0");
    EXPECT_EQ(context, contextA);
    EXPECT_EQ(log.lines(),
              (QStringList{channelLine(QStringLiteral(" Begin to check redirect channel, call RedirCheck function.")),
                           channelLine(QStringLiteral(" End to  call RedirCheck function. result: true"))}));
}

TEST_F(LoadedHandler, leaves_the_context_to_a_component_that_refuses_the_channel)
{
    void **given = nullptr;
    script.check = [&](std::string, void **context) {
        given = context;
        return false;
    };
    void *context = contextB;
    EXPECT_FALSE(handler.checkRedirChannel("", &context));
    EXPECT_EQ(given, &context);
    EXPECT_EQ(context, contextB);
    EXPECT_EQ(log.lines().value(1), channelLine(QStringLiteral(" End to  call RedirCheck function. result: false")));
}

TEST_F(LoadedHandler, sets_a_context_up_with_both_pointers_in_their_order)
{
    for (const bool result : {true, false}) {
        void *first = nullptr;
        void *second = nullptr;
        script.setupContext = [&](void *a, void *b) {
            first = a;
            second = b;
            return result;
        };
        log.clear();
        EXPECT_EQ(handler.setupRedirContext(contextA, contextB), result);
        EXPECT_EQ(first, contextA);
        EXPECT_EQ(second, contextB);
        EXPECT_EQ(log.lines(),
                  (QStringList{channelLine(QStringLiteral(" Begin to setup redirect context, call RedirSetupContext "
                                                          "function.")),
                               channelLine(QStringLiteral(" End to  call RedirSetupContext function. result: %1")
                                               .arg(QLatin1String(result ? "true" : "false")))}));
    }
}

TEST_F(LoadedHandler, hands_data_on_unread_and_logs_nothing)
{
    char *given = nullptr;
    int givenLength = 0;
    void *givenContext = nullptr;
    script.handler = [&](char *data, int length, void *context) {
        given = data;
        givenLength = length;
        givenContext = context;
    };
    char data[] = "data";
    handler.handlerRedirData(data, 4, contextA);
    EXPECT_EQ(given, data);
    EXPECT_EQ(givenLength, 4);
    EXPECT_EQ(givenContext, contextA);

    handler.handlerRedirData(nullptr, -1, nullptr);
    EXPECT_EQ(given, nullptr);
    EXPECT_EQ(givenLength, -1);
    EXPECT_EQ(givenContext, nullptr);
    EXPECT_EQ(script.calls(), (Calls{"redirHandler", "redirHandler"}));
    EXPECT_EQ(log.lines(), QStringList());
}

TEST_F(LoadedHandler, hands_every_event_number_on_as_it_is)
{
    for (const int number : {0, 1, 2, 77, -1}) {
        struct
        {
            int event = 0;
            char *data = nullptr;
            int length = 0;
            void *context = nullptr;
        } given;
        script.eventHandler = [&](ChannelEvent event, char *data, int length, void *context) {
            given = {event, data, length, context};
        };
        char data[] = "text";
        log.clear();
        handler.handlerRedirNoticeEvent(ChannelEvent(number), data, 3, contextA);
        EXPECT_EQ(given.event, number);
        EXPECT_EQ(given.data, data);
        EXPECT_EQ(given.length, 3);
        EXPECT_EQ(given.context, contextA);
        EXPECT_EQ(log.lines(), (QStringList{noticeEnter, noticeDone}));
    }
}

TEST_F(LoadedHandler, tells_the_component_of_no_event_with_a_null_context)
{
    char data[] = "text";
    handler.handlerRedirNoticeEvent(ChannelEventOpened, data, 4, nullptr);
    EXPECT_EQ(script.calls(), Calls());
    EXPECT_EQ(log.lines(), (QStringList{noticeEnter, noticeNullContext, noticeNullHandlerContext, noticeDone}));
}

TEST(ChannelEvents, have_the_numbers_of_spice_port_events)
{
    EXPECT_EQ(int(ChannelEventOpened), 0);
    EXPECT_EQ(int(ChannelEventClosed), 1);
    EXPECT_EQ(int(ChannelEventBreak), 2);
    EXPECT_TRUE((std::is_same<std::underlying_type_t<ChannelEvent>, int>::value));
    EXPECT_TRUE((std::is_same<std::underlying_type_t<RedirEvent>, int>::value));
}

TEST_F(LoadedHandler, can_be_cut_off_while_commands_run_in_other_threads)
{
    for (int round = 0; round < 100; ++round) {
        ASSERT_TRUE(handler.load(Component::path()));
        std::atomic<bool> commandRan{false};
        std::atomic<int> others{0};
        std::thread commands([&] {
            for (int result = 0; result == 0;) {
                int length = 0;
                result = handler.handlerRedirCtrlCommand("{}", nullptr, length);
                others += result != 0 && result != 1;
                commandRan = true;
            }
        });
        std::thread messages([&] {
            while (!commandRan)
                std::this_thread::yield();
            for (int i = 0; i < 100; ++i) {
                handler.handlerRedirData(nullptr, 0, contextA);
                handler.handlerRedirNoticeEvent(ChannelEventBreak, nullptr, 0, contextA);
                handler.setupRedirContext(contextA, contextB);
            }
        });
        while (!commandRan)
            std::this_thread::yield();
        handler.stopMappingFunction();
        commands.join();
        messages.join();
        EXPECT_EQ(others, 0);
    }
}
