// SPDX-License-Identifier: LGPL-2.1-or-later
#include "usbthread.h"

#include "logging.h"

UsbThread::UsbThread(std::function<void()> afterEachRound) : m_afterEachRound(std::move(afterEachRound))
{
    const int result = libusb_init(&m_usb);
    if (result != LIBUSB_SUCCESS) {
        qCWarning(logComponent, "libusb cannot be used: %s", libusb_error_name(result));
        m_usb = nullptr;
    }
    std::promise<void> started;
    std::future<void> isStarted = started.get_future();
    m_thread = std::thread(&UsbThread::run, this, std::move(started));
    isStarted.wait();
}

UsbThread::~UsbThread()
{
    stop();
    if (m_usb)
        libusb_exit(m_usb);
}

void UsbThread::stop()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_quit = true;
    }
    if (m_usb)
        libusb_interrupt_event_handler(m_usb);
    if (m_thread.joinable())
        m_thread.join();
}

void UsbThread::post(std::function<void()> task)
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_quit)
            return;
        m_tasks.push_back(std::move(task));
    }
    if (m_usb)
        libusb_interrupt_event_handler(m_usb);
}

void UsbThread::run(std::promise<void> started)
{
    m_id = std::this_thread::get_id();
    started.set_value();
    while (true) {
        const bool goesOn = runTasks();
        m_afterEachRound(); // the last tasks, too, may leave something to be sent
        if (!goesOn)
            return;
        // What wakes it is lost on a task that handles USB events itself, as giving a device back does.
        timeval longest{0, isDue() ? 0 : 100000};
        if (m_usb)
            libusb_handle_events_timeout_completed(m_usb, &longest, nullptr);
        else
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

bool UsbThread::isDue()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_quit || !m_tasks.empty();
}

// Those that are there: what they post waits until USB events have had their turn. False when all is done and the
// thread is to end.
bool UsbThread::runTasks()
{
    std::deque<std::function<void()>> tasks;
    bool goesOn = true;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        tasks.swap(m_tasks);
        goesOn = !m_quit; // there will be no more then
    }
    for (; !tasks.empty(); tasks.pop_front())
        tasks.front()();
    return goesOn;
}
