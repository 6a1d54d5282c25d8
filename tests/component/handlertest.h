// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "component/redirecthandler.h"
#include "support/component.h"
#include "support/logrecorder.h"
#include "support/printing.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using Calls = std::vector<std::string>;

/// A handler that has loaded the scripted component, and the log from then on.
class LoadedHandler : public ::testing::Test
{
protected:
    LoadedHandler()
    {
        script.reset();
        EXPECT_TRUE(handler.load(Component::path()));
        log.clear();
    }
    ~LoadedHandler() override { script.reset(); }

    LogRecorder log;
    Script &script = Component::script();
    RedirectHandler handler;
};

/// A line of the handler's own channel at info level.
inline QString channelLine(const QString &text)
{
    return QStringLiteral("info: [ logOutput ] [REDIR_MODULE] \"") + text + QLatin1Char('"');
}
