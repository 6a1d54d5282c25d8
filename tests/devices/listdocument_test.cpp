// SPDX-License-Identifier: LGPL-2.1-or-later
#include "devices/devredirectmanger.h"
#include "devices/externaldevicelistparser.h"
#include "devices/samplerecords.h"
#include "support/logrecorder.h"
#include "support/printing.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>

namespace {

struct Parsed
{
    bool ok = false;
    QList<ExterDeviceInfo> devices;
};

// The text stands in a block of exactly its size, so that a sanitizer sees a byte that is read behind it.
Parsed parse(const std::string &text)
{
    const std::unique_ptr<char[]> bytes(new char[text.size()]);
    std::memcpy(bytes.get(), text.data(), text.size());
    Parsed result;
    result.ok = parseExternalDeviceList(bytes.get(), unsigned(text.size()), result.devices);
    return result;
}

ExterDeviceInfo parseDevice(const std::string &members)
{
    const Parsed parsed = parse("[{\"devices\":[{" + members + "}]}]");
    EXPECT_TRUE(parsed.ok) << members;
    EXPECT_EQ(parsed.devices.size(), 1) << members;
    return parsed.devices.value(0);
}

// What a device object without any key gives.
ExterDeviceInfo emptyDevice()
{
    return ExterDeviceInfo();
}

QStringList idsOf(const QList<ExterDeviceInfo> &devices)
{
    QStringList ids;
    for (const ExterDeviceInfo &device : devices)
        ids.append(device.deviceId);
    return ids;
}

enum class Case { Kept, Upper };

struct TextKey
{
    const char *key;
    QString ExterDeviceInfo::*member;
    Case letters;
};

const TextKey textKeys[] = {
    {"rdrName", &ExterDeviceInfo::rdrName, Case::Kept},
    {"context", &ExterDeviceInfo::context, Case::Kept},
    {"vendorId", &ExterDeviceInfo::vendorId, Case::Upper},
    {"productId", &ExterDeviceInfo::productId, Case::Upper},
    {"devicePosition", &ExterDeviceInfo::devicePosition, Case::Upper},
    {"deviceName", &ExterDeviceInfo::deviceName, Case::Kept},
    {"deviceClass", &ExterDeviceInfo::deviceClass, Case::Upper},
    {"storeLetter", &ExterDeviceInfo::storeLetter, Case::Kept},
    {"deviceId", &ExterDeviceInfo::deviceId, Case::Kept},
    {"usbHub", &ExterDeviceInfo::usbHub, Case::Kept},
    {"usbPort", &ExterDeviceInfo::usbPort, Case::Kept},
    {"vmId", &ExterDeviceInfo::vmId, Case::Kept},
    {"usbProt", &ExterDeviceInfo::usbProt, Case::Upper},
    {"deviceRel", &ExterDeviceInfo::deviceRel, Case::Upper},
    {"deviceSubClass", &ExterDeviceInfo::deviceSubClass, Case::Upper},
    {"errCode", &ExterDeviceInfo::errCode, Case::Upper},
    {"errString", &ExterDeviceInfo::errString, Case::Upper},
};

// JSON values that are no strings.
const char *const notStrings[] = {"7", "1.5", "true", "false", "null", "[\"x\"]", "{\"x\":\"y\"}"};

struct Number
{
    const char *listed;
    int value;
};

// How an integer that is written as a JSON value reads.
const Number numbers[] = {
    {"\"0\"", 0},
    {"\"5\"", 5},
    {"\"-3\"", -3},
    {"\"007\"", 7},
    {"\"2147483646\"", 2147483646},
    {"\"99999999999\"", 0},
    {"\"0x10\"", 0},
    {"\"ff\"", 0},
    {"\"5 devices\"", 0},
    {"\"1.5\"", 0},
    {"\"\"", 0},
    {"5", 0},
    {"true", 0},
    {"null", 0},
    {"[\"5\"]", 0},
    {"{}", 0},
};

const char fullDocument[] = R"([
  {
    "devices": [
      {
        "rdrName": "usbrdr",
        "context": "ctx-01",
        "vendorId": "0a5c",
        "productId": "21e8",
        "devicePosition": "1-1.4",
        "deviceName": "Example Storage",
        "deviceClass": "08",
        "isShared": "1",
        "storeLetter": "E",
        "deviceId": "dev-0a5c-21e8-0001",
        "readOnly": false,
        "usbHub": "1",
        "usbPort": "4",
        "founctionBitmapMask": "3",
        "vmId": "vm-01",
        "usbProt": "50",
        "deviceRel": "0100",
        "deviceSubClass": "06",
        "errCode": "0",
        "errString": "",
        "founctionInfo": [
          { "founctionClass": "08", "founctionId": "0", "founctionBitmapMask": "1" },
          { "founctionClass": "03", "founctionId": "1", "founctionBitmapMask": "2" }
        ]
      }
    ]
  }
])";

