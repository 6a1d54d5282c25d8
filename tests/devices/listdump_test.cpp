// SPDX-License-Identifier: LGPL-2.1-or-later
#include "devices/samplerecords.h"
#include "support/logrecorder.h"
#include "support/printing.h"
#include "worker/devredirectworker.h"

#include <gtest/gtest.h>

namespace {

QStringList dump(QList<ExterDeviceInfo> devices)
{
    DevRedirectWorker worker(nullptr);
    const QList<ExterDeviceInfo> before = devices;
    LogRecorder log;
    worker.printfDevList(devices);
    EXPECT_EQ(devices, before);
    return log.lines();
}

const QString header = QStringLiteral("debug: [ printfDevList ] [REDIR_MODULE]  -------------------------"
                                      "deviceListInfo-----------------------------------");

QString lineOf(int index, const QString &deviceId, const QString &deviceName = QString())
{
    return QStringLiteral("debug: [ printfDevList ] \"devices[") + QString::number(index)
        + QStringLiteral("]: Device info: deviceGUID = , vid = , pid = , deviceName = ") + deviceName
        + QStringLiteral(", devClass = , status = 0,storeLetter =, deviceId = ") + deviceId
        + QStringLiteral(", readOnly = 0,rdrName = , usbHub = , usbPort = , nFunctionId = 0, isCompositeDevice =0, "
                         "isMatchContext =0, context =, rel = , prot =, subClass =,isCDROM =0, errCode =, errStr =.\"");
}

} // namespace

TEST(ListDump, three_records_give_a_header_and_three_numbered_lines_in_list_order)
{
    EXPECT_EQ(
        dump({recordWithId(QStringLiteral("c")), recordWithId(QStringLiteral("a")), recordWithId(QStringLiteral("b"))}),
        (QStringList{header, lineOf(0, QStringLiteral("c")), lineOf(1, QStringLiteral("a")),
                     lineOf(2, QStringLiteral("b"))}));
}

TEST(ListDump, the_header_has_25_and_35_dashes)
{
    const QString dashes = dump({ExterDeviceInfo()}).value(0).section(QStringLiteral("[REDIR_MODULE] "), 1);
    EXPECT_EQ(dashes, QLatin1Char(' ') + QString(25, '-') + QStringLiteral("deviceListInfo") + QString(35, '-'));
}

TEST(ListDump, an_empty_list_gives_one_critical_line_and_no_header)
{
    EXPECT_EQ(dump({}),
              QStringList{QStringLiteral("critical: [ printfDevList ] [REDIR_MODULE]  device list is null.")});
}

TEST(ListDump, an_empty_record_gives_a_full_line)
{
    EXPECT_EQ(dump({ExterDeviceInfo()}), (QStringList{header, lineOf(0, QString())}));
}

TEST(ListDump, a_filled_record_gives_its_text)
{
    EXPECT_EQ(dump({filledRecord()}).value(1),
              QStringLiteral("debug: [ printfDevList ] \"devices[0]: ") + filledRecord().getDevInfo()
                  + QLatin1Char('"'));
}

TEST(ListDump, quotes_and_placeholders_in_a_name_come_out_as_the_logger_writes_them)
{
    ExterDeviceInfo device = recordWithId(QStringLiteral("a"));
    device.deviceName = QStringLiteral("the \"disk\" 100%");
    EXPECT_EQ(dump({device}),
              (QStringList{header, lineOf(0, QStringLiteral("a"), QStringLiteral("the \\\"disk\\\" 100%"))}));
}

TEST(ListDump, indices_of_a_long_list_are_decimal)
{
    QList<ExterDeviceInfo> devices;
    for (int i = 0; i < 12; ++i)
        devices.append(recordWithId(QStringLiteral("x")));
    const QStringList lines = dump(devices);
    ASSERT_EQ(lines.size(), 13);
    EXPECT_EQ(lines.last(), lineOf(11, QStringLiteral("x")));
}
