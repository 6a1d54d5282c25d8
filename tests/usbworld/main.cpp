// SPDX-License-Identifier: LGPL-2.1-or-later
#include "control.h"
#include "options.h"
#include "world.h"

#include <glib-unix.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <sys/prctl.h>
#include <sys/wait.h>

using namespace usbworld;

namespace {

constexpr int ExitUsage = 2;
constexpr int ExitNoWorld = 125;
constexpr int ExitCannotRun = 127;

/** The command that runs in the emulated machine. */
struct Child
{
    GMainLoop *loop;
    pid_t pid;
    int exitCode;
};

pid_t start(const std::vector<char *> &command)
{
    const pid_t parent = getpid();
    const pid_t pid = fork();
    if (pid != 0)
        return pid;
    // The parent may be gone before the request is made.
    if (prctl(PR_SET_PDEATHSIG, SIGKILL) == 0 && getppid() == parent)
        execvp(command[0], command.data());
    std::perror(command[0]);
    _exit(ExitCannotRun);
}

void onChildEnd(GPid, gint status, gpointer data)
{
    auto *child = static_cast<Child *>(data);
    child->exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    g_main_loop_quit(child->loop);
}

template<int Signal>
gboolean passOn(gpointer data)
{
    kill(static_cast<Child *>(data)->pid, Signal);
    return G_SOURCE_CONTINUE;
}

int runCommand(const std::vector<char *> &command, Child &child)
{
    // Before the command runs: it may be what makes somebody send one. They are passed on by the loop below.
    g_unix_signal_add(SIGTERM, passOn<SIGTERM>, &child);
    g_unix_signal_add(SIGINT, passOn<SIGINT>, &child);
    struct sigaction hangup = {};
    sigaction(SIGHUP, nullptr, &hangup);
    if (hangup.sa_handler != SIG_IGN) // under nohup the command is to ignore it, too
        g_unix_signal_add(SIGHUP, passOn<SIGHUP>, &child);
    child.pid = start(command);
    if (child.pid < 0) {
        std::perror("fork");
        return ExitNoWorld;
    }
    g_child_watch_add(child.pid, onChildEnd, &child);
    g_main_loop_run(child.loop);
    return child.exitCode;
}

int runWorld(const Options &options)
{
    std::string error;
    Log log;
    if (!options.logPath.empty() && !log.openFile(options.logPath)) {
        std::perror(options.logPath.c_str());
        return ExitNoWorld;
    }
    World world(log);
    const std::unique_ptr<GMainLoop, decltype(&g_main_loop_unref)> loop(g_main_loop_new(nullptr, FALSE),
                                                                        g_main_loop_unref);
    Child child{loop.get(), -1, 0};
    Control control([&world, &child](const std::string &line) -> std::string {
        if (line != "quit")
            return world.command(line);
        kill(child.pid, SIGTERM);
        return "ok";
    });
    if (!world.build(options, error) || (!options.controlPath.empty() && !control.listen(options.controlPath, error))) {
        std::fprintf(stderr, "usbworld: %s\n", error.c_str());
        return ExitNoWorld;
    }
    if (!options.controlPath.empty())
        setenv("USBWORLD_CONTROL", options.controlPath.c_str(), 1);
    return runCommand(options.command, child);
}

} // namespace

int main(int argc, char **argv)
{
    Options options;
    std::string error;
    if (!parseOptions(argc, argv, options, error)) {
        std::fprintf(stderr, "usbworld: %s\n%s", error.c_str(), UsageText);
        return ExitUsage;
    }
    return runWorld(options);
}
