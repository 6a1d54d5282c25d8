// SPDX-License-Identifier: LGPL-2.1-or-later

// The window as a person uses it: real clicks and keys on a real screen, and a virtual machine behind it.

#include "chain/chain.h"
#include "reference/client/rulesfile.h"
#include "reference/panel/devicerow.h"
#include "reference/panel/panelwindow.h"
#include "support/asksocket.h"
#include "support/spiceserver.h"
#include "support/waitfor.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QCheckBox>
#include <QFile>
#include <QLabel>
#include <QLineEdit>
#include <QLoggingCategory>
#include <QProcess>
#include <QPushButton>
#include <QTranslator>
#include <QtTest>

#include <array>

// Nothing is unmapped, so that the leak detector can name what Qt's plugins leave behind.
extern "C" Q_DECL_EXPORT int dlclose(void *)
{
    return 0;
}

namespace {

const QString Stick = QStringLiteral("1-1:11");
const QString Locked = QStringLiteral("1-2:12");

QByteArray world(const QByteArray &command)
{
    return askSocket(QString::fromLocal8Bit(qgetenv("WORLD_SOCKET")), command + '\n', "\n").trimmed();
}

/// A window that has been started, on the screen.
class Window
{
public:
    explicit Window(const QString &address = {}) : m_window(settingsFor(address))
    {
        m_window.show();
        m_window.start();
        EXPECT_TRUE(QTest::qWaitForWindowExposed(&m_window));
        QApplication::setActiveWindow(&m_window); // there is no window manager
    }
    ~Window()
    {
        bool hasLeft = false;
        QObject::connect(&m_window, &PanelWindow::left, [&hasLeft] { hasLeft = true; });
        m_window.close();
        EXPECT_TRUE(waitFor([&] { return hasLeft; }));
    }

    QString text(const char *name) const
    {
        const auto *const label = m_window.findChild<QLabel *>(QLatin1String(name));
        return label ? label->text() : QString();
    }
    bool says(const char *name, const QString &part) const
    {
        return waitFor([&] { return text(name).contains(part); }, Chain::Deadline);
    }
    DeviceRow *row(const QString &deviceId) const { return m_window.findChild<DeviceRow *>(deviceId); }
    QCheckBox *box(const QString &deviceId, const char *label) const
    {
        for (QCheckBox *box : row(deviceId) ? row(deviceId)->findChildren<QCheckBox *>() : QList<QCheckBox *>()) {
            if (box->text() == QString::fromUtf8(label))
                return box;
        }
        return nullptr;
    }
    void click(const QString &deviceId, const char *label) const
    {
        ASSERT_TRUE(waitFor([&] { return box(deviceId, label) && box(deviceId, label)->isEnabled(); }));
        QCheckBox *const box = this->box(deviceId, label);
        QTest::mouseClick(box, Qt::LeftButton, {}, QPoint(8, box->height() / 2));
    }
    bool rowSays(const QString &deviceId, const QString &part) const
    {
        return waitFor(
            [&] {
                for (const QLabel *label :
                     row(deviceId) ? row(deviceId)->findChildren<QLabel *>() : QList<QLabel *>()) {
                    if (label->isVisible() && label->text().contains(part))
                        return true;
                }
                return false;
            },
            Chain::Deadline);
    }
    PanelWindow &widget() { return m_window; }
    /// For the documents: into the folder that SCREENSHOTS names, if it does.
    void picture(const char *name)
    {
        const QString folder = QString::fromLocal8Bit(qgetenv("SCREENSHOTS"));
        if (folder.isEmpty())
            return;
        QTest::qWait(100); // until everything stands where it belongs
        EXPECT_TRUE(m_window.grab().save(folder + QStringLiteral("/panel-%1.png").arg(QLatin1String(name))));
    }

private:
    static Client::Settings settingsFor(const QString &address)
    {
        Client::Settings settings;
        if (!address.isEmpty())
            settings.address = SpiceAddress::parse(address);
        settings.reconnect = settings.restore = true;
        return settings;
    }

