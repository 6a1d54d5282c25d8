// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "component/entrypoints.h"
#include "devredirectexport.h"

#include <QMutex>
#include <QString>

#include <atomic>
#include <memory>
#include <string>

class QLibrary;
class RateLimitedLog;

/// \file
/// The way from this library into the component.

/// Loads the redirection component and calls its seven entry points (component/entrypoints.h says what they do).
///
/// While an entry point is missing (nothing loaded yet, a component without it, or stopMappingFunction() called), and
/// when the component throws, a call logs one critical line and gives its neutral result: false, 1 for a command,
/// nothing otherwise. What the component returns comes back unchanged.
///
/// \ownership The process's one handler is DevRedirectWorker::m_redirectHandler, there from the moment in which the
/// library has been loaded and never deleted.
///
/// \thread any. Nobody may load or unload while another thread is inside a call. No lock is held while the component
/// runs.
class DEVREDIRECT_EXPORT RedirectHandler
{
public:
    RedirectHandler(); ///< nothing is loaded yet
    ~RedirectHandler(); ///< unloads, as unLoad() does
    RedirectHandler(const RedirectHandler &) = delete;
    RedirectHandler &operator=(const RedirectHandler &) = delete;

    /// "Device Redirect/libdevredir.so" beside the executable, there or not. Needs a QCoreApplication.
    QString getlibPath() const;

    /// Loads the component at \a path; one that was loaded before stays loaded. False if it cannot be loaded, which
    /// leaves the entry points as they were, or if it lacks one: the first that is missing is logged, and those that
    /// are there can be used.
    bool load(const QString &path);

    void loadDynamicLib(); ///< load() from getlibPath()

    /// Did the last load() find the component with all seven entry points? False before it and after unLoad().
    bool isLoaded() const { return m_loaded; }

    /// Why the last load() failed, as one line for people. Empty if it did not.
    QString loadError() const;

    /// What "redirInit" returned last; false before that, and again after "redirDeinit".
    bool isStarted() const { return m_started; }

    /// Unloads the component. Call redirDeinit() and stopMappingFunction() before, and no redirDeinit() afterwards
    /// until a load() has succeeded: the entry points are not cleared. False if it could not be unloaded, or had not
    /// been loaded; true also when there is nothing to unload.
    bool unLoad();

    /// Starts the component. Both callbacks may be empty. An exception that leaves one is caught: one critical line,
    /// and -1 in place of the send callback's result.
    /// \ownership The component gets copies of the callbacks.
    bool loadRedirComponent(SendCallback send, EventCallback event, std::string vmId, std::string configPath);

    /// Is the channel of this name the component's? \a context, which may not be null, receives the component's word
    /// for it, and stays as it is if the component cannot be asked.
    bool checkRedirChannel(std::string channelName, void **context);
    /// Joins a context to its channel. Both pointers are passed on unread.
    bool setupRedirContext(void *context, void *channel);
    /// Hands \a length bytes from a channel to the component.
    /// \ownership \a data is borrowed for the call.
    void handlerRedirData(char *data, int length, void *context);
    /// Tells the component what happened to a channel. With a null \a context the event is only logged.
    void handlerRedirNoticeEvent(ChannelEvent event, char *data, int length, void *context);

    /// Runs a JSON command. \a buffer may be null; it is read for the log within the capacity. \a length is that
    /// capacity in bytes, and then whatever the component has set, unchecked.
    /// \ownership \a buffer is borrowed for the call.
    int handlerRedirCtrlCommand(const std::string &command, char *buffer, int &length);

    void redirDeinit(); ///< stops the component, which stays loaded

    /// Cuts every call except redirDeinit() off from the component, until it is loaded again.
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
