// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "component/entrypoints.h"
#include "devredirectexport.h"

#include <QMutex>
#include <QString>

#include <atomic>
#include <memory>
#include <string>

QT_BEGIN_NAMESPACE
class QLibrary;
QT_END_NAMESPACE
class RateLimitedLog;

/**
 * Loads the redirection component and calls its seven entry points.
 *
 * The process's one handler is DevRedirectWorker::m_redirectHandler. It exists from the moment in which the library
 * has been loaded and is never deleted. A handler that somebody creates for himself unloads in its destructor.
 *
 * Load first: while an entry point is missing (nothing loaded yet, a component without it, or stopMappingFunction()
 * called), every call logs one critical line and gives its neutral result: false, 1 for a command, nothing otherwise.
 * What the component returns comes back unchanged. An exception that escapes from the component is caught: one
 * critical line, and the neutral result.
 *
 * \thread any. Each call reads its entry point once, so stopMappingFunction() may run at the same time. Nobody may
 * load or unload while another thread is inside a call. No lock is held while the component runs.
 */
class DEVREDIRECT_EXPORT RedirectHandler
{
public:
    RedirectHandler();
    ~RedirectHandler();
    RedirectHandler(const RedirectHandler &) = delete;
    RedirectHandler &operator=(const RedirectHandler &) = delete;

    /// The path of the component: "Device Redirect/libdevredir.so" beside the executable. The file may be missing.
    /// Needs a QCoreApplication.
    QString getlibPath() const;

    /**
     * Loads the component at \a path and looks up its entry points.
     *
     * A component that was loaded before stays loaded. \return true if the library could be loaded and has all seven
     * entry points. With some of them missing, the first one is logged and those that are there can be used.
     */
    bool load(const QString &path);

    /// Loads from getlibPath(). Whether it worked is what isLoaded() and the log tell.
    void loadDynamicLib();

    /// Did the last load() find the component with all seven entry points? False before it and after unLoad().
    bool isLoaded() const { return m_loaded; }

    /// Why the last load() failed, as one line for people: the file was not found, what the system's loader says, or
    /// the entry point that is missing. Empty if it did not fail.
    QString loadError() const;

    /// Is the component running: has "redirInit" returned true, without a redirDeinit() since?
    bool isStarted() const { return m_started; }

    /**
     * Unloads the component. Call redirDeinit() and stopMappingFunction() before: the entry points are not cleared.
     *
     * \return false if the library could not be unloaded, or had not been loaded; true also when there is nothing to
     * unload.
     */
    bool unLoad();

    /**
     * Starts the component ("redirInit").
     *
     * Both callbacks may be empty. They are copied; the component may call its copies from any thread until
     * redirDeinit() has returned. An exception that leaves a callback is caught there: one critical line, and -1 in
     * place of the send callback's result.
     */
    bool loadRedirComponent(SendCallback send, EventCallback event, std::string vmId, std::string configPath);

    /// Asks whether the channel of this name is the component's ("redirCheck"). \a context is where the component
    /// puts its context; without a component it stays untouched.
    bool checkRedirChannel(std::string channelName, void **context);

    /// Joins a context to its channel ("redirSetupContext"). Both pointers are passed on unread.
    bool setupRedirContext(void *context, void *channel);

    /// Hands bytes from the channel to the component ("redirHandler"). \a data is borrowed for the call.
    void handlerRedirData(char *data, int length, void *context);

    /// Hands a channel event to the component ("redirEventHandler"). With a null \a context it is only logged.
    void handlerRedirNoticeEvent(ChannelEvent event, char *data, int length, void *context);

    /**
     * Runs a JSON command ("redirCtrl").
     *
     * \param buffer  where the component writes its answer; borrowed, may be null. Only bytes within the capacity are
     *                read for the log.
     * \param length  in: the capacity in bytes. Out: whatever the component has set, unchecked.
     * \return the component's result, 0 for success; 1 without a component.
     */
    int handlerRedirCtrlCommand(const std::string &command, char *buffer, int &length);

    /// Stops the component ("redirDeinit"). It stays loaded.
    void redirDeinit();

    /// Cuts every call except redirDeinit() off from the component.
    void stopMappingFunction();

    /// Writes a line to the handler's own rate-limited log channel.
    void logOutput(const QString &text);

private:
    void setLoadError(const QString &reason);

    std::atomic<QLibrary *> m_library{nullptr};
    std::atomic<RedirInit *> m_funcRedirInit{nullptr};
    std::atomic<RedirCheck *> m_funcRedirCheck{nullptr};
    std::atomic<RedirHandler *> m_funcRedirHandler{nullptr};
    std::atomic<RedirSetupContext *> m_funcRedirSetupContext{nullptr};
    std::atomic<RedirEventHandler *> m_funcRedirEventHandler{nullptr};
    std::atomic<RedirCtrl *> m_redirCtrl{nullptr};
    std::atomic<RedirDeinit *> m_funcRedirDeinit{nullptr};
    std::atomic<bool> m_loaded{false};
    std::atomic<bool> m_started{false};
    mutable QMutex m_mutex; ///< guards m_loadError
    QString m_loadError;
    const std::unique_ptr<RateLimitedLog> m_log;
};
