// SPDX-License-Identifier: LGPL-2.1-or-later

// The reference component at the library's end, and at the other a SPICE server whose port the test opens and closes.
// It runs inside usbworld, which names its control socket in the environment.

#include "component/entrypoints.h"
#include "interface/devredirectinterface.h"
#include "reference/component/outcome.h"
#include "support/asksocket.h"
#include "support/spiceserver.h"
#include "support/waitfor.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLoggingCategory>
#include <QMutex>

#include <atomic>
#include <csignal>
#include <cstring>
#include <functional>
#include <future>

#include <dlfcn.h>
#include <fcntl.h>
#include <libusb.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <usbredirproto.h>

namespace {

const std::string PortName = "org.devredir.usb.0";
const QString Id = QStringLiteral("1-1:11");
const QString DescribedId = QStringLiteral("described"); // in config.json

std::atomic<bool> usbWorks{true};
std::atomic<bool> nothingIsRead{false}; // by the virtual machine
std::atomic<int> broughtDescriptor{-1}; // the host's, of the device 1-1

void ignoreList(QList<ExterDeviceInfo> &) { }

// --- a virtual machine ---

std::string header(uint32_t type, std::size_t length, bool hasLongId)
{
    const usb_redir_header header{type, uint32_t(length), 1};
    return std::string(reinterpret_cast<const char *>(&header), hasLongId ? 16 : 12);
}

template<typename Body>
std::string message(uint32_t type, const Body &body, bool hasLongId = true)
{
    return header(type, sizeof body, hasLongId) + std::string(reinterpret_cast<const char *>(&body), sizeof body);
}

std::string greeting(bool hasLongIds = true)
{
    struct
    {
        char version[sizeof(usb_redir_hello_header)] = "a test";
        uint32_t capabilities = 0xff;
    } hello;
    if (!hasLongIds)
        hello.capabilities &= ~(1u << usb_redir_cap_64bits_ids);
    return message(usb_redir_hello, hello, false);
}

// What a virtual machine has sent before it learned that the device is gone.
std::string requestsForStreams(bool hasLongIds = true)
{
    const usb_redir_alloc_bulk_streams_header allocate{0x00020002, 4};
    const usb_redir_free_bulk_streams_header free{0x00020002};
    return message(usb_redir_alloc_bulk_streams, allocate, hasLongIds)
        + message(usb_redir_free_bulk_streams, free, hasLongIds);
}

// --- the emulated computer ---

QByteArray world(const QByteArray &command)
{
    return askSocket(qEnvironmentVariable("USBWORLD_CONTROL"), command + '\n', "\n");
}

bool getsDriver(const QByteArray &name, const QByteArray &port = "1-1", int milliseconds = 20000)
{
    return waitFor([&] { return world("driver " + port) == "ok " + name + "\n"; }, milliseconds);
}

class Reference : public ::testing::Test
{
protected:
    void SetUp() override
    {
        QLoggingCategory::setFilterRules(QStringLiteral("*.debug=false\n*.info=false"));
        redirect.sendMapCommandByDevModel(ignoreList);
        redirect.setNotifyEventCallback([this](void *, RedirEvent event, const char *text, int length) {
            if (event == actsAt)
                act();
            const QMutexLocker lock(&mutex);
            events.append(event);
            details.append(QJsonDocument::fromJson(QByteArray(text, length)).object());
        });
        QObject::connect(&redirect, &DevRedirectInterface::shareDeviceResultByInterface, &redirect,
                         [this](const ExterDeviceInfo &, bool result) { results.append(result); });
        Q_EMIT redirect.loadDynamicLib();
        Q_EMIT redirect.loadDevRedirComponentByThread(QStringLiteral("vm"));
        SpicePortChannel *channel = client.waitForChannel(PortName);
        ASSERT_NE(channel, nullptr);
        Q_EMIT redirect.checkRedirChannelByThread(channel, QString::fromStdString(PortName), true);
        redirect.getDeviceListFromUniqueFrame();
        ASSERT_TRUE(waitFor([this] { return !redirect.getDeviceList().isEmpty(); }));
    }

    void TearDown() override
    {
        redirect.syncUNRedirectDeviceAll();
        EXPECT_TRUE(getsDriver("usb-storage"));
        redirect.realeaseDeviceResource();
    }

    bool share()
    {
        results.clear();
        redirect.deviceOperate(Id, QStringLiteral("share"));
        return waitFor([this] { return !results.isEmpty(); }) && results.last();
    }

    bool shareWhenOpen()
    {
        return waitFor([this] { return share(); });
    }

    bool reported(RedirEvent event)
    {
        return waitFor([&] {
            const QMutexLocker lock(&mutex);
            const auto at = events.indexOf(event);
            if (at < 0)
                return false;
            events.removeAt(at);
            lastDetails = details.takeAt(at);
            return true;
        });
    }

