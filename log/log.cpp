// SPDX-License-Identifier: LGPL-2.1-or-later
#include "log/log.h"

#include <chrono>
#include <thread>

static constexpr std::chrono::milliseconds LongestLine{100}; // the host's message handler may hang

std::atomic<Qt::HANDLE> Log::Line::s_onlyWriter{nullptr};
std::atomic<int> Log::Line::s_underWay{0};

void Log::keepToThisThread()
{
    Line::s_onlyWriter = QThread::currentThreadId();
    const auto deadline = std::chrono::steady_clock::now() + LongestLine;
    while (Line::s_underWay > 0 && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
}
