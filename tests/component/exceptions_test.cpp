// SPDX-License-Identifier: LGPL-2.1-or-later
#include "component/handlertest.h"

#include <atomic>
#include <functional>
#include <stdexcept>
#include <thread>

#include <pthread.h>
#include <unistd.h>

namespace {

void throwStandardOne()
{
    throw std::runtime_error("the component's own trouble");
}

void throwAnother()
{
    throw 5;
}

const std::function<void()> throwers[] = {throwStandardOne, throwAnother};

void *someContext()
{
    static int context = 0;
    return &context;
}

} // namespace

/// Each entry point throws once something of the standard library and once something else.
class ThrowingComponent : public LoadedHandler
{
protected:
    void expectOneCriticalLineOf(const char *method)
    {
        const QStringList lines = log.linesWith(QStringLiteral("critical: "));
        ASSERT_EQ(lines.size(), 1);
        EXPECT_TRUE(lines[0].startsWith(QStringLiteral("critical: [ %1 ] ").arg(QLatin1String(method))))
            << lines[0].toStdString();
        log.clear();
    }
};

TEST_F(ThrowingComponent, in_redirInit_has_not_started)
{
    for (const auto &thrower : throwers) {
        script.init = [&](SendCallback, EventCallback, std::string, std::string) { return thrower(), true; };
        EXPECT_FALSE(handler.loadRedirComponent(nullptr, nullptr, "vm", "config"));
        expectOneCriticalLineOf("loadRedirComponent");
    }
}

TEST_F(ThrowingComponent, in_redirCheck_has_refused_the_channel)
{
    for (const auto &thrower : throwers) {
        script.check = [&](std::string, void **) { return thrower(), true; };
        void *context = someContext();
        EXPECT_FALSE(handler.checkRedirChannel("channel", &context));
        EXPECT_EQ(context, someContext());
        expectOneCriticalLineOf("checkRedirChannel");
    }
}

TEST_F(ThrowingComponent, in_redirSetupContext_has_refused_it)
{
    for (const auto &thrower : throwers) {
        script.setupContext = [&](void *, void *) { return thrower(), true; };
        EXPECT_FALSE(handler.setupRedirContext(someContext(), nullptr));
        expectOneCriticalLineOf("setupRedirContext");
    }
}

TEST_F(ThrowingComponent, in_redirHandler_is_reported)
{
    for (const auto &thrower : throwers) {
        script.handler = [&](char *, int, void *) { thrower(); };
        handler.handlerRedirData(nullptr, 0, someContext());
        expectOneCriticalLineOf("handlerRedirData");
    }
}

TEST_F(ThrowingComponent, in_redirEventHandler_is_reported)
{
    for (const auto &thrower : throwers) {
        script.eventHandler = [&](ChannelEvent, char *, int, void *) { thrower(); };
        handler.handlerRedirNoticeEvent(ChannelEventClosed, nullptr, 0, someContext());
        expectOneCriticalLineOf("handlerRedirNoticeEvent");
    }
}

TEST_F(ThrowingComponent, in_redirCtrl_has_refused_the_command)
{
    for (const auto &thrower : throwers) {
        script.ctrl = [&](std::string, char *, int &) { return thrower(), 0; };
        char buffer[8] = "";
        int length = sizeof(buffer);
        EXPECT_EQ(handler.handlerRedirCtrlCommand("{}", buffer, length), 1);
        expectOneCriticalLineOf("handlerRedirCtrlCommand");
    }
}

TEST_F(ThrowingComponent, in_redirDeinit_is_reported)
{
    for (const auto &thrower : throwers) {
        script.deinit = [&] { thrower(); };
        handler.redirDeinit();
        expectOneCriticalLineOf("redirDeinit");
    }
}

TEST_F(ThrowingComponent, can_be_called_again)
{
    script.ctrl = [](std::string, char *, int &) -> int { throw std::runtime_error("once"); };
    int length = 0;
    EXPECT_EQ(handler.handlerRedirCtrlCommand("{}", nullptr, length), 1);
    script.ctrl = [](std::string, char *, int &) { return 9; };
    EXPECT_EQ(handler.handlerRedirCtrlCommand("{}", nullptr, length), 9);
}

TEST_F(ThrowingComponent, sees_minus_one_when_the_send_callback_throws)
{
    for (const auto &thrower : throwers) {
        int sent = 0;
        script.init = [&](SendCallback send, EventCallback, std::string, std::string) {
            std::thread([&] { sent = send(nullptr, nullptr, 0); }).join();
            return true;
        };
        EXPECT_TRUE(handler.loadRedirComponent([&](void *, char *, int) { return thrower(), 3; }, nullptr, "", ""));
        EXPECT_EQ(sent, -1);
        EXPECT_EQ(log.linesWith(QStringLiteral("critical: ")).size(), 1);
        log.clear();
    }
}

TEST_F(ThrowingComponent, sees_nothing_when_the_event_callback_throws)
{
    for (const auto &thrower : throwers) {
        bool returned = false;
        script.init = [&](SendCallback, EventCallback event, std::string, std::string) {
            std::thread([&] {
                event(nullptr, RedirEventShared, "", 0);
                returned = true;
            }).join();
            return true;
        };
        EXPECT_TRUE(handler.loadRedirComponent(
            nullptr, [&](void *, RedirEvent, const char *, int) { thrower(); }, "", ""));
        EXPECT_TRUE(returned);
        EXPECT_EQ(log.linesWith(QStringLiteral("critical: ")).size(), 1);
        log.clear();
    }
}

TEST_F(ThrowingComponent, may_end_a_thread_inside_a_callback_of_the_host)
{
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the address sanitizer loses track of a stack that is unwound because its thread ends";
#endif
    EventCallback toHost;
    script.init = [&](SendCallback, EventCallback event, std::string, std::string) {
        toHost = std::move(event);
        return true;
    };
    static std::atomic<int> inside{0};
    ASSERT_TRUE(handler.loadRedirComponent(
        nullptr,
        [](void *, RedirEvent event, const char *, int) {
            ++inside;
            if (event == RedirEventShared)
                pthread_exit(&inside);
            for (;;)
                pause(); // until it is cancelled
        },
        "", ""));
    const auto startThread = [&toHost](void *(*run)(void *)) {
        pthread_t thread;
        EXPECT_EQ(pthread_create(&thread, nullptr, run, &toHost), 0);
        return thread;
    };
    const pthread_t exiting = startThread([](void *callback) -> void * {
        (*static_cast<EventCallback *>(callback))(nullptr, RedirEventShared, "", 0);
        return nullptr;
    });
    void *result = nullptr;
    EXPECT_EQ(pthread_join(exiting, &result), 0);
    EXPECT_EQ(result, &inside);

    const pthread_t cancelled = startThread([](void *callback) -> void * {
        (*static_cast<EventCallback *>(callback))(nullptr, RedirEventUnshared, "", 0);
        return nullptr;
    });
    while (inside < 2)
        std::this_thread::yield();
    EXPECT_EQ(pthread_cancel(cancelled), 0);
    EXPECT_EQ(pthread_join(cancelled, &result), 0);
    EXPECT_EQ(result, PTHREAD_CANCELED);
    EXPECT_EQ(log.linesWith(QStringLiteral("critical: ")), QStringList());
}
