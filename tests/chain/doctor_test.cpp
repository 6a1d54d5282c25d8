// SPDX-License-Identifier: LGPL-2.1-or-later

// The doctor as a person uses it, on an emulated computer with one stick.

#include "support/spiceserver.h"
#include "support/waitfor.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>

namespace {

const QString ShippedFolder = QFileInfo(QStringLiteral(DEVREDIR_DOCTOR)).path() + QStringLiteral("/Device Redirect");
const QString ScriptedFolder = QStringLiteral(SCRIPTED_COMPONENTS);

struct Result
{
    int status;
    QByteArray answers, errors;

    bool says(const QByteArray &text) const { return answers.contains(text); }
};

class Doctor : public ::testing::Test
{
protected:
    Doctor()
    {
        QFile image(path(QStringLiteral("stick")));
        image.open(QIODevice::WriteOnly);
        image.resize(65536);
    }

    QString path(const QString &name) const { return directory.filePath(name); }

    void write(const QString &name, const QByteArray &content) const
    {
        QFile file(path(name));
        file.open(QIODevice::WriteOnly);
        file.write(content);
    }

    // A command on a computer that has what usbworld gives it.
    static Result start(const QStringList &command)
    {
        QProcess process;
        process.start(QStringLiteral("umockdev-wrapper"), command);
        EXPECT_TRUE(waitFor([&] { return process.state() == QProcess::NotRunning; })); // a server may run here
        return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1, process.readAllStandardOutput(),
                process.readAllStandardError()};
    }

    Result run(const QStringList &arguments, const QStringList &worldOptions = {}) const
    {
        return start(QStringList{QStringLiteral(USBWORLD), QStringLiteral("--stick"),
                                 QStringLiteral("1-1=") + path(QStringLiteral("stick"))}
                     + worldOptions + QStringList{QStringLiteral("--"), QStringLiteral(DEVREDIR_DOCTOR)} + arguments);
    }

    // A folder with this component, and a configuration that is good.
    Result runOn(const QString &component) const
    {
        QFile::link(component, path(QStringLiteral("libdevredir.so")));
        write(QStringLiteral("config.json"), "{}");
        return run({QStringLiteral("--component"), directory.path()});
    }

    QTemporaryDir directory;
};

} // namespace

TEST_F(Doctor, finds_a_computer_without_devices_well_and_says_what_it_has_looked_at)
{
    const Result result = start({QStringLiteral(DEVREDIR_DOCTOR)});
    EXPECT_EQ(result.status, 0) << result.answers.constData() << result.errors.constData();
    for (const char *subject :
         {"component", "entry points", "config.json", "devices: none", "lsblk", "mount table", "SPICE library"})
        EXPECT_TRUE(result.says(QByteArray("ok   ") + subject)) << subject << '\n' << result.answers.constData();
    EXPECT_EQ(result.errors, "");
}

TEST_F(Doctor, names_the_program_that_has_a_device_open)
{
    const Result result = run({});
    EXPECT_EQ(result.status, 1);
    // The one that emulates the stick.
    EXPECT_TRUE(result.says("BAD  1-1:STICK0001 Example Stick 1: opened by process ")) << result.answers.constData();
    EXPECT_TRUE(result.says("(usbworld)\n")) << result.answers.constData();
    EXPECT_EQ(result.answers.count("BAD  "), 1);
}

TEST_F(Doctor, finds_a_missing_component_and_a_missing_configuration)
{
    const Result result = run({QStringLiteral("--component"), directory.path()});
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(result.says("BAD  component: there is no ")) << result.answers.constData();
    EXPECT_TRUE(result.says("BAD  config.json: ")) << result.answers.constData();
    EXPECT_EQ(result.answers.count("BAD  "), result.answers.count("cure: "));
}

TEST_F(Doctor, tells_in_the_loaders_words_why_a_component_cannot_be_loaded)
{
    const Result result = runOn(ScriptedFolder + QStringLiteral("/not_a_library.so"));
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(result.says("invalid ELF header") || result.says("file too short")) << result.answers.constData();
}

TEST_F(Doctor, names_each_entry_point_that_a_component_lacks)
{
    const Result result = runOn(ScriptedFolder + QStringLiteral("/lacks_check_and_deinit.so"));
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(result.says("missing: redirCheck, redirDeinit\n")) << result.answers.constData();
}

TEST_F(Doctor, shows_the_place_of_an_error_in_the_configuration)
{
    QFile::link(ShippedFolder + QStringLiteral("/libdevredir.so"), path(QStringLiteral("libdevredir.so")));
    write(QStringLiteral("config.json"), "{\n  \"readOnly\": [ \"0951:1666\", }\n");
    const Result broken = run({QStringLiteral("--component"), directory.path()});
    EXPECT_EQ(broken.status, 1);
    EXPECT_TRUE(broken.says("config.json: line 2, column ")) << broken.answers.constData();
    write(QStringLiteral("config.json"), "{ \"readOnly\": 7 }\n");
    const Result wrong = run({QStringLiteral("--component"), directory.path()});
    EXPECT_EQ(wrong.status, 1);
    EXPECT_TRUE(wrong.says("\"readOnly\" is not a list of texts")) << wrong.answers.constData();
}

