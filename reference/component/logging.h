// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <QDebug>
#include <QLoggingCategory>

/// Names are streamed into it: what steers a terminal stands escaped in the log then.
Q_DECLARE_LOGGING_CATEGORY(logComponent)
