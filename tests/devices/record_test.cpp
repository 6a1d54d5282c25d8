// SPDX-License-Identifier: LGPL-2.1-or-later
#include "devices/exterdeviceinfo.h"
#include "devices/redirectconstants.h"
#include "devices/samplerecords.h"
#include "support/printing.h"

#include <gtest/gtest.h>

#include <QVariant>

#include <type_traits>

namespace {

const QString textOfADefaultRecord = QStringLiteral(
    "Device info: deviceGUID = , vid = , pid = , deviceName = , devClass = , status = 0,storeLetter =, deviceId = , "
    "readOnly = 0,rdrName = , usbHub = , usbPort = , nFunctionId = 0, isCompositeDevice =0, isMatchContext =0, "
    "context =, rel = , prot =, subClass =,isCDROM =0, errCode =, errStr =.");

struct TextField
{
    const char *name;
    QString ExterDeviceInfo::*member;
};

const TextField textFields[] = {
    {"rdrName", &ExterDeviceInfo::rdrName},
    {"context", &ExterDeviceInfo::context},
    {"vendorId", &ExterDeviceInfo::vendorId},
    {"productId", &ExterDeviceInfo::productId},
    {"deviceId", &ExterDeviceInfo::deviceId},
    {"devicePosition", &ExterDeviceInfo::devicePosition},
    {"deviceName", &ExterDeviceInfo::deviceName},
    {"deviceClass", &ExterDeviceInfo::deviceClass},
    {"storeLetter", &ExterDeviceInfo::storeLetter},
    {"usbHub", &ExterDeviceInfo::usbHub},
    {"usbPort", &ExterDeviceInfo::usbPort},
    {"spareTextA", &ExterDeviceInfo::spareTextA},
    {"vmId", &ExterDeviceInfo::vmId},
    {"spareTextB", &ExterDeviceInfo::spareTextB},
    {"usbProt", &ExterDeviceInfo::usbProt},
    {"deviceRel", &ExterDeviceInfo::deviceRel},
    {"deviceSubClass", &ExterDeviceInfo::deviceSubClass},
    {"errCode", &ExterDeviceInfo::errCode},
    {"errString", &ExterDeviceInfo::errString},
};

// Another translation unit's dynamic initialisation already finds the names.
const QString joinedWhileThisProgramStarts = USBRDR + DISKRDR + CAMRDR + SPICEMODE + TCPMODE;

} // namespace

TEST(RedirectConstants, hold_the_words_of_the_component)
{
    EXPECT_EQ(USBRDR, QStringLiteral("usbrdr"));
    EXPECT_EQ(DISKRDR, QStringLiteral("diskrdr"));
    EXPECT_EQ(CAMRDR, QStringLiteral("camrdr"));
    EXPECT_EQ(SPICEMODE, QStringLiteral("spice"));
    EXPECT_EQ(TCPMODE, QStringLiteral("tcp"));
}

TEST(RedirectConstants, are_there_once_the_library_has_been_loaded)
{
    EXPECT_EQ(joinedWhileThisProgramStarts, QStringLiteral("usbrdrdiskrdrcamrdrspicetcp"));
}

TEST(DeviceRecord, texts_are_empty_by_default)
{
    const ExterDeviceInfo device;
    for (const TextField &field : textFields)
        EXPECT_EQ(device.*field.member, QString()) << field.name;
    EXPECT_TRUE(device.spareTextB.isNull());
}

TEST(DeviceRecord, transport_is_spice_by_default)
{
    EXPECT_EQ(ExterDeviceInfo().transportMode, QStringLiteral("spice"));
}

TEST(DeviceRecord, numbers_and_flags_have_their_defaults)
{
    const ExterDeviceInfo device;
    EXPECT_EQ(device.status, 0);
    EXPECT_EQ(device.parsedStatus, 0);
    EXPECT_EQ(device.spareValueA, 1);
    EXPECT_EQ(device.nFunctionId, 0);
    EXPECT_EQ(device.founctionBitmapMask, 0);
    EXPECT_EQ(device.spareValueB, 0);
    EXPECT_EQ(device.spareValueC, 0);
    EXPECT_FALSE(device.readOnly);
    EXPECT_FALSE(device.spareFlagA);
    EXPECT_TRUE(device.spareFlagB);
    EXPECT_FALSE(device.isCompositeDevice);
    EXPECT_FALSE(device.isCDROM);
    EXPECT_FALSE(device.isMatchContext);
    EXPECT_TRUE(device.functions.isEmpty());
}

