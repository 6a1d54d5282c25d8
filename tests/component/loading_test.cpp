// SPDX-License-Identifier: LGPL-2.1-or-later
#include "component/handlertest.h"
#include "worker/devredirectworker.h"

#include <QCoreApplication>
#include <QFile>
#include <QLibrary>
#include <QTemporaryDir>

#include <cstring>
#include <memory>

#include <dlfcn.h>

namespace {

const RedirectHandler *const handlerWhileThisProgramStarts = DevRedirectWorker::m_redirectHandler;

bool isMapped(const QString &path)
{
    void *library = dlopen(qPrintable(path), RTLD_NOW | RTLD_NOLOAD);
    if (library)
        dlclose(library);
    return library != nullptr;
}

// A copy of the scripted component in which some entry points have other names.
QString componentWithout(const QTemporaryDir &directory, const QList<QByteArray> &symbols)
{
    QFile original(Component::path());
    EXPECT_TRUE(original.open(QIODevice::ReadOnly));
    QByteArray bytes = original.readAll();
    for (const QByteArray &symbol : symbols) {
        QByteArray renamed = symbol;
        renamed[0] = 'x';
        const char end = '\0';
        EXPECT_TRUE(bytes.contains(end + symbol + end)) << symbol.constData();
        bytes.replace(end + symbol + end, end + renamed + end);
    }
    QFile copy(directory.filePath(QStringLiteral("lacks.so")));
    EXPECT_TRUE(copy.open(QIODevice::WriteOnly));
    EXPECT_EQ(copy.write(bytes), bytes.size());
    return copy.fileName();
}

QString loadLine(const QString &path)
{
    return channelLine(QStringLiteral(" Load redirection library, DllPath = ") + path);
}

QString successLine(const QString &path)
{
    return QStringLiteral("debug: DEVICE_REDIR load 47 Success to load library on RedirectHandler, path of the library "
                          "is  \"")
        + path + QLatin1Char('"');
}

const QString exportedLine = channelLine(QStringLiteral(" Successfully to export redirection modules function."));
const QString unloadLine = channelLine(QStringLiteral(" Unload redirection modules library."));
const QString unloadedLine = channelLine(QStringLiteral(" Successfully unload redirection modules library."));
const QString notUnloadedLine =
    QStringLiteral("warning: [ unLoad ] [REDIR_MODULE]  Fail to unload redirection modules library");

QString failureLine(const QString &path)
{
    QLibrary library(path);
    EXPECT_FALSE(library.load());
    EXPECT_FALSE(library.errorString().isEmpty());
    return QStringLiteral("critical: [ load ] [REDIR_MODULE]  Failed to load redirection library. DllPath= \"") + path
        + QStringLiteral("\" , error:  \"") + library.errorString() + QLatin1Char('"');
}

QString expectedPath()
{
    return QCoreApplication::applicationDirPath() + QStringLiteral("/Device Redirect/libdevredir.so");
}

QStringList pathLines()
{
    // The first text ends in a blank, and so does the line.
    return {QStringLiteral("info: [ getlibPath ] dlx android getlibPath is null. "),
            QStringLiteral("info: [ getlibPath ] dlx android pluginFileName:  \"") + expectedPath() + QLatin1Char('"')};
}

} // namespace

TEST(Handler, of_the_process_exists_as_soon_as_the_library_has_been_loaded)
{
    EXPECT_NE(handlerWhileThisProgramStarts, nullptr);
    EXPECT_EQ(DevRedirectWorker::m_redirectHandler, handlerWhileThisProgramStarts);
}

TEST(Handler, of_the_process_loads_like_any_other)
{
    LogRecorder log;
    EXPECT_TRUE(DevRedirectWorker::m_redirectHandler->load(Component::path()));
    EXPECT_TRUE(DevRedirectWorker::m_redirectHandler->unLoad());
    EXPECT_EQ(log.lines(),
              (QStringList{loadLine(Component::path()), successLine(Component::path()), exportedLine, unloadLine,
                           unloadedLine}));
}

TEST(Handler, that_is_made_and_destroyed_logs_only_the_unload)
{
    LogRecorder log;
    {
        RedirectHandler handler;
    }
    EXPECT_EQ(log.lines(), QStringList{unloadLine});
}

TEST(LibraryPath, is_the_component_in_its_folder_beside_the_executable)
{
    LogRecorder log;
    const RedirectHandler handler;
    EXPECT_EQ(handler.getlibPath(), expectedPath());
    EXPECT_EQ(log.lines(), pathLines());
}

TEST(LibraryPath, is_logged_with_every_call)
{
    LogRecorder log;
    const RedirectHandler handler;
    handler.getlibPath();
    handler.getlibPath();
    EXPECT_EQ(log.lines(), pathLines() + pathLines());
}