    TestServer server{{PortName}};
    TestClient client{server};
    std::function<void()> act; ///< the host's, from inside the event below
    std::atomic<RedirEvent> actsAt{RedirEvent(-1)};
    QMutex mutex;
    QList<RedirEvent> events;
    QList<QJsonObject> details; ///< of each of them
    QJsonObject lastDetails; ///< of the one that was reported last
    QList<bool> results;
    DevRedirectInterface redirect{nullptr};
};

// A command straight to the component: its result is more than the library passes on.
int run(const QJsonObject &command, QJsonArray *data = nullptr)
{
    const QByteArray path =
        QFile::encodeName(QCoreApplication::applicationDirPath()) + "/Device Redirect/libdevredir.so";
    void *const component = dlopen(path.constData(), RTLD_NOW);
    auto *const redirCtrl = reinterpret_cast<RedirCtrl *>(dlsym(component, "redirCtrl"));
    char answer[16384];
    int length = sizeof answer;
    const int result = redirCtrl(QJsonDocument(command).toJson().toStdString(), answer, length);
    if (data)
        *data = QJsonDocument::fromJson(QByteArray(answer, length)).array();
    return result;
}

int run(const char *word, const QString &deviceId, QJsonArray *data = nullptr)
{
    return run({{QStringLiteral("command"), QLatin1String(word)}, {QStringLiteral("deviceId"), deviceId}}, data);
}

// An entry of the list.
QJsonObject listed(const QString &deviceId)
{
    QJsonArray list;
    run("list", QString(), &list);
    for (const QJsonValue device : list[0].toObject().value(QLatin1String("devices")).toArray()) {
        if (device.toObject().value(QLatin1String("deviceId")).toString() == deviceId)
            return device.toObject();
    }
    return QJsonObject();
}

// Sharing waits for the channel to be open.
bool runShare(const QString &deviceId)
{
    return waitFor([&] { return run("share", deviceId) == 0; });
}

// What closes a gate before \a deviceId; null: nothing.
QJsonValue closes(const char *gate, const QString &deviceId)
{
    QJsonArray answer;
    run("explain", deviceId, &answer);
    for (const QJsonValue value : answer[0].toObject().value(QLatin1String("gates")).toArray()) {
        const QJsonObject one = value.toObject();
        if (one.value(QLatin1String("gate")).toString() == QLatin1String(gate))
            return one.value(QLatin1String("passed")).toBool() ? QJsonValue() : QJsonValue(one);
    }
    return QStringLiteral("there is no such gate");
}

int runForDescribed(const char *word)
{
    return run(word, DescribedId);
}

class ReferenceWithoutUsb : public Reference
{
protected:
    ReferenceWithoutUsb() { usbWorks = false; }
    ~ReferenceWithoutUsb() override { usbWorks = true; }
};

} // namespace

// The component finds these before libusb's own.
extern "C" __attribute__((visibility("default"))) int libusb_init(libusb_context **context)
{
    if (!usbWorks)
        return LIBUSB_ERROR_OTHER;
    static void *const libusb = dlopen("libusb-1.0.so.0", RTLD_NOW);
    static const auto init = reinterpret_cast<int (*)(libusb_context **)>(dlsym(libusb, "libusb_init"));
    return init(context);
}

// The component finds this program's first.
extern "C" __attribute__((visibility("default"))) std::int64_t devredirectBytesWaiting(const void *channel)
{
    static const auto real =
        reinterpret_cast<std::int64_t (*)(const void *)>(dlsym(RTLD_NEXT, "devredirectBytesWaiting"));
    return nothingIsRead ? std::int64_t(1) << 30 : real(channel);
}

// Libusb reads the descriptors of the device from what it is given, and an emulated node has nothing to read.
extern "C" __attribute__((visibility("default"))) int libusb_wrap_sys_device(libusb_context *context, intptr_t given,
                                                                             libusb_device_handle **handle)
{
    struct stat brought = {};
    struct stat wrapped = {};
    if (given == broughtDescriptor || fstat(broughtDescriptor, &brought) != 0 || fstat(int(given), &wrapped) != 0
        || brought.st_rdev != wrapped.st_rdev)
        return LIBUSB_ERROR_INVALID_PARAM;
    world("allow 1-1");
    libusb_device **list = nullptr;
    int result = LIBUSB_ERROR_NO_DEVICE;
    const ssize_t count = libusb_get_device_list(context, &list);
    for (ssize_t i = 0; i < count; ++i) {
        if (libusb_get_port_number(list[i]) == 1)
            result = libusb_open(list[i], handle);
    }
    libusb_free_device_list(list, 1);
    world("deny 1-1");
    return result;
}