TEST(DeviceRecord, a_function_is_empty_by_default)
{
    const FunctionInfo function{};
    EXPECT_EQ(function.founctionId, 0);
    EXPECT_EQ(function.founctionClass, QString());
    EXPECT_EQ(function.founctionBitmapMask, 0);
}

TEST(DeviceRecord, a_copy_has_every_field)
{
    const ExterDeviceInfo device = filledRecord();
    const ExterDeviceInfo copy(device);
    ExterDeviceInfo assigned;
    assigned = device;
    EXPECT_EQ(copy, device);
    EXPECT_EQ(assigned, device);
    EXPECT_FALSE(copy == ExterDeviceInfo());
}

TEST(DeviceRecord, a_copy_has_the_three_functions_in_their_order)
{
    const ExterDeviceInfo copy = filledRecord();
    const QList<FunctionInfo> expected{
        {1, QStringLiteral("08"), 1}, {2, QStringLiteral("03"), 2}, {3, QStringLiteral("0e"), 4}};
    EXPECT_EQ(copy.functions, expected);
}

TEST(DeviceRecord, a_copy_stays_as_it_is_when_the_original_changes)
{
    ExterDeviceInfo device = filledRecord();
    const ExterDeviceInfo copy(device);
    device.functions.removeFirst();
    device.functions[0].founctionClass = QStringLiteral("ff");
    device.deviceId.append(QLatin1Char('x'));
    EXPECT_EQ(copy, filledRecord());
}

TEST(DeviceRecord, is_a_plain_value)
{
    EXPECT_TRUE(std::is_copy_constructible<ExterDeviceInfo>::value);
    EXPECT_TRUE(std::is_copy_assignable<ExterDeviceInfo>::value);
    EXPECT_TRUE(std::is_default_constructible<ExterDeviceInfo>::value);
    EXPECT_FALSE(std::is_polymorphic<ExterDeviceInfo>::value);
    EXPECT_FALSE(std::is_polymorphic<FunctionInfo>::value);
}

TEST(DeviceRecord, alone_and_in_a_list_travels_through_the_meta_type_system)
{
    EXPECT_NE(qRegisterMetaType<ExterDeviceInfo>("ExterDeviceInfo"), int(QMetaType::UnknownType));
    EXPECT_NE(qRegisterMetaType<QList<ExterDeviceInfo>>("QList<ExterDeviceInfo>"), int(QMetaType::UnknownType));
    EXPECT_EQ(QVariant::fromValue(filledRecord()).value<ExterDeviceInfo>(), filledRecord());

    const QList<ExterDeviceInfo> list{filledRecord(), ExterDeviceInfo()};
    EXPECT_EQ(QVariant::fromValue(list).value<QList<ExterDeviceInfo>>(), list);
}

TEST(DeviceText, of_a_default_record_has_zeros_and_nothing_else)
{
    EXPECT_EQ(ExterDeviceInfo().getDevInfo(), textOfADefaultRecord);
}

TEST(DeviceText, of_a_filled_record_has_each_field_in_its_place)
{
    EXPECT_EQ(filledRecord().getDevInfo(),
              QStringLiteral("Device info: deviceGUID = 1-1.4, vid = 0A5C, pid = 21E8, deviceName = Example Storage, "
                             "devClass = 08, status = 2,storeLetter =E, deviceId = dev-1, readOnly = 1,rdrName = "
                             "usbrdr, usbHub = hub1, usbPort = port4, nFunctionId = 7, isCompositeDevice =1, "
                             "isMatchContext =1, context =ctx-01, rel = 0100, prot =50, subClass =06,isCDROM =1, "
                             "errCode =E17, errStr =BUSY."));
}

