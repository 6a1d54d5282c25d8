#!/bin/sh
# SPDX-License-Identifier: LGPL-2.1-or-later
# usage: mkguest.sh OUTDIR
# Makes OUTDIR/vmlinuz and OUTDIR/initrd.gz: the Debian kernel and the smallest system that uses USB devices.
# Installs nothing. Wants apt-get, dpkg-deb, cpio, a C++ compiler and a static busybox; LINUX_DEB names a kernel package that is already
# there, so that nothing is fetched.
set -eu
[ $# -eq 1 ] || { sed -n '3,6s/^# //p' "$0" >&2; exit 2; }
here=$(cd "$(dirname "$0")" && pwd)
mkdir -p "$1"
out=$(cd "$1" && pwd)
busybox=${BUSYBOX:-/bin/busybox}
# What the guest loads for a kind of device, after the controller.
modules_of() {
    case $1 in
        disk) echo xhci-pci usb-storage sd_mod crc32c_generic ext4 ;;
        camera) echo xhci-pci uvcvideo ;;
        serial) echo xhci-pci cdc-acm ;;
        keyboard) echo xhci-pci usbhid hid-generic evdev ;;
    esac
}

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

fetch_kernel() {
    package=$(apt-cache depends linux-image-amd64 | sed -n 's/^ *Depends: \(linux-image-[0-9].*\)/\1/p' | head -n 1)
    [ -n "$package" ] || { echo "mkguest.sh: no kernel package is known, try apt-get update" >&2; exit 1; }
    (cd "$work" && apt-get -q download "$package" >&2)
    echo "$work/$package"_*.deb
}

# Prints the modules that $1 needs and $1 itself in the order to load them; modules.dep lists the last needed first.
with_needed() {
    awk -v end="/$1.ko:" '
        substr($1, length($1) - length(end) + 1) == end {
            for (i = NF; i > 1; i--)
                print $i
            print substr($1, 1, length($1) - 1)
            found = 1
        }
        END { exit !found }' "$moddir/modules.dep" || { echo "mkguest.sh: the kernel has no module $1" >&2; exit 1; }
}

deb=${LINUX_DEB:-$(fetch_kernel)}
mkdir "$work/kernel"
dpkg-deb -x "$deb" "$work/kernel"
version=$(basename "$work"/kernel/boot/vmlinuz-* | sed 's/^vmlinuz-//')
moddir=$work/kernel/lib/modules/$version
"$busybox" depmod -b "$work/kernel" "$version"

root=$work/root
mkdir -p "$root/bin" "$root/dev" "$root/proc" "$root/sys" "$root/mnt" "$root/modules"
cp "$busybox" "$root/bin/busybox"
install -m 755 "$here/init" "$root/init"
"${CXX:-c++}" -O1 -s -static -o "$root/bin/usbcheck" "$here/usbcheck.cpp"
for kind in disk camera serial keyboard; do
    for module in $(modules_of "$kind"); do
        with_needed "$module"
    done | awk '!seen[$0]++' | sed "s|.*lib/modules/$version/||" | while read -r file; do
        cp "$moddir/$file" "$root/modules/"
        basename "$file"
    done >"$root/modules/$kind"
done

cp "$work/kernel/boot/vmlinuz-$version" "$out/vmlinuz"
(cd "$root" && find . | cpio --quiet -o -H newc) | gzip -1 >"$out/initrd.gz"
