#!/bin/bash
# SPDX-License-Identifier: LGPL-2.1-or-later
# Makes one change after the other in a copy of the sources, and sees tools/abi tell those that break programs from one that
# does not. Not among the tests, since each change is a build of the library.
set -euo pipefail
cd "$(dirname "$0")/../.."
. tools/common.sh
need build abi sources

copy=build/abi-changed
rm -rf "$copy"
mkdir -p "$copy"
files . | xargs -d '\n' cp --parents -t "$copy"
cd "$copy"

failed=0
# expect break|work|unknown WHAT FILE SED...: with its file changed so, tools/abi says that of programs.
expect() {
    local wanted=$1 what=$2 file=$3 status=0 report said
    shift 3
    cp "$file" kept
    sed -i "$@" "$file"
    ! cmp -s kept "$file" || { echo "FAILED: nothing is changed in $file for: $what"; failed=1; }
    report=$(tools/abi --no-install 2>&1) || status=$?
    mv kept "$file"
    touch "$file"
    case $status:$report in
        0:*'for the last release work.'*) said="work" ;;
        1:*'for the last release break.'*) said="break" ;;
        2:*) said="unknown" ;;
        *) said="status $status" ;;
    esac
    [ "$said" = "$wanted" ] || { printf 'FAILED: %s: %s\n%s\n' "$what" "$said" "$report"; failed=1; }
}

expect break 'a member in the middle of a record' devices/exterdeviceinfo.h -e 's|^    QString vmId = .*|    int another = 0;\n&|'
expect break "another enumerator's value" component/redirevents.h -e 's|RedirEventShared = 3|RedirEventShared = 9|'
expect break 'a virtual function more' interface/devredirectinterface.h -e 's|^    bool isComponentLoaded|    virtual bool isComponentLoaded|'
expect work 'a function more' interface/devredirectinterface.h \
    -e 's|^    bool isComponentLoaded.*|&\n    __attribute__((used, visibility("default"))) bool isAnother() const { return true; }|'
expect unknown 'a damaged description of the release' abi/libdevredirecthandler.abi -e '5000q'
[ $failed = 0 ] && echo 'what breaks programs is found, and what does not is let through'
exit $failed
