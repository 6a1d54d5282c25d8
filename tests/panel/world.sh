#!/bin/bash
# SPDX-License-Identifier: LGPL-2.1-or-later
# Runs a program on an emulated computer with a screen, a stick that boots ("BOOTED") and one that is read-only.
# usage: world.sh BOOTSTICK USBWORLD PROGRAM [ARGUMENT...]
set -euo pipefail
bootstick=$1 usbworld=$2
shift 2
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
"$bootstick" "$scratch/stick" --text BOOTED --size 4 >"$scratch/made"
truncate -s 64K "$scratch/locked"
export WORLD_SOCKET=$scratch/world.sock XDG_CONFIG_HOME=$scratch XDG_RUNTIME_DIR=$scratch
xvfb-run --auto-servernum umockdev-wrapper "$usbworld" --stick "1-1=$scratch/stick,serial=11" \
    --stick "1-2=$scratch/locked,serial=12,product=Locked,ro" --control "$WORLD_SOCKET" -- "$@"
