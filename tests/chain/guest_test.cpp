// SPDX-License-Identifier: LGPL-2.1-or-later
#include "chain/chain.h"

#include <gtest/gtest.h>

TEST(Guest, a_linux_guest_mounts_the_redirected_stick_and_what_it_writes_stays_on_it)
{
    Chain chain;
    const QString image = chain.path(QStringLiteral("1-1"));
    Chain::run(QStringLiteral("mkimage.sh"), {image, QStringLiteral("hello from the stick")});
    QList<Chain::Stick> sticks{{QStringLiteral("1-1"), QString(), 0, {}}};
    chain.startGuest(QStringLiteral("hello from the guest"));
    chain.startHost(sticks, {QStringLiteral("--disks-follow-driver")});

    chain.ask(QStringLiteral("share 1-1:11"));
    ASSERT_FALSE(chain.event(QStringLiteral("shared"), QStringLiteral("1-1:11")).isEmpty());
    EXPECT_TRUE(chain.prints(QStringLiteral("GUEST READ hello from the stick"))) << chain.printed().constData();
    EXPECT_TRUE(chain.prints(QStringLiteral("GUEST DONE"))) << chain.printed().constData();
    chain.ask(QStringLiteral("unshare 1-1:11"));
    EXPECT_TRUE(chain.prints(QStringLiteral("GUEST GONE"))) << chain.printed().constData();
    EXPECT_TRUE(chain.getsDriver(QStringLiteral("1-1"), QStringLiteral("usb-storage")));

    EXPECT_EQ(Chain::run(QStringLiteral("readimage.sh"), {image, QStringLiteral("from-guest.txt")}).trimmed(),
              "hello from the guest");
}
