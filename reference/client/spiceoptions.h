// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <QString>

/// Takes the options that every SPICE client has ("--spice-…") out of a command line, for all sessions of this process;
/// empty, or what is wrong with one.
QString takeSpiceOptions(int &count, char **&arguments);

/// What they are, as a text for people.
QString spiceOptionsHelp();
