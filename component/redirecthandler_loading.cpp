// SPDX-License-Identifier: LGPL-2.1-or-later
#include "component/redirecthandler.h"

#include "log/ratelimitedlog.h"

#include <QByteArray>
#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QHash>
#include <QLibrary>

namespace {

// Looks up one entry point and keeps it, found or not. Returns its name if it was not found.
template<typename Function>
const char *resolve(QLibrary &library, const char *symbol, std::atomic<Function *> &entryPoint)
{
    entryPoint = reinterpret_cast<Function *>(library.resolve(symbol));
    return entryPoint ? nullptr : symbol;
}

// A file that handlers load: one for all of them, which counts its loads. (Which loads of several QLibraries for a file
// count depends on the version of Qt.) Never deleted, since a thread may still be asking it something.
class ComponentFile : public QLibrary
{
public:
    using QLibrary::QLibrary;
    int loads = 0; // those that were not taken back
};

// Guards what the files count. Held while the system loads one, which has a lock of its own for that.
QMutex &filesMutex()
{
    static auto *const mutex = new QMutex;
    return *mutex;
}

QLibrary *loadFile(const QString &path, bool &succeeded)
{
    static auto *const files = new QHash<QString, ComponentFile *>;
    const QMutexLocker lock(&filesMutex());
    ComponentFile *&file = (*files)[path];
    if (!file)
        file = new ComponentFile(path);
    succeeded = file->load();
    file->loads += succeeded;
    return file;
}

// True if that has unloaded it.
bool takeBackLoad(QLibrary *library)
{
    const QMutexLocker lock(&filesMutex());
    auto *const file = static_cast<ComponentFile *>(library);
    if (file->loads == 0 || --file->loads > 0)
        return false;
    return file->unload();
}

// In place of a file that could not be loaded, or whose load was taken back while others still have theirs.
QLibrary *noFile()
{
    static auto *const none = new ComponentFile;
    return none;
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
    bool isLoaded = false;
    QLibrary *const library = loadFile(path, isLoaded);
    m_library = isLoaded ? library : noFile();
    if (!isLoaded) {
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
    if (!takeBackLoad(library)) {
        m_library = noFile();
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
