// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <thread>

namespace selftest {

template<class A, class B>
void checkEqual(const A &actual, const B &expected, const char *text, int line)
{
    if (actual == expected)
        return;
    std::cerr << "line " << line << ": " << text << " is " << actual << ", expected " << expected << std::endl;
    std::exit(1);
}

/** Polls \a condition until it holds, for at most five seconds. */
template<class Condition>
bool eventually(Condition condition)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

} // namespace selftest

#define CHECK_EQUAL(actual, expected) ::selftest::checkEqual((actual), (expected), #actual, __LINE__)
#define CHECK(condition) ::selftest::checkEqual(bool(condition), true, #condition, __LINE__)
#define CHECK_EVENTUALLY(condition)                                                                                    \
    ::selftest::checkEqual(::selftest::eventually([&] { return bool(condition); }), true, #condition, __LINE__)
