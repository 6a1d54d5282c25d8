#!/bin/bash
# SPDX-License-Identifier: LGPL-2.1-or-later
# usage: completions.sh COMPLETIONS PROGRAMS
# What bash, and fish where it is installed, offer for the words of a command line, on a computer with the device 1-1:11.
# shellcheck source=reference/completions/devredir-host.bash
. "$1/devredir-host.bash"
offers() { # WANTED WORD PREVIOUS
    COMPREPLY=()
    _devredir_host "$host" "$2" "$3"
    [ "${COMPREPLY[*]}" = "$1" ] || { echo "for '$3 $2': '${COMPREPLY[*]}', not '$1'"; failed=1; }
}
host=$2/devredir-host failed=0
offers '--reconnect' --rec devredir-host
offers '--help --help-spice' --help devredir-host
offers 'all' al --share
offers '1-1:11' 1 --share
offers '' sp --uri
offers "$1/devredir-host.bash" "$1/devredir-host.b" --password-file
# shellcheck disable=SC2016
hostile='1-2:$(touch${IFS}touched)`touch${IFS}touched`'
(
    cd "$(mktemp -d)" || exit 1
    trap 'rm -r "$PWD"' EXIT
    printf '#!/bin/sh\necho '"'local  %s  usbrdr  1209:0001  Stick'\\n" "$hostile" >host
    chmod +x host
    host=$PWD/host
    offers "$hostile" 1-2 --share
    [ ! -e touched ] || { echo 'a serial number was run'; failed=1; }
    exit $failed
) || failed=1
if command -v fish >/dev/null; then
    folder=$(mktemp -d)
    trap 'rm -rf "$folder"' EXIT
    export HOME=$folder PATH=$2:$PATH
    fish_offers() { # WANTED PROGRAM LINE
        cp "$completions/devredir-host.fish" "$folder/$2.fish"
        offered=$(fish --private --command "source $folder/$2.fish; complete --do-complete '$2 $3'" | cut -f1 | tr '\n' ' ')
        [ "$offered" = "$1 " ] || { echo "fish, for '$2 $3': '$offered', not '$1'"; failed=1; }
    }
    completions=$1
    fish_offers '--reconnect' devredir-host --rec
    fish_offers '1-1:11' devredir-host '--share 1'
    fish_offers '--tray' devredir-panel --tr
fi
exit $failed