TEST_F(Reference, shares_a_device_that_it_may_not_open_by_the_descriptor_that_the_host_brings)
{
    const auto tell = [](const char *attach, int descriptor) {
        return run({{QStringLiteral("command"), QStringLiteral("devchange")},
                    {QStringLiteral("devicePosition"), QStringLiteral("1-1")},
                    {QStringLiteral("deviceAttach"), QString::fromLatin1(attach)},
                    {QStringLiteral("fd"), descriptor}});
    };
    const QByteArray node = listed(Id).value(QLatin1String("context")).toString().toLatin1();
    broughtDescriptor = open(node.constData(), O_RDWR | O_CLOEXEC | O_NOCTTY);
    ASSERT_GE(broughtDescriptor, 0);
    ASSERT_TRUE(waitFor([] { return closes("free channel", Id).isNull(); }));
    world("deny 1-1");
    EXPECT_EQ(run("share", Id), Refusal::NoPermission);

    for (const int none : {0, 99999}) {
        EXPECT_EQ(tell("1", none), 0);
        EXPECT_FALSE(closes("permission", Id).isNull()) << none;
        EXPECT_EQ(run("share", Id), Refusal::NoPermission) << none;
    }
    EXPECT_EQ(tell("1", broughtDescriptor), 0);
    EXPECT_TRUE(closes("permission", Id).isNull());
    EXPECT_EQ(run("share", Id), 0);
    EXPECT_TRUE(getsDriver("usbfs"));
    EXPECT_EQ(tell("1", -1), 0); // comes too late for this share
    EXPECT_EQ(run("unshare", Id), 0);
    EXPECT_TRUE(getsDriver("usb-storage"));
    EXPECT_EQ(run("share", Id), 0);

    EXPECT_EQ(tell("0", 0), 0);
    EXPECT_TRUE(getsDriver("usb-storage"));
    EXPECT_EQ(run("share", Id), Refusal::NoPermission);

    EXPECT_EQ(tell("1", broughtDescriptor), 0);
    EXPECT_EQ(run("share", Id), 0);
    world("unplug 1-1");
    EXPECT_TRUE(reported(RedirEventDeviceLeft));
    world("plug 1-1"); // another node, and perhaps another device
    ASSERT_TRUE(waitFor([] { return !listed(Id).isEmpty(); }));
    EXPECT_FALSE(closes("permission", Id).isNull());
    world("allow 1-1");
    close(broughtDescriptor.exchange(-1));
}

TEST_F(Reference, a_port_that_closes_gives_the_device_back_and_takes_it_again_when_it_opens)
{
    ASSERT_TRUE(shareWhenOpen());
    EXPECT_TRUE(reported(RedirEventShared));
    EXPECT_TRUE(getsDriver("usbfs"));

    for (int i = 0; i < 3; ++i) {
        server.port().close();
        EXPECT_TRUE(reported(RedirEventChannelLost));
        EXPECT_TRUE(reported(RedirEventUnshared));
        EXPECT_TRUE(getsDriver("usb-storage"));
        EXPECT_FALSE(share());
        EXPECT_TRUE(reported(RedirEventShareFailed));

        server.port().open();
        ASSERT_TRUE(shareWhenOpen());
        EXPECT_TRUE(reported(RedirEventShared));
        EXPECT_TRUE(getsDriver("usbfs"));
    }
}

TEST_F(Reference, a_break_on_the_port_gives_the_device_back)
{
    ASSERT_TRUE(shareWhenOpen());
    server.port().raiseEvent(2);
    EXPECT_TRUE(reported(RedirEventChannelLost));
    EXPECT_TRUE(getsDriver("usb-storage"));
}

TEST_F(Reference, a_lost_connection_gives_the_device_back)
{
    ASSERT_TRUE(shareWhenOpen());
    server.dropConnections();
    EXPECT_TRUE(reported(RedirEventChannelLost));
    EXPECT_TRUE(getsDriver("usb-storage"));
}

TEST_F(Reference, garbage_from_the_virtual_machine_costs_the_channel_and_nothing_else)
{
    ASSERT_TRUE(shareWhenOpen());
    server.port().send(std::string(4096, '\xff'));
    EXPECT_TRUE(reported(RedirEventChannelLost));
    EXPECT_TRUE(getsDriver("usb-storage"));
    server.port().close();
    server.port().open();
    EXPECT_TRUE(shareWhenOpen());
}

TEST_F(Reference, a_request_for_streams_without_a_device_does_no_harm_however_it_arrives)
{
    constexpr std::size_t AllAtOnce = 1000;
    for (const bool hasLongIds : {true, false}) {
        const std::string question = header(usb_redir_get_configuration, 0, hasLongIds);
        const usb_redir_configuration_status_header noDevice{usb_redir_ioerror, 0};
        const std::string answer = message(usb_redir_configuration_status, noDevice, hasLongIds);
        const std::string messages = greeting(hasLongIds) + requestsForStreams(hasLongIds) + question;
        for (const std::size_t pieceSize : {AllAtOnce, std::size_t(7), std::size_t(1)}) {
            server.port().close();
            server.port().open();
            const std::size_t before = server.port().received().size();
            for (std::size_t next = 0; next < messages.size(); next += pieceSize)
                server.port().send(messages.substr(next, pieceSize));
            EXPECT_TRUE(waitFor([&] { return server.port().received().find(answer, before) != std::string::npos; }))
                << "in pieces of " << pieceSize << (hasLongIds ? ", long ids" : ", short ids");
        }
    }
    ASSERT_TRUE(shareWhenOpen());
    EXPECT_TRUE(getsDriver("usbfs"));
}

TEST_F(Reference, a_request_for_streams_of_a_device_that_has_just_been_pulled_does_no_harm)
{
    server.port().send(greeting());
    ASSERT_TRUE(shareWhenOpen());
    for (int i = 0; i < 10; ++i) {
        ASSERT_EQ(world("unplug 1-1"), "ok\n");
        server.port().send(header(usb_redir_reset, 0, true) + requestsForStreams());
        EXPECT_TRUE(reported(RedirEventUnshared));
        server.port().send(requestsForStreams());
        ASSERT_TRUE(world("plug 1-1").startsWith("ok"));
        ASSERT_TRUE(shareWhenOpen());
        EXPECT_TRUE(getsDriver("usbfs"));
    }
}

