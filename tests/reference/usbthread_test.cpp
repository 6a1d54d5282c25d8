// SPDX-License-Identifier: LGPL-2.1-or-later
#include "reference/component/usbthread.h"
#include "support/waitfor.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>

TEST(UsbThread, what_the_last_task_leaves_is_handled_before_the_thread_ends)
{
    int left = 0;
    int handled = 0;
    UsbThread thread([&] { handled += std::exchange(left, 0); });
    // What is posted is dropped from the moment on that the thread is to end.
    const auto isToEnd = [&] {
        const auto task = std::make_shared<int>();
        thread.post([task] {});
        return task.use_count() == 1;
    };
    thread.post([&] {
        waitFor(isToEnd);
        left = 7;
    });
    thread.stop();
    EXPECT_EQ(handled, 7);
}

TEST(UsbThread, a_question_is_not_held_up_by_what_takes_long)
{
    using std::chrono::milliseconds;
    std::promise<void> isOver;
    std::atomic<int> answered{0};
    UsbThread thread([] {});
    const auto answer = [&] { return ++answered; };
    EXPECT_EQ(thread.ask(milliseconds(20000), 0, answer), 1);
    thread.post([&] { isOver.get_future().wait(); });
    EXPECT_EQ(thread.ask(milliseconds(10), 7, answer), 7);
    isOver.set_value();
    thread.stop();
    EXPECT_EQ(answered, 2);
    EXPECT_EQ(thread.ask(milliseconds(20000), 7, answer), 7) << "and ends when the thread does";
}
