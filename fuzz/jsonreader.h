// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <QString>

#include <map>
#include <vector>

/**
 * A second opinion on JSON for the fuzz targets, written apart from Qt's reader.
 *
 * It reads only what every reader must understand in the same way. Anything else (control characters or broken UTF-8
 * in a text, a byte order mark at its start, halves of surrogate pairs, nesting near the usual limits, numbers of many
 * digits) makes it refuse, and the target then has nothing to compare with.
 */
namespace Json {

struct Value
{
    enum class Kind { Absent, Null, Boolean, Number, Text, Array, Object };

    Kind kind = Kind::Absent;
    bool boolean = false;
    QString text;
    std::vector<Value> entries;
    std::map<QString, Value> members; ///< of two members with one name the later counts

    bool isArray() const { return kind == Kind::Array; }
    bool isObject() const { return kind == Kind::Object; }
    bool isText() const { return kind == Kind::Text; }

    /// The member of this name; absent if there is none or this is no object.
    const Value &operator[](const char *name) const
    {
        static const Value absent;
        const auto found = members.find(QString::fromLatin1(name));
        return found == members.end() ? absent : found->second;
    }
};

class Reader
{
public:
    Reader(const char *begin, const char *end) : m_next(begin), m_end(end) { }

    /// True if the whole text is one array or object that is certain to be read alike by everybody.
    bool read(Value &value)
    {
        skipBlanks();
        if (m_next == m_end || (*m_next != '[' && *m_next != '{'))
            return false;
        if (!readValue(value, 0))
            return false;
        skipBlanks();
        return m_next == m_end;
    }

    /// Whether a large object had a name twice. Qt's reader by itself takes any of the members then, readJson() the
    /// last.
    bool hadNameTwiceInLargeObject() const { return m_nameTwiceInLargeObject; }

private:
    static constexpr int DeepestNesting = 500;
    static constexpr std::size_t MostMembersInOrder = 16; // Qt's reader sorts so few without mixing up two of one name
    static constexpr int MostDigits = 15;

    void skipBlanks()
    {
        while (m_next != m_end && (*m_next == ' ' || *m_next == '\t' || *m_next == '\n' || *m_next == '\r'))
            ++m_next;
    }

    bool take(char c)
    {
        if (m_next == m_end || *m_next != c)
            return false;
        ++m_next;
        return true;
    }

    bool takeWord(const char *word)
    {
        for (; *word; ++word) {
            if (!take(*word))
                return false;
        }
        return true;
    }

    bool readValue(Value &value, int depth)
    {
        if (m_next == m_end || depth > DeepestNesting)
            return false;
        switch (*m_next) {
        case '[':
            return readArray(value, depth);
        case '{':
            return readObject(value, depth);
        case '"':
            value.kind = Value::Kind::Text;
            return readText(value.text);
        case 't':
            value.kind = Value::Kind::Boolean;
            value.boolean = true;
            return takeWord("true");
        case 'f':
            value.kind = Value::Kind::Boolean;
            return takeWord("false");
        case 'n':
            value.kind = Value::Kind::Null;
            return takeWord("null");
        default:
            value.kind = Value::Kind::Number;
            return readNumber();
        }
    }

    bool readArray(Value &value, int depth)
    {
        value.kind = Value::Kind::Array;
        ++m_next;
        skipBlanks();
        if (take(']'))
            return true;
        do {
            skipBlanks();
            value.entries.emplace_back();
            if (!readValue(value.entries.back(), depth + 1))
                return false;
            skipBlanks();
        } while (take(','));
        return take(']');
    }

    bool readObject(Value &value, int depth)
    {
        value.kind = Value::Kind::Object;
        ++m_next;
        skipBlanks();
        if (take('}'))
            return true;
        std::size_t count = 0;
        do {
            skipBlanks();
            QString name;
            if (!readText(name))
                return false;
            skipBlanks();
            if (!take(':'))
                return false;
            skipBlanks();
            Value member;
            if (!readValue(member, depth + 1))
                return false;
            value.members[name] = member;
            ++count;
            skipBlanks();
        } while (take(','));
        if (count > MostMembersInOrder && count != value.members.size())
            m_nameTwiceInLargeObject = true;
        return take('}');
    }

