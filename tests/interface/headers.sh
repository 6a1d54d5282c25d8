#!/bin/bash
# SPDX-License-Identifier: LGPL-2.1-or-later
# Compiles the public headers as a host does.
# usage: headers.sh alone|nothing CXX STANDARD "HEADER;HEADER…" INCLUDE_DIRECTORY...
#   alone    each one by itself, and after <QtTest>, with warnings as errors
#   nothing  all together; the object file has no symbol that it would not have without them
set -euo pipefail
what=$1 cxx=$2 standard=$3 headers=${4//;/ }
shift 4
flags=(-std="c++$standard" -fPIC -Wall -Wextra -Wpedantic -Wshadow -Werror -I"$1" -I"$2")
shift 2
for directory in "$@"; do
    flags+=(-isystem "$directory")
done

alone() {
    local status=0 header before
    for header in $headers; do
        for before in '' '#include <QtTest>'; do
            printf '%s\n#include "%s"\n' "$before" "$header" | "$cxx" "${flags[@]}" -fsyntax-only -x c++ - ||
                { echo "FAILED: $header ${before:+after }$before"; status=1; }
        done
    done
    # A lambda is connected without the SPICE library's headers.
    printf '#include "interface/devredirectinterface.h"\nvoid f(DevRedirectInterface *i) { %s }\n' \
        'QObject::connect(i, &DevRedirectInterface::checkRedirChannelByThread, i, [](auto, auto, auto) {});' |
        "$cxx" "${flags[@]}" -fsyntax-only -x c++ - || status=1
    return $status
}

symbols() {
    "$cxx" "${flags[@]}" -c -x c++ - -o "$scratch/object.o"
    nm --defined-only "$scratch/object.o" | sed 's/^[0-9a-f]* //' | sort
}

nothing() {
    scratch=$(mktemp -d)
    trap 'rm -rf "$scratch"' EXIT
    { for header in $headers; do echo "#include \"$header\""; done; } >"$scratch/all"
    echo '#include <QObject>
#include <spice-client.h>
#include <functional>
#include <memory>' | sed '/spice/s/.*/#undef signals\n&/' | symbols >"$scratch/without"
    symbols <"$scratch/all" >"$scratch/with"
    diff "$scratch/without" "$scratch/with"
}

"$what"
