// SPDX-License-Identifier: LGPL-2.1-or-later
//
// usage: usbworld-selftest WRAPPER USBWORLD TEST
// Runs one test in an emulated machine of its own: starts USBWORLD through WRAPPER with itself as the command.
#include "check.h"
#include "tests.h"

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace selftest {

namespace {

constexpr unsigned DeadlineSeconds = 30;
const char InsideVariable[] = "USBWORLD_SELFTEST_DIR"; // set for the process inside the emulated machine

/** A directory with the images and the control socket, removed at the end. */
class Scratch
{
public:
    Scratch()
    {
        std::string name = (std::filesystem::temp_directory_path() / "usbworld-XXXXXX").string();
        CHECK(mkdtemp(name.data()) != nullptr);
        m_path = name;
        setenv(InsideVariable, name.c_str(), 1);
        for (int stick = 1; stick <= StickCount; ++stick)
            makeImage(stick);
    }
    Scratch(const Scratch &) = delete;
    Scratch &operator=(const Scratch &) = delete;
    ~Scratch() { std::filesystem::remove_all(m_path); }
    std::string file(const char *name) const { return (m_path / name).string(); }

private:
    static void makeImage(int stick)
    {
        std::ofstream image(imagePath(stick), std::ios::binary);
        for (unsigned sector = 0; sector < ImageMebibytes * 1024 * 1024 / SectorSize; ++sector) {
            std::string content = sectorMark(stick, sector);
            content.resize(SectorSize, '\0');
            image << content;
        }
        CHECK(image.flush().good());
    }
    std::filesystem::path m_path;
};

pid_t start(const std::vector<std::string> &words)
{
    std::vector<char *> arguments;
    for (const std::string &word : words)
        arguments.push_back(const_cast<char *>(word.c_str()));
    arguments.push_back(nullptr);
    const pid_t pid = fork();
    if (pid == 0) {
        execvp(arguments[0], arguments.data());
        _exit(127);
    }
    CHECK(pid > 0);
    return pid;
}

int exitCode(pid_t pid)
{
    int status = 0;
    CHECK_EQUAL(waitpid(pid, &status, 0), pid);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

std::vector<std::string> worldCommand(char **argv, const Scratch &scratch)
{
    std::vector<std::string> words{
        argv[1], argv[2], "--control", scratch.file("control"), "--log", scratch.file("log")};
    for (int stick = 1; stick <= StickCount; ++stick) {
        words.push_back("--stick");
        words.push_back("1-" + std::to_string(stick) + '=' + imagePath(stick) + (stick == 2 ? ",ro" : ""));
    }
    return words;
}

int runInside(char **argv, const Test &test)
{
    const Scratch scratch;
    std::vector<std::string> words = worldCommand(argv, scratch);
    for (std::string option : test.worldOptions) {
        if (const std::size_t at = option.find('@'); at != std::string::npos)
            option.replace(at, 1, imagePath(1));
        words.push_back(option);
    }
    words.insert(words.end(), {"--", std::filesystem::canonical("/proc/self/exe").string(), test.name});
    const int code = exitCode(start(words));
    if (code != 0)
        std::cerr << std::ifstream(scratch.file("log")).rdbuf();
    return code;
}

void exitStatusIsPassedOn(char **argv)
{
    const Scratch scratch;
    const struct
    {
        const char *command;
        int code;
    } cases[] = {{"exit 0", 0}, {"exit 7", 7}, {"kill -9 $$", 128 + SIGKILL}, {"exec /nothing/here", 127}};
    for (const auto &one : cases) {
        std::vector<std::string> words = worldCommand(argv, scratch);
        words.insert(words.end(), {"--", "sh", "-c", one.command});
        CHECK_EQUAL(exitCode(start(words)), one.code);
    }
    std::vector<std::string> bad = worldCommand(argv, scratch);
    bad.insert(bad.end(), {"--stick", "1-9=" + scratch.file("missing"), "--", "true"});
    CHECK_EQUAL(exitCode(start(bad)), 125);
    CHECK_EQUAL(exitCode(start({argv[1], argv[2], "--nonsense", "--", "true"})), 2);
}

/** A world whose command stays, with what is known about it. */
struct StayingWorld
{
    StayingWorld(char **argv, const Scratch &scratch)
    {
        const std::string file = scratch.file("started");
        std::filesystem::remove(file);
        std::vector<std::string> words = worldCommand(argv, scratch);
        words.insert(words.end(), {"--", "sh", "-c", "echo $$ $UMOCKDEV_DIR >\"$0\" && exec sleep 60", file});
        world = start(words);
        CHECK_EVENTUALLY(std::ifstream(file) >> child >> directory);
    }
    ~StayingWorld() { std::filesystem::remove_all(directory); } // a killed world does not tidy up

    pid_t world = 0;
    pid_t child = 0;
    std::string directory;
};

void nothingIsLeftBehind(char **argv)
{
    CHECK_EQUAL(prctl(PR_SET_CHILD_SUBREAPER, 1), 0); // orphans come here instead of to init
    const Scratch scratch;
    const StayingWorld killed(argv, scratch);
    CHECK_EQUAL(kill(killed.world, SIGKILL), 0);
    CHECK_EQUAL(exitCode(killed.world), 128 + SIGKILL);
    CHECK_EQUAL(exitCode(killed.child), 128 + SIGKILL);

    const StayingWorld terminated(argv, scratch);
    CHECK_EQUAL(kill(terminated.world, SIGTERM), 0);
    CHECK_EQUAL(exitCode(terminated.world), 128 + SIGTERM);
    // Whoever gets the child's status, it is gone then.
    CHECK_EVENTUALLY((waitpid(terminated.child, nullptr, WNOHANG), kill(terminated.child, 0)) != 0);
    CHECK(!std::filesystem::exists(terminated.directory));
}

const struct
{
    const char *name;
    void (*run)(char **argv);
} OutsideTests[] = {
    {"exit_status_is_passed_on", exitStatusIsPassedOn},
    {"nothing_is_left_behind", nothingIsLeftBehind},
};

void onDeadline(int)
{
    static const char text[] = "the deadline has passed\n";
    if (write(STDERR_FILENO, text, sizeof text - 1) < 0)
        _exit(4);
    _exit(3);
}

} // namespace

std::string imagePath(int stick)
{
    return std::string(std::getenv(InsideVariable)) + "/stick" + std::to_string(stick) + ".img";
}

} // namespace selftest

using namespace selftest;

int main(int argc, char **argv)
{
    std::signal(SIGALRM, onDeadline);
    alarm(DeadlineSeconds);
    const bool inside = argc == 2 && std::getenv(InsideVariable);
    if (!inside && argc != 4) {
        std::cerr << "usage: usbworld-selftest WRAPPER USBWORLD TEST\n";
        return 2;
    }
    const std::string name = argv[inside ? 1 : 3];
    for (const auto &test : OutsideTests) {
        if (name == test.name) {
            test.run(argv);
            return 0;
        }
    }
    std::vector<Test> tests = InsideTests;
    tests.insert(tests.end(), DeviceTests.begin(), DeviceTests.end());
    const auto test = std::find_if(tests.begin(), tests.end(), [&name](const Test &one) { return name == one.name; });
    if (test == tests.end()) {
        std::cerr << "no test " << name << std::endl;
        return 2;
    }
    if (!inside)
        return runInside(argv, *test);
    test->run();
    return 0;
}