    // No value is needed: nobody who is fuzzed reads numbers. The form has to be right, and the size harmless.
    bool readNumber()
    {
        take('-');
        int digits = 0;
        const bool leadingZero = m_next != m_end && *m_next == '0';
        if (!readDigits(digits) || (leadingZero && digits > 1))
            return false;
        if (take('.') && !readDigits(digits))
            return false;
        return digits <= MostDigits && (m_next == m_end || (*m_next != 'e' && *m_next != 'E'));
    }

    bool readDigits(int &digits)
    {
        const int before = digits;
        for (; m_next != m_end && *m_next >= '0' && *m_next <= '9'; ++m_next)
            ++digits;
        return digits > before;
    }

    bool readText(QString &text)
    {
        if (!take('"'))
            return false;
        while (m_next != m_end && *m_next != '"') {
            const bool understood = *m_next == '\\' ? readEscape(text) : readCharacter(text);
            if (!understood)
                return false;
        }
        return take('"');
    }

    bool readEscape(QString &text)
    {
        ++m_next;
        if (m_next == m_end)
            return false;
        static constexpr char Short[] = "\"\\/bfnrt";
        static constexpr char Meaning[] = "\"\\/\b\f\n\r\t";
        const char c = *m_next++;
        for (int i = 0; Short[i]; ++i) {
            if (Short[i] == c) {
                text.append(QLatin1Char(Meaning[i]));
                return true;
            }
        }
        unsigned unit = 0;
        if (c != 'u' || !readHex(unit))
            return false;
        if (unit < 0xd800 || unit > 0xdfff) {
            text.append(QChar(unit));
            return true;
        }
        unsigned second = 0;
        if (unit > 0xdbff || !take('\\') || !take('u') || !readHex(second) || second < 0xdc00 || second > 0xdfff)
            return false;
        text.append(QChar(unit)).append(QChar(second));
        return true;
    }

    bool readHex(unsigned &unit)
    {
        unit = 0;
        for (int i = 0; i < 4; ++i, ++m_next) {
            if (m_next == m_end)
                return false;
            const char c = *m_next;
            const int digit = c >= '0' && c <= '9' ? c - '0'
                : c >= 'a' && c <= 'f'             ? c - 'a' + 10
                : c >= 'A' && c <= 'F'             ? c - 'A' + 10
                                                   : -1;
            if (digit < 0)
                return false;
            unit = 16 * unit + unsigned(digit);
        }
        return true;
    }

    bool readCharacter(QString &text)
    {
        const unsigned first = static_cast<unsigned char>(*m_next++);
        if (first < 0x20 || (first >= 0x80 && first < 0xc2) || first > 0xf4)
            return false;
        const int following = first < 0x80 ? 0 : first < 0xe0 ? 1 : first < 0xf0 ? 2 : 3;
        uint code = following == 0 ? first : first & (0x3fu >> following);
        for (int i = 0; i < following; ++i) {
            if (m_next == m_end || (static_cast<unsigned char>(*m_next) & 0xc0) != 0x80)
                return false;
            code = code << 6 | (static_cast<unsigned char>(*m_next++) & 0x3fu);
        }
        static constexpr uint Smallest[] = {0, 0x80, 0x800, 0x10000};
        if (code < Smallest[following] || code > 0x10ffff || (code >= 0xd800 && code <= 0xdfff))
            return false;
        if (code == QChar::ByteOrderMark && text.isEmpty())
            return false;
        if (code > 0xffff)
            text.append(QChar(QChar::highSurrogate(code))).append(QChar(QChar::lowSurrogate(code)));
        else
            text.append(QChar(code));
        return true;
    }

    const char *m_next;
    const char *const m_end;
    bool m_nameTwiceInLargeObject = false;
};

} // namespace Json
