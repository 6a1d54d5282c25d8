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
for directory in "$@"; do # the compiler's own place stays behind those of its language
    [ "$directory" = /usr/include ] || flags+=(-isystem "$directory")
done

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

# compile OPTION...: standard input, without leaving anything.
compile() { "$cxx" "${flags[@]}" -fsyntax-only -x c++ "$@" -; }

alone() {
    local status=0 header
    echo '#include <QtTest>' >"$scratch/before.h"
    "$cxx" "${flags[@]}" -x c++-header "$scratch/before.h" -o "$scratch/before.h.gch"
    for header in $headers; do
        echo "#include \"$header\"" | compile || { echo "FAILED: $header alone"; status=1; }
        echo "#include \"$header\"" | compile -Winvalid-pch -include "$scratch/before.h" ||
            { echo "FAILED: $header after <QtTest>"; status=1; }
    done
    # A lambda is connected without the SPICE library's headers.
    printf '#include "interface/devredirectinterface.h"\nvoid f(DevRedirectInterface *i) { %s }\n' \
        'QObject::connect(i, &DevRedirectInterface::checkRedirChannelByThread, i, [](auto, auto, auto) {});' |
        compile || status=1
    return $status
}

# Without the constants that Qt 6's own templates leave for a declared meta type when nothing is optimised.
symbols() {
    "$cxx" "${flags[@]}" -c -x c++ - -o "$scratch/object.o"
    nm --defined-only "$scratch/object.o" | sed 's/^[0-9a-f]* //; /^r _ZN9QtPrivate/d' | sort
}

nothing() {
    { for header in $headers; do echo "#include \"$header\""; done; } >"$scratch/all"
    echo '#include <QObject>
#include <spice-client.h>
#include <functional>
#include <memory>' | sed '/spice/s/.*/#undef signals\n&/' | symbols >"$scratch/without"
    symbols <"$scratch/all" >"$scratch/with"
    diff "$scratch/without" "$scratch/with"
}

"$what"