ExterDeviceInfo fullDocumentRecord()
{
    ExterDeviceInfo device;
    device.rdrName = QStringLiteral("usbrdr");
    device.context = QStringLiteral("ctx-01");
    device.vendorId = QStringLiteral("0A5C");
    device.productId = QStringLiteral("21E8");
    device.devicePosition = QStringLiteral("1-1.4");
    device.deviceName = QStringLiteral("Example Storage");
    device.deviceClass = QStringLiteral("08");
    device.status = 2;
    device.parsedStatus = 2;
    device.storeLetter = QStringLiteral("E");
    device.deviceId = QStringLiteral("dev-0a5c-21e8-0001");
    device.usbHub = QStringLiteral("1");
    device.usbPort = QStringLiteral("4");
    device.founctionBitmapMask = 3;
    device.vmId = QStringLiteral("vm-01");
    device.usbProt = QStringLiteral("50");
    device.deviceRel = QStringLiteral("0100");
    device.deviceSubClass = QStringLiteral("06");
    device.errCode = QStringLiteral("0");
    device.isCompositeDevice = true;
    device.functions = {{1, QStringLiteral("08"), 1}, {2, QStringLiteral("03"), 2}};
    return device;
}

} // namespace

TEST(ListDocument, a_full_device_gives_its_record)
{
    const Parsed parsed = parse(fullDocument);
    EXPECT_TRUE(parsed.ok);
    EXPECT_EQ(parsed.devices, QList<ExterDeviceInfo>{fullDocumentRecord()});
}

TEST(ListDocument, a_device_is_logged_with_its_functions)
{
    LogRecorder log;
    parse(fullDocument);
    const QString length = QString::number(sizeof(fullDocument) - 1);
    EXPECT_EQ(log.lines(),
              (QStringList{
                  QStringLiteral("debug: [ parseExternalDeviceList ] [REDIR_MODULE]  enter!  parse external device "
                                 "list. devices.count:  0  ,length:  ")
                      + length,
                  QStringLiteral("debug: [ parseExternalDeviceList ] [REDIR_MODULE]  json Array count:  1  ,jsonStr:  "
                                 "\"\""),
                  QStringLiteral("info: [ parseExternalDeviceList ] [REDIR_MODULE] deviceInfo.errCode \"0\" "
                                 "deviceInfo.errStr \"\""),
                  QStringLiteral("debug: [ parseExternalDeviceList ] [REDIR_MODULE] device: \"1-1.4\" "
                                 ",deviceBitmapMask: 3"),
                  QStringLiteral("debug: [ parseExternalDeviceList ] [REDIR_MODULE] device: \"1-1.4\" ,functionclass: "
                                 "\"08\" ,functionId: 1 ,functionBitmapMask: 1"),
                  QStringLiteral("debug: [ parseExternalDeviceList ] [REDIR_MODULE] device: \"1-1.4\" ,functionclass: "
                                 "\"03\" ,functionId: 2 ,functionBitmapMask: 2"),
                  QStringLiteral("debug: [ parseExternalDeviceList ] [REDIR_MODULE]  end"),
              }));
}

TEST(ListDocument, an_error_of_a_device_is_logged_in_upper_case_and_the_position_after_its_replacement)
{
    LogRecorder log;
    parse(R"([{"devices":[{"deviceId":"dev-a","errCode":"e17","errString":"busy"}]}])");
    EXPECT_TRUE(log.has(QStringLiteral(
        "info: [ parseExternalDeviceList ] [REDIR_MODULE] deviceInfo.errCode \"E17\" deviceInfo.errStr \"BUSY\"")));
    EXPECT_TRUE(log.has(
        QStringLiteral("debug: [ parseExternalDeviceList ] [REDIR_MODULE] device: \"dev-a\" ,deviceBitmapMask: 0")));
}

