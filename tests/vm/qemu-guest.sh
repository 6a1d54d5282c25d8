#!/bin/sh
# SPDX-License-Identifier: LGPL-2.1-or-later
# usage: qemu-guest.sh DIR OUTDIR [PORTS]
# Becomes a virtual machine that runs the guest which mkguest.sh made in OUTDIR; DIR as for qemu-bios.sh.
# GUEST_KINDS are the devices that it has drivers for (disk, camera, serial, keyboard), GUEST_CHECK what usbcheck does
# with one that is no disk. GUEST_TEXT is what it writes to a stick (empty: small files without end), GUEST_WAIT how many
# seconds it waits for one, GUEST_POWEROFF=1 ends it after the first. With GUEST_SECTORS it reads the stick for ever
# instead, in transfers of so many sectors (0: as its kernel chooses).
set -u
[ $# -ge 2 ] || { sed -n '3,8s/^# //p' "$0" >&2; exit 2; }
guest=$(cd "$2" && pwd) || exit 1
append="console=ttyS0 quiet panic=-1 guest_wait=${GUEST_WAIT:-120} poweroff=${GUEST_POWEROFF:-0}"
append="$append guest_kinds=\"${GUEST_KINDS:-disk}\" guest_check=\"${GUEST_CHECK:-}\""
append="$append guest_text=\"${GUEST_TEXT-written by the guest}\""
[ -z "${GUEST_SECTORS:-}" ] || append="$append guest_sectors=$GUEST_SECTORS"
set -- "$1" "${3:-1}"
. "$(dirname "$0")/qemu-ports.sh"
exec "${QEMU:-qemu-system-x86_64}" "$@" -m 256 -no-reboot -kernel "$guest/vmlinuz" -initrd "$guest/initrd.gz" \
    -append "$append" >"$dir/qemu.log" 2>&1
