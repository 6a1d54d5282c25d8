// SPDX-License-Identifier: LGPL-2.1-or-later
#include "reference/component/logging.h"
#include "reference/component/sharenote.h"
#include "support/logrecorder.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QTemporaryDir>

#include <optional>

#include <sys/stat.h>
#include <sys/wait.h>

Q_LOGGING_CATEGORY(logComponent, "devredir.component", QtWarningMsg)

namespace {

const QString Id = QStringLiteral("1-1:11");

class ShareNotes : public ::testing::Test
{
protected:
    ShareNotes() { qputenv("XDG_RUNTIME_DIR", QFile::encodeName(runtime.path())); }
    ~ShareNotes() override { qunsetenv("XDG_RUNTIME_DIR"); }

    QString folder() const { return runtime.filePath(QStringLiteral("devredir-%1").arg(geteuid())); }
    QStringList files() const { return QDir(folder()).entryList(QDir::Files | QDir::Hidden); }

    // A process that ends and gives nothing back.
    static void takeAndDie(const QString &deviceId)
    {
        const pid_t child = fork();
        if (child == 0) {
            const ShareNote note(deviceId);
            _exit(0);
        }
        waitpid(child, nullptr, 0);
    }

    void expectNoNotes()
    {
        LogRecorder log;
        const ShareNote note(Id);
        EXPECT_EQ(ShareNote::takeLeftBehind(), QStringList());
        EXPECT_EQ(log.linesWith(QStringLiteral("devices stay taken if this process is killed")).size(), 2);
        EXPECT_EQ(log.lines().size(), 2);
    }

    QTemporaryDir runtime;
};

} // namespace

TEST_F(ShareNotes, of_a_process_that_has_ended_are_found_once)
{
    takeAndDie(Id);
    takeAndDie(QStringLiteral("1-2"));
    QStringList left = ShareNote::takeLeftBehind();
    left.sort();
    EXPECT_EQ(left, (QStringList{QStringLiteral("1-1:11"), QStringLiteral("1-2")}));
    EXPECT_EQ(ShareNote::takeLeftBehind(), QStringList());
    EXPECT_EQ(files(), QStringList());
}

TEST_F(ShareNotes, of_a_process_that_lives_are_left_alone)
{
    std::optional<ShareNote> note(Id);
    EXPECT_EQ(ShareNote::takeLeftBehind(), QStringList());
    EXPECT_EQ(files().size(), 1);
    note.reset();
    EXPECT_EQ(files(), QStringList()) << "given back";
    EXPECT_EQ(ShareNote::takeLeftBehind(), QStringList());
}

TEST_F(ShareNotes, of_several_devices_do_not_meet)
{
    std::optional<ShareNote> first(Id), second(Id);
    first.reset();
    EXPECT_EQ(files().size(), 1);
    takeAndDie(Id);
    EXPECT_EQ(ShareNote::takeLeftBehind(), QStringList{Id});
    EXPECT_EQ(files().size(), 1) << "the second's";
}

TEST_F(ShareNotes, in_the_making_are_left_alone)
{
    takeAndDie(QString()); // as far as it comes before it has its lock and its text
    EXPECT_EQ(ShareNote::takeLeftBehind(), QStringList());
    EXPECT_EQ(files().size(), 1);
}

TEST_F(ShareNotes, are_for_their_user_alone)
{
    const ShareNote note(Id);
    struct stat status
    {
    };
    ASSERT_EQ(stat(QFile::encodeName(folder()).constData(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0700u);
}

TEST_F(ShareNotes, are_not_written_where_others_may_write)
{
    ASSERT_EQ(mkdir(QFile::encodeName(folder()).constData(), 0700), 0);
    ASSERT_EQ(chmod(QFile::encodeName(folder()).constData(), 0770), 0);
    expectNoNotes();
    EXPECT_EQ(files(), QStringList());
}

TEST_F(ShareNotes, are_not_written_through_a_symbolic_link)
{
    const QTemporaryDir elsewhere;
    ASSERT_TRUE(QFile::link(elsewhere.path(), folder()));
    expectNoNotes();
    EXPECT_EQ(QDir(elsewhere.path()).entryList(QDir::Files), QStringList());
}

TEST_F(ShareNotes, are_not_written_into_another_users_folder)
{
    ASSERT_EQ(mkdir(QFile::encodeName(folder()).constData(), 0700), 0);
    if (chown(QFile::encodeName(folder()).constData(), geteuid() + 1, gid_t(-1)) != 0)
        GTEST_SKIP() << "only root can give a folder away";
    expectNoNotes();
    EXPECT_EQ(files(), QStringList());
}

TEST_F(ShareNotes, are_done_without_where_there_is_no_folder)
{
    qputenv("XDG_RUNTIME_DIR", "/nowhere/to/be/found");
    expectNoNotes();
}

TEST_F(ShareNotes, lie_in_the_folder_for_temporary_files_where_there_is_no_other)
{
    qunsetenv("XDG_RUNTIME_DIR");
    qputenv("TMPDIR", QFile::encodeName(runtime.path()));
    takeAndDie(Id);
    EXPECT_EQ(ShareNote::takeLeftBehind(), QStringList{Id});
    EXPECT_TRUE(QDir(folder()).exists());
    qunsetenv("TMPDIR");
}
