// SPDX-License-Identifier: LGPL-2.1-or-later

// The seven entry points. They find the running component, or do nothing: the host may call at any time, before the
// start, after the end and from several threads.

#include "component/entrypoints.h"

#include "component.h"
#include "logging.h"

#include <cstring>
#include <memory>
#include <mutex>
#include <thread>

Q_LOGGING_CATEGORY(logComponent, "devredir.component", QtWarningMsg)

#define EXPORTED extern "C" __attribute__((visibility("default")))

namespace {

// Never torn down: a host that does not stop the component may end its process at any time.
struct Running
{
    std::mutex mutex;
    std::shared_ptr<Component> component;
};

Running &running()
{
    static Running *const all = new Running;
    return *all;
}

std::shared_ptr<Component> current()
{
    const std::lock_guard<std::mutex> lock(running().mutex);
    return running().component;
}

std::shared_ptr<Component> exchange(std::shared_ptr<Component> component)
{
    const std::lock_guard<std::mutex> lock(running().mutex);
    running().component.swap(component);
    return component;
}

// A channel's context is its number and no pointer, so that one that is long gone does no harm.
quintptr channelIn(void *context)
{
    return reinterpret_cast<quintptr>(context);
}

void stop(const std::shared_ptr<Component> &component)
{
    if (!component)
        return;
    if (component->redirector().isUsbThread()) { // from inside an event: the thread cannot wait for its own end
        component->redirector().silence();
        std::thread([component] { component->redirector().stop(); }).detach();
    } else {
        component->redirector().stop();
    }
}

} // namespace

EXPORTED bool redirInit(SendCallback send, EventCallback notify, std::string vmId, std::string configPath)
{
    Config config;
    QString error;
    if (!Config::read(QString::fromStdString(configPath), config, error)) {
        qCCritical(logComponent, "configuration: %s", qPrintable(error));
        return false;
    }
    qCDebug(logComponent, "started for the virtual machine \"%s\"", vmId.c_str());
    stop(exchange(std::make_shared<Component>(std::move(send), std::move(notify), std::move(config))));
    return true;
}

EXPORTED bool redirCheck(std::string channelName, void **context)
{
    const auto component = current();
    const QString name = QString::fromStdString(channelName);
    if (!component || !component->ownsChannel(name))
        return false;
    *context = reinterpret_cast<void *>(component->redirector().addChannel(name));
    return true;
}

// False: the library is to tell of a channel that is open already.
EXPORTED bool redirSetupContext(void *context, void *channel)
{
    if (const auto component = current())
        component->redirector().setSpiceChannel(channelIn(context), channel);
    return false;
}

EXPORTED void redirHandler(char *data, int length, void *context)
{
    const auto component = current();
    if (component && length > 0)
        component->redirector().receive(channelIn(context), std::string(data, std::size_t(length)));
}

EXPORTED void redirEventHandler(ChannelEvent event, char *, int, void *context)
{
    const auto component = current();
    if (!component)
        return;
    if (event == ChannelEventOpened)
        component->redirector().channelOpened(channelIn(context));
    else if (event == ChannelEventClosed || event == ChannelEventBreak)
        component->redirector().channelLost(channelIn(context));
}

EXPORTED int redirCtrl(std::string command, char *buffer, int &length)
{
    const auto component = current();
    if (!component)
        return Refusal::UnknownCommand;
    QByteArray reply;
    const Outcome outcome = component->run(QByteArray::fromStdString(command), reply);
    if (!buffer || reply.size() >= length) {
        // A command's own outcome counts more than that its text does not fit; one that asks for data, which is an
        // array, has failed without it.
        length = 0;
        return outcome && reply.startsWith('[') ? Refusal::BufferTooSmall : outcome.code;
    }
    std::memcpy(buffer, reply.constData(), std::size_t(reply.size()) + 1);
    length = int(reply.size());
    return outcome.code;
}

EXPORTED void redirDeinit()
{
    stop(exchange(nullptr));
}
