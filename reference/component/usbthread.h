// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <chrono>
#include <deque>
#include <functional>
#include <future>
#include <memory>
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
        return isCurrent() ? task() : resultOf(start<Result>([&task] { return task(); }), otherwise);
    }

    /// Runs \a task and waits for it, but no longer than \a limit: what a device delays runs later. \thread any
    template<typename Task>
    void callFor(std::chrono::milliseconds limit, const Task &task)
    {
        if (isCurrent())
            task();
        else
            start<int>([task] { return task(), 0; }).wait_for(limit);
    }

private:
    // The task has the only promise: dropping the task ends the wait.
    template<typename Result, typename Task>
    std::future<Result> start(Task task)
    {
        auto promise = std::make_shared<std::promise<Result>>();
        std::future<Result> result = promise->get_future();
        post([promise = std::move(promise), task = std::move(task)] { promise->set_value(task()); });
        return result;
    }
    template<typename Result>
    static Result resultOf(std::future<Result> result, const Result &otherwise)
    {
        try {
            return result.get();
        } catch (const std::future_error &) {
            return otherwise;
        }
    }

    void run(std::promise<void> started);
    bool isDue();
    bool runTasks();

    libusb_context *m_usb = nullptr;
    const std::function<void()> m_afterEachRound;
    std::mutex m_mutex; ///< guards m_tasks and m_quit
    std::deque<std::function<void()>> m_tasks;
    bool m_quit = false;
    std::thread::id m_id;
    std::thread m_thread;
};
