// SPDX-License-Identifier: LGPL-2.1-or-later
#include "mount/systemcalls.h"
#include "mount/watchmountworker.h"
#include "support/logrecorder.h"
#include "support/printing.h"

#include <gtest/gtest.h>

#include <QDir>

#include <cstring>
#include <memory>
#include <string>

namespace {

// A zeroed block of exactly the size that the call asks for, so that a sanitizer sees a byte behind it.
struct Output
{
    std::unique_ptr<char[]> text{new char[WatchMountWorker::OutputSize]()};
};

int openDescriptors()
{
    return int(QDir(QStringLiteral("/proc/self/fd")).entryList(QDir::Files | QDir::System).size());
}

// Prints the character x so many times, then a line end.
std::string lineOf(int length)
{
    return "printf '%0" + std::to_string(length) + "d\\n' 0 | tr 0 x; ";
}

const QString tooLarge = QStringLiteral("warning: excuCmd Get Disk data error bacause data memery is too large.");

} // namespace

class ShellCommand : public ::testing::Test
{
protected:
    WatchMountWorker worker;
    Output output;
    LogRecorder log;
};

TEST_F(ShellCommand, gives_its_standard_output)
{
    EXPECT_TRUE(worker.excuCmd("printf 'one\\ntwo\\n\\nthree'", output.text.get()));
    EXPECT_STREQ(output.text.get(), "one\ntwo\n\nthree");
    EXPECT_EQ(log.lines(), QStringList());
}

TEST_F(ShellCommand, goes_through_the_shell)
{
    EXPECT_TRUE(worker.excuCmd("a=1; echo \"$((a + 1))\" | tr 2 3", output.text.get()));
    EXPECT_STREQ(output.text.get(), "3\n");
}

TEST_F(ShellCommand, without_output_gives_none)
{
    EXPECT_TRUE(worker.excuCmd("true", output.text.get()));
    EXPECT_STREQ(output.text.get(), "");
    EXPECT_TRUE(worker.excuCmd("", output.text.get()));
    EXPECT_STREQ(output.text.get(), "");
}

TEST_F(ShellCommand, keeps_its_standard_error_apart)
{
    EXPECT_TRUE(worker.excuCmd("{ echo no >&2; echo yes; } 2> /dev/null", output.text.get()));
    EXPECT_STREQ(output.text.get(), "yes\n");
}

TEST_F(ShellCommand, counts_as_run_whatever_its_exit_status)
{
    EXPECT_TRUE(worker.excuCmd("echo text; exit 3", output.text.get()));
    EXPECT_STREQ(output.text.get(), "text\n");
    EXPECT_TRUE(worker.excuCmd("kill -9 $$", output.text.get()));
    EXPECT_TRUE(worker.excuCmd("no-such-command 2> /dev/null", output.text.get()));
    EXPECT_EQ(log.lines(), QStringList());
}

TEST_F(ShellCommand, appends_to_what_the_output_holds)
{
    std::strcpy(output.text.get(), "before ");
    EXPECT_TRUE(worker.excuCmd("echo after", output.text.get()));
    EXPECT_STREQ(output.text.get(), "before after\n");
}

TEST_F(ShellCommand, has_ended_when_the_call_returns)
{
    EXPECT_TRUE(worker.excuCmd("echo $$", output.text.get()));
    const int process = std::atoi(output.text.get());
    ASSERT_GT(process, 0);
    EXPECT_FALSE(QDir(QStringLiteral("/proc/%1").arg(process)).exists());
}

TEST_F(ShellCommand, leaves_no_descriptor_open)
{
    const int before = openDescriptors();
    worker.excuCmd("echo text", output.text.get());
    worker.excuCmd("yes", output.text.get());
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(ShellCommand, may_print_4096_bytes)
{
    EXPECT_TRUE(worker.excuCmd((lineOf(2047) + lineOf(2047)).c_str(), output.text.get()));
    const std::string line = std::string(2047, 'x') + '\n';
    EXPECT_EQ(output.text.get(), line + line);
    EXPECT_EQ(log.lines(), QStringList());
}

TEST_F(ShellCommand, that_prints_more_is_cut_behind_the_line_that_passes_4096_bytes)
{
    EXPECT_TRUE(worker.excuCmd((lineOf(2047) + lineOf(2048) + lineOf(5)).c_str(), output.text.get()));
    EXPECT_EQ(output.text.get(), std::string(2047, 'x') + '\n' + std::string(2048, 'x') + '\n');
    EXPECT_EQ(log.lines(), QStringList{tooLarge});
}

TEST_F(ShellCommand, that_prints_one_long_line_is_read_in_pieces)
{
    // A piece has 4095 bytes: after the second one the text is too long.
    EXPECT_TRUE(worker.excuCmd(lineOf(20000).c_str(), output.text.get()));
    EXPECT_EQ(output.text.get(), std::string(2 * 4095, 'x'));
    EXPECT_EQ(log.lines(), QStringList{tooLarge});
}

TEST_F(ShellCommand, fills_the_output_to_its_last_byte_at_most)
{
    // 4096 bytes are still fine, and one more piece of 4095 follows.
    EXPECT_TRUE(worker.excuCmd((lineOf(4095) + lineOf(20000)).c_str(), output.text.get()));
    EXPECT_EQ(output.text.get(), std::string(4095, 'x') + '\n' + std::string(4095, 'x'));
    EXPECT_EQ(std::strlen(output.text.get()), std::size_t(WatchMountWorker::OutputSize - 1));
    EXPECT_EQ(log.lines(), QStringList{tooLarge});
}

TEST_F(ShellCommand, that_never_ends_is_given_up_when_its_output_is_too_large)
{
    EXPECT_TRUE(worker.excuCmd("yes", output.text.get()));
    std::string expected;
    while (expected.size() <= 4096)
        expected += "y\n";
    EXPECT_EQ(output.text.get(), expected);
    EXPECT_EQ(log.lines(), QStringList{tooLarge});
}

TEST_F(ShellCommand, that_cannot_be_started_is_reported)
{
    const SystemCalls::NoMorePipes exhausted;
    EXPECT_FALSE(worker.excuCmd("echo \"text\"", output.text.get()));
    EXPECT_STREQ(output.text.get(), "");
    EXPECT_EQ(log.lines(), QStringList{QStringLiteral("warning: excuCmd \"popen echo \\\"text\\\"  error.\"")});
}

TEST_F(ShellCommand, of_4095_bytes_is_run_whole)
{
    std::string command = "echo text #";
    command.resize(4095, 'c');
    command.replace(4095 - 9, 9, "\necho end");
    EXPECT_TRUE(worker.excuCmd(command.c_str(), output.text.get()));
    EXPECT_STREQ(output.text.get(), "text\nend\n");
}

TEST_F(ShellCommand, of_more_than_4095_bytes_ends_the_process)
{
    std::string command = "echo text #";
    command.resize(4096, 'c');
    EXPECT_DEATH(worker.excuCmd(command.c_str(), output.text.get()), "");
}
