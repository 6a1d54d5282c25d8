// SPDX-License-Identifier: LGPL-2.1-or-later
#include "json/readjson.h"

#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QString>
#include <QVector>

#include <algorithm>
#include <utility>
#include <vector>

namespace {

constexpr std::size_t DeepestNesting = 1024; // Qt's reader refuses anything deeper

/**
 * Blanks out the members that do not count, byte for byte, so that the offsets of errors stay.
 *
 * It looks at texts, brackets and commas only. What it is about to blank has to be right in the eyes of Qt's reader,
 * so that no error is hidden; at anything else it gives up, since Qt's reader gets no further either.
 */
class Cleaner
{
public:
    explicit Cleaner(const QByteArray &text) : m_text(text) { }

    QByteArray cleaned()
    {
        while (m_next < m_text.size() && readToken()) { }
        return m_text;
    }

private:
    struct Member
    {
        int begin; ///< the quote before the name
        int nameEnd; ///< behind the quote after it
        int end; ///< the comma or bracket that follows
    };

    struct Level
    {
        char closing; ///< the bracket that ends it
        std::vector<Member> members;
        bool inMember = false;
        bool hasZeroInName = false;
    };

    bool readToken()
    {
        const char c = m_text.at(m_next++);
        if (c == ' ' || c == '\t' || c == '\n' || c == '\r')
            return true;
        const char before = std::exchange(m_latest, c);
        switch (c) {
        case '"':
            return readText();
        case '{':
        case '[':
            if (!mayFollow(before))
                return false;
            m_levels.push_back({c == '{' ? '}' : ']', {}});
            return m_levels.size() <= DeepestNesting;
        case ',':
            endMember();
            return !m_levels.empty();
        case '}':
        case ']':
            return !m_levels.empty() && m_levels.back().closing == c && endLevel();
        default:
            return true;
        }
    }

    // Whether a value may begin behind this. Where it may not, Qt's reader takes the bracket and the blanks after it
    // for part of the error, so there must not be more of them.
    bool mayFollow(char before) const
    {
        if (m_levels.empty())
            return true;
        return m_levels.back().closing == '}' ? before == ':' : before == '[' || before == ',';
    }

    bool readText()
    {
        const int begin = m_next - 1;
        while (m_next < m_text.size() && m_text.at(m_next) != '"')
            m_next += m_text.at(m_next) == '\\' ? 2 : 1;
        ++m_next;
        if (m_next > m_text.size() || m_levels.empty())
            return false;
        Level &level = m_levels.back();
        if (level.closing == '}' && !level.inMember) {
            level.members.push_back({begin, m_next, m_next});
            level.inMember = true;
            level.hasZeroInName = level.hasZeroInName || m_text.mid(begin, m_next - begin).contains('\0');
        }
        return true;
    }

    void endMember()
    {
        if (m_levels.empty() || !m_levels.back().inMember)
            return;
        m_levels.back().members.back().end = m_next - 1;
        m_levels.back().inMember = false;
    }

    bool endLevel()
    {
        endMember();
        const Level &level = m_levels.back();
        QHash<QVector<uint>, const Member *> latest;
        for (const Member &member : level.members) {
            const Member *&sameName = latest[nameOf(member, level.hasZeroInName)];
            if (sameName && !blank(*sameName))
                return false;
            sameName = &member;
        }
        m_levels.pop_back();
        return !m_levels.empty();
    }

    // Alike for all that Qt's reader may take for one name: it does not look beyond a zero that is not escaped, nor
    // tell half a surrogate pair from the character that stands for it in UTF-8 (which toUcs4() puts in its place).
    QVector<uint> nameOf(const Member &member, bool endsAtZero) const
    {
        QVector<uint> name = textOf(member).toUcs4();
        const int zero = endsAtZero ? name.indexOf(0) : -1;
        if (zero >= 0)
            name.resize(zero + 1);
        return name;
    }

    QString textOf(const Member &member) const
    {
        const QByteArray name = m_text.mid(member.begin + 1, member.nameEnd - member.begin - 2);
        if (std::all_of(name.begin(), name.end(), [](char c) { return c != '\\' && uchar(c) < 0x80; }))
            return QString::fromLatin1(name.constData(), name.size());
        // Behind another character a byte order mark is one, too, and is not taken away.
        return QJsonDocument::fromJson("[\"." + name + "\"]").array().at(0).toString().mid(1);
    }

    bool blank(const Member &member)
    {
        const QByteArray alone = '{' + m_text.mid(member.begin, member.end - member.begin) + '}';
        if (QJsonDocument::fromJson(alone).isNull())
            return false;
        // Another member follows, so there is a comma.
        std::fill(m_text.begin() + member.begin, m_text.begin() + member.end + 1, ' ');
        return true;
    }

    QByteArray m_text; ///< shared with the caller until something is blanked
    int m_next = 0;
    char m_latest = 0; ///< the character before it that is no blank; a quote for a whole text
    std::vector<Level> m_levels;
};

} // namespace

QJsonDocument readJson(const QByteArray &text, QJsonParseError *error)
{
    return QJsonDocument::fromJson(Cleaner(text).cleaned(), error);
}
