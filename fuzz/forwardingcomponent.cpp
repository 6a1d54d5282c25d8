// SPDX-License-Identifier: LGPL-2.1-or-later

// A component without a will of its own: the fuzz target decides what a command does.

#include "component/entrypoints.h"

#define EXPORTED extern "C" __attribute__((visibility("default")))

/// Defined by the target.
extern "C" int answerCommand(const std::string &command, char *buffer, int &length);

EXPORTED bool redirInit(SendCallback, EventCallback, std::string, std::string)
{
    return true;
}

EXPORTED bool redirCheck(std::string, void **)
{
    return false;
}

EXPORTED bool redirSetupContext(void *, void *)
{
    return false;
}

EXPORTED void redirHandler(char *, int, void *) { }

EXPORTED void redirEventHandler(ChannelEvent, char *, int, void *) { }

EXPORTED int redirCtrl(std::string command, char *buffer, int &length)
{
    return answerCommand(command, buffer, length);
}

EXPORTED void redirDeinit() { }
