// SPDX-License-Identifier: LGPL-2.1-or-later
#include "reference/rules.h"

#include <gtest/gtest.h>

namespace {

struct Case
{
    const char *rules, *deviceClass, *vendorId, *productId;
    bool fits, allowed;
};

const Case cases[] = {
    {"allow:0781:5591", "08", "0781", "5591", true, true},
    {"deny:0781:5591", "08", "0781", "5591", true, false},
    {"allow:0781:5591", "08", "0781", "5592", false, false},
    {"allow:0781:5591", "08", "0782", "5591", false, false},
    {"deny:0781:*", "08", "0781", "1234", true, false},
    {"deny:*:5591", "08", "1234", "5591", true, false},
    {"allow:08:*:*", "08", "0781", "5591", true, true},
    {"allow:08:*:*", "0e", "0781", "5591", false, false},
    {"deny:*:0781:*", "0e", "0781", "5591", true, false},
    {"ALLOW:0E:04AD:*", "0e", "04ad", "5591", true, true},
    {"allow:0e:04ad:*", "0E", "04AD", "5591", true, true},
    {"deny:0781:5591,allow:*:*", "08", "0781", "5591", true, false},
    {"allow:*:*,deny:0781:5591", "08", "0781", "5591", true, true},
    {" deny:0781:5591 , allow:*:* ", "08", "0781", "5592", true, true},
};

QJsonArray listed(const char *rules)
{
    return QJsonArray::fromStringList(QString::fromLatin1(rules).split(QLatin1Char(',')));
}

} // namespace

TEST(Rules, the_first_that_fits_decides_and_the_caller_if_none_does)
{
    for (const Case &c : cases) {
        DeviceRules rules;
        ASSERT_TRUE(rules.set(listed(c.rules))) << c.rules;
        for (const bool otherwise : {true, false}) {
            EXPECT_EQ(rules.allow(QString::fromLatin1(c.deviceClass), QString::fromLatin1(c.vendorId),
                                  QString::fromLatin1(c.productId), otherwise),
                      c.fits ? c.allowed : otherwise)
                << c.rules << " for " << c.deviceClass << ':' << c.vendorId << ':' << c.productId;
        }
    }
}

TEST(Rules, that_cannot_be_read_replace_nothing)
{
    const QString any = QStringLiteral("1234");
    DeviceRules rules;
    ASSERT_TRUE(rules.set({QStringLiteral("deny:*:*")}));
    for (const char *broken :
         {"", "allow", "allow:*", "allow:*:*:*:*", "permit:*:*", "allow:781:*", "allow:*:07811", "allow:8:*:*",
          "allow::*:*", "allow:xyzw:*", "allow:*:*,", "allow:*:*;deny:*:*", "xallow:*:*", "allow:*:*x"}) {
        EXPECT_FALSE(rules.set(listed(broken))) << broken;
        EXPECT_FALSE(rules.allow(any, any, any, true)) << broken;
    }
    EXPECT_TRUE(rules.set({}));
    EXPECT_TRUE(rules.allow(any, any, any, true)) << "no rules are rules, too";
}