TEST(DeviceText, shows_each_flag_at_its_own_label)
{
    const struct
    {
        bool ExterDeviceInfo::*flag;
        const char *label;
    } flags[] = {
        {&ExterDeviceInfo::readOnly, "readOnly = "},
        {&ExterDeviceInfo::isCompositeDevice, "isCompositeDevice ="},
        {&ExterDeviceInfo::isMatchContext, "isMatchContext ="},
        {&ExterDeviceInfo::isCDROM, "isCDROM ="},
    };
    for (const auto &flag : flags) {
        ExterDeviceInfo device;
        device.*flag.flag = true;
        QString expected = textOfADefaultRecord;
        expected.replace(QLatin1String(flag.label) + QLatin1Char('0'), QLatin1String(flag.label) + QLatin1Char('1'));
        EXPECT_NE(expected, textOfADefaultRecord) << flag.label;
        EXPECT_EQ(device.getDevInfo(), expected) << flag.label;
    }
}

TEST(DeviceText, shows_negative_numbers_in_decimal)
{
    ExterDeviceInfo device;
    device.status = -2;
    device.nFunctionId = -31;
    QString expected = textOfADefaultRecord;
    expected.replace(QStringLiteral("status = 0"), QStringLiteral("status = -2"))
        .replace(QStringLiteral("nFunctionId = 0"), QStringLiteral("nFunctionId = -31"));
    EXPECT_EQ(device.getDevInfo(), expected);
}

TEST(DeviceText, leaves_out_the_fields_that_have_no_label)
{
    ExterDeviceInfo device;
    device.parsedStatus = 5;
    device.spareValueA = 6;
    device.spareFlagA = true;
    device.spareFlagB = false;
    device.transportMode = TCPMODE;
    device.founctionBitmapMask = 7;
    device.spareValueB = 8;
    device.functions = filledRecord().functions;
    device.spareValueC = 9;
    device.spareTextA = QStringLiteral("a");
    device.vmId = QStringLiteral("vm");
    device.spareTextB = QStringLiteral("b");
    EXPECT_EQ(device.getDevInfo(), textOfADefaultRecord);
}

TEST(DeviceText, a_later_placeholder_in_a_text_is_filled_together_with_the_template_s_own)
{
    ExterDeviceInfo device;
    device.deviceName = QStringLiteral("<%5>");
    device.deviceClass = QStringLiteral("08");
    QString expected = textOfADefaultRecord;
    expected.replace(QStringLiteral("deviceName = , devClass = "), QStringLiteral("deviceName = <08>, devClass = 08"));
    EXPECT_EQ(device.getDevInfo(), expected);
}

TEST(DeviceText, a_first_placeholder_in_the_position_moves_all_that_follows_by_one)
{
    ExterDeviceInfo device = filledRecord();
    device.devicePosition = QStringLiteral("%1");
    EXPECT_EQ(device.getDevInfo(),
              QStringLiteral("Device info: deviceGUID = 0A5C, vid = 21E8, pid = Example Storage, deviceName = 08, "
                             "devClass = 2, status = E,storeLetter =dev-1, deviceId = 1, readOnly = usbrdr,rdrName = "
                             "hub1, usbHub = port4, usbPort = 7, nFunctionId = 1, isCompositeDevice =1, "
                             "isMatchContext =ctx-01, context =0100, rel = 50, prot =06, subClass =1,isCDROM =E17, "
                             "errCode =BUSY, errStr =%22."));
}

TEST(DeviceText, an_earlier_placeholder_in_a_text_takes_the_next_value)
{
    ExterDeviceInfo device = filledRecord();
    device.errCode = QStringLiteral("%1");
    EXPECT_TRUE(device.getDevInfo().endsWith(QStringLiteral("isCDROM =1, errCode =BUSY, errStr =%22.")))
        << device.getDevInfo().toStdString();
}

TEST(DeviceText, placeholders_beyond_the_last_stay)
{
    ExterDeviceInfo device;
    device.errString = QStringLiteral("100%, %1 and %99");
    QString expected = textOfADefaultRecord;
    expected.replace(QStringLiteral("errStr =."), QStringLiteral("errStr =100%, %1 and %99."));
    EXPECT_EQ(device.getDevInfo(), expected);
}

TEST(DeviceRecord, has_texts_that_are_empty_and_not_null_but_for_the_one_that_nobody_fills)
{
    const ExterDeviceInfo record;
    for (const TextField &field : textFields)
        EXPECT_EQ((record.*field.member).isNull(), field.member == &ExterDeviceInfo::spareTextB) << field.name;
    EXPECT_FALSE(FunctionInfo().founctionClass.isNull());
}
