// SPDX-License-Identifier: LGPL-2.1-or-later
#include "username.h"

#include <pwd.h>
#include <unistd.h>

QString userName()
{
    passwd user{};
    passwd *found = nullptr;
    char texts[4096];
    getpwuid_r(geteuid(), &user, texts, sizeof texts, &found);
    return found ? QString::fromLocal8Bit(found->pw_name) : QString::number(geteuid());
}
