# SPDX-License-Identifier: LGPL-2.1-or-later
# Warnings and sanitizers, the same for the library, the reference and the tests.

set(DEVREDIRECT_WARNINGS -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wno-sign-conversion)
if(DEVREDIRECT_SANITIZE) # the checks that gcc puts in look to it like uses of what is not set
    list(APPEND DEVREDIRECT_WARNINGS -Wno-maybe-uninitialized)
endif()
if(DEVREDIRECT_WERROR)
    list(APPEND DEVREDIRECT_WARNINGS -Werror)
endif()

# What a project that links an instrumented library needs too.
set(DEVREDIRECT_CONSUMER_FLAGS "")
if(DEVREDIRECT_SANITIZE)
    set(DEVREDIRECT_CONSUMER_FLAGS -fsanitize=${DEVREDIRECT_SANITIZE})
    add_compile_options(-fsanitize=${DEVREDIRECT_SANITIZE} -fno-omit-frame-pointer -g)
    add_link_options(-fsanitize=${DEVREDIRECT_SANITIZE})
    if(DEVREDIRECT_SANITIZE MATCHES undefined)
        add_compile_options(-fno-sanitize-recover=undefined)
    endif()
endif()