TEST(ListDocument, each_text_key_fills_its_field_and_no_other)
{
    for (const TextKey &text : textKeys) {
        ExterDeviceInfo expected = emptyDevice();
        expected.*text.member = QString::fromUtf8(text.letters == Case::Upper ? "AB-1C É" : "aB-1c é");
        if (text.member == &ExterDeviceInfo::deviceId)
            expected.devicePosition = expected.deviceId;
        const ExterDeviceInfo device = parseDevice('"' + std::string(text.key) + "\":\"aB-1c é\"");
        EXPECT_EQ(device, expected) << text.key;
    }
}

TEST(ListDocument, a_text_key_with_another_type_reads_as_empty)
{
    for (const TextKey &text : textKeys) {
        for (const char *value : notStrings)
            EXPECT_EQ(parseDevice('"' + std::string(text.key) + "\":" + value), emptyDevice())
                << text.key << ':' << value;
    }
}

TEST(ListDocument, a_key_in_other_letters_is_not_read)
{
    EXPECT_EQ(parseDevice(R"("RdrName":"usbrdr","deviceid":"a","vendorID":"b","functionInfo":[{}],"unknown":"c")"),
              emptyDevice());
}

TEST(ListDocument, a_device_without_any_key_gives_a_record_of_defaults)
{
    EXPECT_EQ(parseDevice(""), emptyDevice());
}

TEST(ListDocument, the_share_state_is_two_for_every_number_except_zero)
{
    for (const Number &number : numbers) {
        const ExterDeviceInfo device = parseDevice(std::string("\"isShared\":") + number.listed);
        EXPECT_EQ(device.status, number.value == 0 ? 0 : 2) << number.listed;
        EXPECT_EQ(device.parsedStatus, device.status) << number.listed;
    }
}

TEST(ListDocument, the_mask_of_a_device_is_a_number_in_a_string)
{
    for (const Number &number : numbers) {
        const ExterDeviceInfo device = parseDevice(std::string("\"founctionBitmapMask\":") + number.listed);
        EXPECT_EQ(device.founctionBitmapMask, number.value) << number.listed;
    }
}

TEST(ListDocument, the_number_of_a_function_is_stored_plus_one)
{
    for (const Number &number : numbers) {
        const ExterDeviceInfo device =
            parseDevice(std::string("\"founctionInfo\":[{\"founctionId\":") + number.listed + "}]");
        EXPECT_EQ(device.functions, (QList<FunctionInfo>{{number.value + 1, QString(), 0}})) << number.listed;
    }
}

TEST(ListDocument, a_listed_function_7_is_stored_as_8)
{
    const ExterDeviceInfo device = parseDevice(R"("founctionInfo":[{"founctionId":"7"}])");
    ASSERT_EQ(device.functions.size(), 1);
    EXPECT_EQ(device.functions[0].founctionId, 8);
}

TEST(ListDocument, the_highest_function_number_does_no_harm)
{
    const ExterDeviceInfo device =
        parseDevice(R"("deviceId":"a","founctionInfo":[{"founctionId":"2147483647"},{"founctionId":"1"}])");
    EXPECT_EQ(device.deviceId, QStringLiteral("a"));
    ASSERT_EQ(device.functions.size(), 2);
    EXPECT_EQ(device.functions[1].founctionId, 2);
}

TEST(ListDocument, the_mask_of_a_function_is_a_number_in_a_string)
{
    for (const Number &number : numbers) {
        const ExterDeviceInfo device =
            parseDevice(std::string("\"founctionInfo\":[{\"founctionBitmapMask\":") + number.listed + "}]");
        EXPECT_EQ(device.functions, (QList<FunctionInfo>{{1, QString(), number.value}})) << number.listed;
    }
}

TEST(ListDocument, the_class_of_a_function_keeps_its_letters)
{
    EXPECT_EQ(parseDevice(R"("founctionInfo":[{"founctionClass":"0e"}])").functions,
              (QList<FunctionInfo>{{1, QStringLiteral("0e"), 0}}));
    for (const char *value : notStrings)
        EXPECT_EQ(parseDevice(std::string("\"founctionInfo\":[{\"founctionClass\":") + value + "}]").functions,
                  (QList<FunctionInfo>{{1, QString(), 0}}))
            << value;
}

TEST(ListDocument, functions_keep_their_order)
{
    const ExterDeviceInfo device = parseDevice(
        R"("founctionInfo":[{"founctionId":"4"},{"founctionId":"0"},{"founctionId":"2"},{"founctionId":"0"}])");
    EXPECT_EQ(device.functions,
              (QList<FunctionInfo>{{5, QString(), 0}, {1, QString(), 0}, {3, QString(), 0}, {1, QString(), 0}}));
    EXPECT_TRUE(device.isCompositeDevice);
}

