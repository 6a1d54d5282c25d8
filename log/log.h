// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "log/exitgate.h"

#include <QDebug>
#include <QLoggingCategory>

/**
 * The shapes of the library's log lines.
 *
 * Every line goes to Qt's message logger, category "default", without file, line or function. Its pieces are streamed
 * one by one, so a blank stands between two pieces, texts given as literals come out as they are and a QString comes
 * out quoted. A line whose level the host has switched off costs one branch: no piece is formatted.
 *
 * \thread any
 */
namespace Log {

inline bool enabled(QtMsgType level)
{
    // Null once Qt's own statics are gone, which a thread that outlives main() can see.
    const QLoggingCategory *category = QLoggingCategory::defaultCategory();
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

/// Just the pieces.
template<typename... Pieces>
void plain(QtMsgType level, const Pieces &...pieces)
{
    if (!enabled(level))
        return;
    const ExitGate::Passage passage;
    if (passage.isOpen())
        (stream(level) << ... << pieces);
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
