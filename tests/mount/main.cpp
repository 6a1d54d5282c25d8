// SPDX-License-Identifier: LGPL-2.1-or-later
#include "mount/privatemounts.h"

#include <gtest/gtest.h>

#include <QCoreApplication>

int main(int argc, char **argv)
{
    ::testing::InitGoogleTest(&argc, argv);
    PrivateMounts::enter(); // before there is any thread
    QCoreApplication application(argc, argv);
    return RUN_ALL_TESTS();
}
