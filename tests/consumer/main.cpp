// SPDX-License-Identifier: LGPL-2.1-or-later
#include <interface/devredirectinterface.h>

#include <QCoreApplication>

#include <cstdio>

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    DevRedirectInterface redirect(nullptr);
    const bool usable = redirect.getDeviceList().isEmpty() && redirect.getDeviceInfo("none").transportMode == SPICEMODE;
    std::puts(usable ? "consumer: works" : "consumer: fails");
    return usable ? 0 : 1;
}