TEST_F(Doctor, gives_the_rule_that_lets_this_user_open_a_device)
{
    const Result result = run({}, {QStringLiteral("--no-permission"), QStringLiteral("1-1")});
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(result.says("may not open ")) << result.answers.constData();
    EXPECT_TRUE(result.says("this udev rule helps: SUBSYSTEM==\"usb\", ATTR{idVendor}==\"1209\""))
        << result.answers.constData();
}

TEST_F(Doctor, names_the_causes_that_a_log_shows_in_their_order)
{
    write(QStringLiteral("log"),
          "nothing\n"
          "[ load ] [REDIR_MODULE]  Failed to load redirection library. DllPath= \"x\"\n"
          "[ a ] call redirHandler failed due to that m_funcRedirHandler is NULL\n"
          "[ a ] call redirHandler failed due to that m_funcRedirHandler is NULL\n");
    const Result result = run({QStringLiteral("--log"), path(QStringLiteral("log"))});
    EXPECT_EQ(result.status, 1);
    const auto first =
        result.answers.indexOf("the component is not there, or lacks a library of its own (line 2, 1 times)");
    EXPECT_GT(first, 0) << result.answers.constData();
    EXPECT_GT(result.answers.indexOf("(line 3, 2 times)"), first) << result.answers.constData();
}

TEST_F(Doctor, finds_a_log_without_trouble_well_and_one_that_is_not_there_not)
{
    write(QStringLiteral("log"), "[ a ] [REDIR_MODULE]  leave.\n");
    EXPECT_EQ(run({QStringLiteral("--log"), path(QStringLiteral("log"))}).status, 0);
    EXPECT_EQ(run({QStringLiteral("--log"), path(QStringLiteral("nosuch"))}).status, 1);
}

TEST_F(Doctor, answers_scripts_with_json)
{
    const Result result = run({QStringLiteral("--json"), QStringLiteral("--component"), directory.path()});
    EXPECT_EQ(result.status, 1);
    const QJsonArray findings = QJsonDocument::fromJson(result.answers).array();
    ASSERT_FALSE(findings.isEmpty()) << result.answers.constData();
    for (const QJsonValue finding : findings)
        EXPECT_EQ(finding[QStringLiteral("ok")].toBool(), finding[QStringLiteral("cure")].toString().isEmpty());
}

TEST_F(Doctor, visits_the_virtual_machine_and_tells_which_ports_the_component_takes)
{
    const std::string socket = path(QStringLiteral("spice.sock")).toStdString();
    const QString uri = QStringLiteral("spice+unix://") + path(QStringLiteral("spice.sock"));
    write(QStringLiteral("right"), "geheim\n");
    write(QStringLiteral("wrong"), "falsch\n");
    const auto visit = [&](const QString &password) {
        return start({QStringLiteral(DEVREDIR_DOCTOR), QStringLiteral("--uri"), uri, QStringLiteral("--password-file"),
                      path(password)});
    };
    {
        const TestServer server({"org.devredir.usb.0", "org.spice-space.webdav.0"}, socket, {"geheim", 0, {}, {}});
        const Result right = visit(QStringLiteral("right"));
        EXPECT_TRUE(right.says("ok   virtual machine: lets us in: spice+unix:///")) << right.answers.constData();
        EXPECT_TRUE(right.says("ok   port org.devredir.usb.0: is taken by the component, and open"));
        EXPECT_TRUE(right.says("ok   port org.spice-space.webdav.0: is of another program"));
        EXPECT_EQ(right.status, 0) << right.answers.constData();
        const Result wrong = visit(QStringLiteral("wrong"));
        EXPECT_TRUE(wrong.says("cure: --password-file gives one")) << wrong.answers.constData();
        EXPECT_EQ(wrong.status, 1);
        EXPECT_TRUE(visit(QStringLiteral("nosuch")).says("BAD  virtual machine: "));
    }
    {
        const TestServer server({"org.spice-space.webdav.0"}, socket, {"geheim", 0, {}, {}});
        EXPECT_TRUE(visit(QStringLiteral("right")).says("offers no port whose name begins with"));
    }
    EXPECT_TRUE(visit(QStringLiteral("right")).says("Is the virtual machine running"));
}

TEST_F(Doctor, tells_wrong_usage_in_one_line_with_status_2)
{
    for (const QStringList &arguments : {QStringList{QStringLiteral("--nosuch")}, QStringList{QStringLiteral("word")},
                                         QStringList{QStringLiteral("--log")}}) {
        const Result result = run(arguments);
        EXPECT_EQ(result.status, 2);
        EXPECT_EQ(result.answers, "");
        EXPECT_EQ(result.errors.count('\n'), 1) << result.errors.constData();
    }
    EXPECT_EQ(run({QStringLiteral("--version")}).answers, "devredir-doctor " DEVREDIRECT_VERSION "\n");
    EXPECT_TRUE(run({QStringLiteral("--help")}).says("Exit codes: 0"));
}
