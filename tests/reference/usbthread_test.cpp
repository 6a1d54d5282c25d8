// SPDX-License-Identifier: LGPL-2.1-or-later
#include "reference/component/usbthread.h"
#include "support/waitfor.h"

#include <gtest/gtest.h>

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