TEST_F(Reference, a_device_that_is_pulled_at_once_after_it_was_shared_is_back_when_it_is_plugged_in_again)
{
    ASSERT_TRUE(shareWhenOpen());
    for (int i = 0; i < 20; ++i) {
        ASSERT_EQ(world("unplug 1-1"), "ok\n");
        EXPECT_TRUE(reported(RedirEventUnshared));
        ASSERT_TRUE(world("plug 1-1").startsWith("ok"));
        ASSERT_TRUE(shareWhenOpen()) << "its arrival may not have been reported yet";
    }
}

TEST_F(Reference, stopped_from_inside_its_own_event_gives_the_device_back_and_starts_again)
{
    ASSERT_TRUE(shareWhenOpen());
    act = [this] { redirect.realeaseDeviceResource(); };
    actsAt = RedirEventChannelLost;
    server.port().close();
    EXPECT_TRUE(reported(RedirEventChannelLost));
    EXPECT_TRUE(getsDriver("usb-storage"));
    EXPECT_FALSE(share()) << "nothing runs any more";
    EXPECT_FALSE(events.contains(RedirEventUnshared)) << "nor is reported";

    actsAt = RedirEvent(-1);
    Q_EMIT redirect.loadDevRedirComponentByThread(QStringLiteral("vm"));
    EXPECT_FALSE(share());
    EXPECT_TRUE(reported(RedirEventShareFailed)) << "it has no channel, and says so";
}

TEST_F(Reference, a_device_that_is_shared_from_inside_the_event_that_took_it_back_finds_the_channel_closed)
{
    ASSERT_TRUE(shareWhenOpen());
    std::atomic<int> result{0};
    act = [&] { result = run("share", Id); };
    actsAt = RedirEventUnshared;
    server.port().close();
    EXPECT_TRUE(waitFor([&] { return result == Refusal::NoFreeChannel; })) << result;
    actsAt = RedirEvent(-1);
    EXPECT_TRUE(getsDriver("usb-storage"));
    server.port().open();
    EXPECT_TRUE(shareWhenOpen());
}

TEST_F(Reference, what_has_just_changed_is_known_while_the_component_is_busy)
{
    const QString otherId = QStringLiteral("1-2:CAMERA0001");
    ASSERT_TRUE(waitFor([&] { return closes("free channel", otherId).isNull(); }));
    std::atomic<bool> isBusy{false};
    std::promise<void> mayGoOn;
    act = [&] {
        isBusy = true;
        mayGoOn.get_future().wait();
    };
    actsAt = RedirEventShared;
    redirect.deviceOperate(Id, QStringLiteral("share"));
    ASSERT_TRUE(waitFor([&] { return isBusy.load(); }));
    EXPECT_EQ(closes("free channel", otherId).toObject().value(QLatin1String("code")).toInt(), Refusal::NoFreeChannel);
    QJsonArray statistics;
    EXPECT_EQ(run("stats", QString(), &statistics), 0);
    EXPECT_EQ(statistics[0].toObject().value(QLatin1String("deviceId")).toString(), Id);
    actsAt = RedirEvent(-1);
    mayGoOn.set_value();
    EXPECT_TRUE(reported(RedirEventShared));
}

TEST_F(Reference, a_virtual_machine_that_reads_nothing_loses_its_channel)
{
    ASSERT_TRUE(shareWhenOpen());
    server.port().send(greeting());
    nothingIsRead = true;
    server.port().send(header(usb_redir_get_configuration, 0, true));
    EXPECT_TRUE(reported(RedirEventChannelLost));
    EXPECT_TRUE(getsDriver("usb-storage"));
    nothingIsRead = false;
}

TEST_F(Reference, a_virtual_machine_that_sends_without_waiting_for_its_device_loses_its_channel)
{
    void *context = nullptr;
    ASSERT_EQ(redirect.checkRedirChannel(PortName, &context), 1);
    redirect.handlerRedirNoticeEvent(ChannelEventOpened, nullptr, 0, context);
    ASSERT_TRUE(runShare(Id));
    const std::string request = header(usb_redir_get_configuration, 0, true);
    std::string requests = greeting();
    while (requests.size() < 130 << 20)
        requests += request;
    for (int i = 0; i < 2; ++i)
        redirect.handlerRedirData(&requests[0], int(requests.size()), context);
    EXPECT_TRUE(reported(RedirEventChannelLost));
    EXPECT_TRUE(getsDriver("usb-storage"));
}

TEST_F(Reference, a_channel_of_before_the_last_start_is_nobody_any_more)
{
    void *before = nullptr, *after = nullptr;
    ASSERT_EQ(redirect.checkRedirChannel(PortName, &before), 1);
    redirect.realeaseDeviceResource();
    Q_EMIT redirect.loadDevRedirComponentByThread(QStringLiteral("vm"));
    ASSERT_EQ(redirect.checkRedirChannel(PortName, &after), 1);
    EXPECT_NE(before, after);
}

TEST_F(Reference, DISABLED_shares_and_is_killed) // what the next test runs in a process of its own
{
    if (shareWhenOpen())
        raise(SIGKILL);
}

