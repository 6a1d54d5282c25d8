// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <ctime>
#include <functional>
#include <string>
#include <vector>

/**
 * One row of the table: the same work done by the bare parts (the limit) and by the library.
 *
 * What the rows mean, and what they should reach, stands in table.py. Each row runs in a process of its own.
 */
struct Row
{
    struct Pair
    {
        double limit;
        double library;
    };
    using Work = std::function<void(int calls)>;

    /// A row of time: short slices of the two take turns, and the pair is the median slice of each.
    static Row timed(std::string name, clockid_t clock, int calls, Work limit, Work library);

    std::string name;
    std::function<Pair()> measure; ///< nanoseconds a call, or bytes
    int calls = 0; ///< in a slice; 0: no row of time, and nothing to count instructions of
    Work limit;
    Work library;
};

/**
 * How the time of a piece of work grows with the size of something.
 *
 * What the axes are called stands in table.py.
 */
struct Growth
{
    std::string name;
    std::vector<int> sizes; ///< rising
    std::function<Row::Work(int size)> work;
};

std::vector<Growth> channelGrowths();
std::vector<Growth> listGrowths();
std::vector<Growth> logGrowths();

std::vector<Row> channelRows();
std::vector<Row> listRows();
std::vector<Row> logRows();
std::vector<Row> threadRows();
