// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "log/log.h"

#include <exception>

#include <cxxabi.h>

/// Runs foreign code, of the component or the host. What it throws ends here as one critical line, since the callers,
/// Qt and GLib among them, could not carry it on; the result is then \a neutral. Only the end of a thread that ends
/// itself or is cancelled in there goes on: the system does not let anybody stop that.
template<typename Result, typename Call>
Result contained(const char *method, const char *callee, Result neutral, const Call &call)
{
    try {
        return call();
    } catch (const abi::__forced_unwind &) {
        throw;
    } catch (const std::exception &e) {
        Log::module(QtCriticalMsg, method, "exception from", callee, ":", e.what());
    } catch (...) {
        Log::module(QtCriticalMsg, method, "exception from", callee);
    }
    return neutral;
}

/// The same for code without a result.
template<typename Call>
void containedVoid(const char *method, const char *callee, const Call &call)
{
    contained(method, callee, 0, [&call] { return call(), 0; });
}
