# SPDX-License-Identifier: LGPL-2.1-or-later
# The options as --help lists them, and for a device what --list lists.
for option in (devredir-host --help | string replace -rf '^  --([a-z-]+).*' '$1')
    switch $option
        case share unshare explain
            complete -c devredir-host -l $option -x -a '(devredir-host --list 2>/dev/null | string replace -r "^\[[a-z]+\] +(\S+) \S+ \S+ (.*)" "\$1\t\$2")'
        case password-file
            complete -c devredir-host -l $option -r
        case uri host port vm-id auto timeout log-rules
            complete -c devredir-host -l $option -x
        case '*'
            complete -c devredir-host -l $option
    end
end
