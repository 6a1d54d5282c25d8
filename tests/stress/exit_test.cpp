// SPDX-License-Identifier: LGPL-2.1-or-later

// A process that ends while everything still runs.

#include <gtest/gtest.h>

#include <QProcess>
#include <QString>

namespace {

void expectThatItEnds(const char *way)
{
    for (int round = 0; round < 50; ++round) {
        QProcess child;
        child.setProcessChannelMode(QProcess::MergedChannels);
        child.start(QStringLiteral(EXIT_CHILD), {QLatin1String(way)});
        const bool ended = child.waitForFinished(20000);
        if (!ended)
            child.kill();
        ASSERT_TRUE(ended) << "round " << round;
        const std::string output = child.readAll().toStdString();
        ASSERT_EQ(child.exitStatus(), QProcess::NormalExit) << "round " << round << ", " << output;
        ASSERT_EQ(child.exitCode(), 0) << "round " << round << ", " << output;
    }
}

} // namespace

TEST(Exit, by_mains_return_ends_the_process_with_everything_still_running)
{
    expectThatItEnds("return");
}

TEST(Exit, by_exit_ends_the_process_with_everything_still_running)
{
    expectThatItEnds("exit");
}
