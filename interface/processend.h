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
 * | what goes wrong | step | test |
 * |---|---|---|
 * | the worker wakes the main thread just when its event dispatcher goes with the application object | the dispatcher
 * stays: onApplicationGoes() | Exit.while_the_worker_wakes_the_main_thread_leaves_what_it_wakes | | after exit() the
 * worker still takes requests, while Qt's list of their types goes | the interface's threads end first: onProcessEnds()
 * | Exit.lets_no_line_of_another_thread_meet_the_end_of_qt | | a line of another thread is under way, or begins, while
 * Qt takes down what lines need | from then on only the ending thread writes: Log::keepToThisThread() | the same |
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
