#!/bin/bash
# SPDX-License-Identifier: LGPL-2.1-or-later
# usage: udevrules.sh RULES-FOLDER USBWORLD FOLDER
# Lets udev apply the rules to emulated devices of each kind, and compares who gets the tag. Status 77: udev cannot be given
# rules here (that takes root and a mount namespace of its own).
set -euo pipefail
if [ -z "${UDEVRULES_INSIDE:-}" ]; then
    unshare -m mount -t tmpfs tmpfs /run 2>/dev/null || exit 77
    UDEVRULES_INSIDE=1 exec unshare -m "$0" "$@"
fi
rules=$1 world=$2 folder=$3
mkdir -p "$folder" /run/udev
truncate -s 64K "$folder/stick.img"

tagged() { # RULES...: the ports whose devices whoever sits here may open
    mount -t tmpfs tmpfs /run/udev # udev keeps the tags that a device had
    mkdir /run/udev/rules.d
    cp "$@" /run/udev/rules.d
    # shellcheck disable=SC2016
    umockdev-wrapper "$world" --stick "1-1=$folder/stick.img" --serial 1-2 --camera 1-3 --keyboard 1-4 \
        --stick "1-5=$folder/stick.img,with-serial" -- sh -c '
            for device in usb1 usb1/1-1 usb1/1-2 usb1/1-3 usb1/1-4 usb1/1-5; do
                tags=$(udevadm test --action=add /sys/devices/pci0000:00/0000:00:14.0/$device 2>&1 | grep ^TAGS= || :)
                case $tags in *:uaccess:*) echo -n "${device#usb1/} " ;; esac
            done'
}
failed=0
expect() { # WHAT FOUND WANTED
    [ "$2" = "$3" ] || { echo "$1 opens '$2', not '$3'"; failed=1; }
}
expect "nothing" "$(tagged "$0")" ""
expect "the first file" "$(tagged "$rules/70-devredir.rules")" "1-2 "
expect "both files" "$(tagged "$rules"/7?-devredir*.rules)" "1-1 1-2 1-3 1-5 "
exit $failed
