#!/bin/bash
# SPDX-License-Identifier: LGPL-2.1-or-later
# usage: asnobody.sh USBWORLD STICK PROGRAM [ARGUMENT...]
# Runs a program on an emulated computer with a copy of the stick, as a user who is not root, with a folder of its own.
set -euo pipefail
usbworld=$1 stick=$2
shift 2
user=()
[ "$(id -u)" != 0 ] || user=(setpriv --reuid 65534 --regid 65534 --clear-groups --inh-caps=-all)
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cp "$stick" "$folder/stick"
[ ${#user[@]} = 0 ] || chown -R 65534:65534 "$folder"
if ! "${user[@]}" test -x "$1"; then
    echo "that user may not go to $1"
    exit 77
fi
export TMPDIR=$folder HOME=$folder XDG_RUNTIME_DIR=$folder
"${user[@]}" umockdev-wrapper "$usbworld" --stick "1-1=$folder/stick,serial=11" --camera 1-2 --control "$folder/world.sock" -- "$@"