TEST(Loading, a_good_library_is_reported_step_by_step)
{
    LogRecorder log;
    RedirectHandler handler;
    EXPECT_TRUE(handler.load(Component::path()));
    EXPECT_EQ(log.lines(), (QStringList{loadLine(Component::path()), successLine(Component::path()), exportedLine}));
    EXPECT_TRUE(isMapped(Component::path()));
}

TEST(Loading, a_good_library_calls_none_of_its_entry_points)
{
    Component::script().forgetCalls();
    {
        RedirectHandler handler;
        handler.load(Component::path());
    }
    EXPECT_EQ(Component::script().calls(), Calls());
}

TEST(Loading, from_the_fixed_place_looks_up_the_path_and_loads_it)
{
    LogRecorder log;
    RedirectHandler handler;
    handler.loadDynamicLib();
    EXPECT_EQ(log.lines(),
              (pathLines() << QStringLiteral("info: DEVICE_REDIR loadDynamicLib 286 load dynamic lib,path is  \"")
                   + expectedPath() + QLatin1Char('"')
                           << loadLine(expectedPath()) << successLine(expectedPath()) << exportedLine));
    Component::script().forgetCalls();
    handler.redirDeinit();
    EXPECT_EQ(Component::script().calls(), Calls{"redirDeinit"});
}

TEST(Loading, a_library_that_is_missing_or_none_is_reported_with_the_loader_s_error)
{
    for (const char *variant : {"missing", "not_a_library"}) {
        const QString path = Component::variant(QLatin1String(variant));
        LogRecorder log;
        RedirectHandler handler;
        EXPECT_FALSE(handler.load(path)) << variant;
        const QStringList lines = log.lines();
        EXPECT_EQ(lines, (QStringList{loadLine(path), failureLine(path)})) << variant;
    }
}

TEST(Loading, a_library_that_lacks_only_redirCtrl_is_reported_and_its_redirDeinit_still_works)
{
    RedirectHandler handler;
    LogRecorder log;
    EXPECT_FALSE(handler.load(Component::variant("lacks_ctrl")));
    EXPECT_TRUE(log.has("critical: [ load ] [REDIR_MODULE] get address of func redirCtrl failed"));

    handler.redirDeinit();
    EXPECT_EQ(Component::script(Component::variant("lacks_ctrl")).calls(), std::vector<std::string>{"redirDeinit"});
}

TEST(Loading, a_library_that_lacks_redirCheck_and_redirDeinit_is_reported_for_the_first_only)
{
    const QString path = Component::variant(QStringLiteral("lacks_check_and_deinit"));
    RedirectHandler handler;
    LogRecorder log;
    EXPECT_FALSE(handler.load(path));
    EXPECT_EQ(log.lines(),
              (QStringList{loadLine(path), successLine(path),
                           QStringLiteral("critical: [ load ] [REDIR_MODULE] get address of func redirCheck failed")}));
    EXPECT_TRUE(isMapped(path));
}

TEST(Loading, each_missing_entry_point_has_its_own_message)
{
    for (const char *symbol : {"redirInit", "redirCheck", "redirHandler", "redirSetupContext", "redirEventHandler",
                               "redirCtrl", "redirDeinit"}) {
        const QTemporaryDir directory;
        const QString path = componentWithout(directory, {symbol});
        RedirectHandler handler;
        LogRecorder log;
        EXPECT_FALSE(handler.load(path)) << symbol;
        EXPECT_EQ(log.lines(),
                  (QStringList{loadLine(path), successLine(path),
                               QStringLiteral("critical: [ load ] [REDIR_MODULE] get address of func %1 failed")
                                   .arg(QLatin1String(symbol))}));
    }
}

TEST(Loading, a_library_without_any_entry_point_is_reported_for_redirInit)
{
    const QTemporaryDir directory;
    const QString path = componentWithout(directory,
                                          {"redirDeinit", "redirCtrl", "redirEventHandler", "redirSetupContext",
                                           "redirHandler", "redirCheck", "redirInit"});
    RedirectHandler handler;
    LogRecorder log;
    EXPECT_FALSE(handler.load(path));
    EXPECT_EQ(log.linesWith(QStringLiteral("critical: ")),
              QStringList{QStringLiteral("critical: [ load ] [REDIR_MODULE] get address of func redirInit failed")});
}

