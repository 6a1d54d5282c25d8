# SPDX-License-Identifier: LGPL-2.1-or-later
# The options as --help lists them, and for a device what --list lists.
set -l program (basename (status filename) .fish)
for option in ($program --help | string replace -rf '^  --([a-z-]+).*' '$1')
    switch $option
        case share unshare explain
            complete -c $program -l $option -x -a '(devredir-host --list 2>/dev/null | string replace -rf "^(?:local|shared) +(\S+) +\S+ +\S+ +(.*)" "\$1\t\$2")'
        case password-file log component
            complete -c $program -l $option -r
        case uri host port vm-id auto timeout log-rules
            complete -c $program -l $option -x
        case '*'
            complete -c $program -l $option
    end
end
