// SPDX-License-Identifier: LGPL-2.1-or-later

// A component that never stops: two threads that send and report until the process has ended. Nothing of it is torn
// down at exit.

#include "component/entrypoints.h"

#include <atomic>
#include <cstring>
#include <thread>

#include <unistd.h>

#define EXPORTED extern "C" __attribute__((visibility("default")))

static std::atomic<void *> channel{nullptr};

EXPORTED bool redirInit(SendCallback send, EventCallback notify, std::string, std::string)
{
    std::thread([send = new SendCallback(std::move(send))] {
        char message[] = "x";
        for (;; usleep(20))
            (*send)(channel, message, 1);
    }).detach();
    std::thread([notify = new EventCallback(std::move(notify))] {
        for (;; usleep(20))
            (*notify)(nullptr, RedirEventShared, "", 0);
    }).detach();
    return true;
}

EXPORTED bool redirCheck(std::string, void **context)
{
    *context = &channel;
    return true;
}

EXPORTED void redirHandler(char *, int, void *) { }

EXPORTED bool redirSetupContext(void *, void *toSendOn)
{
    channel = toSendOn;
    return false;
}

EXPORTED void redirEventHandler(ChannelEvent, char *, int, void *) { }

EXPORTED int redirCtrl(std::string, char *buffer, int &length)
{
    const char document[] = "[{\"devices\":[{\"deviceId\":\"a\",\"rdrName\":\"usbrdr\"}]}]";
    std::memcpy(buffer, document, sizeof document - 1);
    length = int(sizeof document) - 1;
    return 0;
}

EXPORTED void redirDeinit() { }