TEST(Loading, the_entry_points_of_a_partial_library_work_and_the_missing_ones_are_reported)
{
    const QString path = Component::variant(QStringLiteral("lacks_check_and_deinit"));
    RedirectHandler handler;
    handler.load(path);
    Script &script = Component::script(path);
    script.forgetCalls();

    int length = 0;
    EXPECT_EQ(handler.handlerRedirCtrlCommand("{}", nullptr, length), 0);
    EXPECT_TRUE(handler.loadRedirComponent(nullptr, nullptr, "vm", "config"));
    EXPECT_EQ(script.calls(), (Calls{"redirCtrl", "redirInit"}));

    LogRecorder log;
    void *context = nullptr;
    EXPECT_FALSE(handler.checkRedirChannel("channel", &context));
    EXPECT_TRUE(log.has(QStringLiteral("critical: [ checkRedirChannel ] [REDIR_MODULE]  Fail to call redirCheck, due "
                                       "to that m_funcRedirCheck is NULL")));
    log.clear();
    handler.redirDeinit();
    EXPECT_EQ(log.lines(),
              (QStringList{channelLine(QStringLiteral(" Begin to call RedirDeinit function.")),
                           QStringLiteral("critical: [ redirDeinit ] call redirEventHandler failed due to that "
                                          "m_funcRedirDeinit is NULL")}));
}

TEST(Loading, a_failed_load_keeps_the_entry_points_of_before)
{
    Script &script = Component::script();
    RedirectHandler handler;
    ASSERT_TRUE(handler.load(Component::path()));
    EXPECT_FALSE(handler.load(Component::variant(QStringLiteral("missing"))));
    script.forgetCalls();
    int length = 0;
    EXPECT_EQ(handler.handlerRedirCtrlCommand("{}", nullptr, length), 0);
    handler.redirDeinit();
    EXPECT_EQ(script.calls(), (Calls{"redirCtrl", "redirDeinit"}));
}

TEST(Loading, a_partial_library_replaces_all_seven_entry_points)
{
    Component::script().forgetCalls();
    RedirectHandler handler;
    ASSERT_TRUE(handler.load(Component::path()));
    EXPECT_FALSE(handler.load(Component::variant(QStringLiteral("lacks_ctrl"))));
    int length = 0;
    EXPECT_EQ(handler.handlerRedirCtrlCommand("{}", nullptr, length), 1);
    handler.handlerRedirData(nullptr, 0, nullptr);
    EXPECT_EQ(Component::script().calls(), Calls());
    EXPECT_EQ(Component::script(Component::variant(QStringLiteral("lacks_ctrl"))).calls(), Calls{"redirHandler"});
}

TEST(Loading, twice_succeeds_twice_and_leaves_the_first_loaded)
{
    LogRecorder log;
    RedirectHandler handler;
    EXPECT_TRUE(handler.load(Component::path()));
    EXPECT_TRUE(handler.load(Component::path()));
    EXPECT_EQ(log.lines(),
              (QStringList{loadLine(Component::path()), successLine(Component::path()), exportedLine,
                           loadLine(Component::path()), successLine(Component::path()), exportedLine}));
    handler.unLoad();
    EXPECT_TRUE(isMapped(Component::path()));
}

TEST(Unloading, a_handler_that_never_loaded_returns_true_and_logs_one_line)
{
    RedirectHandler handler;
    LogRecorder log;
    EXPECT_TRUE(handler.unLoad());
    EXPECT_EQ(log.lines(), QStringList{unloadLine});
}

TEST(Unloading, a_loaded_library_unmaps_it)
{
    RedirectHandler handler;
    ASSERT_TRUE(handler.load(Component::path()));
    ASSERT_TRUE(isMapped(Component::path()));
    LogRecorder log;
    EXPECT_TRUE(handler.unLoad());
    EXPECT_EQ(log.lines(), (QStringList{unloadLine, unloadedLine}));
    EXPECT_FALSE(isMapped(Component::path()));
}

TEST(Unloading, a_second_time_has_nothing_to_do)
{
    RedirectHandler handler;
    handler.load(Component::path());
    handler.unLoad();
    LogRecorder log;
    EXPECT_TRUE(handler.unLoad());
    EXPECT_EQ(log.lines(), QStringList{unloadLine});
}

TEST(Unloading, a_partial_library_works_like_a_whole_one)
{
    const QString path = Component::variant(QStringLiteral("lacks_ctrl"));
    RedirectHandler handler;
    EXPECT_FALSE(handler.load(path));
    EXPECT_TRUE(handler.unLoad());
    EXPECT_FALSE(isMapped(path));
}

TEST(Unloading, after_a_failed_load_fails_every_time)
{
    for (const char *variant : {"missing", "not_a_library"}) {
        RedirectHandler handler;
        EXPECT_FALSE(handler.load(Component::variant(QLatin1String(variant))));
        LogRecorder log;
        EXPECT_FALSE(handler.unLoad()) << variant;
        EXPECT_FALSE(handler.unLoad()) << variant;
        EXPECT_EQ(log.lines(), (QStringList{unloadLine, notUnloadedLine, unloadLine, notUnloadedLine})) << variant;
    }
}

