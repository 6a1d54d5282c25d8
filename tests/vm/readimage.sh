#!/bin/sh
# SPDX-License-Identifier: LGPL-2.1-or-later
# usage: readimage.sh IMAGE FILE
# Prints a file of the file system in IMAGE, which is repaired first as after a stick was pulled. Wants e2fsprogs.
set -eu
[ $# -eq 2 ] || { sed -n '3,4s/^# //p' "$0" >&2; exit 2; }
PATH=$PATH:/sbin:/usr/sbin
e2fsck -p "$1" >/dev/null 2>&1 || [ $? -le 2 ]
debugfs -R "cat /$2" "$1" 2>/dev/null
