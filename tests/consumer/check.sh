#!/bin/sh
# SPDX-License-Identifier: LGPL-2.1-or-later
# Installs the library into an empty folder and builds a host against it, once with CMake and once with pkg-config.
# usage: check.sh BUILD_DIR SCRATCH_DIR CXX CXX_FLAGS
set -eu
build=$1 scratch=$2 cxx=$3 flags=$4
here=$(cd "$(dirname "$0")" && pwd)
rm -rf "$scratch"
cmake --install "$build" --prefix "$scratch/usr" >/dev/null
lib=$(dirname "$(find "$scratch/usr" -name 'libdevredirecthandler.so.1')")

cmake -S "$here" -B "$scratch/cmake" -G Ninja -DCMAKE_PREFIX_PATH="$scratch/usr" -DCMAKE_CXX_COMPILER="$cxx" \
    -DCMAKE_CXX_FLAGS="$flags" >/dev/null
cmake --build "$scratch/cmake" >/dev/null
"$scratch/cmake/consumer"

export PKG_CONFIG_PATH="$lib/pkgconfig"
# shellcheck disable=SC2046
"$cxx" -std=c++17 -fPIC $flags "$here/main.cpp" -o "$scratch/consumer" $(pkg-config --cflags --libs devredirecthandler)
LD_LIBRARY_PATH="$lib" "$scratch/consumer"
