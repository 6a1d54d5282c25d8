// SPDX-License-Identifier: LGPL-2.1-or-later

// Device-list documents that nobody would write in good faith.

#include "devices/externaldevicelistparser.h"
#include "stress/stressbench.h"

#include <QElapsedTimer>

namespace {

class HostileList : public ::testing::Test
{
protected:
    bool parse(const std::string &document)
    {
        devices.clear();
        // On the heap and without an end, so that a byte too many is noticed.
        const std::vector<char> bytes(document.begin(), document.end());
        return parseExternalDeviceList(bytes.data(), static_cast<unsigned int>(bytes.size()), devices);
    }

    static std::string repeated(const char *part, int times)
    {
        std::string text;
        for (int i = 0; i < times; ++i)
            text += part;
        return text;
    }

    Deadline deadline{250};
    QuietLog log;
    QList<ExterDeviceInfo> devices;
};

} // namespace

TEST_F(HostileList, of_depth_2000_is_refused)
{
    EXPECT_FALSE(parse(repeated("[", 2000) + repeated("]", 2000)));
    EXPECT_FALSE(parse(repeated("{\"devices\":[", 2000) + repeated("]}", 2000)));
    EXPECT_FALSE(parse("[{\"devices\":[{\"deviceId\":" + repeated("[", 2000) + repeated("]", 2000) + "}]}]"));
    EXPECT_FALSE(parse(repeated("[", 100000)));
    EXPECT_FALSE(parse(repeated("{\"a\":", 100000)));
    EXPECT_EQ(devices.size(), 0);
}

TEST_F(HostileList, of_100000_devices_is_read_whole)
{
    std::vector<std::string> all;
    for (int i = 0; i < 100000; ++i)
        all.push_back("\"deviceId\":\"" + std::to_string(i) + "\"");
    ASSERT_TRUE(parse(Component::listDocument(all)));
    ASSERT_EQ(devices.size(), 100000);
    EXPECT_EQ(devices.first().deviceId, QStringLiteral("0"));
    EXPECT_EQ(devices.last().deviceId, QStringLiteral("99999"));
    DevRedirectManger::instance()->setDevListInfo(devices);
    ExterDeviceInfo found;
    EXPECT_TRUE(DevRedirectManger::instance()->getDeviceInfoByDeviceId(QStringLiteral("99999"), &found));
    EXPECT_EQ(found.devicePosition, QStringLiteral("99999"));
}

TEST_F(HostileList, of_100000_functions_or_100000_elements_is_read_whole)
{
    ASSERT_TRUE(parse("[{\"devices\":[{\"founctionInfo\":[1" + repeated(",{}", 99999) + "]}]}]"));
    ASSERT_EQ(devices.size(), 1);
    EXPECT_EQ(devices[0].functions.size(), 100000);
    ASSERT_TRUE(parse("[{\"devices\":[{}]}" + repeated(",{\"devices\":[{}]}", 99999) + "]"));
    EXPECT_EQ(devices.size(), 100000);
}

TEST_F(HostileList, with_duplicate_keys_takes_the_last_one)
{
    ASSERT_TRUE(parse("[{\"devices\":[{\"deviceId\":\"a\",\"deviceId\":\"b\",\"deviceId\":\"c\"}]}]"));
    ASSERT_EQ(devices.size(), 1);
    EXPECT_EQ(devices[0].deviceId, QStringLiteral("c"));
}

TEST_F(HostileList, with_duplicate_keys_for_containers_takes_the_last_one)
{
    ASSERT_TRUE(parse("[{\"devices\":[{\"deviceId\":\"a\"}],\"devices\":[{\"deviceId\":\"b\"}]}]"));
    ASSERT_EQ(devices.size(), 1);
    EXPECT_EQ(devices[0].deviceId, QStringLiteral("b"));
}

TEST_F(HostileList, with_invalid_utf8_fails_or_reads_but_never_leaves_the_document)
{
    for (const char *bad :
         {"\xff", "\xc3", "\xe2\x82", "\xf0\x9f\x92", "\xed\xa0\x80", "\xc0\x80", "\xf8\x88\x80\x80"}) {
        const std::string start = std::string("[{\"devices\":[{\"deviceId\":\"") + bad;
        EXPECT_FALSE(parse(start + "\"}]}]")) << bad;
        EXPECT_FALSE(parse(start)) << bad;
        EXPECT_FALSE(parse(bad)) << bad;
        EXPECT_EQ(devices.size(), 0);
    }
}

TEST_F(HostileList, cut_off_after_any_byte_is_refused)
{
    const std::string document = "[{\"devices\":[{\"deviceId\":\"\\u00e4\xc3\xa4\",\"readOnly\":true,\"x\":-1.5e3,"
                                 "\"founctionInfo\":[{\"founctionId\":\"1\"}]}]}]";
    ASSERT_TRUE(parse(document));
    for (std::size_t length = 0; length < document.size(); ++length)
        EXPECT_FALSE(parse(document.substr(0, length))) << length;
}

TEST_F(HostileList, with_numbers_out_of_range_reads_them_as_0)
{
    for (const char *number :
         {"99999999999999999999", "-99999999999999999999", "2147483648", "-2147483649", "1e9", ""}) {
        const std::string text = std::string("\"") + number + "\"";
        ASSERT_TRUE(parse("[{\"devices\":[{\"isShared\":" + text + ",\"founctionBitmapMask\":" + text
                          + ",\"founctionInfo\":[{\"founctionId\":" + text + "}]}]}]"));
        ASSERT_EQ(devices.size(), 1) << number;
        EXPECT_EQ(devices[0].status, 0) << number;
        EXPECT_EQ(devices[0].founctionBitmapMask, 0) << number;
        EXPECT_EQ(devices[0].functions.value(0).founctionId, 1) << number;
    }
    for (const char *number : {"1e999", "-1e999", "123456789012345678901234567890", "1e-999"})
        parse(std::string("[{\"devices\":[{\"isShared\":") + number + "}]}]"); // no matter how, as long as it ends
    ASSERT_TRUE(parse("[{\"devices\":[{\"founctionInfo\":[{\"founctionId\":\"2147483647\"}]}]}]"));
    EXPECT_EQ(devices.value(0).functions.value(0).founctionId, 2147483647);
}
