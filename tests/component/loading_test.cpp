// SPDX-License-Identifier: LGPL-2.1-or-later
#include "component/redirecthandler.h"
#include "support/component.h"
#include "support/logrecorder.h"

#include <gtest/gtest.h>

TEST(Loading, a_library_that_lacks_only_redirCtrl_is_reported_and_its_redirDeinit_still_works)
{
    RedirectHandler handler;
    LogRecorder log;
    EXPECT_FALSE(handler.load(Component::variant("lacks_ctrl")));
    EXPECT_TRUE(log.has("critical: [ load ] [REDIR_MODULE] get address of func redirCtrl failed"));

    handler.redirDeinit();
    EXPECT_EQ(Component::script(Component::variant("lacks_ctrl")).calls(), std::vector<std::string>{"redirDeinit"});
}
