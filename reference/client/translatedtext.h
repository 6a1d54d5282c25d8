// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <QString>

/// What the reference component, or the programs' common parts, say for people, in the language of the translators that
/// are installed; as it is if it is not one of their texts.
QString translatedText(const QString &text);
