// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <QDebug>
#include <QLoggingCategory>
#include <QThread>

#include <atomic>

/// The shapes of the library's log lines. Every line goes to Qt's message logger, category "default", without file,
/// line or function. Its pieces are streamed one by one, so a blank stands between two pieces, texts given as literals
/// come out as they are and a QString comes out quoted. No piece of a line whose level is off is formatted. \thread any
namespace Log {

/// From now on only this thread writes: Qt is about to take down what a line needs. Waits for lines of other threads
/// that are under way, a tenth of a second at most.
void keepToThisThread();

/// A line that is under way.
class Line
{
public:
    Line() { ++s_underWay; }
    ~Line() { --s_underWay; }
    Line(const Line &) = delete;
    Line &operator=(const Line &) = delete;

    bool mayBeWritten() const { return !s_onlyWriter || s_onlyWriter == QThread::currentThreadId(); }

private:
    friend void keepToThisThread();
    static std::atomic<Qt::HANDLE> s_onlyWriter; ///< null: every thread writes
    static std::atomic<int> s_underWay;
};

/// May be asked at any time, also when Qt's own statics have gone. Qt's question for any level is a call and a switch.
inline bool enabled(QtMsgType level)
{
    const QLoggingCategory *category = QLoggingCategory::defaultCategory();
    if (category && level == QtDebugMsg)
        return category->isDebugEnabled();
    if (category && level == QtInfoMsg)
        return category->isInfoEnabled();
    return category && category->isEnabled(level);
}

inline QDebug stream(QtMsgType level)
{
    const QMessageLogger logger(nullptr, 0, nullptr); // this constructor sets the category
    switch (level) {
    case QtDebugMsg:
        return logger.debug();
    case QtInfoMsg:
        return logger.info();
    case QtWarningMsg:
        return logger.warning();
    default:
        return logger.critical();
    }
}

template<typename... Pieces>
void write(QtMsgType level, const Pieces &...pieces)
{
    const Line line;
    if (line.mayBeWritten())
        (stream(level) << ... << pieces);
}

/// A list of texts as a piece: ("a", "b"). Qt's own way of writing one depends on its version.
struct Texts
{
    const QList<QString> &texts;
};

inline QDebug operator<<(QDebug stream, const Texts &piece)
{
    const QDebugStateSaver saver(stream);
    stream.nospace() << '(';
    const char *separator = "";
    for (const QString &text : piece.texts) {
        stream << separator << text;
        separator = ", ";
    }
    return stream << ')';
}

/// Just the pieces. So short that the question stands where the line does.
template<typename... Pieces>
void plain(QtMsgType level, const Pieces &...pieces)
{
    if (enabled(level))
        write(level, pieces...);
}

/// "[" method "]" pieces: a call that could not be made.
template<typename... Pieces>
void guard(QtMsgType level, const char *method, const Pieces &...pieces)
{
    plain(level, "[", method, "]", pieces...);
}

/// "[" method "]" "[REDIR_MODULE]" pieces: the usual line.
template<typename... Pieces>
void module(QtMsgType level, const char *method, const Pieces &...pieces)
{
    plain(level, "[", method, "]", "[REDIR_MODULE]", pieces...);
}

/// "DEVICE_REDIR" method pieces: a line of the trace through the component.
template<typename... Pieces>
void trace(QtMsgType level, const char *method, const Pieces &...pieces)
{
    plain(level, "DEVICE_REDIR", method, pieces...);
}

} // namespace Log
