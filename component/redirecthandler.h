// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "component/redirevents.h"
#include "devices/devredirectexport.h"
#include "log/ratelimitedlog.h"

#include <QString>

#include <atomic>
#include <string>

QT_BEGIN_NAMESPACE
class QLibrary;
QT_END_NAMESPACE

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

    /// Loads from getlibPath(). Whether it worked shows in the log and in the later calls.
    void loadDynamicLib();

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
    using EntryPoint = std::atomic<void (*)()>;
    struct NamedEntryPoint;
    static const NamedEntryPoint EntryPoints[7];

    std::atomic<QLibrary *> m_library{nullptr};
    EntryPoint m_funcRedirInit{nullptr};
    EntryPoint m_funcRedirCheck{nullptr};
    EntryPoint m_funcRedirHandler{nullptr};
    EntryPoint m_funcRedirSetupContext{nullptr};
    EntryPoint m_funcRedirEventHandler{nullptr};
    EntryPoint m_redirCtrl{nullptr};
    EntryPoint m_funcRedirDeinit{nullptr};
    RateLimitedLog m_log{"logOutput"};
};
