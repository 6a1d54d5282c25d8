# SPDX-License-Identifier: LGPL-2.1-or-later
# Builds for AArch64 on another Debian machine, against the arm64 packages beside its own. What needs to run while
# building, such as the tests that are asked for their names, runs under an emulator.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
set(PKG_CONFIG_EXECUTABLE /usr/bin/aarch64-linux-gnu-pkg-config CACHE FILEPATH "Looks into the arm64 folders only")
set(CMAKE_CROSSCOMPILING_EMULATOR /usr/bin/qemu-aarch64 CACHE FILEPATH "Runs what was built")
