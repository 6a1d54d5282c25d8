// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <QByteArray>
#include <QLoggingCategory>
#include <QString>

#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include <sanitizer/lsan_interface.h>

/**
 * \file
 * What every fuzz target needs. A target is one pair of functions that the fuzzer calls:
 * LLVMFuzzerInitialize() once and LLVMFuzzerTestOneInput() for each input.
 */

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size);

/// Ends the process with the failed expectation, which makes the input a finding.
inline void expect(bool condition, const char *what)
{
    if (condition)
        return;
    std::fprintf(stderr, "EXPECTATION FAILED: %s\n", what);
    std::abort();
}

/// The same with both sides of a comparison of texts.
inline void expectEqual(const QString &actual, const QString &expected, const char *what)
{
    if (actual == expected)
        return;
    std::fprintf(stderr, "actual:   %s\nexpected: %s\n", qPrintable(actual), qPrintable(expected));
    expect(false, what);
}

inline void expectEqual(long long actual, long long expected, const char *what)
{
    if (actual == expected)
        return;
    std::fprintf(stderr, "actual:   %lld\nexpected: %lld\n", actual, expected);
    expect(false, what);
}

/// Qt's reader loses the value of a name that comes twice, and some of a text that is damaged in its middle. That is
/// Qt's own, and it runs only in here.
template<typename Read>
auto whereQtReads(const Read &read)
{
    const __lsan::ScopedDisabler losesValues;
    return read();
}

/// Formatting log lines would take most of the time.
inline void switchLogOff()
{
    QLoggingCategory::setFilterRules(QStringLiteral("*=false"));
}

inline QByteArray bytesOf(const uint8_t *data, std::size_t size)
{
    return QByteArray(reinterpret_cast<const char *>(data), int(size));
}

/// What a text is worth as a number; \a certain is false for forms about which only Qt itself could tell.
inline int numberIn(const QString &text, bool &certain)
{
    certain = true;
    bool letters = false;
    bool plain = true;
    for (int i = 0; i < text.size(); ++i) {
        const ushort c = text[i].unicode();
        letters = letters || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
        plain = plain && ((c >= '0' && c <= '9') || (c == '-' && i == 0));
    }
    if (text.isEmpty() || text == QLatin1String("-") || letters)
        return 0;
    certain = plain;
    if (!plain)
        return 0;
    const bool negative = text[0] == QLatin1Char('-');
    long long value = 0;
    for (int i = negative ? 1 : 0; i < text.size(); ++i) {
        value = 10 * value + (text[i].unicode() - '0');
        if (value > (1LL << 32))
            return 0;
    }
    value = negative ? -value : value;
    return value == int(value) ? int(value) : 0;
}
