# SPDX-License-Identifier: LGPL-2.1-or-later
# shellcheck shell=bash
# Sourced by the tools, in the root of the repository: their options, their packages, and how they build.

tool=$(basename "$0")
root=()   # how to become root
[ "$(id -u)" = 0 ] || root=(sudo)
install=1 # --no-install: say which packages are missing instead of installing them

# The help of a tool is the comment at its top.
show_help() { sed -n '3,/^$\|^[^#]/s/^# \{0,1\}//p' "tools/$tool"; }

# wrong TEXT: the tool was called in a way that it does not know.
wrong() {
    echo "$tool: $1 (see --help)" >&2
    exit 2
}

# value "$@": the first of the words left is an option; is there a value behind it?
value() {
    case ${2:-} in ''|-*) wrong "$1 needs a value" ;; esac
}

# number "$@": the same, for a value that is a number from 1.
number() {
    value "$@"
    case $2 in 0*|*[!0-9]*) wrong "$1 needs a number from 1, not $2" ;; esac
}

# option WORD: the options that every tool has. Any other word that comes here is wrong.
option() {
    case $1 in
        -h|--help) show_help; exit 0 ;;
        --no-install) install=0 ;;
        -*) wrong "unknown option $1" ;;
        *) wrong "what is $1?" ;;
    esac
}

declare -A package_groups=(
    [build]="build-essential ca-certificates cmake libsimdjson-dev libspice-client-glib-2.0-dev libsystemd-dev libudev-dev
        libusb-1.0-0-dev libusbredirhost-dev ninja-build pkg-config qtbase5-dev qttools5-dev"
    [test]="castxml fish git help2man libgtest-dev libspice-protocol-dev libspice-server-dev libumockdev-dev openssl python3
        qemu-system-x86 udev umockdev util-linux xauth xvfb"
    [qt6]="qt6-base-dev qt6-l10n-tools qt6-tools-dev"
    [chroot]="mmdebstrap"
    [aarch64]="build-essential cmake crossbuild-essential-arm64 debhelper help2man ninja-build openssl perl pkg-config
        pkg-kde-tools qemu-user qtbase5-dev-tools qttools5-dev-tools libgtest-dev:arm64 libsimdjson-dev:arm64
        libspice-client-glib-2.0-dev:arm64 libspice-protocol-dev libspice-server-dev:arm64 libsystemd-dev:arm64
        libudev-dev:arm64 libusb-1.0-0-dev:arm64 libusbredirhost-dev:arm64 qtbase5-dev:arm64 qttools5-dev:arm64"
    [compat]="build-essential castxml clang cmake libgtest-dev libsimdjson-dev libspice-client-glib-2.0-dev libspice-protocol-dev
        libspice-server-dev lld llvm ninja-build openssl pkg-config python3 qtbase5-dev"
    [tsan]="qtbase5-private-dev"
    [coverage]="gcovr"
    [bench]="libbenchmark-dev python3 valgrind"
    [plot]="gnuplot-nox"
    [abi]="abigail-tools"
    [release]="dpkg-dev git reuse xz-utils"
    [guest]="busybox-static cpio e2fsprogs"
    [fuzz]="clang libclang-rt-14-dev"
    [sources]="git"
    [package]="debhelper help2man pkg-kde-tools"
    [packagecheck]="diffoscope-minimal faketime lintian mmdebstrap"
    [text]="codespell shellcheck"
    [docs]="doxygen linkchecker qttools5-dev-tools"
    [draw]="fonts-dejavu-core graphviz plantuml"
    [lint]="clang-format clang-tidy clazy cppcheck"
)
declare -A package_reasons=(
    [build]="compilers and the libraries that are linked"
    [test]="test framework, SPICE server, certificates, device emulation, virtual machine, screen, manual pages"
    [qt6]="the next Qt"
    [chroot]="what makes a Debian in a folder"
    [aarch64]="cross compiler, libraries for AArch64, emulator"
    [tsan]="Qt's private headers, for the thread sanitizer"
    [coverage]="coverage report"
    [bench]="the benchmarks, and what counts instructions"
    [plot]="what draws the plots"
    [abi]="what compares binary interfaces"
    [release]="what makes a release"
    [guest]="the guest system that uses redirected devices"
    [fuzz]="the fuzzer"
    [sources]="the list of sources"
    [package]="Debian packages"
    [packagecheck]="what checks Debian packages"
    [text]="spelling, shell scripts"
    [docs]="what makes the documentation and checks its links"
    [draw]="what draws the pictures of the documentation"
    [lint]="what reads the C++ sources without running them"
)

