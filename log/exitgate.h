// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <atomic>
#include <thread>

namespace Log {

/**
 * What every log line passes, so that none is under way while Qt takes itself down.
 *
 * At the end of a process Qt destroys what a line needs and takes no notice of threads that still run: those of the
 * host, or one that just comes out of the component. From then on only the thread that ends the process may write.
 */
class ExitGate
{
public:
    /// One line's way through. \thread any
    class Passage
    {
    public:
        Passage() { ++s_underWay; }
        ~Passage() { --s_underWay; }
        Passage(const Passage &) = delete;
        Passage &operator=(const Passage &) = delete;

        bool isOpen() const
        {
            const std::thread::id ending = s_ending;
            return ending == std::thread::id() || ending == std::this_thread::get_id();
        }
    };

    /// Sees to it that the gate closes before Qt destroys anything that lines need; only the first call does
    /// something. \thread any
    static void closeAtExit();

private:
    static void close();

    static inline std::atomic<std::thread::id> s_ending{std::thread::id()}; ///< the thread that ends the process
    static inline std::atomic<int> s_underWay{0};
};

} // namespace Log
