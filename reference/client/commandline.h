// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <QCommandLineOption>
#include <QList>
#include <QString>

#include <functional>

class QCommandLineParser;

// What the command lines of the programs share.

/// One that takes a value if \a value names it.
QCommandLineOption option(const char *name, const char *text, const char *value = "");
/// "--help", "--help-spice" and "--version".
QList<QCommandLineOption> commonOptions();
/// What those of them that were given ask for; empty if none was. "NAME VERSION" is \a version.
QString commonAnswer(const QCommandLineParser &parser, const char *version);
/// Tells on standard error, as one line, in what way \a program was called wrongly; the exit code for that.
int wrongUsage(const char *program, const QString &text);
/// Calls \a end, on the main thread, whenever somebody wants the program to end: also by closing its terminal, unless
/// it was started to survive that.
void whenAskedToEnd(std::function<void()> end);