    PanelWindow m_window;
};

QString addressOf(const Chain &chain)
{
    return QStringLiteral("spice+unix://") + chain.path(QStringLiteral("spice.sock"));
}

} // namespace

TEST(Panel, a_click_shares_the_stick_and_the_virtual_machine_boots_from_it)
{
    Chain chain;
    chain.startVm();
    Window window(addressOf(chain));
    ASSERT_TRUE(window.says("channels", QStringLiteral("1 of 1 channels free")));
    window.click(Stick, "Share");
    EXPECT_TRUE(window.rowSays(Stick, QStringLiteral("in the virtual machine")));
    EXPECT_TRUE(window.says("channels", QStringLiteral("0 of 1 channels free")));
    EXPECT_TRUE(chain.prints(QStringLiteral("BOOTED")));
    EXPECT_TRUE(window.rowSays(Stick, QStringLiteral("/s")));
    window.picture("shared");
    window.click(Stick, "Share");
    EXPECT_TRUE(window.rowSays(Stick, QStringLiteral("on this computer")));
    EXPECT_FALSE(window.box(Stick, "Share")->isChecked());
}

TEST(Panel, everything_can_be_done_with_the_keyboard)
{
    Chain chain;
    chain.startVm();
    Window window(addressOf(chain));
    ASSERT_TRUE(window.says("channels", QStringLiteral("1 of 1")));
    QCheckBox *const share = window.box(Stick, "Share");
    for (int tabs = 0; tabs < 10 && QApplication::focusWidget() != share; ++tabs)
        QTest::keyClick(QApplication::focusWidget() ? QApplication::focusWidget() : &window.widget(), Qt::Key_Tab);
    ASSERT_EQ(QApplication::focusWidget(), share);
    QTest::keyClick(share, Qt::Key_Space);
    EXPECT_TRUE(window.rowSays(Stick, QStringLiteral("in the virtual machine")));
    EXPECT_EQ(share->accessibleName(), QStringLiteral("Share Example Stick 1"));
    ASSERT_EQ(QApplication::focusWidget(), share) << "also while it was on its way";
    QTest::keyClick(share, Qt::Key_Space);
    EXPECT_TRUE(window.rowSays(Stick, QStringLiteral("on this computer")));
    EXPECT_FALSE(window.box(Stick, "Always")->isChecked());
}

TEST(Panel, what_keeps_a_device_here_stands_in_its_row_with_what_helps)
{
    Chain chain;
    chain.startVm();
    Window window(addressOf(chain));
    EXPECT_TRUE(window.rowSays(Locked, QStringLiteral("read-only")));
    EXPECT_TRUE(window.rowSays(Locked, QStringLiteral("What helps: the write-protect switch on it")));
    window.picture("refused");
    ASSERT_TRUE(window.says("channels", QStringLiteral("1 of 1")));
    window.click(Locked, "Share");
    EXPECT_TRUE(window.rowSays(Locked, QStringLiteral("on this computer")));
    EXPECT_FALSE(window.box(Locked, "Share")->isChecked());
}

TEST(Panel, a_stick_that_is_pulled_out_goes_with_a_quiet_notice_and_comes_back)
{
    Window window;
    ASSERT_TRUE(window.rowSays(Stick, QStringLiteral("on this computer")));
    EXPECT_EQ(world("unplug 1-1"), "ok");
    EXPECT_TRUE(window.says("notice", QStringLiteral("Example Stick 1 was pulled out.")));
    EXPECT_TRUE(waitFor([&] { return !window.row(Stick); }));
    EXPECT_EQ(QApplication::activeModalWidget(), nullptr);
    EXPECT_EQ(world("unplug 1-2"), "ok");
    EXPECT_TRUE(waitFor([&] { return !window.row(Locked); }));
    window.picture("empty");
    EXPECT_TRUE(world("plug 1-2").startsWith("ok"));
    EXPECT_TRUE(world("plug 1-1").startsWith("ok"));
    EXPECT_TRUE(window.rowSays(Stick, QStringLiteral("on this computer")));
    EXPECT_TRUE(waitFor([&] { return window.row(Stick)->y() < window.row(Locked)->y(); })) << "where it was before";
}

