// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <QByteArray>

class QJsonDocument;
struct QJsonParseError;

/**
 * Reads a document from somebody who may not mean well.
 *
 * Does what QJsonDocument::fromJson() does, with the same errors, but for members with one name in one object: the last
 * of them counts, however many members there are, and none of the others stays behind in memory. Qt's reader (5.15.8)
 * loses those that are arrays or objects. Names that differ only in halves of surrogate pairs count as one name; so do
 * names that differ only behind a zero, in an object that has a zero in a name without an escape.
 *
 * \a text is borrowed for the call; \a error may be null. \thread any
 */
QJsonDocument readJson(const QByteArray &text, QJsonParseError *error = nullptr);
