#!/bin/sh
# SPDX-License-Identifier: LGPL-2.1-or-later
# usage: qemu-bios.sh DIR [PORTS]
# Becomes a virtual machine without any disk, which boots from the first USB stick that is redirected into it.
# DIR gets spice.sock, qmp.sock, serial.txt (what the machine prints), qemu.log and qemu.pid.
set -u
[ $# -ge 1 ] || { sed -n '3,5s/^# //p' "$0" >&2; exit 2; }
. "$(dirname "$0")/qemu-ports.sh"
# Without anything to boot from, the BIOS starts again every half a second and so finds the stick.
exec "${QEMU:-qemu-system-x86_64}" "$@" -m 64 -boot reboot-timeout=500 >"$dir/qemu.log" 2>&1