TEST(Panel, a_stick_that_comes_and_goes_is_told_of)
{
    Window window;
    for (int round = 0; round < 4; ++round) {
        ASSERT_TRUE(window.rowSays(Stick, QStringLiteral("on this computer")));
        EXPECT_EQ(world("unplug 1-1"), "ok");
        ASSERT_TRUE(waitFor([&] { return !window.row(Stick); }));
        EXPECT_TRUE(world("plug 1-1").startsWith("ok"));
    }
    EXPECT_TRUE(window.says("notice", QStringLiteral("Example Stick 1 comes and goes")));
}

TEST(Panel, a_lost_machine_is_told_and_what_was_shared_comes_back_with_it)
{
    Chain chain;
    chain.startVm();
    Window window(addressOf(chain));
    ASSERT_TRUE(window.says("channels", QStringLiteral("1 of 1")));
    window.click(Stick, "Share");
    ASSERT_TRUE(window.rowSays(Stick, QStringLiteral("in the virtual machine")));
    chain.killVm();
    EXPECT_TRUE(window.says("state", QStringLiteral("The connection is lost: ")));
    EXPECT_EQ(window.text("channels"), QString());
    window.picture("lost");
    EXPECT_TRUE(window.rowSays(Stick, QStringLiteral("on this computer")));
    chain.startVm();
    EXPECT_TRUE(window.says("state", QStringLiteral("Connected to ")));
    EXPECT_TRUE(window.rowSays(Stick, QStringLiteral("in the virtual machine")));
}

TEST(Panel, a_machine_that_is_not_there_can_be_tried_again)
{
    Chain chain;
    Window window(addressOf(chain));
    ASSERT_TRUE(window.says("state", QStringLiteral("Is the virtual machine running")));
    chain.startVm();
    QTest::mouseClick(window.widget().findChild<QPushButton *>(QStringLiteral("again")), Qt::LeftButton);
    EXPECT_TRUE(window.says("state", QStringLiteral("Connected to ")));
}

TEST(Panel, a_password_that_is_asked_for_is_typed_in_the_window)
{
    const QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("spice.sock"));
    TestServer::Security security;
    security.password = "geheim";
    const TestServer server({"org.devredir.usb.0"}, path.toStdString(), security);
    Window window(QStringLiteral("spice+unix://") + path);
    ASSERT_TRUE(window.says("state", QStringLiteral("Type the password here.")));
    auto *const field = window.widget().findChild<QLineEdit *>();
    ASSERT_EQ(QApplication::focusWidget(), field);
    QTest::keyClicks(field, QStringLiteral("geheim"));
    EXPECT_NE(field->displayText(), QStringLiteral("geheim"));
    QTest::keyClick(field, Qt::Key_Return);
    EXPECT_TRUE(window.says("state", QStringLiteral("Connected to ")));
    EXPECT_FALSE(field->isVisible());
}

namespace {

void writeRules(const QByteArray &rules)
{
    QDir().mkpath(QFileInfo(RulesFile::path()).path());
    QFile file(RulesFile::path());
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(rules);
}

} // namespace

TEST(Panel, rules_that_stand_against_always_are_told)
{
    const std::pair<const char *, const char *> cases[] = {
        {"[mine]\naction=deny\n", "Your rule \"mine\" says otherwise"}, {"nonsense\n", "Mend it there"}};
    for (const auto &[rules, told] : cases) {
        writeRules(rules);
        Window window;
        window.click(Stick, "Always");
        EXPECT_TRUE(window.says("notice", QString::fromUtf8(told))) << window.text("notice").toStdString();
        EXPECT_FALSE(window.box(Stick, "Always")->isChecked());
        EXPECT_TRUE(window.box(Stick, "Share")->isEnabled()) << "nothing is on its way";
    }
    QFile::remove(RulesFile::path());
}