TEST_F(Reference, a_device_of_a_process_that_was_killed_is_given_back_when_the_component_next_starts)
{
    // Not by fork(): what umockdev puts before the C library takes locks there that another thread may hold.
    char filter[] = "--gtest_filter=*.DISABLED_shares_and_is_killed", run[] = "--gtest_also_run_disabled_tests";
    QByteArray self = QFile::encodeName(QCoreApplication::applicationFilePath());
    char *const arguments[] = {self.data(), filter, run, nullptr};
    pid_t child = 0;
    ASSERT_EQ(posix_spawn(&child, self.constData(), nullptr, nullptr, arguments, environ), 0);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);

    EXPECT_TRUE(getsDriver("none"));
    Q_EMIT redirect.loadDevRedirComponentByThread(QStringLiteral("vm"));
    EXPECT_TRUE(getsDriver("usb-storage"));
}

TEST_F(Reference, a_device_that_is_only_described_is_shared_and_unshared_once)
{
    EXPECT_EQ(runForDescribed("unshare"), Refusal::NotShared);
    EXPECT_EQ(runForDescribed("share"), 0);
    EXPECT_TRUE(reported(RedirEventShared));
    EXPECT_EQ(runForDescribed("share"), Refusal::AlreadyShared);
    EXPECT_TRUE(reported(RedirEventShareFailed));
    redirect.getDeviceListFromUniqueFrame();
    EXPECT_TRUE(waitFor([&] { return redirect.getDeviceInfo(DescribedId).errCode == QStringLiteral("6"); }));
    EXPECT_EQ(redirect.getDeviceInfo(DescribedId).status, 2);
    EXPECT_EQ(runForDescribed("unshare"), 0);
    EXPECT_TRUE(reported(RedirEventUnshared));
    EXPECT_EQ(runForDescribed("unshare"), Refusal::NotShared);

    EXPECT_EQ(runForDescribed("share"), 0);
    EXPECT_EQ(runForDescribed("unshareall"), 0);
    EXPECT_TRUE(reported(RedirEventUnshared));
    EXPECT_EQ(runForDescribed("unshare"), Refusal::NotShared);
}

TEST_F(ReferenceWithoutUsb, lists_devices_refuses_to_share_them_and_stops)
{
    EXPECT_FALSE(share());
    EXPECT_TRUE(reported(RedirEventShareFailed));
    server.port().close();
    server.port().open();
    EXPECT_FALSE(share());
}

TEST_F(Reference, takes_back_a_camera_that_the_policy_denies_while_it_runs_and_says_why)
{
    const QString camera = QStringLiteral("1-2:CAMERA0001");
    const auto policy = [](const char *rule) {
        return run({{QStringLiteral("command"), QStringLiteral("setpolicy")},
                    {QStringLiteral("policy"), QJsonArray{QLatin1String(rule)}}});
    };
    ASSERT_TRUE(runShare(camera));
    EXPECT_EQ(policy("deny:0e:*:0099"), 0);
    EXPECT_EQ(run("setpolicy", camera), Refusal::BadArgument) << "without a policy";
    EXPECT_TRUE(getsDriver("usbfs", "1-2")) << "that is another camera";
    EXPECT_EQ(policy("deny:*:*"), 0);
    EXPECT_TRUE(reported(RedirEventUnshared));
    EXPECT_EQ(lastDetails.value(QLatin1String("code")).toInt(), Refusal::DeniedByPolicy);
    EXPECT_EQ(lastDetails.value(QLatin1String("text")).toString(), QStringLiteral("the camera policy denies it"));
    EXPECT_TRUE(getsDriver("uvcvideo", "1-2"));
    EXPECT_EQ(listed(camera).value(QLatin1String("errCode")).toString(), QStringLiteral("11"));
    EXPECT_EQ(run("share", camera), Refusal::DeniedByPolicy);
    EXPECT_TRUE(closes("camera policy", camera).isObject());
}

TEST_F(Reference, a_device_that_has_other_numbers_after_a_reset_keeps_its_channel)
{
    const QString id = QStringLiteral("1-3:13");
    ASSERT_TRUE(waitFor([&] { return closes("free channel", id).isNull(); }));
    EXPECT_EQ(run("share", id), Refusal::UsbError) << "it is reset before it is handed over";
    EXPECT_TRUE(reported(RedirEventDeviceArrived));
    EXPECT_TRUE(reported(RedirEventShared));
    EXPECT_TRUE(getsDriver("usbfs", "1-3"));
    EXPECT_EQ(listed(id).value(QLatin1String("productId")).toString(), QStringLiteral("0013"));
    EXPECT_EQ(run("share", id), 0) << "a host that asks for it all the same";
    EXPECT_EQ(run("share", id), Refusal::AlreadyShared);
    world("unplug 1-3");
    world("plug 1-3");
}

