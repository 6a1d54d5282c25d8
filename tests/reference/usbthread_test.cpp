// SPDX-License-Identifier: LGPL-2.1-or-later
#include "reference/component/usbthread.h"
#include "support/waitfor.h"

#include <gtest/gtest.h>

#include <QElapsedTimer>

#include <atomic>
#include <chrono>
#include <functional>
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

TEST(UsbThread, tasks_that_post_tasks_leave_USB_events_their_turn)
{
    constexpr int All = 10;
    std::atomic<int> rounds{0};
    int tasks = 0;
    std::promise<int> roundsAtTheEnd;
    UsbThread thread([&] { ++rounds; });
    std::function<void()> next = [&] {
        if (++tasks < All)
            thread.post(next);
        else
            roundsAtTheEnd.set_value(rounds);
    };
    thread.post(next);
    EXPECT_GE(roundsAtTheEnd.get_future().get(), All - 1);
}

TEST(UsbThread, a_task_that_handles_USB_events_itself_holds_up_no_other)
{
    UsbThread thread([] {});
    QElapsedTimer timer;
    timer.start();
    for (int i = 0; i < 5; ++i) {
        std::promise<void> isDone;
        thread.post([&] {
            thread.post([&] { isDone.set_value(); });
            timeval no{0, 0};
            if (thread.usb()) // it takes what would have woken the thread
                libusb_handle_events_timeout_completed(thread.usb(), &no, nullptr);
        });
        isDone.get_future().wait();
    }
    EXPECT_LT(timer.elapsed(), 4 * 100);
}

TEST(UsbThread, what_takes_long_is_waited_for_no_longer_than_asked)
{
    using std::chrono::milliseconds;
    std::promise<void> isOver;
    std::atomic<int> done{0};
    UsbThread thread([] {});
    const auto task = [&] { ++done; };
    thread.callFor(milliseconds(20000), task);
    EXPECT_EQ(done, 1);
    thread.post([&] { isOver.get_future().wait(); });
    thread.callFor(milliseconds(10), task);
    EXPECT_EQ(done, 1);
    isOver.set_value();
    thread.stop();
    EXPECT_EQ(done, 2) << "but done, then";
    QElapsedTimer timer;
    timer.start();
    thread.callFor(milliseconds(20000), task);
    EXPECT_LT(timer.elapsed(), 10000) << "and not waited for when the thread has ended";
    EXPECT_EQ(done, 2);
}
