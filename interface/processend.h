// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <functional>

/**
 * What has to happen when a process ends while an interface lives.
 *
 * A host may return from main() or call exit() at any time. Qt then takes down what is in use, whatever threads still
 * run: the worker, the mount watcher, those of the host and of the component. What can go wrong, which step prevents
 * it, and the test that fails without the step:
 *
 *  - The worker takes a request while the application object goes, which Qt asks about each event. The interface's
 *    threads end first, in onApplicationGoes(). Test: Exit.of_the_application_ends_the_worker_first
 *  - The worker wakes the main thread just when its event dispatcher goes with the application object. The dispatcher
 *    stays, in the same place. Test: Exit.while_the_worker_wakes_the_main_thread_leaves_what_it_wakes
 *  - The worker takes a request after exit(), while Qt's list of types goes. Its thread ends first, in onProcessEnds().
 *    Test of this and of the next two: Exit.lets_no_line_of_another_thread_meet_the_end_of_qt
 *  - A line of another thread is under way, or begins, while Qt takes down what lines need. From then on only the
 *    ending thread writes: Log::keepToThisThread().
 *  - What lines need is made after onProcessEnds() has been registered, and so goes before it runs. It is made first:
 *    makeWhatLinesNeed().
 *  - A thread reads a list when simdjson has taken down what it makes parsers with. One parser is made while the
 *    library is being loaded, in devices/devicelistreaders.cpp. Test:
 *    Exit.by_exit_ends_the_process_with_everything_still_running
 *
 * Each waits a tenth of a second for a thread at most: one that is inside the component, or waits for the mount table,
 * does not take part any more. What outlives main() on purpose is never torn down: the registry, the handler, and what
 * is noted here.
 *
 * \thread main
 */
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
