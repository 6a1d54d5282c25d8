# SPDX-License-Identifier: LGPL-2.1-or-later
# shellcheck shell=bash
# Sourced by the tools: need GROUP... installs the Debian packages of these groups that are missing.

declare -A package_groups=(
    [build]="build-essential ca-certificates cmake libsimdjson-dev libspice-client-glib-2.0-dev libudev-dev libusb-1.0-0-dev
        libusbredirhost-dev ninja-build pkg-config qtbase5-dev"
    [test]="libgtest-dev libspice-protocol-dev libspice-server-dev libumockdev-dev qemu-system-x86 umockdev util-linux"
    [tsan]="qtbase5-private-dev"
    [coverage]="gcovr"
    [guest]="busybox-static cpio e2fsprogs"
    [fuzz]="clang libclang-rt-14-dev"
)
declare -A package_reasons=(
    [build]="compilers and the libraries that are linked"
    [test]="test framework, SPICE server, device emulation, virtual machine"
    [tsan]="Qt's private headers, for the thread sanitizer"
    [coverage]="coverage report"
    [guest]="the guest system that uses a redirected disk"
    [fuzz]="the fuzzer"
)

need() {
    local group package missing=() reasons=() root=()
    for group in "$@"; do
        local before=${#missing[@]}
        for package in ${package_groups[$group]}; do
            dpkg-query -W -f '${Status}' "$package" 2>/dev/null | grep -q 'ok installed' || missing+=("$package")
        done
        [ "${#missing[@]}" = "$before" ] || reasons+=("${package_reasons[$group]}")
    done
    [ "${#missing[@]}" != 0 ] || return 0
    if [ "$(id -u)" != 0 ]; then
        root=(sudo)
    fi
    (IFS=';'; echo "Installing with apt-get (${reasons[*]}): $(IFS=' '; echo "${missing[*]}")")
    local log
    log=$(mktemp)
    if ! { "${root[@]}" apt-get update -q && "${root[@]}" env DEBIAN_FRONTEND=noninteractive \
            apt-get install -y -q --no-install-recommends "${missing[@]}"; } >"$log" 2>&1; then
        tail -n 20 "$log"
        echo "Could not install the packages; the whole output is in $log" >&2
        return 1
    fi
    rm -f "$log"
}
