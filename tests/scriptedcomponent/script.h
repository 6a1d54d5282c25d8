// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "component/entrypoints.h"

#include <functional>
#include <mutex>
#include <string>
#include <vector>

/// What the entry points do.
struct Hooks
{
    std::function<RedirInit> init;
    std::function<RedirCheck> check; ///< by default: claims every channel, with defaultContext
    std::function<RedirHandler> handler;
    std::function<RedirSetupContext> setupContext;
    std::function<RedirEventHandler> eventHandler;
    std::function<RedirCtrl> ctrl;
    std::function<RedirDeinit> deinit;
};

/**
 * What the scripted component does, entry point by entry point, and what it was asked.
 *
 * The component is a real libdevredir.so that the library loads by itself. A test fills in what it wants to happen;
 * an entry point that has no text of its own succeeds and does nothing.
 */
struct Script : Hooks
{
    int defaultContext = 0;

    /// The entry points that were called, by symbol, in order.
    std::vector<std::string> calls() const
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_calls;
    }

    /// The commands that "redirCtrl" was given, in order.
    std::vector<std::string> commands() const
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_commands;
    }

    void recordCall(const char *symbol)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_calls.emplace_back(symbol);
    }

    void recordCommand(const std::string &command)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_commands.push_back(command);
    }

    void forgetCalls()
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_calls.clear();
        m_commands.clear();
    }

    /// As if it had just been loaded.
    void reset()
    {
        static_cast<Hooks &>(*this) = {};
        forgetCalls();
    }

private:
    mutable std::mutex m_mutex;
    std::vector<std::string> m_calls;
    std::vector<std::string> m_commands;
};

/// Exported by the component as "script"; Component::script() in tests/support fetches it.
using ScriptOf = Script *();
