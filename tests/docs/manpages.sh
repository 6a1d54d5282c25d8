#!/bin/sh
# SPDX-License-Identifier: LGPL-2.1-or-later
# usage: manpages.sh FOLDER PROGRAM...
# The manual page of each program in FOLDER has each option of its --help and each exit code, and says what it is for.
folder=$1
shift
missing=0
for program; do
    help=$("$program" --help) || exit 2
    page=$(sed 's/\\f[A-Z]//g; s/\\//g' "$folder/$(basename "$program").1" | tr '\n' ' ') || exit 2
    case $page in
        *" NAME $(basename "$program") - "[a-z]*' '*' '*' .SH SYNOPSIS'*) ;;
        *) echo "the page of $program does not say what it is for"; missing=1 ;;
    esac
    options=$(printf '%s\n' "$help" | sed -nE 's/^ +(--[a-z-]+).*/\1/p')
    codes=$(printf '%s\n' "$help" | tr '\n' ' ' | sed -E 's/.*Exit codes: ([^.]*)\..*/\1/' | tr -d ' ' | tr ',' '\n')
    if [ -z "$options" ] || [ -z "$codes" ]; then
        echo "$program tells no options or no exit codes"
        exit 1
    fi
    for word in $options; do
        case " $page" in *" $word "*) ;; *) echo "the page of $program lacks $word"; missing=1 ;; esac
    done
    for code in $codes; do
        case $(printf %s "$page" | tr -d ' ') in *"$code"*) ;; *) echo "the page of $program lacks $code"; missing=1 ;; esac
    done
done
exit $missing
