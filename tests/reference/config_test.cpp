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

TEST(Configuration, that_makes_no_sense_is_refused)
{
    for (const char *text :
         {R"({"isochronousAge": 0})", R"({"isochronousAge": "100"})", R"({"family": ["perhaps:*:*"]})",
          R"({"family": "deny:*:*"})", R"({"family": [1]})", R"({"openByDescriptor": 1})"}) {
        Config config;
        QString error;
        EXPECT_FALSE(Config::parse(text, config, error)) << text;
        EXPECT_FALSE(error.isEmpty()) << text;
    }
}

TEST(Configuration, may_set_how_old_isochronous_data_gets_and_what_is_shared_again)
{
    Config config;
    QString error;
    EXPECT_TRUE(Config::parse(R"({"isochronousAge": 250, "family": ["deny:1209:*"]})", config, error));
    EXPECT_EQ(config.isochronousAge, 250);
    EXPECT_FALSE(config.family.allow(QStringLiteral("08"), QStringLiteral("1209"), QStringLiteral("0001"), true));
    EXPECT_TRUE(config.family.allow(QStringLiteral("08"), QStringLiteral("1d6b"), QStringLiteral("0001"), true));
}
