// SPDX-License-Identifier: LGPL-2.1-or-later

// A redirection component that does what a test tells it. LACKS_... leaves an entry point out.

#include "scriptedcomponent/script.h"

#define EXPORTED extern "C" __attribute__((visibility("default")))

namespace {

Script &told()
{
    static Script script;
    return script;
}

} // namespace

EXPORTED Script *script()
{
    return &told();
}

EXPORTED bool redirInit(SendCallback send, EventCallback notify, std::string vmId, std::string configPath)
{
    told().recordCall("redirInit");
    return told().init ? told().init(std::move(send), std::move(notify), std::move(vmId), std::move(configPath)) : true;
}

#ifndef LACKS_CHECK
EXPORTED bool redirCheck(std::string channelName, void **context)
{
    told().recordCall("redirCheck");
    if (told().check)
        return told().check(std::move(channelName), context);
    *context = &told().defaultContext;
    return true;
}
#endif

EXPORTED void redirHandler(char *data, int length, void *context)
{
    told().recordCall("redirHandler");
    if (told().handler)
        told().handler(data, length, context);
}

EXPORTED bool redirSetupContext(void *context, void *channel)
{
    told().recordCall("redirSetupContext");
    return told().setupContext ? told().setupContext(context, channel) : true;
}

EXPORTED void redirEventHandler(ChannelEvent event, char *data, int length, void *context)
{
    told().recordCall("redirEventHandler");
    if (told().eventHandler)
        told().eventHandler(event, data, length, context);
}

#ifndef LACKS_CTRL
EXPORTED int redirCtrl(std::string command, char *buffer, int &length)
{
    told().recordCall("redirCtrl");
    told().recordCommand(command);
    return told().ctrl ? told().ctrl(std::move(command), buffer, length) : 0;
}
#endif

#ifndef LACKS_DEINIT
EXPORTED void redirDeinit()
{
    told().recordCall("redirDeinit");
    if (told().deinit)
        told().deinit();
}
#endif
