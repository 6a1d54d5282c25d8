#!/bin/bash
# SPDX-License-Identifier: LGPL-2.1-or-later
# usage: completions.sh FILE DEVREDIR-HOST
# What bash offers for the words of a command line.
# shellcheck source=reference/completions/devredir-host.bash
. "$1"
offers() { # WANTED WORD PREVIOUS
    COMPREPLY=()
    _devredir_host "$host" "$2" "$3"
    [ "${COMPREPLY[*]}" = "$1" ] || { echo "for '$3 $2': '${COMPREPLY[*]}', not '$1'"; failed=1; }
}
host=$2 failed=0
offers '--reconnect' --rec devredir-host
offers '--help --help-spice' --help devredir-host
offers 'all' al --share
offers '' sp --uri
offers "$1" "$1" --password-file
exit $failed
