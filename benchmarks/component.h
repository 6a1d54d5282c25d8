// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "component/entrypoints.h"

#include <cstddef>

/// What the component of the benchmarks shares with them.
struct BenchmarkComponent
{
    SendCallback send; ///< what it was given to send messages with
    std::size_t received = 0; ///< bytes, on all channels
};

/// Exported as "benchmarkComponent".
using BenchmarkComponentOf = BenchmarkComponent *();