TEST(ListDocument, an_empty_list_of_functions_makes_no_composite_device)
{
    const ExterDeviceInfo device = parseDevice(R"("founctionInfo":[])");
    EXPECT_FALSE(device.isCompositeDevice);
    EXPECT_TRUE(device.functions.isEmpty());
}

TEST(ListDocument, functions_that_are_no_array_make_no_composite_device)
{
    for (const char *value : {"{\"founctionId\":\"1\"}", "\"1\"", "1", "true", "null"})
        EXPECT_EQ(parseDevice(std::string("\"founctionInfo\":") + value), emptyDevice()) << value;
}

TEST(ListDocument, a_function_that_is_no_object_has_the_values_of_an_empty_one)
{
    const ExterDeviceInfo device = parseDevice(R"("founctionInfo":["x",{"founctionId":"1"}])");
    EXPECT_TRUE(device.isCompositeDevice);
    EXPECT_EQ(device.functions, (QList<FunctionInfo>{{1, QString(), 0}, {2, QString(), 0}}));
}

TEST(ListDocument, read_only_is_read_as_a_boolean_and_nothing_else)
{
    EXPECT_TRUE(parseDevice(R"("readOnly":true)").readOnly);
    for (const char *value : {"false", "\"true\"", "\"1\"", "1", "null", "[true]", "{}"})
        EXPECT_FALSE(parseDevice(std::string("\"readOnly\":") + value).readOnly) << value;
}

TEST(ListDocument, a_device_without_position_gets_its_id_as_position)
{
    for (const char *position : {"", R"(,"devicePosition":"")", R"(,"devicePosition":7)"}) {
        const ExterDeviceInfo device = parseDevice(std::string(R"("deviceId":"dev-aB")") + position);
        EXPECT_EQ(device.devicePosition, QStringLiteral("dev-aB")) << position;
        EXPECT_EQ(device.deviceId, QStringLiteral("dev-aB")) << position;
    }
}

TEST(ListDocument, a_listed_position_stays)
{
    EXPECT_EQ(parseDevice(R"("deviceId":"dev-a","devicePosition":"pos-b")").devicePosition, QStringLiteral("POS-B"));
}

TEST(ListDocument, spare_flags_are_set_for_every_device)
{
    const ExterDeviceInfo device = parseDevice(R"("spareFlagA":true,"spareFlagB":false)");
    EXPECT_FALSE(device.spareFlagA);
    EXPECT_TRUE(device.spareFlagB);
}

TEST(ListDocument, two_elements_with_two_devices_each_give_four_records_in_document_order)
{
    const Parsed parsed = parse(R"([{"devices":[{"deviceId":"d"},{"deviceId":"a"}]},)"
                                R"({"devices":[{"deviceId":"c"},{"deviceId":"b"}]}])");
    EXPECT_TRUE(parsed.ok);
    EXPECT_EQ(idsOf(parsed.devices), (QStringList{"d", "a", "c", "b"}));
}

TEST(ListDocument, devices_of_equal_id_all_give_a_record)
{
    EXPECT_EQ(idsOf(parse(R"([{"devices":[{"deviceId":"a"},{"deviceId":"a"}]}])").devices), (QStringList{"a", "a"}));
}

TEST(ListDocument, records_are_appended_to_what_is_there)
{
    LogRecorder log;
    QList<ExterDeviceInfo> devices{recordWithId(QStringLiteral("old")), recordWithId(QStringLiteral("older"))};
    const std::string text = R"([{"devices":[{"deviceId":"new"}]}])";
    EXPECT_TRUE(parseExternalDeviceList(text.data(), unsigned(text.size()), devices));
    EXPECT_EQ(idsOf(devices), (QStringList{"old", "older", "new"}));
    EXPECT_EQ(log.lines().value(0),
              QStringLiteral("debug: [ parseExternalDeviceList ] [REDIR_MODULE]  enter!  parse external device list. "
                             "devices.count:  2  ,length:  34"));
}

TEST(ListDocument, an_empty_array_gives_no_record_and_is_fine)
{
    LogRecorder log;
    const Parsed parsed = parse("[]");
    EXPECT_TRUE(parsed.ok);
    EXPECT_TRUE(parsed.devices.isEmpty());
    EXPECT_EQ(log.lines(),
              (QStringList{
                  QStringLiteral("debug: [ parseExternalDeviceList ] [REDIR_MODULE]  enter!  parse external device "
                                 "list. devices.count:  0  ,length:  2"),
                  QStringLiteral("debug: [ parseExternalDeviceList ] [REDIR_MODULE]  json Array count:  0  ,jsonStr:  "
                                 "\"\""),
                  QStringLiteral("debug: [ parseExternalDeviceList ] [REDIR_MODULE]  end"),
              }));
}

