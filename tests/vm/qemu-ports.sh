# SPDX-License-Identifier: LGPL-2.1-or-later
# shellcheck shell=sh
# Sourced by the scripts that start a virtual machine: sets the positional parameters to the options of QEMU that every
# such machine has. $1 is the directory of the machine, $2 the number of its USB ports; PREFIX starts their names.
dir=$(cd "$1" && pwd) || exit 1
ports=${2:-1}
prefix=${PREFIX:-org.devredir.usb.}
rm -f "$dir/spice.sock" "$dir/qmp.sock" "$dir/serial.txt" "$dir/qemu.pid"

set -- -accel tcg -M q35 -display none -vga none -nodefaults -no-user-config -pidfile "$dir/qemu.pid" \
    -serial "file:$dir/serial.txt" -qmp "unix:$dir/qmp.sock,server=on,wait=off" \
    -spice "unix=on,addr=$dir/spice.sock,disable-ticketing=on" -device qemu-xhci,id=x,p2=15,p3=15
i=0
while [ "$i" -lt "$ports" ]; do
    set -- "$@" -chardev "spiceport,id=ur$i,name=$prefix$i" -device "usb-redir,id=usb$i,chardev=ur$i,bus=x.0"
    i=$((i + 1))
done
