// SPDX-License-Identifier: LGPL-2.1-or-later

// A redirection component in one file, with one made-up device. It greets the virtual machine when its port opens.

#include <component/entrypoints.h>

#include <QJsonDocument>
#include <QJsonObject>

#include <condition_variable>
#include <cstring>
#include <mutex>
#include <utility>

// Declared before they are defined, so that the compiler compares the types.
extern "C" RedirInit redirInit;
extern "C" RedirCheck redirCheck;
extern "C" RedirSetupContext redirSetupContext;
extern "C" RedirHandler redirHandler;
extern "C" RedirEventHandler redirEventHandler;
extern "C" RedirCtrl redirCtrl;
extern "C" RedirDeinit redirDeinit;

// The reasons of a failure are the component's own, except that 1 is the library's.
enum Result { Success = 0, UnknownCommand = 2, BufferTooSmall = 3, NoSuchDevice = 4, NotRunning = 5 };

// Several threads may be inside at once; the mutex guards what follows.
static std::mutex mutex;
static std::condition_variable callsEnd;
static bool isRunning = false;
static SendCallback sendToMachine; // empty when nothing may be sent
static int calls = 0; // of callbacks, under way
static bool isShared = false;
static void *spiceChannel = nullptr; // names the channel in the send callback

static QByteArray list()
{
    const QByteArray device = R"("rdrName":"diskrdr","deviceId":"made-up","deviceName":"A made-up disk")";
    return R"([{"devices":[{)" + device + R"(,"isShared":")" + (isShared ? "1" : "0") + R"("}]}])";
}

static Result run(const QString &word, const QString &deviceId)
{
    if (word == QLatin1String("list"))
        return Success;
    if (word != QLatin1String("share") && word != QLatin1String("unshare") && word != QLatin1String("unshareall"))
        return UnknownCommand;
    if (word != QLatin1String("unshareall") && deviceId != QLatin1String("made-up"))
        return NoSuchDevice;
    isShared = word == QLatin1String("share"); // here a real component does it
    return Success;
}

bool redirInit(SendCallback send, EventCallback, std::string, std::string)
{
    const std::lock_guard<std::mutex> lock(mutex);
    sendToMachine = std::move(send);
    isRunning = true;
    return true;
}

// Asked for each port channel. The context is the component's own; it comes back in every call for this channel.
bool redirCheck(std::string channelName, void **context)
{
    *context = &spiceChannel;
    return channelName == "org.example.made-up";
}

bool redirSetupContext(void *, void *channel)
{
    const std::lock_guard<std::mutex> lock(mutex);
    spiceChannel = channel;
    return false; // the library is to tell of a port that is open already
}

void redirHandler(char *, int, void *) { } // bytes from the virtual machine: nobody there has anything to say

// No lock is held while the library is called; redirDeinit() waits for the call instead.
void redirEventHandler(ChannelEvent event, char *, int, void *)
{
    std::unique_lock<std::mutex> lock(mutex);
    if (!sendToMachine || event != ChannelEventOpened)
        return;
    const SendCallback send = sendToMachine;
    void *const channel = spiceChannel;
    ++calls;
    lock.unlock();
    char greeting[] = "hello from the component\n";
    send(channel, greeting, int(sizeof greeting - 1));
    lock.lock();
    --calls;
    callsEnd.notify_all();
}

// "length" is the buffer's size at first, and then the answer's.
int redirCtrl(std::string command, char *buffer, int &length)
{
    const QJsonObject request = QJsonDocument::fromJson(QByteArray::fromStdString(command)).object();
    const QString word = request.value(QLatin1String("command")).toString();
    const std::lock_guard<std::mutex> lock(mutex);
    const QByteArray answer = word == QLatin1String("list") ? list() : QByteArray();
    const int size = std::exchange(length, 0);
    if (!isRunning)
        return NotRunning;
    if (answer.size() > size)
        return BufferTooSmall; // a list is asked for once more, with a larger buffer
    std::memcpy(buffer, answer.constData(), std::size_t(answer.size()));
    length = answer.size();
    return run(word, request.value(QLatin1String("deviceId")).toString());
}

// No callback may be called once this has returned.
void redirDeinit()
{
    std::unique_lock<std::mutex> lock(mutex);
    isRunning = false;
    sendToMachine = nullptr;
    callsEnd.wait(lock, [] { return calls == 0; });
}
