// SPDX-License-Identifier: LGPL-2.1-or-later
#include "json/readjson.h"
#include "stress/resources.h"

#include <gtest/gtest.h>

#include <QElapsedTimer>
#include <QJsonDocument>
#include <QJsonParseError>

namespace {

QByteArray compactOf(const QByteArray &text)
{
    return readJson(text).toJson(QJsonDocument::Compact);
}

/// Qt's reader as the reference. Not for documents in which it would lose memory.
void expectAsQtReads(const QByteArray &text)
{
    QJsonParseError expected;
    QJsonParseError actual;
    const QJsonDocument reference = QJsonDocument::fromJson(text, &expected);
    const QJsonDocument document = readJson(text, &actual);
    EXPECT_EQ(document, reference) << text.constData();
    EXPECT_EQ(document.isNull(), reference.isNull()) << text.constData();
    EXPECT_EQ(actual.error, expected.error) << text.constData();
    EXPECT_EQ(actual.offset, expected.offset) << text.constData();
}

QByteArray nested(int depth, const QByteArray &innermost)
{
    return QByteArray(depth, '[') + innermost + QByteArray(depth, ']');
}

} // namespace

TEST(ReadJson, reads_what_has_each_name_once_as_qt_does)
{
    for (const char *text : {
             "[]",
             "{}",
             " [ 1 , -2.5e3, true, false, null, \"text\", [ ], { } ] ",
             "\xef\xbb\xbf{\"a\":\"\xc3\xa4\\u00e4\\n\\\"\"}",
             "{\"a\":{\"a\":{\"a\":[{\"a\":1},{\"a\":2}]}},\"b\":\"a\",\"\":{},\"c\":[\"a\",\"a\"]}",
             "{\"a,\\\"\":1,\"}\":\"]\",\"a\\\\\":[\"{\\\"a\\\":\"]}",
             "{\"\\u0000a\":{},\"\\u0000b\":[],\"\\u0000\":1,\"\":2}",
             "{\"?\":1,\"\\ufffd\":2,\"\xef\xbb\xbfx\":{},\"x\":{},\"\\ud83d\\ude00\":3}",
         })
        expectAsQtReads(text);
    const char zero[] = "{\"a\":[1],\"a\0\":0,\"b\0c\":{}}";
    expectAsQtReads(QByteArray(zero, sizeof zero - 1));
}

TEST(ReadJson, takes_the_last_of_the_members_with_one_name)
{
    const struct
    {
        const char *text;
        const char *expected;
    } table[] = {
        {"{\"a\":1,\"a\":2}", "{\"a\":2}"},
        {"{\"a\":[1],\"b\":3,\"a\":{\"c\":2}}", "{\"a\":{\"c\":2},\"b\":3}"},
        {"{\"a\":{\"x\":[]},\"a\":[{}],\"a\":\"\"}", "{\"a\":\"\"}"},
        {" { \"a\" : { } \n, \"b\":0,\t\"a\" :\r[ 5 ] } ", "{\"a\":[5],\"b\":0}"},
        {"{\"a\":{},\"\\u0061\":2}", "{\"a\":2}"},
        {"{\"\\u00e4\":{},\"\xc3\xa4\":2}", "{\"\xc3\xa4\":2}"},
        {"{\"\":[],\"\":[1]}", "{\"\":[1]}"},
        {"{\"\\u0000a\":{},\"\\u0000a\":[]}", "{\"\\u0000a\":[]}"},
        {"{\"\\ud800\":{},\"\xef\xbf\xbd\":[]}", "{\"\xef\xbf\xbd\":[]}"},
        {"{\"\xef\xbf\xbd\":{},\"\\udc00\":[]}", "{\"\\udc00\":[]}"},
        {"{\"a\\ud800\":{},\"a\\ud801\":{},\"a\\ufffd\":1}", "{\"a\xef\xbf\xbd\":1}"},
        {"{\"\xf0\x9f\x98\x80\":{},\"\\ud83d\\ude00\":1}", "{\"\xf0\x9f\x98\x80\":1}"},
        {"[{\"a\":[]},{\"a\":[0],\"a\":[1]},{\"a\":[2]}]", "[{\"a\":[]},{\"a\":[1]},{\"a\":[2]}]"},
        {"{\"a\":{\"a\":[],\"a\":[1]},\"a\":{\"a\":[2],\"a\":[3]}}", "{\"a\":{\"a\":[3]}}"},
        {"{\"a\":[\"},\\\"a\\\":1\"],\"a\":\"\\\\\"}", "{\"a\":\"\\\\\"}"},
    };
    for (const auto &row : table)
        EXPECT_EQ(compactOf(row.text), QByteArray(row.expected)) << row.text;
    const char zeros[] = "{\"a\0b\":{},\"a\0c\":[],\"a\":1}";
    EXPECT_EQ(compactOf(QByteArray(zeros, sizeof zeros - 1)), QByteArray("{\"a\":1,\"a\\u0000c\":[]}"));
}

