// SPDX-License-Identifier: LGPL-2.1-or-later
#include "component/redirecthandler.h"

#include "log/ratelimitedlog.h"

#include <QByteArray>
#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QLibrary>
#include <QList>

namespace {

// Looks up one entry point and keeps it, found or not. Returns its name if it was not found.
template<typename Function>
const char *resolve(QLibrary &library, const char *symbol, std::atomic<Function *> &entryPoint)
{
    entryPoint = reinterpret_cast<Function *>(library.resolve(symbol));
    return entryPoint ? nullptr : symbol;
}

// Qt 6 does not count the load of a QLibrary that is made after its file has been loaded, so that others would take the
// file away from it. It does so under another name of the file.
QLibrary *newLibrary(const QString &path)
{
    auto *library = new QLibrary(path);
#if QT_VERSION >= QT_VERSION_CHECK(6, 0, 0)
    while (library->isLoaded())
        library->setFileName(QLatin1String(QDir::isAbsolutePath(path) ? "/" : "./") + library->fileName());
#endif
    return library;
}

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

RedirectHandler::RedirectHandler() : m_log(std::make_unique<RateLimitedLog>("logOutput"))
{
    m_log->start();
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
    m_log->write([&path] { return QStringLiteral(" Load redirection library, DllPath = ") + path; });

    m_loaded = false;
    QLibrary *library = newLibrary(path);
    keepForever(library);
    m_library = library;
    if (!library->load()) {
        Log::module(QtCriticalMsg, __func__, " Failed to load redirection library. DllPath=", path,
                    ", error: ", library->errorString());
        // Of a missing file the loader's text names another one: it has tried several endings.
        setLoadError(QFileInfo::exists(path) ? library->errorString() : path + QStringLiteral(": not found"));
        return false;
    }
    Log::trace(QtDebugMsg, __func__, 47, "Success to load library on RedirectHandler, path of the library is ", path);

    const char *const missing[] = {
        resolve(*library, "redirInit", m_funcRedirInit),
        resolve(*library, "redirCheck", m_funcRedirCheck),
        resolve(*library, "redirHandler", m_funcRedirHandler),
        resolve(*library, "redirSetupContext", m_funcRedirSetupContext),
        resolve(*library, "redirEventHandler", m_funcRedirEventHandler),
        resolve(*library, "redirCtrl", m_redirCtrl),
        resolve(*library, "redirDeinit", m_funcRedirDeinit),
    };
    for (const char *symbol : missing) {
        if (symbol) {
            Log::module(QtCriticalMsg, __func__,
                        QByteArray("get address of func ").append(symbol).append(" failed").constData());
            setLoadError(path + QStringLiteral(": has no entry point ") + QLatin1String(symbol));
            return false;
        }
    }
    setLoadError(QString());
    m_loaded = true;
    logOutput(QStringLiteral(" Successfully to export redirection modules function."));
    return true;
}

void RedirectHandler::setLoadError(const QString &reason)
{
    const QMutexLocker lock(&m_mutex);
    m_loadError = reason;
}

QString RedirectHandler::loadError() const
{
    const QMutexLocker lock(&m_mutex);
    return m_loadError;
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
    m_loaded = false;
    logOutput(QStringLiteral(" Successfully unload redirection modules library."));
    return true;
}

void RedirectHandler::stopMappingFunction()
{
    // "redirDeinit" stays, so that the component can still be shut down.
    m_funcRedirInit = nullptr;
    m_funcRedirCheck = nullptr;
    m_funcRedirHandler = nullptr;
    m_funcRedirSetupContext = nullptr;
    m_funcRedirEventHandler = nullptr;
    m_redirCtrl = nullptr;
}

void RedirectHandler::logOutput(const QString &text)
{
    m_log->write([&text] { return text; });
}
