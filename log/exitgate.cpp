// SPDX-License-Identifier: LGPL-2.1-or-later
#include "log/exitgate.h"

#include <QDebug>
#include <QLoggingCategory>
#include <QString>

#include <chrono>
#include <cstdlib>

namespace {

constexpr std::chrono::milliseconds LongestLine{100}; // the host's message handler may hang

// What is made first is destroyed last, so all that Qt makes at the first line has to be there before the gate.
void makeWhatLinesNeed()
{
    QString line;
    QDebug(&line) << "";
    QLoggingCategory::defaultCategory();
    qFormatLogMessage(QtDebugMsg, QMessageLogContext(), line);
}

} // namespace

void Log::ExitGate::closeAtExit()
{
    static const bool closes = [] {
        makeWhatLinesNeed();
        return std::atexit(close) == 0;
    }();
    Q_UNUSED(closes)
}

void Log::ExitGate::close()
{
    s_ending = std::this_thread::get_id();
    const auto deadline = std::chrono::steady_clock::now() + LongestLine;
    while (s_underWay > 0 && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
}
