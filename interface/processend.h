// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <functional>

/// What has to happen when a process ends while an interface lives.
///
/// A host may return from main() or call exit() at any time. Qt then takes down what is in use, whatever threads still
/// run. What can go wrong, what prevents it, and the test that fails without it (in tests/stress/exit_test.cpp):
///
///  - The worker takes a request while the application object goes: its thread ends first, in onApplicationGoes().
///    of_the_application_ends_the_worker_first_and_leaves_lists_to_the_next
///  - It wakes the main thread just when the event dispatcher goes with the application: the dispatcher stays.
///    while_the_worker_wakes_the_main_thread_leaves_what_it_wakes
///  - After exit(), while Qt's list of types goes, it takes a request: its thread ends first, in onProcessEnds().
///    lets_no_line_of_another_thread_meet_the_end_of_qt, as for the next two
///  - A line of another thread meets the end of what lines need: from then on only the ending thread writes.
///  - What lines need is made late, and so goes before all that: makeWhatLinesNeed().
///  - A list is read when simdjson has taken down what it makes parsers with: devices/devicelistreaders.cpp has one.
///    by_exit_ends_the_process_with_everything_still_running
///
/// A thread that is inside the component, or waits for the mount table, is given a tenth of a second.
///
/// \thread main
class ProcessEnd
{
public:
    /// As long as this object lives, \a endThreads is called when the application object goes or the main thread ends
    /// the process.
    explicit ProcessEnd(std::function<void()> endThreads);
    ~ProcessEnd();
    ProcessEnd(const ProcessEnd &) = delete;
    ProcessEnd &operator=(const ProcessEnd &) = delete;

private:
    static void endAllThreads();
    static void onApplicationGoes();
    static void onProcessEnds();

    const std::function<void()> m_endThreads;
};
