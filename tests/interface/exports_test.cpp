// SPDX-License-Identifier: LGPL-2.1-or-later

// What the built library shows to those who link against it.

#include "support/printing.h"
#include "worker/devredirectworker.h"

#include <gtest/gtest.h>

#include <QProcess>
#include <QRegularExpression>
#include <QStringList>

#include <dlfcn.h>

namespace {

QString libraryPath()
{
    Dl_info info{};
    return dladdr(&DevRedirectWorker::staticMetaObject, &info) ? QString::fromLocal8Bit(info.dli_fname) : QString();
}

QStringList linesOf(const char *tool, const QStringList &arguments)
{
    QProcess process;
    process.start(QLatin1String(tool), arguments + QStringList{libraryPath()});
    EXPECT_TRUE(process.waitForFinished(20000)) << tool;
    EXPECT_EQ(process.exitCode(), 0) << tool;
    return QString::fromUtf8(process.readAllStandardOutput()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
}

/// The demangled names of the symbols that the library defines for others.
QStringList exportedNames()
{
    QStringList names;
    for (const QString &line :
         linesOf("nm", {QStringLiteral("-D"), QStringLiteral("-C"), QStringLiteral("--defined-only")}))
        names.append(line.section(QLatin1Char(' '), 2).section(QStringLiteral("@@"), 0, 0));
    return names;
}

} // namespace

TEST(Exports, the_library_has_this_soname)
{
    const QStringList soname = linesOf("readelf", {QStringLiteral("-dW")}).filter(QStringLiteral("(SONAME)"));
    ASSERT_EQ(soname.size(), 1);
    EXPECT_TRUE(soname[0].endsWith(QStringLiteral("[libdevredirecthandler.so.1]"))) << soname[0].toStdString();
}

TEST(Exports, only_the_classes_functions_and_constants_of_the_headers_can_be_linked_against)
{
    const QRegularExpression known(
        QStringLiteral("^((typeinfo (name )?for |vtable for |non-virtual thunk to )?"
                       "(DevRedirectInterface|DevRedirectManger|DevRedirectWorker|"
                       "ExterDeviceInfo|FunctionInfo|RedirectHandler|WatchMountWorker)"
                       "(::.*)?|(parseExternalDeviceList|sendDevRedirectMsgToSpice|"
                       "onPortMsgProcess|onPortEvent|PortChannelEvent)\\(.*\\)|"
                       "devredirectBytesWaiting|s_mutext|USBRDR|DISKRDR|CAMRDR|SPICEMODE|TCPMODE|DEVREDIRECT_1)$"));
    const QStringList names = exportedNames();
    EXPECT_GT(names.size(), 100);
    for (const QString &name : names)
        EXPECT_TRUE(known.match(name).hasMatch()) << name.toStdString();
}

TEST(Exports, each_function_and_constant_of_the_headers_is_there)
{
    const QStringList names = exportedNames();
    const char *const wanted[] = {
        "devredirectBytesWaiting",
        "s_mutext",
        "USBRDR",
        "DISKRDR",
        "CAMRDR",
        "SPICEMODE",
        "TCPMODE",
        "parseExternalDeviceList(char const*, unsigned int, QList<ExterDeviceInfo>&)",
        "sendDevRedirectMsgToSpice(void*, char*, int)",
        "onPortMsgProcess(void*, unsigned int, void*, unsigned int, void*)",
        "onPortEvent(void*, int, void*)",
        "PortChannelEvent(_SpicePortChannel*, SpiceChannelEvent, void*)",
        "DevRedirectInterface::DevRedirectInterface(QObject*)",
        "DevRedirectInterface::staticMetaObject",
        "DevRedirectInterface::getDeviceInfo(QString const&)",
        "DevRedirectInterface::setClientParam(DevparamfromClient const&)",
        "DevRedirectInterface::notifyEvent()",
        "DevRedirectWorker::DevRedirectWorker(QObject*)",
        "DevRedirectWorker::m_redirectHandler",
        "DevRedirectWorker::m_bQuit",
        "DevRedirectManger::instance()",
        "ExterDeviceInfo::getDevInfo() const",
        "RedirectHandler::loadDynamicLib()",
        "WatchMountWorker::mountDone()",
    };
    for (const char *name : wanted)
        EXPECT_TRUE(names.contains(QLatin1String(name))) << name;
}

TEST(Exports, the_clients_send_function_is_a_weak_reference)
{
    const QStringList lines =
        linesOf("nm", {QStringLiteral("-D")}).filter(QStringLiteral("spice_port_channel_send_msg"));
    ASSERT_EQ(lines.size(), 1);
    EXPECT_TRUE(QRegularExpression(QStringLiteral("^ +w spice_port_channel_send_msg$")).match(lines[0]).hasMatch())
        << lines[0].toStdString();
}

TEST(Exports, the_library_lets_a_host_take_the_place_of_its_functions)
{
    for (const QString &line : linesOf("readelf", {QStringLiteral("-dW")}))
        EXPECT_FALSE(line.contains(QStringLiteral("SYMBOLIC"))) << line.toStdString();
}
