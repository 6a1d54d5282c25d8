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

} // namespace

TEST(Exports, the_library_has_this_soname)
{
    const QStringList soname = linesOf("readelf", {QStringLiteral("-dW")}).filter(QStringLiteral("(SONAME)"));
    ASSERT_EQ(soname.size(), 1);
    EXPECT_TRUE(soname[0].endsWith(QStringLiteral("[libdevredirecthandler.so.1]"))) << soname[0].toStdString();
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
