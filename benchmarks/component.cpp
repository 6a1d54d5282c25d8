// SPDX-License-Identifier: LGPL-2.1-or-later

// A component that answers at once, so that what is measured is the library.

#include "benchmarks/component.h"

#define EXPORTED extern "C" __attribute__((visibility("default")))

namespace {
BenchmarkComponent shared;
}

EXPORTED BenchmarkComponent *benchmarkComponent()
{
    return &shared;
}

EXPORTED bool redirInit(SendCallback send, EventCallback, std::string, std::string)
{
    shared.send = std::move(send);
    return true;
}

EXPORTED bool redirCheck(std::string, void **context)
{
    *context = &shared;
    return true;
}

EXPORTED void redirHandler(char *, int length, void *context)
{
    static_cast<BenchmarkComponent *>(context)->received += std::size_t(length);
}

EXPORTED bool redirSetupContext(void *, void *)
{
    return true;
}

EXPORTED void redirEventHandler(ChannelEvent, char *, int, void *) { }

EXPORTED int redirCtrl(std::string, char *, int &)
{
    return 0;
}

EXPORTED void redirDeinit() { }