TEST_F(Reference, a_device_that_is_plugged_in_again_is_shared_again_unless_it_was_unshared_or_a_rule_denies_it)
{
    const auto pluggedAgain = [this](const QByteArray &port) {
        world("unplug " + port);
        EXPECT_TRUE(reported(RedirEventDeviceLeft));
        world("plug " + port);
        return reported(RedirEventDeviceArrived);
    };
    ASSERT_TRUE(runShare(Id));
    ASSERT_TRUE(pluggedAgain("1-1"));
    EXPECT_TRUE(getsDriver("usbfs"));
    EXPECT_EQ(run("unshare", Id), 0);
    ASSERT_TRUE(pluggedAgain("1-1"));
    EXPECT_TRUE(getsDriver("usb-storage"));

    const QString twin = QStringLiteral("1-4:TWIN");
    ASSERT_TRUE(runShare(twin));
    ASSERT_TRUE(pluggedAgain("1-4"));
    EXPECT_TRUE(getsDriver("usb-storage", "1-4"));
    EXPECT_EQ(run("share", Id), 0) << "the channel is kept for nobody";
}

TEST_F(Reference, a_device_that_is_unshared_from_inside_the_event_that_tells_of_its_return_can_be_shared)
{
    ASSERT_TRUE(runShare(Id));
    EXPECT_TRUE(reported(RedirEventShared));
    world("unplug 1-1");
    EXPECT_TRUE(reported(RedirEventUnshared));
    act = [] { run("unshare", Id); };
    actsAt = RedirEventShared;
    world("plug 1-1");
    EXPECT_TRUE(reported(RedirEventUnshared));
    actsAt = RedirEvent(-1);
    EXPECT_TRUE(getsDriver("usb-storage"));
    EXPECT_EQ(run("share", Id), 0);
    EXPECT_TRUE(getsDriver("usbfs"));
}

TEST_F(Reference, a_device_that_the_virtual_machine_refuses_is_back_with_that_reason_and_can_be_shared_anew_at_once)
{
    const auto errorCode = [] { return listed(Id).value(QLatin1String("errCode")).toString(); };
    const std::string refusal = header(usb_redir_filter_reject, 0, true);
    ASSERT_TRUE(runShare(Id));
    server.port().send(greeting() + refusal);
    EXPECT_TRUE(reported(RedirEventUnshared));
    EXPECT_TRUE(reported(RedirEventShareFailed));
    EXPECT_EQ(lastDetails.value(QLatin1String("code")).toInt(), Refusal::RejectedByGuest);
    EXPECT_TRUE(getsDriver("usb-storage"));
    EXPECT_EQ(errorCode(), QString::number(Refusal::RejectedByGuest));

    server.port().send(header(usb_redir_device_disconnect_ack, 0, true));
    ASSERT_TRUE(runShare(Id));
    act = [] { run("share", Id); };
    actsAt = RedirEventUnshared;
    server.port().send(refusal);
    EXPECT_TRUE(reported(RedirEventShareFailed));
    actsAt = RedirEvent(-1);
    EXPECT_TRUE(getsDriver("usbfs"));
    EXPECT_EQ(errorCode(), QStringLiteral("0"));
}

TEST_F(Reference, a_channel_is_kept_from_other_devices_while_its_own_may_come_back)
{
    ASSERT_TRUE(runShare(Id));
    world("unplug 1-1");
    EXPECT_TRUE(reported(RedirEventDeviceLeft));
    EXPECT_EQ(run("share", QStringLiteral("1-4:TWIN")), Refusal::NoFreeChannel);
    EXPECT_TRUE(closes("free channel", QStringLiteral("1-4:TWIN")).isObject());
    EXPECT_EQ(run("unshare", Id), Refusal::NotShared) << "and nobody wants it back any more";
    EXPECT_EQ(run("share", QStringLiteral("1-4:TWIN")), 0);
    world("plug 1-1");
    EXPECT_TRUE(reported(RedirEventDeviceArrived));
    EXPECT_TRUE(getsDriver("usb-storage"));
}

TEST_F(Reference, marks_the_second_of_two_devices_that_differ_by_nothing_but_their_port)
{
    EXPECT_EQ(listed(QStringLiteral("1-4:TWIN")).value(QLatin1String("deviceName")).toString(),
              QStringLiteral("Example Stick 3"));
    EXPECT_EQ(listed(QStringLiteral("1-5:TWIN")).value(QLatin1String("deviceName")).toString(),
              QStringLiteral("Example Stick 4 (same as 1-4:TWIN)"));
}

TEST_F(Reference, counts_what_a_shared_device_transfers_and_how_long_that_takes)
{
    ASSERT_TRUE(runShare(Id));
    const usb_redir_control_packet_header getDescriptor{0x80, 6, 0x80, 0, 0x0100, 0, 18};
    const usb_redir_control_packet_header unknown{0x80, 0x77, 0xc0, 0, 0, 0, 4};
    const usb_redir_bulk_packet_header write{0x02, 0, 31, 0, 0};
    const std::string wrapper = "USBC" + std::string(27, '\0');
    server.port().send(greeting() + message(usb_redir_control_packet, getDescriptor)
                       + message(usb_redir_control_packet, unknown)
                       + header(usb_redir_bulk_packet, sizeof write + wrapper.size(), true)
                       + std::string(reinterpret_cast<const char *>(&write), sizeof write) + wrapper);
    QJsonObject statistics;
    EXPECT_TRUE(waitFor([&] {
        QJsonArray all;
        run("stats", QString(), &all);
        statistics = all[0].toObject();
        return statistics.value(QLatin1String("errors")).toInt() > 0
            && statistics.value(QLatin1String("toDevice")).toObject().value(QLatin1String("transfers")).toInt() > 0;
    }));
    EXPECT_EQ(statistics.value(QLatin1String("deviceId")).toString(), Id);
    EXPECT_EQ(statistics.value(QLatin1String("fromDevice")).toObject(),
              (QJsonObject{{QStringLiteral("bytes"), 18}, {QStringLiteral("transfers"), 2}}));
    EXPECT_EQ(statistics.value(QLatin1String("toDevice")).toObject(),
              (QJsonObject{{QStringLiteral("bytes"), 31}, {QStringLiteral("transfers"), 1}}));
    EXPECT_EQ(statistics.value(QLatin1String("errors")).toInt(), 1);
    EXPECT_EQ(statistics.value(QLatin1String("isochronousDrops")).toInt(), 0);
    EXPECT_GT(statistics.value(QLatin1String("medianMilliseconds")).toDouble(), 0);
    EXPECT_GE(statistics.value(QLatin1String("percentile99Milliseconds")).toDouble(),
              statistics.value(QLatin1String("medianMilliseconds")).toDouble());
    run("unshare", Id);
    QJsonArray none{1};
    EXPECT_EQ(run("stats", QString(), &none), 0);
    EXPECT_TRUE(none.isEmpty());
}

