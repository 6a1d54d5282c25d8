// SPDX-License-Identifier: LGPL-2.1-or-later
#include "reference/component/config.h"

#include <gtest/gtest.h>

TEST(Configuration, as_shipped_can_be_read_and_describes_no_devices)
{
    Config config;
    QString error;
    ASSERT_TRUE(Config::read(QStringLiteral(SHIPPED_CONFIGURATION), config, error)) << qPrintable(error);
    EXPECT_TRUE(config.devices.isEmpty());
}
