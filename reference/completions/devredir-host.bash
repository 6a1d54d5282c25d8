# SPDX-License-Identifier: LGPL-2.1-or-later
# shellcheck shell=bash
# The options as --help lists them, and for a device what --list lists.
_devredir_host()
{
    case $3 in
        --share|--unshare|--explain)
            # Not compgen -W, which runs what stands in a word: a device has the serial number that it likes.
            local device
            COMPREPLY=()
            while read -r device; do
                [[ $device != "$2"* ]] || COMPREPLY+=("$device")
            done < <(echo all; "$1" --list 2>/dev/null | sed -nE 's/^(local|shared) +([^ ]+) .*/\2/p')
            # A colon is a word break of its own to the shell.
            ! declare -F __ltrim_colon_completions >/dev/null || __ltrim_colon_completions "$2" ;;
        --password-file|--log|--component) mapfile -t COMPREPLY < <(compgen -f -- "$2") ;;
        --uri|--host|--port|--vm-id|--auto|--timeout|--log-rules) COMPREPLY=() ;;
        *)
            mapfile -t COMPREPLY < <(compgen -f -X '!*.vv' -- "$2"
                compgen -W "$("$1" --help | sed -nE 's/^ +(--[a-z-]+).*/\1/p')" -- "$2") ;;
    esac
} && complete -o filenames -F _devredir_host devredir-host devredir-panel devredir-doctor
