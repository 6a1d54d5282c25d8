// SPDX-License-Identifier: LGPL-2.1-or-later

// Client parameters, callbacks, and the calls that are handed on to the component.

#include "devices/devredirectmanger.h"
#include "interface/devredirectinterface.h"
#include "log/log.h"
#include "worker/devredirectworker.h"

namespace {
DevRedirectWorker *registeredWorker()
{
    return DevRedirectManger::instance()->getRedirectWorkerInstance();
}
} // namespace

void DevRedirectInterface::setClientParam(const DevparamfromClient &param)
{
    if (Log::enabled(QtDebugMsg)) {
        Log::module(QtDebugMsg, __func__, " enter,",
                    QStringLiteral("Client  info: localIp = %1, vmIp = %2").arg(param.localIp, param.vmIp));
    }
    registeredWorker()->setWorkerClientparam(param);
}

void DevRedirectInterface::setNotifyEventCallback(EventCallback callback)
{
    registeredWorker()->setEventCallback(std::move(callback));
}

void DevRedirectInterface::setSendDevRedirectMsgToSpiceCallback(SendCallback callback)
{
    registeredWorker()->setSendDevRedirectMsgToSpiceCallback(std::move(callback));
}

void DevRedirectInterface::setQuitFlag(bool quit)
{
    registeredWorker()->setQuitFlag(quit);
}

bool DevRedirectInterface::setupRedirContext(void *context, void *channel)
{
    return m_devRedirectWorker->setupRedirContext(context, channel);
}

int DevRedirectInterface::checkRedirChannel(std::string channelName, void **context)
{
    return m_devRedirectWorker->checkRedirChannel(std::move(channelName), context);
}

void DevRedirectInterface::handlerRedirData(char *data, int length, void *context)
{
    m_devRedirectWorker->handlerRedirData(data, length, context);
}

void DevRedirectInterface::handlerRedirNoticeEvent(ChannelEvent event, char *text, int length, void *context)
{
    m_devRedirectWorker->handlerRedirNoticeEvent(event, text, length, context);
}

void DevRedirectInterface::notifyEvent()
{
    Q_EMIT notifyEventHandler();
    Q_EMIT myWatchMount();
    Log::plain(QtDebugMsg, "notifyEvent", "DEVICE_REDIR", "notifyEvent", " leave.");
}