TEST(ListDocument, a_document_of_another_shape_gives_no_record_and_is_fine)
{
    const struct
    {
        const char *text;
        int elements;
    } documents[] = {
        {R"({"devices":[{"deviceId":"a"}]})", 0},
        {"{}", 0},
        {R"([{}])", 1},
        {R"([{"Devices":[{"deviceId":"a"}]}])", 1},
        {R"([{"devices":{"deviceId":"a"}}])", 1},
        {R"([{"devices":"a"},{"devices":1},{"devices":null}])", 3},
        {R"([{"devices":[]}])", 1},
        {R"([[{"deviceId":"a"}],"a",1,true,null])", 5},
    };
    for (const auto &document : documents) {
        DevRedirectManger::instance()->setDevListJsonStr(QStringLiteral("text of before"));
        LogRecorder log;
        const Parsed parsed = parse(document.text);
        EXPECT_TRUE(parsed.ok) << document.text;
        EXPECT_TRUE(parsed.devices.isEmpty()) << document.text;
        EXPECT_EQ(DevRedirectManger::instance()->getdevListJsonStr(), QString()) << document.text;
        EXPECT_EQ(log.lines().value(1),
                  QStringLiteral("debug: [ parseExternalDeviceList ] [REDIR_MODULE]  json Array count:  %1  "
                                 ",jsonStr:  \"\"")
                      .arg(document.elements))
            << document.text;
    }
}

TEST(ListDocument, an_entry_that_is_no_object_gives_no_record)
{
    EXPECT_EQ(
        idsOf(parse(R"([{"devices":["x",{"deviceId":"a"},7,null,[{"deviceId":"b"}],true,{"deviceId":"c"}]}])").devices),
        (QStringList{"a", "c"}));
}

TEST(ListDocument, elements_without_devices_do_not_hide_those_that_have_some)
{
    EXPECT_EQ(idsOf(parse(R"([{},"x",{"devices":7},{"devices":[{"deviceId":"a"}]},null])").devices), QStringList{"a"});
}

TEST(ListDocument, malformed_text_gives_two_critical_lines_and_changes_nothing)
{
    const struct
    {
        std::string text;
        const char *error;
    } documents[] = {
        {"", "illegal value"},
        {"hello", "illegal value"},
        {"[{\"devices\":[{\"deviceId\":\"a\"}]}", "unterminated array"},
        {"[{\"devices\" [", "missing name separator"},
        {"[] []", "garbage at the end of the document"},
        {"[{\"devices\":[{\"deviceId\":\"a\"}]}]x", "garbage at the end of the document"},
        {"[{\"devices\":[{\"deviceId\":\"\xff\"}]}]", "invalid UTF8 string"},
    };
    for (const auto &document : documents) {
        DevRedirectManger::instance()->setDevListJsonStr(QStringLiteral("text of before"));
        QList<ExterDeviceInfo> devices{recordWithId(QStringLiteral("old"))};
        LogRecorder log;
        EXPECT_FALSE(parseExternalDeviceList(document.text.data(), unsigned(document.text.size()), devices))
            << document.text;
        EXPECT_EQ(idsOf(devices), QStringList{"old"}) << document.text;
        EXPECT_EQ(DevRedirectManger::instance()->getdevListJsonStr(), QStringLiteral("text of before"));
        EXPECT_EQ(log.lines(),
                  (QStringList{
                      QStringLiteral("debug: [ parseExternalDeviceList ] [REDIR_MODULE]  enter!  parse external device "
                                     "list. devices.count:  1  ,length:  %1")
                          .arg(document.text.size()),
                      QStringLiteral("critical: [ parseExternalDeviceList ] [REDIR_MODULE] parse json error:  \"%1\"")
                          .arg(QLatin1String(document.error)),
                      QStringLiteral("critical: [ parseExternalDeviceList ] [REDIR_MODULE] \" Json Parse Error: %1\"")
                          .arg(QLatin1String(document.error)),
                  }));
    }
}

TEST(ListDocument, null_data_of_length_zero_is_malformed)
{
    LogRecorder log;
    QList<ExterDeviceInfo> devices;
    EXPECT_FALSE(parseExternalDeviceList(nullptr, 0, devices));
    EXPECT_TRUE(devices.isEmpty());
    EXPECT_EQ(log.linesWith(QStringLiteral("critical: ")).size(), 2);
}