TEST(ReadJson, takes_the_last_one_among_any_number_of_members)
{
    QByteArray text = "{";
    for (int i = 0; i < 1000; ++i)
        text += "\"same\":[" + QByteArray::number(i) + "],\"n" + QByteArray::number(i) + "\":{},";
    text += "\"same\":[-1]}";
    const QJsonDocument document = readJson(text);
    EXPECT_EQ(document.toVariant().toMap().size(), 1001);
    EXPECT_EQ(document[QLatin1String("same")].toVariant(), QVariant(QVariantList{-1}));
}

TEST(ReadJson, sees_the_errors_that_qt_sees_also_in_what_does_not_count)
{
    for (const char *text : {
             "",
             " ",
             "\"a\"",
             "{\"a\":[1,],\"a\":2}",
             "{\"a\":{\"b\"},\"a\":2}",
             "{\"a\":tru,\"a\":2}",
             "{\"a\":\"\\u12\",\"a\":2}",
             "{\"a\":\"\xff\",\"a\":2}",
             "{\"\xff\":1,\"\xff\":2}",
             "{\"a\":[}],\"a\":2}",
             "{\"a\":1 2,\"a\":2}",
             "{\"a\" 1,\"a\":2}",
             "{\"a\":1,,\"a\":2}",
             "{\"a\":1,@,\"a\":2}",
             "{\"a\":1,\"a\":2,}",
             "{\"a\":1,\"a\":2",
             "{\"a\":1,\"a\":2]",
             "{\"a\":1,\"a\":2}}",
             "{\"a\":1,\"a\":2} {\"a\":1,\"a\":2}",
             "{\"a\":1,\"a",
             "{\"a\":1,\"a\\",
             "[{\"a\":1,\"a\":2},]",
             "[1{\"a\":1,\"a\":2}]",
             "[1 {\"a\":1,\"a\":2}]",
             "[\"a\"{\"a\":1,\"a\":2}]",
             "{\"a\":1,{\"a\":1,\"a\":2}}",
             "{{\"a\":1,\"a\":2}}",
             "{\"a\"{\"a\":1,\"a\":2}}",
             "[][{\"a\":1,\"a\":2}]",
             "[{}{\"a\":1,\"a\":2}]",
             "1{\"a\":1,\"a\":2}",
         })
        expectAsQtReads(text);
}

TEST(ReadJson, reads_as_qt_does_after_any_byte_was_changed_or_the_rest_was_lost)
{
    const QByteArray text =
        "[{\"a\":-1.5,\"b\\n\":\"x\\u0061\xc3\xa4\",\"a\":true,\"d\":{\"e\":[]}},[null,{\"a\":\"\"}]]";
    expectAsQtReads(text);
    for (int i = 0; i < text.size(); ++i) {
        expectAsQtReads(text.left(i));
        for (const char c : {'"', '\\', '{', '}', '[', ']', ',', ':', ' ', 'a', '1', '\0', '\xff'}) {
            QByteArray changed = text;
            changed[i] = c;
            expectAsQtReads(changed);
        }
    }
}

TEST(ReadJson, refuses_what_is_nested_too_deeply_also_in_what_does_not_count)
{
    const auto document = [](int depth, const char *end) { return "{\"a\":" + nested(depth, "1") + ',' + end; };
    for (const char *end : {"\"a\":0}", "\"b\":0}"}) {
        expectAsQtReads(document(1024, end));
        expectAsQtReads(document(100000, end));
        EXPECT_TRUE(readJson(document(1024, end)).isNull());
        EXPECT_FALSE(readJson(document(1023, end)).isNull());
    }
    expectAsQtReads(document(1023, "\"b\":0}"));
    EXPECT_EQ(compactOf(document(1023, "\"a\":0}")), QByteArray("{\"a\":0}"));
}

TEST(ReadJson, does_not_change_the_callers_text)
{
    const QByteArray text = "{\"a\":{},\"a\":1}";
    const std::string before = text.toStdString();
    EXPECT_EQ(compactOf(text), QByteArray("{\"a\":1}"));
    EXPECT_EQ(text.toStdString(), before);
}

TEST(ReadJson, loses_no_memory_and_little_time_whatever_comes_twice)
{
    constexpr int Size = 160 * 1024; // the longest device list
    QByteArray flat = "{";
    while (flat.size() < Size)
        flat += "\"a\":{},";
    flat += "\"a\":1}";

    QByteArray flatAndDeep = QByteArray(1000, '[') + flat + QByteArray(1000, ']');

    // Each level is looked at once more by the one around it.
    QByteArray nestedInEachOther = '[' + QByteArray(Size - 20000, ' ') + ']';
    for (int level = 0; level < 1000; ++level)
        nestedInEachOther = "{\"a\":" + nestedInEachOther + ",\"a\":0}";

    for (const QByteArray &text : {flat, flatAndDeep, nestedInEachOther}) {
        long before = 0;
        QElapsedTimer timer;
        timer.start();
        for (int round = 0; round < 5; ++round) {
            EXPECT_FALSE(readJson(text).isNull());
            if (round == 1)
                before = Resources::memory();
        }
        EXPECT_LT(timer.elapsed(), 60000); // some 2 s for the slowest
        EXPECT_GT(before, 0);
        if (Resources::memoryIsReused) {
            EXPECT_LE(Resources::memory(), before + 1024);
        }
    }
}
