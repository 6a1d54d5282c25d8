// SPDX-License-Identifier: LGPL-2.1-or-later

// A host whose own build of the SPICE client library sends messages: what the library does to a channel then. The
// channel is nothing at all, so whatever else looked at it would end the process.

#include "support/component.h"
#include "worker/portchannelglue.h"
#include "worker/workerbench.h"

namespace {

std::vector<std::string> &uses()
{
    static std::vector<std::string> all;
    return all;
}

} // namespace

extern "C" __attribute__((visibility("default"))) int spice_port_channel_send_msg(SpicePortChannel *, const void *, int,
                                                                                  int)
{
    uses().push_back("spice_port_channel_send_msg");
    return 0;
}

extern "C" __attribute__((visibility("default"))) gulong g_signal_connect_data(gpointer, const gchar *signal, GCallback,
                                                                               gpointer, GClosureNotify, GConnectFlags)
{
    uses().push_back(signal);
    return 1;
}

class OwnLibrary : public WorkerBench
{
protected:
    OwnLibrary()
    {
        script.setupContext = [](void *, void *) {
            uses().push_back("redirSetupContext");
            return true;
        };
    }

    int nothing = 0;
    SpicePortChannel *channel = reinterpret_cast<SpicePortChannel *>(&nothing);
};

TEST_F(OwnLibrary, a_channel_is_touched_by_the_three_connects_only)
{
    worker.onCheckRedirChannelByWorker(channel, QStringLiteral("org.example.redir.0"), false);
    EXPECT_EQ(uses(),
              (std::vector<std::string>{"port-channel-msg", "port-event", "channel-event", "redirSetupContext"}));
}

TEST_F(OwnLibrary, messages_go_to_its_own_function_and_what_waits_is_not_known)
{
    char message[] = "message";
    EXPECT_EQ(sendDevRedirectMsgToSpice(channel, message, 7), 7);
    EXPECT_EQ(uses(), std::vector<std::string>{"spice_port_channel_send_msg"});
    EXPECT_EQ(devredirectBytesWaiting(channel), -1);
}