TEST_F(Reference, explains_what_keeps_a_device_from_being_shared_and_what_helps)
{
    EXPECT_EQ(run("explain", QStringLiteral("1-9")), Refusal::NoSuchDevice);
    ASSERT_TRUE(waitFor([] { return closes("free channel", Id).isNull(); }));
    for (const char *gate : {"permission", "camera policy", "writable", "not mounted"})
        EXPECT_TRUE(closes(gate, Id).isNull()) << gate;

    world("deny 1-1");
    const QJsonObject permission = closes("permission", Id).toObject();
    EXPECT_EQ(permission.value(QLatin1String("code")).toInt(), Refusal::NoPermission);
    EXPECT_TRUE(permission.value(QLatin1String("cure"))
                    .toString()
                    .startsWith(QStringLiteral("that rule in /etc/udev/rules.d")));
    world("allow 1-1");
    EXPECT_TRUE(closes("permission", Id).isNull());

    const QDir holders(qEnvironmentVariable("UMOCKDEV_DIR") + QStringLiteral("/sys/class/block/sda1/holders"));
    ASSERT_TRUE(holders.mkpath(QStringLiteral("dm-0")));
    const QJsonObject held = closes("not mounted", Id).toObject();
    EXPECT_EQ(held.value(QLatin1String("text")).toString(), QStringLiteral("in use as dm-0"));
    EXPECT_EQ(run("share", Id), Refusal::Mounted);
    EXPECT_TRUE(QDir(holders).removeRecursively());

    const QDir fileSystems(qEnvironmentVariable("UMOCKDEV_DIR") + QStringLiteral("/sys/fs/btrfs"));
    ASSERT_TRUE(fileSystems.mkpath(QStringLiteral("of-two-disks/devices/sda1")));
    EXPECT_EQ(closes("not mounted", Id).toObject().value(QLatin1String("text")).toString(),
              QStringLiteral("in use as btrfs"));
    EXPECT_TRUE(QDir(fileSystems).removeRecursively());

    EXPECT_EQ(run("share", Id), 0);
    const QJsonObject use = closes("not in use", Id).toObject();
    EXPECT_EQ(use.value(QLatin1String("code")).toInt(), Refusal::AlreadyShared);
    EXPECT_EQ(use.value(QLatin1String("cure")).toString(), QStringLiteral("take it back first"));
    EXPECT_EQ(run("unshare", Id), 0);

    const QByteArray node = listed(Id).value(QLatin1String("context")).toString().toLatin1();
    const std::pair<QString, QByteArray> opened[] = {{Id, node}, {QStringLiteral("1-2:CAMERA0001"), "/dev/video0"}};
    for (const auto &[deviceId, path] : opened) {
        const int open = ::open(path.constData(), O_RDWR); // NOLINT: the child is to have it, too
        ASSERT_GE(open, 0) << path.constData();
        char sleep[] = "sleep", seconds[] = "60";
        char *const arguments[] = {sleep, seconds, nullptr};
        pid_t child = 0;
        ASSERT_EQ(posix_spawnp(&child, sleep, nullptr, nullptr, arguments, environ), 0);
        close(open);
        const auto names = [id = deviceId](const QString &user) { // besides the emulated computer itself
            return closes("not in use", id).toObject().value(QLatin1String("text")).toString().contains(user);
        };
        EXPECT_TRUE(waitFor([&] { return names(QStringLiteral("%1 (sleep)").arg(child)); })) << path.constData();
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
        EXPECT_FALSE(names(QStringLiteral("sleep")));
    }
}

// --- what can go wrong, with each kind of device ---

