#!/bin/sh
# SPDX-License-Identifier: LGPL-2.1-or-later
# usage: readimage.sh IMAGE FILE
# Prints a file of the ext2 file system in IMAGE. Wants e2fsprogs.
set -eu
[ $# -eq 2 ] || { sed -n '3,4s/^# //p' "$0" >&2; exit 2; }
PATH=$PATH:/sbin:/usr/sbin
debugfs -R "cat /$2" "$1" 2>/dev/null
