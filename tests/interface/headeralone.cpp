// SPDX-License-Identifier: LGPL-2.1-or-later

// Compiled with the include paths of Qt Core and of this project and no others.

#include "interface/devredirectinterface.h"

void useTheHeaderAlone(DevRedirectInterface &redirect)
{
    redirect.setClientParam({QString(), QString()});
    Q_EMIT redirect.checkRedirChannelByThread(nullptr, QString(), false);
}
