// SPDX-License-Identifier: LGPL-2.1-or-later

// A process that ends while everything still runs.

#include <gtest/gtest.h>

#include <QProcess>
#include <QString>

namespace {

constexpr int Batches = 5;
constexpr int AtATime = 10; // the thread sanitizer sleeps for a second at each exit

void expectThatItEnds(const char *way)
{
    for (int batch = 0; batch < Batches; ++batch) {
        QProcess children[AtATime];
        for (QProcess &child : children) {
            child.setProcessChannelMode(QProcess::MergedChannels);
            child.start(QStringLiteral(EXIT_CHILD), {QLatin1String(way)});
        }
        for (QProcess &child : children) {
            const bool ended = child.waitForFinished(40000);
            if (!ended)
                child.kill();
            ASSERT_TRUE(ended) << "batch " << batch;
            const std::string output = child.readAll().toStdString();
            ASSERT_EQ(child.exitStatus(), QProcess::NormalExit) << "batch " << batch << ", " << output;
            ASSERT_EQ(child.exitCode(), 0) << "batch " << batch << ", " << output;
        }
    }
}

void expectThatItIsOrderly(const char *program)
{
    QProcess child;
    child.setProcessChannelMode(QProcess::MergedChannels);
    child.start(QString::fromUtf8(program), QStringList());
    ASSERT_TRUE(child.waitForFinished(40000));
    EXPECT_EQ(child.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(child.exitCode(), 0) << child.readAll().toStdString();
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

TEST(Exit, of_the_application_ends_the_worker_first_and_leaves_lists_to_the_next)
{
    expectThatItIsOrderly(APPLICATION_CHILD);
}

TEST(Exit, while_the_worker_wakes_the_main_thread_leaves_what_it_wakes)
{
    expectThatItIsOrderly(WAKING_CHILD);
}

TEST(Exit, lets_no_line_of_another_thread_meet_the_end_of_qt)
{
    expectThatItIsOrderly(LOGGING_CHILD);
}
