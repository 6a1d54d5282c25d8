// SPDX-License-Identifier: LGPL-2.1-or-later

// devredir-panel: a window with a switch for each USB device of this machine.

#include "panelwindow.h"
#include "reference/client/commandline.h"
#include "reference/client/connectionfile.h"
#include "reference/client/spiceoptions.h"

#include <QAction>
#include <QApplication>
#include <QCommandLineParser>
#include <QLoggingCategory>
#include <QMenu>
#include <QStyle>
#include <QSystemTrayIcon>
#include <QTimer>
#include <QTranslator>

#include <cstdio>
#include <cstdlib>

namespace {

constexpr const char Name[] = "devredir-panel";
constexpr int NoScreen = 3;

// Qt ends the process if there is no screen, with advice for those who package it.
void tellOfNoScreen(QtMsgType type, const QMessageLogContext &, const QString &text)
{
    if (type != QtFatalMsg) {
        std::fprintf(stderr, "%s\n", qUtf8Printable(text));
        return;
    }
    std::fprintf(stderr, "%s: there is no screen. What helps: start it in a desktop session\n", Name);
    std::_Exit(NoScreen);
}

void addTray(PanelWindow &window)
{
    auto *tray = new QSystemTrayIcon(QIcon::fromTheme(QStringLiteral("drive-removable-media-usb"),
                                                      window.style()->standardIcon(QStyle::SP_DriveHDIcon)),
                                     &window);
    auto *menu = new QMenu(&window);
    menu->addAction(QCoreApplication::translate("PanelWindow", "Show"), &window, &QWidget::show);
    menu->addAction(QCoreApplication::translate("PanelWindow", "Quit"), &window, &QWidget::close);
    tray->setContextMenu(menu);
    tray->show();
}

} // namespace

int main(int argc, char **argv)
{
    QString error = takeSpiceOptions(argc, argv);
    if (!error.isEmpty())
        return wrongUsage(Name, error);

    const QCommandLineOption uri =
        option("uri", "SPICE address: spice://HOST:PORT, spice+tls://HOST:PORT or spice+unix:///PATH, or a .vv file.",
               "ADDRESS");
    const QCommandLineOption passwordFile =
        option("password-file", "Read the password from the first line of this file.", "FILE");
    const QCommandLineOption noRestore = option("no-restore", "Share nothing again when a lost connection is back.");
    const QCommandLineOption tray = option("tray", "Also show an icon in the system tray.");
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "A window with a switch for each USB device: shares them with a virtual machine over SPICE. It takes them\n"
        "back when it is closed. What keeps a device from being shared stands in the window, with what helps.\n"
        "\n"
        "Exit codes: 0 the window was closed, 2 wrong usage, 3 there is no screen."));
    parser.addPositionalArgument(QStringLiteral("FILE.vv"),
                                 QStringLiteral("A connection file of a virtual machine, in place of its address."),
                                 QStringLiteral("[FILE.vv]"));
    parser.addOptions(commonOptions());
    parser.addOptions({uri, passwordFile, noRestore, tray});
    QStringList arguments;
    for (int i = 0; i < argc; ++i)
        arguments.append(QString::fromLocal8Bit(argv[i]));
    const bool isRead = parser.parse(arguments);
    QString answer;
    { // without a display, too
        const QCoreApplication named(argc, argv);
        answer = commonAnswer(parser, "devredir-panel " DEVREDIRECT_VERSION);
    }
    if (!answer.isEmpty()) {
        std::puts(qUtf8Printable(answer));
        return 0;
    }
    const QStringList words = parser.positionalArguments();
    if (!isRead || words.size() + int(parser.isSet(uri)) > 1)
        return wrongUsage(Name, isRead ? QStringLiteral("unexpected word: ") + words.constLast() : parser.errorText());

    Client::Settings settings;
    settings.reconnect = true;
    settings.restore = !parser.isSet(noRestore);
    const QString place = words.isEmpty() ? parser.value(uri) : words.constFirst();
    if (!place.isEmpty())
        settings.address = placeOf(place, parser.value(passwordFile), error);
    if (!error.isEmpty())
        return wrongUsage(Name, error);

    qInstallMessageHandler(tellOfNoScreen);
    QApplication application(argc, argv);
    qInstallMessageHandler(nullptr);
    QApplication::setQuitOnLastWindowClosed(false); // but when the devices are back
    QTranslator translator;
    if (translator.load(QLocale(), QStringLiteral("devredir-panel"), QStringLiteral("_"),
                        QStringLiteral(":/translations")))
        QApplication::installTranslator(&translator);
    QLoggingCategory::setFilterRules(QStringLiteral("*.debug=false\n*.info=false"));

    PanelWindow window(settings);
    QObject::connect(&window, &PanelWindow::left, &application, &QCoreApplication::quit);
    whenAskedToEnd([&window] { window.leave(); });
    if (parser.isSet(tray))
        addTray(window);
    window.show();
    QTimer::singleShot(0, &window, &PanelWindow::start);
    return QApplication::exec();
}
