#!/bin/bash
# SPDX-License-Identifier: LGPL-2.1-or-later
# Compares what documents quote with what they quote from. A line "<!-- from FILE -->" says of the fenced block behind it
# that its lines stand so in FILE, one after the other; "..." alone on a line stands for lines that are left out.
# usage: quotes.sh ROOT DOCUMENT...
set -euo pipefail
root=$1 wrong=0
shift

differs() { echo "$1: $2" >&2; wrong=1; }

compare() { # PLACE FILE BLOCK
    local part rest=$3 text
    [ -f "$root/$2" ] || { differs "$1" "there is no $2"; return; }
    text=$'\n'$(<"$root/$2")$'\n'
    while [ -n "$rest" ]; do
        part=${rest%%$'\n...\n'*}
        [ "$part" = "$rest" ] && rest='' || rest=${rest#*$'\n...\n'}
        part=$'\n'${part%$'\n'}$'\n'
        [[ $text == *"$part"* ]] || { differs "$1" "this differs from $2"; return; }
        text=$'\n'${text#*"$part"}
    done
}

quotes=0
for document; do
    number=0 file='' block='' inside=0
    while IFS= read -r line; do
        number=$((number + 1))
        if [ $inside = 1 ] && [ "$line" != '```' ]; then
            block+=$line$'\n'
        elif [ $inside = 1 ]; then
            compare "$document:$place" "$file" "$block"
            file='' block='' inside=0
        elif [[ $line =~ ^'<!-- from '(.+)' -->'$ ]]; then
            file=${BASH_REMATCH[1]} place=$number quotes=$((quotes + 1))
        elif [ -n "$file" ]; then
            [[ $line == '```'* ]] || { differs "$document:$place" 'no block follows'; file=''; continue; }
            inside=1
        fi
    done <"$root/$document"
    [ -z "$file" ] || differs "$document:$place" 'no block follows, or it has no end'
done
echo "$quotes quotes"
exit $wrong
