#!/bin/sh
# SPDX-License-Identifier: LGPL-2.1-or-later
# usage: mkimage.sh IMAGE TEXT [TYPE]
# Makes the image of a stick of 16 MiB with a file system, ext2 unless TYPE says ext4, that holds TEXT in hello.txt. Wants e2fsprogs.
set -eu
[ $# -ge 2 ] || { sed -n '3,4s/^# //p' "$0" >&2; exit 2; }
PATH=$PATH:/sbin:/usr/sbin
content=$(mktemp -d)
trap 'rm -rf "$content"' EXIT
printf '%s\n' "$2" >"$content/hello.txt"
rm -f "$1"
mke2fs -q -t "${3:-ext2}" -L STICK -d "$content" "$1" 16M
