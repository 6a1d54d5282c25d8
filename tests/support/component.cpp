// SPDX-License-Identifier: LGPL-2.1-or-later
#include "support/component.h"

#include <QCoreApplication>

#include <cstring>
#include <stdexcept>

#include <dlfcn.h>

QString Component::path()
{
    return QCoreApplication::applicationDirPath() + QStringLiteral("/Device Redirect/libdevredir.so");
}

QString Component::variant(const QString &name)
{
    return QCoreApplication::applicationDirPath() + QStringLiteral("/Device Redirect/") + name + QStringLiteral(".so");
}

Script &Component::script(const QString &path)
{
    void *library = dlopen(qPrintable(path), RTLD_NOW);
    void *symbol = library ? dlsym(library, "script") : nullptr;
    if (!symbol)
        throw std::runtime_error("no scripted component: " + path.toStdString());
    return *reinterpret_cast<ScriptOf *>(symbol)();
}

std::string Component::listDocument(const std::vector<std::string> &devices)
{
    std::string text = "[{\"devices\":[";
    for (std::size_t i = 0; i < devices.size(); ++i)
        text += (i ? ",{" : "{") + devices[i] + "}";
    return text + "]}]";
}

std::function<RedirCtrl> Component::listing(std::string document)
{
    return [document = std::move(document)](const std::string &command, char *buffer, int &length) {
        if (command.find("\"list\"") == std::string::npos)
            return 0;
        if (document.size() > std::size_t(length))
            return 2;
        std::memcpy(buffer, document.data(), document.size());
        length = int(document.size());
        return 0;
    };
}
