// SPDX-License-Identifier: LGPL-2.1-or-later
#include "component/redirecthandler.h"

#include <QCoreApplication>
#include <QDir>
#include <QLibrary>
#include <QList>
#include <QMutex>

struct RedirectHandler::NamedEntryPoint
{
    const char *symbol;
    EntryPoint RedirectHandler::*member;
    const char *missing;
};

const RedirectHandler::NamedEntryPoint RedirectHandler::EntryPoints[] = {
    {"redirInit", &RedirectHandler::m_funcRedirInit, "get address of func redirInit failed"},
    {"redirCheck", &RedirectHandler::m_funcRedirCheck, "get address of func redirCheck failed"},
    {"redirHandler", &RedirectHandler::m_funcRedirHandler, "get address of func redirHandler failed"},
    {"redirSetupContext", &RedirectHandler::m_funcRedirSetupContext, "get address of func redirSetupContext failed"},
    {"redirEventHandler", &RedirectHandler::m_funcRedirEventHandler, "get address of func redirEventHandler failed"},
    {"redirCtrl", &RedirectHandler::m_redirCtrl, "get address of func redirCtrl failed"},
    {"redirDeinit", &RedirectHandler::m_funcRedirDeinit, "get address of func redirDeinit failed"},
};

namespace {
// A QLibrary is never deleted: a thread may still be asking it something when it is replaced. It is kept reachable,
// so that a leak checker shows only what was lost by mistake.
void keepForever(QLibrary *library)
{
    static QMutex *const mutex = new QMutex;
    static QList<QLibrary *> *const kept = new QList<QLibrary *>;
    const QMutexLocker lock(mutex);
    kept->append(library);
}
} // namespace

RedirectHandler::RedirectHandler()
{
    m_log.start();
}

RedirectHandler::~RedirectHandler()
{
    unLoad();
}

QString RedirectHandler::getlibPath() const
{
    Log::guard(QtInfoMsg, __func__, "dlx android getlibPath is null. ");
    QString path = QCoreApplication::applicationDirPath() + QDir::separator() + QStringLiteral("Device Redirect")
        + QStringLiteral("/libdevredir.so");
    Log::guard(QtInfoMsg, __func__, "dlx android pluginFileName: ", path);
    return path;
}

bool RedirectHandler::load(const QString &path)
{
    m_log.write([&path] { return QStringLiteral(" Load redirection library, DllPath = ") + path; });

    auto *library = new QLibrary(path);
    keepForever(library);
    m_library = library;
    if (!library->load()) {
        Log::module(QtCriticalMsg, __func__, " Failed to load redirection library. DllPath=", path,
                    ", error: ", library->errorString());
        return false;
    }
    Log::trace(QtDebugMsg, __func__, 47, "Success to load library on RedirectHandler, path of the library is ", path);

    for (const NamedEntryPoint &entry : EntryPoints)
        this->*entry.member = library->resolve(entry.symbol);
    for (const NamedEntryPoint &entry : EntryPoints) {
        if (!(this->*entry.member).load()) {
            Log::module(QtCriticalMsg, __func__, entry.missing);
            return false;
        }
    }
    logOutput(QStringLiteral(" Successfully to export redirection modules function."));
    return true;
}

void RedirectHandler::loadDynamicLib()
{
    const QString path = getlibPath();
    Log::trace(QtInfoMsg, __func__, 286, "load dynamic lib,path is ", path);
    load(path);
}

bool RedirectHandler::unLoad()
{
    logOutput(QStringLiteral(" Unload redirection modules library."));
    QLibrary *library = m_library;
    if (!library)
        return true;
    if (!library->unload()) {
        Log::module(QtWarningMsg, __func__, " Fail to unload redirection modules library");
        return false;
    }
    m_library = nullptr;
    logOutput(QStringLiteral(" Successfully unload redirection modules library."));
    return true;
}

void RedirectHandler::stopMappingFunction()
{
    // "redirDeinit" stays, so that the component can still be shut down.
    for (const NamedEntryPoint &entry : EntryPoints) {
        if (entry.member != &RedirectHandler::m_funcRedirDeinit)
            this->*entry.member = nullptr;
    }
}

void RedirectHandler::logOutput(const QString &text)
{
    m_log.write([&text] { return text; });
}
