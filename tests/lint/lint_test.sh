#!/bin/bash
# SPDX-License-Identifier: LGPL-2.1-or-later
# Puts one fault after the other into a copy of the sources and sees tools/lint find it.
# usage: lint_test.sh SOURCE_DIR SCRATCH_DIR
set -euo pipefail
[ $# = 2 ] || { sed -n '3,4s/^# //p' "$0" >&2; exit 2; }
source=$1 copy=$2
rm -rf "$copy"
mkdir -p "$copy"
(cd "$source" && . tools/common.sh && files . | tar -cf - -T -) | tar -xf - -C "$copy"
cd "$copy"
git init -q

failed=0
fail() { echo "FAILED: $*"; failed=1; }

# lint CHECK: sets status and printed.
lint() {
    status=0
    printed=$(tools/lint --no-install "$@" 2>&1) || status=$?
}

# finds CHECK FILE LINE TEXT: with LINE added to FILE, the check fails and says TEXT; without it, it does not say so.
finds() {
    local check=$1 file=$2 line=$3 text=$4
    lint "$check"
    case $printed in *"$text"*) fail "$check says \"$text\" without a fault" ;; esac
    [ ! -e "$file" ] || cp "$file" "$copy.kept"
    printf '%s\n' "$line" >>"$file"
    lint "$check"
    [ $status = 1 ] || fail "$check: status $status for \"$line\" in $file"
    case $printed in *"$text"*) ;; *) fail "$check does not say \"$text\" but: $printed" ;; esac
    if [ -e "$copy.kept" ]; then mv "$copy.kept" "$file"; else rm "$file"; fi
}

finds layers devices/exterdeviceinfo.cpp '#include "interface/devredirectinterface.h"' 'includes interface/devredirectinterface.h'
finds layers devices/devredirectmanger.h '#include "worker/devredirectworker.h"' 'includes worker/devredirectworker.h'
finds layers reference/component/policy.cpp '#include <interface/devredirectinterface.h>' 'reference/component/policy.cpp'
finds headers devices/exterdeviceinfo.h '#include "log/log.h"' 'devices/exterdeviceinfo.h'
finds headers CMakeLists.txt 'set(DEVREDIRECT_PUBLIC_HEADERS
    devices/nosuch.h
)' 'there is no devices/nosuch.h'
finds paths tests/support/waitfor.h "// see /$(printf 'ho')me/somebody/notes" 'tests/support/waitfor.h'
finds paths README.md "from registry.$(printf 'exam')ple.org" 'README.md'
finds links README.md '[nowhere](docs/nosuch.md)' 'there is no docs/nosuch.md'
finds links docs/host-guide.md '[nowhere](component-contract.md#nosuch)' 'has no heading #nosuch'
finds spelling docs/host-guide.md "It is $(printf 'recie')ved." 'docs/host-guide.md'
# shellcheck disable=SC2016
finds shell tools/nosuch '#!/bin/bash
echo $unquoted' 'tools/nosuch:2'

lint nosuch
[ $status = 2 ] || fail "a check that does not exist: status $status"
exit $failed
