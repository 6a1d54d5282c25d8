#!/bin/bash
# SPDX-License-Identifier: LGPL-2.1-or-later
# Calls each tool wrongly, and sees it say so and do nothing. Nothing is installed, built or run.
# usage: tools_test.sh SOURCE_DIR SCRATCH_DIR
set -euo pipefail
[ $# = 2 ] || { sed -n '3,4s/^# //p' "$0" >&2; exit 2; }
scratch=$2
rm -rf "$scratch"
mkdir -p "$scratch/bin"
cd "$1"

failed=0
fail() { echo "FAILED: $*"; failed=1; }

# Whatever a tool would install or build with only writes down that it was called.
for program in apt-get cmake ctest sudo; do
    printf '#!/bin/sh\necho "%s $*" >>"%s/called"\nexit 1\n' "$program" "$scratch" >"$scratch/bin/$program"
done
printf '#!/bin/sh\nexit 1\n' >"$scratch/bin/dpkg-query" # no package is there
chmod +x "$scratch"/bin/*
PATH=$scratch/bin:$PATH

# call TOOL WORD...: sets status, and the files out and err.
call() {
    status=0
    timeout 10 "$@" >"$scratch/out" 2>"$scratch/err" </dev/null || status=$?
    [ ! -e "$scratch/called" ] || { fail "$* went on: $(cat "$scratch/called")"; rm "$scratch/called"; }
}

# refuses TOOL WORD...: status 2, one line on standard error, nothing on standard output.
refuses() {
    call "$@"
    [ $status = 2 ] || fail "$*: status $status"
    [ "$(wc -l <"$scratch/err")" = 1 ] || fail "$*: says $(cat "$scratch/err")"
    grep -q "^${1#tools/}: " "$scratch/err" || fail "$*: does not say its name: $(cat "$scratch/err")"
    [ ! -s "$scratch/out" ] || fail "$*: prints $(cat "$scratch/out")"
}

# Words that a tool wants besides its options.
declare -A wanted=([fuzz]=1 [release]=1.0.0 [soak]=2)

values=0
for tool in tools/*; do
    if [ ! -f "$tool" ] || [ ! -x "$tool" ]; then continue; fi
    for help in --help -h; do
        call "$tool" $help
        [ $status = 0 ] || fail "$tool $help: status $status"
        grep -q "^  $tool" "$scratch/out" || fail "$tool $help: prints $(cat "$scratch/out")"
        [ ! -s "$scratch/err" ] || fail "$tool $help: says $(cat "$scratch/err")"
    done
    options=$(sed -n 's/^  \(--[a-z]*\) [A-Z].*/\1/p' "$scratch/out")

    refuses "$tool" --nosuch
    for option in $options; do
        values=$((values + 1))
        refuses "$tool" "$option"
        refuses "$tool" "$option" ''
        refuses "$tool" "$option" --no-install
    done

    # shellcheck disable=SC2086
    call "$tool" --no-install ${wanted[${tool#tools/}]-}
    [ $status = 1 ] || fail "$tool --no-install: status $status"
    [ "$(grep -c 'missing packages; to install them: .*apt-get install ' "$scratch/err")" = 1 ] ||
        fail "$tool --no-install: says $(cat "$scratch/err")"
done
[ $values -ge 5 ] || fail "only $values options with a value were found"

refuses tools/package --check --aarch64
refuses tools/test --preset nosuch
refuses tools/test --coverage --guest
refuses tools/test --coverage --preset asan
refuses tools/test --preset asan --aarch64
refuses tools/test --repeat many
refuses tools/test nosuch
refuses tools/bench --guard --json file
refuses tools/bench --link --chain
refuses tools/bench --plot --filter devices
refuses tools/bench nosuch
refuses tools/fuzz
refuses tools/fuzz 1 nosuch
refuses tools/compat nosuch
refuses tools/soak
refuses tools/soak 1
refuses tools/soak 10abc
refuses tools/lint nosuch

# A build says on a terminal how far it is, elsewhere only what went wrong.
build='. tools/common.sh; build dev'
printf '#!/bin/sh\necho "step 1 of 2"\n' >"$scratch/bin/cmake"
call bash -c "$build"
[ "$status $(cat "$scratch/out" "$scratch/err")" = '0 ' ] ||
    fail "a build without a terminal: status $status, $(cat "$scratch/out" "$scratch/err")"
call script -qec "bash -c '$build'" /dev/null
grep -q 'step 1 of 2' "$scratch/out" || fail "a build on a terminal prints $(cat "$scratch/out")"
printf '#!/bin/sh\necho "no compiler"; exit 1\n' >"$scratch/bin/cmake"
call bash -c "$build"
[ "$status $(cat "$scratch/err")" = '1 no compiler' ] ||
    fail "a build that fails: status $status, $(cat "$scratch/err")"
exit $failed
