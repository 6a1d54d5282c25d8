// SPDX-License-Identifier: LGPL-2.1-or-later
#include "worker/portchannelglue.h"

#include "component/redirecthandler.h"
#include "log/log.h"
#include "spice/portmessages.h"
#include "worker/devredirectworker.h"

int sendDevRedirectMsgToSpice(void *channel, char *message, int length)
{
    if (DevRedirectWorker::m_bQuit) {
        Log::module(QtInfoMsg, __func__, "app is exiting, ignore message.");
        return -1;
    }
    PortMessages::send(static_cast<SpicePortChannel *>(channel), message, length);
    return length;
}

std::int64_t devredirectBytesWaiting(const void *channel)
{
    return PortMessages::bytesWaiting(channel);
}

int onPortMsgProcess(void *, unsigned int, void *data, unsigned int length, void *context)
{
    DevRedirectWorker::m_redirectHandler->handlerRedirData(static_cast<char *>(data), int(length), context);
    return 0;
}

int onPortEvent(void *, int event, void *context)
{
    DevRedirectWorker::m_redirectHandler->handlerRedirNoticeEvent(ChannelEvent(event), nullptr, 0, context);
    return 0;
}

void PortChannelEvent(SpicePortChannel *, SpiceChannelEvent event, void *context)
{
    Log::module(QtDebugMsg, __func__, " Port channel event = ", int(event));
    if (PortMessages::isLost(event))
        DevRedirectWorker::m_redirectHandler->handlerRedirNoticeEvent(ChannelEventBreak, nullptr, 0, context);
}

void DevRedirectWorker::onCheckRedirChannelByWorker(SpicePortChannel *channel, const QString &channelName,
                                                    bool isOpened)
{
    Log::module(QtDebugMsg, __func__, " Check redirect channel regist status! channelName: ", channelName);
    void *context = nullptr;
    if (!m_redirectHandler->checkRedirChannel(channelName.toStdString(), &context) || !context) {
        Log::module(QtCriticalMsg, __func__,
                    "It is detected that the channel is not registered! str_channelName 000: ", channelName);
        return;
    }
    Log::module(QtDebugMsg, __func__,
                "DevRedirectWorker::onCheckRedirChannelByWorker 666 redir channel is registed, bind port event and "
                "port msg.");

    PortMessages::bind(channel);
    const struct
    {
        const char *signal;
        GCallback handler;
    } bindings[] = {
        {"port-channel-msg", G_CALLBACK(onPortMsgProcess)},
        {"port-event", G_CALLBACK(onPortEvent)},
        {"channel-event", G_CALLBACK(PortChannelEvent)},
    };
    for (const auto &binding : bindings)
        g_signal_connect_data(channel, binding.signal, binding.handler, context, nullptr, GConnectFlags(0));

    const bool joined = m_redirectHandler->setupRedirContext(context, channel);
    // A component that returns false leaves the announcement of an open channel to us; true means that it looks itself.
    if (isOpened && !joined)
        m_redirectHandler->handlerRedirNoticeEvent(ChannelEventOpened, nullptr, 0, context);
}

bool DevRedirectWorker::checkRedirChannel(std::string channelName, void **context)
{
    return m_redirectHandler->checkRedirChannel(std::move(channelName), context);
}

bool DevRedirectWorker::setupRedirContext(void *context, void *channel)
{
    PortMessages::expect(channel);
    return m_redirectHandler->setupRedirContext(context, channel);
}

void DevRedirectWorker::handlerRedirData(char *data, int length, void *context)
{
    m_redirectHandler->handlerRedirData(data, length, context);
}

void DevRedirectWorker::handlerRedirNoticeEvent(ChannelEvent event, char *data, int length, void *context)
{
    m_redirectHandler->handlerRedirNoticeEvent(event, data, length, context);
}