TEST(Panel, always_writes_a_rule_and_takes_it_out_again)
{
    Window window;
    const QString path = RulesFile::path();
    writeRules("# mine\n[cameras]\naction=deny\nclass=0e\n");
    const auto content = [&] {
        QFile written(path);
        written.open(QIODevice::ReadOnly);
        return written.readAll();
    };
    window.click(Stick, "Always");
    EXPECT_TRUE(content().contains("[always 1-1:11]\naction=allow\nvendor=1209\nproduct=0001\nserial=11\n"))
        << content().constData();
    EXPECT_TRUE(window.box(Stick, "Always")->isChecked());
    window.click(Stick, "Always");
    EXPECT_FALSE(content().contains("always")) << content().constData();
    EXPECT_TRUE(content().startsWith("# mine\n")) << content().constData();
    EXPECT_TRUE(content().contains("[cameras]\naction=deny\nclass=0e\n")) << content().constData();
    QFile::remove(path);
}

TEST(Panel, says_why_the_component_does_not_start_and_can_be_closed)
{
    const QString folder = QCoreApplication::applicationDirPath() + QStringLiteral("/Device Redirect");
    const QString aside = folder + QStringLiteral(" aside");
    const QString component = QStringLiteral("/libdevredir.so");
    ASSERT_TRUE(QFile::rename(folder, aside));
    ASSERT_TRUE(QDir().mkdir(folder) && QFile::link(aside + component, folder + component));
    {
        Window window;
        EXPECT_EQ(window.text("state"),
                  QStringLiteral("the component does not start: is %1/config.json there, and can it be read? The log "
                                 "has the reason")
                      .arg(folder));
    }
    EXPECT_TRUE(QDir(folder).removeRecursively());
    EXPECT_TRUE(QFile::rename(aside, folder));
}

TEST(Panel, without_a_screen_the_program_says_so_in_one_line)
{
    QProcess program;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.remove(QStringLiteral("DISPLAY"));
    program.setProcessEnvironment(environment);
    program.start(QStringLiteral(DEVREDIR_PANEL), QStringList());
    ASSERT_TRUE(program.waitForFinished());
    EXPECT_EQ(program.exitCode(), 3);
    EXPECT_TRUE(program.readAllStandardError().endsWith("devredir-panel: there is no screen. What helps: start it in a "
                                                        "desktop session\n"));
}

TEST(Panel, follows_the_colours_of_the_desktop)
{
    const QPalette before = QApplication::palette();
    const QColor dark(0x20, 0x22, 0x26), light(0xee, 0xee, 0xee);
    QPalette palette(dark);
    for (const QPalette::ColorRole role : {QPalette::Text, QPalette::WindowText, QPalette::ButtonText})
        palette.setColor(role, light);
    QApplication::setPalette(palette);
    {
        Window window;
        ASSERT_TRUE(window.rowSays(Stick, QStringLiteral("on this computer")));
        const QImage shown = window.widget().grab().toImage();
        EXPECT_EQ(shown.pixelColor(shown.width() / 2, shown.height() - 3), dark);
        window.picture("dark");
    }
    QApplication::setPalette(before);
}

TEST(Panel, speaks_german_and_chinese)
{
    const std::array<const char *, 4> cases[] = {
        {"de", "Freigeben", "nur lesbar: in der virtuellen Maschine wäre es beschreibbar",
         "Was hilft: der Schreibschutzschalter daran"},
        {"zh_CN", "共享", "只读", "拨动它的开关"},
    };
    for (const auto &[language, word, reason, cure] : cases) {
        QTranslator translator;
        ASSERT_TRUE(translator.load(QStringLiteral(":/translations/devredir-panel_") + QLatin1String(language)));
        QApplication::installTranslator(&translator);
        const Window window;
        EXPECT_TRUE(waitFor([&] { return window.row(Stick); }));
        EXPECT_TRUE(window.box(Stick, word)) << language;
        EXPECT_TRUE(window.rowSays(Locked, QString::fromUtf8(reason))) << language;
        EXPECT_TRUE(window.rowSays(Locked, QString::fromUtf8(cure))) << language;
        QApplication::removeTranslator(&translator);
    }
}

int main(int argc, char **argv)
{
    qunsetenv("LD_PRELOAD"); // the virtual machine is not on the emulated computer
    QLoggingCategory::setFilterRules(QStringLiteral("*.debug=false\n*.info=false"));
    QApplication application(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
