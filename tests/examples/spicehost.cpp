// SPDX-License-Identifier: LGPL-2.1-or-later

// A SPICE server with one port, in the place of a virtual machine. It prints what arrives, line by line.
// usage: spicehost SOCKET PORT_NAME

#include "support/spiceserver.h"
#include "support/waitfor.h"

#include <cstdio>
#include <limits>

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    if (argc != 3)
        return 2;
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    TestServer server({argv[2]}, argv[1]);
    std::printf("listening at %s\n", argv[1]);
    std::size_t printed = 0;
    waitFor(
        [&] {
            const std::string &received = server.port().received();
            for (auto end = received.find('\n', printed); end != std::string::npos;
                 end = received.find('\n', printed)) {
                std::printf("received: %s\n", received.substr(printed, end - printed).c_str());
                printed = end + 1;
            }
            return false;
        },
        std::numeric_limits<int>::max());
}
