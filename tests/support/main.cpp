// SPDX-License-Identifier: LGPL-2.1-or-later
#include <gtest/gtest.h>

#include <QCoreApplication>

int main(int argc, char **argv)
{
    ::testing::InitGoogleTest(&argc, argv);
    QCoreApplication application(argc, argv);
    return RUN_ALL_TESTS();
}
