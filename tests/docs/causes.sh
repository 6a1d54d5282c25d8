#!/bin/sh
# SPDX-License-Identifier: LGPL-2.1-or-later
# usage: causes.sh LOGCHECK DOCUMENT...
# Each line that the doctor looks for in a log stands in a document: nobody may change a text and leave it behind.
logcheck=$1
shift
lines=$(sed -n '/^constexpr Cause Causes/,/^};/s/^    {"\([^"]*\)", .*/\1/p' "$logcheck")
[ -n "$lines" ] || exit 2
printf '%s\n' "$lines" | {
    missing=0
    while read -r line; do
        cat "$@" | grep -qF -- "$line" || { echo "in no document: $line"; missing=1; }
    done
    exit $missing
}
