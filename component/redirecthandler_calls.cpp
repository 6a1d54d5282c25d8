// SPDX-License-Identifier: LGPL-2.1-or-later
#include "component/contained.h"
#include "component/redirecthandler.h"
#include "log/ratelimitedlog.h"

#include <cstring>

namespace {

SendCallback safe(SendCallback send)
{
    if (!send)
        return send;
    return [send = std::move(send)](void *channel, char *message, int length) {
        return contained("redirInit", "the send callback", -1, [&] { return send(channel, message, length); });
    };
}

EventCallback safe(EventCallback notify)
{
    if (!notify)
        return notify;
    return [notify = std::move(notify)](void *context, RedirEvent event, const char *text, int length) {
        containedVoid("redirInit", "the event callback", [&] { notify(context, event, text, length); });
    };
}

QString outcome(const char *symbol, bool result)
{
    return QStringLiteral(" End to  call %1 function. result: ").arg(QLatin1String(symbol))
        + (result ? QLatin1String("true") : QLatin1String("false"));
}

QString replyText(const char *buffer, int capacity)
{
    if (!buffer || capacity <= 0)
        return QString();
    return QString::fromUtf8(buffer, int(strnlen(buffer, size_t(capacity))));
}

} // namespace

bool RedirectHandler::loadRedirComponent(SendCallback send, EventCallback event, std::string vmId,
                                         std::string configPath)
{
    logOutput(QStringLiteral(" Begin to load redirect component, call RedirInit function."));
    RedirInit *const init = m_funcRedirInit;
    if (!init) {
        Log::module(QtCriticalMsg, __func__, " Fail to call redirInit, due to that m_funcRedirInit is NULL");
        return false;
    }
    const bool result = contained(__func__, "redirInit", false, [&] {
        return init(safe(std::move(send)), safe(std::move(event)), std::move(vmId), std::move(configPath));
    });
    m_started = result;
    m_log->write([result] { return outcome("RedirInit", result); });
    return result;
}

bool RedirectHandler::checkRedirChannel(std::string channelName, void **context)
{
    logOutput(QStringLiteral(" Begin to check redirect channel, call RedirCheck function."));
    RedirCheck *const check = m_funcRedirCheck;
    if (!check) {
        Log::module(QtCriticalMsg, __func__, " Fail to call redirCheck, due to that m_funcRedirCheck is NULL");
        return false;
    }
    const bool result =
        contained(__func__, "redirCheck", false, [&] { return check(std::move(channelName), context); });
    m_log->write([result] { return outcome("RedirCheck", result); });
    return result;
}

bool RedirectHandler::setupRedirContext(void *context, void *channel)
{
    logOutput(QStringLiteral(" Begin to setup redirect context, call RedirSetupContext function."));
    RedirSetupContext *const setup = m_funcRedirSetupContext;
    if (!setup) {
        Log::guard(QtCriticalMsg, __func__,
                   "call redirSetupContext failed due to that m_funcRedirSetupContext is NULL");
        return false;
    }
    const bool result = contained(__func__, "redirSetupContext", false, [&] { return setup(context, channel); });
    m_log->write([result] { return outcome("RedirSetupContext", result); });
    return result;
}

void RedirectHandler::handlerRedirData(char *data, int length, void *context)
{
    RedirHandler *const handler = m_funcRedirHandler;
    if (!handler) {
        Log::guard(QtCriticalMsg, __func__, "call redirHandler failed due to that m_funcRedirHandler is NULL");
        return;
    }
    containedVoid(__func__, "redirHandler", [&] { handler(data, length, context); });
}

void RedirectHandler::handlerRedirNoticeEvent(ChannelEvent event, char *data, int length, void *context)
{
    Log::trace(QtDebugMsg, __func__, " enter. ");
    if (!context) {
        Log::trace(QtDebugMsg, __func__, " context is null ");
        Log::trace(QtDebugMsg, __func__, " eventHandler context is null ");
    } else {
        RedirEventHandler *const handler = m_funcRedirEventHandler;
        if (!handler) {
            Log::guard(QtCriticalMsg, __func__,
                       "call redirEventHandler failed due to that m_funcRedirEventHandler is NULL");
            return;
        }
        containedVoid(__func__, "redirEventHandler", [&] { handler(event, data, length, context); });
    }
    Log::trace(QtDebugMsg, __func__, 224, "after call m_funcRedirEventHandler.");
}

int RedirectHandler::handlerRedirCtrlCommand(const std::string &command, char *buffer, int &length)
{
    m_log->write([&command] {
        return QStringLiteral(" Begin to handler redirect command, call redirCtrl function. command: ")
            + QString::fromStdString(command);
    });
    RedirCtrl *const control = m_redirCtrl;
    if (!control) {
        Log::guard(QtCriticalMsg, __func__, "call handlerRedirCtrlCommand failed due to that m_redirCtrl is NULL");
        return 1;
    }
    const int capacity = length;
    const int result = contained(__func__, "redirCtrl", 1, [&] { return control(command, buffer, length); });
    m_log->write([&] {
        // The length stands here as the one character whose code is its low byte, as readers of this line expect.
        return QStringLiteral(" End to call redirCtrl function. result:") + QString::number(result)
            + QStringLiteral(", listData:") + replyText(buffer, capacity) + QStringLiteral(", length:")
            + QChar(ushort(length & 0xff));
    });
    if (Log::enabled(QtInfoMsg)) {
        Log::trace(QtInfoMsg, __func__, "after call m_redirCtrl. result: ", QString::number(result),
                   ", listData: ", replyText(buffer, capacity), " , length: ", length);
    }
    return result;
}

void RedirectHandler::redirDeinit()
{
    logOutput(QStringLiteral(" Begin to call RedirDeinit function."));
    if (!m_library) {
        Log::guard(QtCriticalMsg, __func__, "redirDeinit dynamic lib is NULL");
        return;
    }
    RedirDeinit *const deinit = m_funcRedirDeinit;
    if (!deinit) {
        Log::guard(QtCriticalMsg, __func__, "call redirEventHandler failed due to that m_funcRedirDeinit is NULL");
        return;
    }
    containedVoid(__func__, "redirDeinit", [&] { deinit(); });
    m_started = false;
    Log::trace(QtInfoMsg, __func__, 309, "dlx unload lib.");
    logOutput(QStringLiteral(" End to call RedirDeinit function."));
}
