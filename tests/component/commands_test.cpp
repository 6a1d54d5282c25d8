// SPDX-License-Identifier: LGPL-2.1-or-later
#include "component/handlertest.h"

#include <QChar>

#include <cstring>
#include <limits>
#include <memory>

#include <sys/mman.h>
#include <unistd.h>

namespace {

// A buffer behind which nothing can be read.
class GuardedBuffer
{
public:
    explicit GuardedBuffer(std::size_t size)
    {
        const std::size_t page = std::size_t(sysconf(_SC_PAGESIZE));
        m_length = (size / page + 2) * page;
        m_start =
            static_cast<char *>(mmap(nullptr, m_length, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        EXPECT_NE(m_start, MAP_FAILED);
        EXPECT_EQ(mprotect(m_start + m_length - page, page, PROT_NONE), 0);
        data = m_start + m_length - page - size;
    }
    ~GuardedBuffer() { munmap(m_start, m_length); }
    GuardedBuffer(const GuardedBuffer &) = delete;
    GuardedBuffer &operator=(const GuardedBuffer &) = delete;

    char *data = nullptr;

private:
    char *m_start = nullptr;
    std::size_t m_length = 0;
};

std::function<RedirCtrl> replying(std::string text, int length, int result = 0)
{
    return [text = std::move(text), length, result](std::string, char *buffer, int &size) {
        if (buffer)
            std::memcpy(buffer, text.data(), text.size());
        size = length;
        return result;
    };
}

QString beginLine(const QString &command)
{
    return channelLine(QStringLiteral(" Begin to handler redirect command, call redirCtrl function. command: ")
                       + command);
}

// The length stands in the line as one character; here it is given as the logger writes it.
QString endLine(int result, const QString &data, const QString &lengthCharacter)
{
    return channelLine(QStringLiteral(" End to call redirCtrl function. result:") + QString::number(result)
                       + QStringLiteral(", listData:") + data + QStringLiteral(", length:") + lengthCharacter);
}

QString traceLine(int result, const QString &data, int length)
{
    return QStringLiteral("info: DEVICE_REDIR handlerRedirCtrlCommand after call m_redirCtrl. result:  \"")
        + QString::number(result) + QStringLiteral("\" , listData:  \"") + data + QStringLiteral("\"  , length:  ")
        + QString::number(length);
}

} // namespace

class Command : public LoadedHandler
{
protected:
    // The two lines after the call, the data as it stands in both of them.
    QStringList linesAfter(int capacity, char *buffer)
    {
        log.clear();
        int length = capacity;
        handler.handlerRedirCtrlCommand("{}", buffer, length);
        EXPECT_EQ(log.lines().value(0), beginLine(QStringLiteral("{}")));
        return log.lines().mid(1);
    }
};

TEST_F(Command, reaches_the_component_with_the_caller_s_buffer_and_capacity)
{
    char buffer[32] = "before";
    int length = sizeof(buffer);
    std::string command;
    char *givenBuffer = nullptr;
    int *givenLength = nullptr;
    int capacity = 0;
    script.ctrl = [&](std::string text, char *data, int &size) {
        command = std::move(text);
        givenBuffer = data;
        givenLength = &size;
        capacity = size;
        std::strcpy(data, "reply");
        size = 5;
        return 7;
    };
    EXPECT_EQ(handler.handlerRedirCtrlCommand("{\"command\":\"list\"}", buffer, length), 7);
    EXPECT_EQ(command, "{\"command\":\"list\"}");
    EXPECT_EQ(givenBuffer, buffer);
    EXPECT_EQ(givenLength, &length);
    EXPECT_EQ(capacity, 32);
    EXPECT_EQ(length, 5);
    EXPECT_STREQ(buffer, "reply");
}

TEST_F(Command, is_logged_with_its_reply)
{
    char buffer[64] = "";
    script.ctrl = replying("[{\"devices\":[]}]", 16, 3);
    int length = sizeof(buffer);
    EXPECT_EQ(handler.handlerRedirCtrlCommand("{\"command\":\"list\"}", buffer, length), 3);
    EXPECT_EQ(log.lines(),
              (QStringList{beginLine(QStringLiteral("{\\\"command\\\":\\\"list\\\"}")),
                           endLine(3, QStringLiteral("[{\\\"devices\\\":[]}]"), QStringLiteral("\\u0010")),
                           traceLine(3, QStringLiteral("[{\\\"devices\\\":[]}]"), 16)}));
}

TEST_F(Command, and_reply_are_read_as_utf8)
{
    char buffer[64] = "";
    script.ctrl = replying("Gerät", 65);
    int length = sizeof(buffer);
    handler.handlerRedirCtrlCommand("Größe €", buffer, length);
    EXPECT_EQ(log.lines(),
              (QStringList{beginLine(QString::fromUtf8("Größe €")),
                           endLine(0, QString::fromUtf8("Gerät"), QStringLiteral("A")),
                           traceLine(0, QString::fromUtf8("Gerät"), 65)}));
}

TEST_F(Command, with_a_length_of_65_is_logged_with_the_letter_A)
{
    char buffer[128] = "";
    script.ctrl = replying("x", 65);
    EXPECT_EQ(
        linesAfter(sizeof(buffer), buffer),
        (QStringList{endLine(0, QStringLiteral("x"), QStringLiteral("A")), traceLine(0, QStringLiteral("x"), 65)}));
}

TEST_F(Command, is_logged_with_the_low_8_bits_of_its_length_as_one_character)
{
    const struct
    {
        int length;
        QString character;
    } lengths[] = {
        {48, QStringLiteral("0")},         {122, QStringLiteral("z")},     {256 + 65, QStringLiteral("A")},
        {0x7fffff42, QStringLiteral("B")}, {-190, QStringLiteral("B")},    {-1, QString(QChar(0xff))},
        {0xe9, QString(QChar(0xe9))},      {0, QStringLiteral("\\u0000")}, {10, QStringLiteral("\\n")},
        {34, QStringLiteral("\\\"")},
    };
    char buffer[8] = "";
    for (const auto &length : lengths) {
        script.ctrl = replying("", length.length);
        EXPECT_EQ(linesAfter(sizeof(buffer), buffer),
                  (QStringList{endLine(0, QString(), length.character), traceLine(0, QString(), length.length)}));
    }
}

TEST_F(Command, gives_every_result_of_the_component_back)
{
    char buffer[8] = "";
    for (const int result : {0, 1, 2, 3, -1, std::numeric_limits<int>::max(), std::numeric_limits<int>::min()}) {
        script.ctrl = replying("", 65, result);
        log.clear();
        int length = sizeof(buffer);
        EXPECT_EQ(handler.handlerRedirCtrlCommand("{}", buffer, length), result);
        EXPECT_EQ(log.lines().mid(1),
                  (QStringList{endLine(result, QString(), QStringLiteral("A")), traceLine(result, QString(), 65)}));
    }
}

TEST_F(Command, gives_every_length_of_the_component_back)
{
    char buffer[8] = "";
    for (const int claimed : {0, 8, 9, 100000, -1, std::numeric_limits<int>::max(), std::numeric_limits<int>::min()}) {
        script.ctrl = replying("", claimed);
        int length = sizeof(buffer);
        handler.handlerRedirCtrlCommand("{}", buffer, length);
        EXPECT_EQ(length, claimed);
    }
}

TEST_F(Command, without_a_buffer_is_logged_with_an_empty_reply)
{
    script.ctrl = replying("", 65);
    for (const int capacity : {0, 512, -1})
        EXPECT_EQ(linesAfter(capacity, nullptr),
                  (QStringList{endLine(0, QString(), QStringLiteral("A")), traceLine(0, QString(), 65)}))
            << capacity;
}

TEST_F(Command, is_logged_with_what_stood_in_the_buffer_when_the_component_writes_nothing)
{
    char buffer[8] = "before";
    EXPECT_EQ(linesAfter(65, buffer),
              (QStringList{endLine(0, QStringLiteral("before"), QStringLiteral("A")),
                           traceLine(0, QStringLiteral("before"), 65)}));
}

TEST_F(Command, reply_is_read_up_to_its_nul_whatever_the_length_says)
{
    char buffer[65];
    std::memset(buffer, 'y', sizeof(buffer));
    for (const int claimed : {65, 321, -191}) {
        script.ctrl = replying(std::string("abcdef\0ghi", 10), claimed);
        EXPECT_EQ(linesAfter(sizeof(buffer), buffer),
                  (QStringList{endLine(0, QStringLiteral("abcdef"), QStringLiteral("A")),
                               traceLine(0, QStringLiteral("abcdef"), claimed)}))
            << claimed;
    }
}

TEST_F(Command, reply_without_nul_is_read_up_to_the_capacity)
{
    for (const int capacity : {1, 65, 512, 4096}) {
        const GuardedBuffer buffer{std::size_t(capacity)};
        for (const int claimed : {65, 1089, -191, 0x7fffff41}) {
            script.ctrl = replying(std::string(std::size_t(capacity), 'r'), claimed);
            EXPECT_EQ(linesAfter(capacity, buffer.data),
                      (QStringList{endLine(0, QString(capacity, 'r'), QStringLiteral("A")),
                                   traceLine(0, QString(capacity, 'r'), claimed)}))
                << capacity << ' ' << claimed;
        }
    }
}

TEST_F(Command, reply_in_a_buffer_of_exactly_its_size_is_read_within_it)
{
    const std::unique_ptr<char[]> buffer(new char[16]);
    script.ctrl = replying(std::string(16, 'r'), 65);
    EXPECT_EQ(linesAfter(16, buffer.get()),
              (QStringList{endLine(0, QString(16, 'r'), QStringLiteral("A")), traceLine(0, QString(16, 'r'), 65)}));
}

TEST_F(Command, with_no_or_a_negative_capacity_reads_no_byte)
{
    const GuardedBuffer buffer(0);
    for (const int capacity : {0, -1, std::numeric_limits<int>::min()}) {
        script.ctrl = replying("", 65);
        EXPECT_EQ(linesAfter(capacity, buffer.data),
                  (QStringList{endLine(0, QString(), QStringLiteral("A")), traceLine(0, QString(), 65)}))
            << capacity;
    }
}

TEST_F(Command, reply_that_is_cut_within_a_character_does_no_harm)
{
    const GuardedBuffer buffer(4);
    script.ctrl = replying("abc\xc3", 65);
    EXPECT_EQ(linesAfter(4, buffer.data).value(1),
              traceLine(0, QStringLiteral("abc") + QChar(QChar::ReplacementCharacter), 65));
}
