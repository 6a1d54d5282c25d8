// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <deque>
#include <functional>
#include <future>
#include <mutex>
#include <thread>

#include <libusb.h>

/**
 * The thread that owns libusb. What touches a device or a channel runs here, so that a slow device never holds up the
 * host's threads for longer than the command that they wait for.
 */
class UsbThread
{
public:
    /// Starts the thread; \a afterEachRound runs on it after each round of USB events and tasks.
    explicit UsbThread(std::function<void()> afterEachRound);
    ~UsbThread();
    UsbThread(const UsbThread &) = delete;
    UsbThread &operator=(const UsbThread &) = delete;

    /// Runs what is queued and ends the thread. What is posted later is dropped. \thread any but the USB thread
    void stop();

    bool isCurrent() const { return std::this_thread::get_id() == m_id; }
    libusb_context *usb() const { return m_usb; } ///< null if libusb cannot be used on this machine

    /// Queues \a task. \thread any
    void post(std::function<void()> task);

    /// Runs \a task and waits for it; \a otherwise is the result once the thread has stopped. \thread any
    template<typename Result, typename Task>
    Result call(const Result &otherwise, const Task &task)
    {
        if (isCurrent())
            return task();
        auto promise = std::make_shared<std::promise<Result>>();
        auto result = promise->get_future();
        post([promise, &task] { promise->set_value(task()); });
        promise.reset(); // the task's copy is the only one now: dropping the task ends the wait
        try {
            return result.get();
        } catch (const std::future_error &) {
            return otherwise;
        }
    }

private:
    void run(std::promise<void> started);
    bool runTasks();

    libusb_context *m_usb = nullptr;
    const std::function<void()> m_afterEachRound;
    std::mutex m_mutex; ///< guards m_tasks and m_quit
    std::deque<std::function<void()>> m_tasks;
    bool m_quit = false;
    std::thread::id m_id;
    std::thread m_thread;
};