TEST(ListDocument, exactly_the_given_bytes_are_read)
{
    const char text[] = R"([{"devices":[{"deviceId":"a"}]}])"
                        "behind the end";
    QList<ExterDeviceInfo> devices;
    EXPECT_TRUE(parseExternalDeviceList(text, sizeof(R"([{"devices":[{"deviceId":"a"}]}])") - 1, devices));
    EXPECT_EQ(idsOf(devices), QStringList{"a"});
    EXPECT_FALSE(parseExternalDeviceList(text, sizeof(text) - 1, devices));
    EXPECT_FALSE(parseExternalDeviceList(text, sizeof(R"([{"devices":[{"deviceId":"a"}]}])") - 2, devices));
}

TEST(ListDocument, a_nul_byte_within_the_length_is_part_of_the_text)
{
    QList<ExterDeviceInfo> devices;
    EXPECT_FALSE(parseExternalDeviceList("[]\0x", 4, devices));
}

TEST(ListDocument, the_text_that_the_registry_keeps_is_empty_after_every_list)
{
    DevRedirectManger::instance()->setDevListJsonStr(QStringLiteral("text of before"));
    parse(fullDocument);
    EXPECT_EQ(DevRedirectManger::instance()->getdevListJsonStr(), QString());
}

TEST(ListDocument, reading_a_list_does_not_store_its_records)
{
    QList<ExterDeviceInfo> stored{recordWithId(QStringLiteral("stored"))};
    DevRedirectManger::instance()->setDevListInfo(stored);
    DevRedirectManger::instance()->setMapsDevListInfo(stored);
    parse(fullDocument);
    EXPECT_EQ(DevRedirectManger::instance()->getDevListInfo(), stored);
    EXPECT_EQ(DevRedirectManger::instance()->getMapDevListInfo(), stored);
}

TEST(ListDocument, texts_that_are_missing_empty_or_of_another_type_are_empty_and_not_null)
{
    for (const char *device : {R"({"founctionInfo":[{}]})", R"({"vendorId":"","errCode":"","founctionInfo":[{}]})",
                               R"({"vendorId":7,"errCode":null,"founctionInfo":[{"founctionClass":false}]})",
                               R"({"vendorId":7.5,"errCode":null,"founctionInfo":[{"founctionClass":false}]})"}) {
        const std::string document = std::string(R"([{"devices":[)") + device + "]}]";
        QList<ExterDeviceInfo> devices;
        ASSERT_TRUE(parseExternalDeviceList(document.data(), unsigned(document.size()), devices)) << device;
        ASSERT_EQ(devices.size(), 1);
        for (const QString &text : {devices[0].vendorId, devices[0].errCode, devices[0].deviceName,
                                    devices[0].devicePosition, devices[0].functions.value(0).founctionClass})
            EXPECT_TRUE(text.isEmpty() && !text.isNull()) << device;
        EXPECT_TRUE(devices[0].spareTextB.isNull());
    }
}

TEST(ListDocument, with_a_number_that_is_no_integer_reads_the_same)
{
    for (const char *fraction : {"", ".5"}) {
        const std::string document =
            std::string(R"([{"devices":[{"deviceId":"a","vendorId":"abcd","isShared":"1","x":1)") + fraction
            + R"(,"founctionInfo":[{"founctionId":"4"}]}]}])";
        QList<ExterDeviceInfo> devices;
        ASSERT_TRUE(parseExternalDeviceList(document.data(), unsigned(document.size()), devices)) << fraction;
        ASSERT_EQ(devices.size(), 1) << fraction;
        EXPECT_EQ(devices[0].deviceId, QStringLiteral("a"));
        EXPECT_EQ(devices[0].devicePosition, QStringLiteral("a"));
        EXPECT_EQ(devices[0].vendorId, QStringLiteral("ABCD"));
        EXPECT_EQ(devices[0].status, 2);
        EXPECT_EQ(devices[0].functions.value(0).founctionId, 5);
    }
}

TEST(ListDocument, with_a_number_that_is_too_small_is_refused_as_qt_refuses_it)
{
    const std::string document = R"([{"devices":[{"deviceId":"a","x":0.1e-400}]}])";
    QList<ExterDeviceInfo> devices;
    EXPECT_FALSE(parseExternalDeviceList(document.data(), unsigned(document.size()), devices));
    EXPECT_EQ(devices.size(), 0);
}