namespace {

constexpr int LongestFault = 5000; // milliseconds until the device is where it belongs

std::string readRequest(uint8_t endpoint)
{
    return message(usb_redir_bulk_packet, usb_redir_bulk_packet_header{endpoint, 0, 512, 0, 0});
}

std::string interruptRequest(uint8_t endpoint)
{
    return message(usb_redir_start_interrupt_receiving, usb_redir_start_interrupt_receiving_header{endpoint});
}

struct Kind
{
    const char *name, *port, *serial, *driver;
    std::string requests; ///< what makes its transfers go on without end, or wait for it
    uint8_t endpoint; ///< of one of them
    bool isIsochronous = false, isInterrupt = false;
};

const Kind Kinds[] = {
    {"disk", "1-1", "11", "usb-storage", readRequest(0x81), 0x81},
    {"camera", "1-2", "CAMERA0001", "uvcvideo",
     message(usb_redir_set_alt_setting, usb_redir_set_alt_setting_header{1, 3})
         + message(usb_redir_start_iso_stream, usb_redir_start_iso_stream_header{0x81, 32, 4}),
     0x81, true, false},
    {"bulk_camera", "1-6", "CAMERA0002", "uvcvideo", readRequest(0x81) + readRequest(0x81), 0x81},
    {"serial_adapter", "1-7", "SERIAL0001", "cdc_acm", interruptRequest(0x85) + readRequest(0x83), 0x83},
    {"keyboard", "1-8", "KEYBOARD0001", "usbhid", interruptRequest(0x81), 0x81, false, true},
};

class Faults : public Reference, public ::testing::WithParamInterface<Kind>
{
protected:
    void SetUp() override
    {
        Reference::SetUp();
        shareInMidTransfer();
    }

    void shareInMidTransfer()
    {
        ASSERT_TRUE(runShare(id));
        isInMidTransfer(greeting());
    }

    void isInMidTransfer(const std::string &before = {})
    {
        const QByteArray idle = world("stats " + port);
        server.port().send(before + GetParam().requests);
        EXPECT_TRUE(waitFor([&] { return world("stats " + port) != idle; }));
    }

    bool isBack() { return getsDriver(GetParam().driver, port, LongestFault); }

    // An answer about the endpoint with this status has come since so many bytes.
    bool answers(uint32_t type, uint8_t status, std::size_t since)
    {
        return waitFor([&] {
            const std::string received = server.port().received();
            for (std::size_t at = since; at + 18 <= received.size();) {
                usb_redir_header header{};
                std::memcpy(&header, received.data() + at, 16);
                const bool fits = header.type == type && uint8_t(received[at + 16]) == GetParam().endpoint;
                if (fits && uint8_t(received[at + 17]) == status)
                    return true;
                at += 16 + header.length;
            }
            return false;
        });
    }

    const QByteArray port = GetParam().port;
    const QString id = QString::fromLatin1(port) + QLatin1Char(':') + QLatin1String(GetParam().serial);
};

INSTANTIATE_TEST_SUITE_P(Of, Faults, ::testing::ValuesIn(Kinds),
                         [](const auto &kind) { return std::string(kind.param.name); });

} // namespace

TEST_P(Faults, a_device_unplugged_in_mid_transfer_is_given_up_and_back_when_it_is_plugged_in_again)
{
    ASSERT_EQ(world("unplug " + port), "ok\n");
    EXPECT_TRUE(reported(RedirEventUnshared));
    EXPECT_TRUE(reported(RedirEventDeviceLeft));
    world("plug " + port);
    EXPECT_TRUE(getsDriver("usbfs", port)) << "it has its channel again";
    isInMidTransfer(header(usb_redir_device_disconnect_ack, 0, true));
    EXPECT_EQ(run("unshare", id), 0);
    EXPECT_TRUE(isBack());
}

TEST_P(Faults, a_channel_that_closes_in_mid_transfer_gives_the_device_back_and_takes_it_again)
{
    server.port().close();
    EXPECT_TRUE(isBack());
    server.port().open();
    shareInMidTransfer();
    EXPECT_TRUE(getsDriver("usbfs", port));
    EXPECT_EQ(run("unshare", id), 0);
    EXPECT_TRUE(isBack());
}

TEST_P(Faults, a_machine_that_is_lost_in_mid_transfer_gives_the_device_back)
{
    server.dropConnections();
    EXPECT_TRUE(reported(RedirEventChannelLost));
    EXPECT_TRUE(isBack());
}

TEST_P(Faults, a_machine_that_starts_again_in_mid_transfer_goes_on_with_the_device)
{
    isInMidTransfer(header(usb_redir_reset, 0, true));
    EXPECT_TRUE(getsDriver("usbfs", port));
    EXPECT_EQ(run("unshare", id), 0);
    EXPECT_TRUE(isBack());
}

TEST_P(Faults, a_device_that_halts_in_mid_transfer_works_again_once_that_is_cleared)
{
    if (GetParam().isIsochronous)
        GTEST_SKIP() << "isochronous endpoints do not halt";
    const std::size_t before = server.port().received().size();
    ASSERT_EQ(world("tell " + port + " stall"), "ok\n");
    if (GetParam().isInterrupt) { // this side clears it by itself
        ASSERT_EQ(world("tell " + port + " a"), "ok\n");
        EXPECT_TRUE(answers(usb_redir_interrupt_packet, usb_redir_success, before));
    } else {
        EXPECT_TRUE(answers(usb_redir_bulk_packet, usb_redir_stall, before));
        const usb_redir_control_packet_header clear{0, 1, 2, 0, 0, GetParam().endpoint, 0};
        isInMidTransfer(message(usb_redir_control_packet, clear));
    }
    EXPECT_EQ(run("unshare", id), 0);
    EXPECT_TRUE(isBack());
}