# need GROUP...: sees to it that the Debian packages of these groups are there.
need() {
    local group package missing=() reasons=()
    for group in "$@"; do
        local before=${#missing[@]}
        for package in ${package_groups[$group]}; do
            case " ${missing[*]} " in *" $package "*) continue ;; esac
            dpkg-query -W -f '${Status}' "$package" 2>/dev/null | grep -q 'ok installed' || missing+=("$package")
        done
        [ "${#missing[@]}" = "$before" ] || reasons+=("${package_reasons[$group]}")
    done
    [ "${#missing[@]}" != 0 ] || return 0
    if [ "$install" = 0 ]; then
        echo "$tool: missing packages; to install them: ${root[*]:+sudo }apt-get install ${missing[*]}" >&2
        return 1
    fi
    (IFS=';'; echo "Installing with apt-get (${reasons[*]}): $(IFS=' '; echo "${missing[*]}")")
    local log
    log=$(mktemp)
    if ! { "${root[@]}" apt-get update -q &&
            "${root[@]}" env DEBIAN_FRONTEND=noninteractive \
            apt-get install -y -q --no-install-recommends "${missing[@]}"; } >"$log" 2>&1; then
        tail -n 20 "$log"
        echo "Could not install the packages; the whole output is in $log" >&2
        return 1
    fi
    rm -f "$log"
}

# files PATTERN...: those that are committed, or would be. In what a release unpacks to, that is all but what is built.
files() {
    local repository=.git scratch='' status=0
    if [ ! -e .git ]; then
        scratch=$(mktemp -d)
        repository=$scratch
        git init -q --bare "$repository"
    fi
    git --git-dir="$repository" --work-tree=. ls-files --cached --others --exclude-standard -- "$@" | sort -u |
        while read -r file; do
            [ ! -f "$file" ] || echo "$file"
        done || status=$?
    [ -z "$scratch" ] || rm -rf "$scratch"
    return $status
}

own_release() { (. /etc/os-release && echo "$VERSION_CODENAME"); }
# sources_of RELEASE: the files that say where this machine gets it from; none if it gets another.
sources_of() {
    grep -ls debian /etc/apt/sources.list /etc/apt/sources.list.d/*.{list,sources} | xargs -r grep -lw "$1"
}

public_headers() { sed -n '/^set(DEVREDIRECT_PUBLIC_HEADERS/,/^)/p' CMakeLists.txt | grep -oE '[a-z]+/[a-z]+\.h'; }

# in_debian KIND RELEASE ARCHITECTURES PACKAGES COMMAND...: runs COMMAND in a Debian with these packages, where they disturb
# nobody, and where this folder has the same name. The first call makes it in build/KIND-RELEASE, as root; the command is
# run by the user who called.
in_debian() {
    local debian=$PWD/build/$1-$2 release=$2 architectures=$3 packages=$4 sources
    shift 4
    if [ "$(cat "$debian.packages" 2>/dev/null)" != "$packages" ]; then
        echo "== making $debian"
        "${root[@]}" rm -rf --one-file-system "$debian" "$debian.packages"
        mkdir -p build
        mapfile -t sources < <(sources_of "$release")
        "${root[@]}" mmdebstrap --quiet --variant=minbase --architectures="$architectures" --include="$packages" \
            "$release" "$debian" "${sources[@]}" || return
        echo "$packages" >"$debian.packages"
    fi
    # shellcheck disable=SC2016
    "${root[@]}" unshare --mount bash -c '
        set -e
        debian=$1 user=$2 jobs=$3
        shift 3
        mkdir -p "$debian$PWD"
        mount --bind "$debian" "$debian" # so that it is a mount, as a root has to be for who makes mounts of its own
        mount --bind "$PWD" "$debian$PWD"
        mount --rbind /dev "$debian/dev"
        mount --rbind /proc "$debian/proc"
        exec env --ignore-environment HOME=/tmp PATH=/usr/bin:/usr/sbin LANG=C.UTF-8 CMAKE_BUILD_PARALLEL_LEVEL="$jobs" \
            chroot --userspec="$user" "$debian" env --chdir="$PWD" "$@"' "$tool" \
        "$debian" "$(id -u):$(id -g)" "${CMAKE_BUILD_PARALLEL_LEVEL:-}" "$@"
}

# ...in one that cross-builds for AArch64, of this machine's release.
in_aarch64_debian() { in_debian aarch64 "$(own_release)" amd64,arm64 "${package_groups[aarch64]}" "$@"; }

# build PRESET [TARGET...]: configures and builds. On a terminal it shows how far it is; elsewhere nothing is printed but
# the end of what went wrong.
build() {
    local preset=$1 targets=() log
    shift
    [ $# = 0 ] || targets=(--target "$@")
    log=$(mktemp)
    if ! cmake --preset "$preset" >"$log" 2>&1; then
        tail -n 60 "$log" >&2
        rm -f "$log"
        return 1
    fi
    local compile=(cmake --build "build/$preset" "${targets[@]}") status=0
    if [ -t 1 ]; then
        "${compile[@]}" || status=1
    elif ! "${compile[@]}" >"$log" 2>&1; then
        tail -n 60 "$log" >&2
        status=1
    fi
    rm -f "$log"
    return $status
}
