#!/bin/bash
# SPDX-License-Identifier: LGPL-2.1-or-later
# Installs the tree into an empty folder, builds the examples against it as a project of its own would, and runs the host
# with the component: without a virtual machine, and with a SPICE server in its place. What is installed works wherever
# it is moved.
# usage: check.sh BUILD_DIR SCRATCH_DIR CXX CXX_FLAGS SPICE_SERVER
set -euo pipefail
build=$1 scratch=$2 cxx=$3 flags=$4 server=$5
examples=$(cd "$(dirname "$0")/../../examples" && pwd)
rm -rf "$scratch"
cmake --install "$build" --prefix "$scratch/usr" >/dev/null
lib=$(dirname "$(find "$scratch/usr" -name 'libdevredirecthandler.so')")

fail() {
    echo "FAILED: $1" >&2
    tail -n 50 "$scratch"/*.out "$scratch"/*.log >&2 || true
    exit 1
}
expect() { grep -qxF -- "$2" "$scratch/$1" || fail "$1 has no line \"$2\""; }
await() { # FILE LINE
    local end=$((SECONDS + 30))
    until grep -qxF -- "$2" "$scratch/$1" 2>/dev/null; do
        [ $SECONDS -lt $end ] || fail "$1 has no line \"$2\" in time"
        sleep 0.02
    done
}

mv "$scratch/usr" "$scratch/moved"
usr=$scratch/moved lib=$scratch/moved/${lib#"$scratch/usr/"}
find "$usr" -name LICENSE | grep -q . || fail 'the licence is not installed'
if [ -e "$usr/bin/devredir-host" ]; then
    "$usr/bin/devredir-host" --help >"$scratch/help.out" 2>"$scratch/help.log" || fail 'the installed devredir-host does not run'
    for file in libdevredir.so config.json; do
        [ -f "$usr/bin/Device Redirect/$file" ] || fail "$file is not beside devredir-host"
    done
fi

for example in host component; do
    cmake -S "$examples/minimal-$example" -B "$scratch/$example" -G Ninja -DCMAKE_PREFIX_PATH="$usr" \
        -DCMAKE_CXX_COMPILER="$cxx" -DCMAKE_CXX_FLAGS="$flags -Wall -Wextra -Werror" >/dev/null
    cmake --build "$scratch/$example" >"$scratch/$example-build.log" || fail "minimal-$example does not build"
done
host=$scratch/host/minimal-host
export QT_LOGGING_RULES='*.debug=false;*.info=false'

status=0
"$host" >"$scratch/alone.out" 2>"$scratch/alone.log" || status=$?
[ $status = 3 ] || fail "a host without a component ends with $status"
grep -q '^Not started; .*: not found' "$scratch/alone.log" || fail 'a host without a component does not say why'

mkdir "$scratch/host/Device Redirect"
cp "$scratch/component/libdevredir.so" "$scratch/host/Device Redirect/"
echo '{}' >"$scratch/host/Device Redirect/config.json"
"$host" >"$scratch/list.out" 2>"$scratch/list.log" || fail 'no list'
expect list.out 'made-up  A made-up disk  local'

"$host" "spice+unix://$scratch/nobody.sock" made-up >"$scratch/lost.out" 2>"$scratch/lost.log" || status=$?
[ $status = 4 ] || fail "a host without a virtual machine ends with $status"

"$server" "$scratch/spice.sock" org.example.made-up >"$scratch/server.out" 2>"$scratch/server.log" & server_pid=$!
trap 'kill "$server_pid" 2>/dev/null || true' EXIT
await server.out "listening at $scratch/spice.sock"
stdbuf -oL "$host" "spice+unix://$scratch/spice.sock" made-up >"$scratch/share.out" 2>"$scratch/share.log" & host_pid=$!
await share.out 'shared: made-up'
await server.out 'received: hello from the component'
kill -INT $host_pid
wait $host_pid || fail "the host that shares ends with $?"
expect share.out 'made-up  A made-up disk  local'
kill -0 $server_pid || fail 'the server has ended with the host'

# The same with pkg-config.
export PKG_CONFIG_PATH="$lib/pkgconfig"
# shellcheck disable=SC2046,SC2086
"$cxx" -std=c++17 -fPIC -DQT_NO_KEYWORDS $flags "$examples/minimal-host/main.cpp" -o "$scratch/host/pkg-config-host" \
    $(pkg-config --cflags --libs devredirecthandler spice-client-glib-2.0) || fail 'no build with pkg-config'
LD_LIBRARY_PATH="$lib" "$scratch/host/pkg-config-host" >"$scratch/pkg-config.out" 2>"$scratch/pkg-config.log" || fail 'no list'
expect pkg-config.out 'made-up  A made-up disk  local'