TEST(Unloading, leaves_the_entry_points_but_not_the_way_to_redirDeinit)
{
    Script &script = Component::script(); // keeps the component in memory
    RedirectHandler handler;
    ASSERT_TRUE(handler.load(Component::path()));
    ASSERT_TRUE(handler.unLoad());
    script.forgetCalls();
    handler.handlerRedirData(nullptr, 0, nullptr);
    EXPECT_EQ(script.calls(), Calls{"redirHandler"});

    LogRecorder log;
    handler.redirDeinit();
    EXPECT_EQ(log.lines(),
              (QStringList{channelLine(QStringLiteral(" Begin to call RedirDeinit function.")),
                           QStringLiteral("critical: [ redirDeinit ] redirDeinit dynamic lib is NULL")}));
    EXPECT_EQ(script.calls(), Calls{"redirHandler"});
}

TEST(Unloading, may_be_followed_by_another_load)
{
    RedirectHandler handler;
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(handler.load(Component::path()));
        int length = 0;
        EXPECT_EQ(handler.handlerRedirCtrlCommand("{}", nullptr, length), 0);
        EXPECT_TRUE(handler.unLoad());
        EXPECT_FALSE(isMapped(Component::path()));
    }
}

TEST(Unloading, happens_when_a_local_handler_is_destroyed)
{
    LogRecorder log;
    {
        RedirectHandler handler;
        ASSERT_TRUE(handler.load(Component::path()));
        log.clear();
    }
    EXPECT_EQ(log.lines(), (QStringList{unloadLine, unloadedLine}));
    EXPECT_FALSE(isMapped(Component::path()));
}

TEST(Unloading, of_one_handler_leaves_the_other_s_library_mapped)
{
    RedirectHandler first;
    ASSERT_TRUE(first.load(Component::path()));
    {
        RedirectHandler second;
        ASSERT_TRUE(second.load(Component::path()));
    }
    int length = 0;
    EXPECT_EQ(first.handlerRedirCtrlCommand("{}", nullptr, length), 0);
}

TEST(Loading, is_known_by_a_query_until_the_library_is_unloaded)
{
    RedirectHandler handler;
    EXPECT_FALSE(handler.isLoaded());
    EXPECT_EQ(handler.loadError(), QString());
    ASSERT_TRUE(handler.load(Component::path()));
    EXPECT_TRUE(handler.isLoaded());
    EXPECT_EQ(handler.loadError(), QString());
    handler.stopMappingFunction();
    EXPECT_TRUE(handler.isLoaded());
    ASSERT_TRUE(handler.unLoad());
    EXPECT_FALSE(handler.isLoaded());
}

TEST(Loading, of_a_missing_file_fails_because_it_is_not_found)
{
    const QString path = Component::variant(QStringLiteral("missing"));
    RedirectHandler handler;
    ASSERT_TRUE(handler.load(Component::path()));
    EXPECT_FALSE(handler.load(path));
    EXPECT_FALSE(handler.isLoaded());
    EXPECT_EQ(handler.loadError(), path + QStringLiteral(": not found"));
}

TEST(Loading, of_another_file_fails_for_the_loaders_reason_or_a_missing_entry_point)
{
    RedirectHandler handler;
    EXPECT_FALSE(handler.load(Component::variant(QStringLiteral("not_a_library"))));
    EXPECT_TRUE(handler.loadError().contains(QStringLiteral("not_a_library.so")));
    EXPECT_FALSE(handler.loadError().contains(QStringLiteral("not found")));
    const QString partial = Component::variant(QStringLiteral("lacks_ctrl"));
    EXPECT_FALSE(handler.load(partial));
    EXPECT_FALSE(handler.isLoaded());
    EXPECT_EQ(handler.loadError(), partial + QStringLiteral(": has no entry point redirCtrl"));
}

TEST(Loading, is_not_starting_and_a_stop_is_known_too)
{
    Script &script = Component::script();
    RedirectHandler handler;
    ASSERT_TRUE(handler.load(Component::path()));
    EXPECT_FALSE(handler.isStarted());
    script.init = [](auto &&...) { return false; };
    EXPECT_FALSE(handler.loadRedirComponent(nullptr, nullptr, "vm", "config"));
    EXPECT_FALSE(handler.isStarted());
    script.init = nullptr;
    EXPECT_TRUE(handler.loadRedirComponent(nullptr, nullptr, "vm", "config"));
    EXPECT_TRUE(handler.isStarted());
    handler.redirDeinit();
    EXPECT_FALSE(handler.isStarted());
}
