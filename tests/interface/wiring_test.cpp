// SPDX-License-Identifier: LGPL-2.1-or-later
#include "interface/interfacebench.h"
#include "mount/watchmountworker.h"
#include "support/standinchannel.h"

#include <QMetaMethod>
#include <QPointer>

#include <atomic>
#include <functional>
#include <thread>
#include <type_traits>

namespace {
EventList<QThread *> watchersDestroyedOn;
EventList<std::string> deaths;
} // namespace

// Found before the library's own, which does nothing.
WatchMountWorker::~WatchMountWorker()
{
    watchersDestroyedOn.add(QThread::currentThread());
    deaths.add("watcher");
}

namespace {

/// Where an entry point ran.
struct Call
{
    std::string symbol;
    QThread *thread;

    bool operator==(const Call &other) const { return symbol == other.symbol && thread == other.thread; }
};

std::ostream &operator<<(std::ostream &stream, const Call &call)
{
    return stream << call.symbol << " on thread " << call.thread;
}

class Wiring : public InterfaceBench
{
protected:
    Wiring()
    {
        script.init = [this](const SendCallback &, const EventCallback &, const std::string &, const std::string &) {
            return note("redirInit"), true;
        };
        script.check = [this](const std::string &, void **) { return note("redirCheck"), false; };
        script.ctrl = [this](const std::string &command, char *, int &length) {
            length = 0;
            note("redirCtrl "
                 + command.substr(command.find("\"command\""), std::string("\"command\":\"unshare").size()));
            return 0;
        };
        script.deinit = [this] { note("redirDeinit"); };
        redirect->setNotifyEventCallback([](void *, RedirEvent, const char *, int) {});
        redirect->sendMapCommandByDevModel([](QList<ExterDeviceInfo> &) {});
    }

    void note(const std::string &symbol) { calls.add({symbol, QThread::currentThread()}); }

    EventList<Call> calls;
};

struct Request
{
    const char *name;
    std::function<void(DevRedirectInterface &)> emitIt;
    const char *firstCall; ///< what the component is asked first; as many characters as are noted
    bool direct;
};

const Request requests[] = {
    {"loadDevRedirComponentByThread",
     [](DevRedirectInterface &i) { Q_EMIT i.loadDevRedirComponentByThread(QStringLiteral("vm-7")); }, "redirInit",
     true},
    {"checkRedirChannelByThread",
     [](DevRedirectInterface &i) { Q_EMIT i.checkRedirChannelByThread(nullptr, QStringLiteral("name"), false); },
     "redirCheck", true},
    {"redirectDeviceByIdByThread",
     [](DevRedirectInterface &i) { Q_EMIT i.redirectDeviceByIdByThread(ExterDeviceInfo()); },
     "redirCtrl \"command\":\"share\"", false},
    {"unRedirectDeviceByIdByThread",
     [](DevRedirectInterface &i) { Q_EMIT i.unRedirectDeviceByIdByThread(ExterDeviceInfo()); },
     "redirCtrl \"command\":\"unshare", false},
    {"unRedirectDeviceAllByThread", [](DevRedirectInterface &i) { Q_EMIT i.unRedirectDeviceAllByThread(); },
     "redirCtrl \"command\":\"unshare", false},
    {"resetParametersByThread", [](DevRedirectInterface &i) { Q_EMIT i.resetParametersByThread(); },
     "redirCtrl \"command\":\"unshare", false},
    {"realeaseDeviceResourceByThread", [](DevRedirectInterface &i) { Q_EMIT i.realeaseDeviceResourceByThread(); },
     "redirDeinit", true},
    {"notifyEventHandler", [](DevRedirectInterface &i) { Q_EMIT i.notifyEventHandler(); },
     "redirCtrl \"command\":\"list\"", false},
    {"getDevListAndMapping", [](DevRedirectInterface &i) { Q_EMIT i.getDevListAndMapping(); },
     "redirCtrl \"command\":\"list\"", false},
    {"getDevListByVirApp", [](DevRedirectInterface &i) { Q_EMIT i.getDevListByVirApp(); },
     "redirCtrl \"command\":\"list\"", true},
    {"getDevListByShareDesk", [](DevRedirectInterface &i) { Q_EMIT i.getDevListByShareDesk(); },
     "redirCtrl \"command\":\"list\"", true},
};

int metaTypeNamed(const char *name)
{
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
    return QMetaType::type(name);
#else
    return QMetaType::fromName(name).id();
#endif
}

} // namespace

TEST(Construction, registers_three_meta_types_in_this_order)
{
    const char *const names[] = {"ExterDeviceInfo", "QList<ExterDeviceInfo>", "SpicePortChannel"};
    for (const char *name : names)
        ASSERT_EQ(metaTypeNamed(name), int(QMetaType::UnknownType)) << name;
    const DevRedirectInterface redirect(nullptr);
    int previous = QMetaType::User - 1;
    for (const char *name : names) {
        EXPECT_GT(metaTypeNamed(name), previous) << name;
        previous = metaTypeNamed(name);
    }
}

TEST(Construction, moves_the_registrys_worker_to_a_running_thread_of_its_own)
{
    DevRedirectWorker *const worker = DevRedirectManger::instance()->getRedirectWorkerInstance();
    EXPECT_EQ(worker->thread(), QThread::currentThread());
    const DevRedirectInterface redirect(nullptr);
    EXPECT_EQ(DevRedirectManger::instance()->getRedirectWorkerInstance(), worker);
    ASSERT_NE(worker->thread(), QThread::currentThread());
    EXPECT_TRUE(worker->thread()->isRunning());
    EXPECT_EQ(worker->thread()->priority(), QThread::InheritPriority);
    EXPECT_EQ(redirect.thread(), QThread::currentThread());
}

TEST(Construction, takes_a_parent_that_owns_the_interface)
{
    QPointer<DevRedirectInterface> redirect;
    {
        QObject parent;
        redirect = new DevRedirectInterface(&parent);
        EXPECT_EQ(redirect->parent(), &parent);
    }
    EXPECT_TRUE(redirect.isNull());
}

TEST(Construction, logs_nothing_and_asks_the_component_for_nothing)
{
    const LogRecorder log;
    const DevRedirectInterface redirect(nullptr);
    EXPECT_EQ(log.lines(), QStringList());
    EXPECT_EQ(Component::script().calls(), std::vector<std::string>());
}

TEST_F(Wiring, each_request_reaches_the_component_on_this_thread)
{
    for (const Request &request : requests) {
        calls.clear();
        request.emitIt(*redirect);
        if (request.direct) {
            ASSERT_FALSE(calls.all().empty()) << request.name << " runs before the emission returns";
        } else {
            waitForWorker();
            ASSERT_FALSE(calls.all().empty()) << request.name;
        }
        const Call first = calls.all().front();
        EXPECT_EQ(first.symbol.compare(0, std::string(request.firstCall).size(), request.firstCall), 0)
            << request.name << ": " << first.symbol;
        EXPECT_EQ(first.thread, request.direct ? QThread::currentThread() : workerThread()) << request.name;
        EXPECT_EQ(calls.count(), 1u) << request.name;
    }
}

TEST_F(Wiring, a_direct_request_from_another_thread_runs_there_and_a_queued_one_does_not)
{
    for (const Request &request : requests) {
        calls.clear();
        QThread *emitter = nullptr;
        std::size_t doneWhenEmitted = 0;
        std::thread([&] {
            emitter = QThread::currentThread();
            request.emitIt(*redirect);
            doneWhenEmitted = calls.count();
        }).join();
        waitForWorker();
        ASSERT_EQ(calls.count(), 1u) << request.name;
        if (request.direct) {
            EXPECT_EQ(doneWhenEmitted, 1u) << request.name;
            EXPECT_NE(calls.all()[0].thread, QThread::currentThread()) << request.name;
            EXPECT_NE(calls.all()[0].thread, workerThread()) << request.name;
        } else {
            EXPECT_EQ(calls.all()[0].thread, workerThread()) << request.name;
            EXPECT_NE(calls.all()[0].thread, emitter) << request.name;
        }
    }
}

TEST_F(Wiring, loading_and_stopping_run_at_once_even_while_the_worker_is_busy)
{
    Hold hold;
    script.ctrl = std::ref(hold);
    Q_EMIT redirect->unRedirectDeviceAllByThread();
    ASSERT_TRUE(hold.waitUntilHeld());

    log.clear();
    Q_EMIT redirect->loadDynamicLib();
    EXPECT_EQ(log.lines().value(0), QStringLiteral("debug: load dynamic Lib"));
    EXPECT_EQ(redirect->checkRedirChannel("name", nullptr), 0);
    EXPECT_EQ(calls.count(), 1u);
    Q_EMIT redirect->stopMappingFunctionByThread();
    EXPECT_EQ(redirect->checkRedirChannel("name", nullptr), 0);
    EXPECT_EQ(calls.count(), 1u) << "cut off from the component";
    hold.letGo();
    waitForWorker();
}

TEST_F(Wiring, queued_requests_run_one_after_the_other_in_the_order_in_which_they_were_made)
{
    Hold hold;
    script.ctrl = std::ref(hold);
    script.forgetCalls();
    redirect->unRedirectDeviceById(device("a", "usbrdr"));
    ASSERT_TRUE(hold.waitUntilHeld());
    redirect->redirectDeviceById(device("b", "usbrdr"));
    redirect->getDeviceListFromUniqueFrame();
    redirect->unRedirectDeviceAll();
    EXPECT_EQ(script.commands().size(), 1u);
    for (int i = 0; i < 4; ++i)
        hold.letGo();
    waitForWorker();
    const std::vector<std::string> commands = script.commands();
    ASSERT_EQ(commands.size(), 4u);
    const char *const words[] = {"\"command\":\"unshare\"", "\"command\":\"share\"", "\"command\":\"list\"",
                                 "\"command\":\"unshareall\""};
    for (std::size_t i = 0; i < 4; ++i)
        EXPECT_NE(commands[i].find(words[i]), std::string::npos) << commands[i];
}

TEST_F(Wiring, a_channel_report_carries_its_arguments_unchanged)
{
    const StandInChannel channel;
    std::string name;
    void *setUpChannel = nullptr;
    std::vector<int> notices;
    script.check = [&](const std::string &channelName, void **context) {
        name = channelName;
        *context = &script;
        return true;
    };
    script.setupContext = [&](void *, void *pointer) {
        setUpChannel = pointer;
        return false;
    };
    script.eventHandler = [&](ChannelEvent event, char *, int, void *) { notices.push_back(event); };
    Q_EMIT redirect->checkRedirChannelByThread(channel.get(), QStringLiteral("org.example.redir.0"), true);
    EXPECT_EQ(name, "org.example.redir.0");
    EXPECT_EQ(setUpChannel, channel.get());
    EXPECT_EQ(notices, std::vector<int>{0});
    Q_EMIT redirect->checkRedirChannelByThread(channel.get(), QStringLiteral("other"), false);
    EXPECT_EQ(name, "other");
    EXPECT_EQ(notices, std::vector<int>{0});
}

TEST_F(Wiring, results_of_the_worker_come_out_of_the_interface_on_this_thread)
{
    using Interface = DevRedirectInterface;
    const QList<ExterDeviceInfo> list{device("a", "usbrdr"), device("b", "camrdr")};
    const ExterDeviceInfo one = device("one", "camrdr");
    DevRedirectWorker *const from = &worker();
    const struct
    {
        const char *name;
        std::function<void()> emitIt;
        bool onWorkerThread;
        std::string result;
    } table[] = {
        {"deviceListResult", [&] { Q_EMIT from->deviceListResult(list, true); }, false,
         "deviceListResultByThread [a b] true"},
        {"redirectDeviceByIdResult", [&] { Q_EMIT from->redirectDeviceByIdResult(one, true); }, false,
         "redirectDeviceByIdResult one true"},
        {"unRedirectDeviceByIdResult", [&] { Q_EMIT from->unRedirectDeviceByIdResult(one, true); }, false,
         "unRedirectDeviceByIdResult one true"},
        {"unRedirectDeviceAllResult", [&] { Q_EMIT from->unRedirectDeviceAllResult(true); }, false,
         "unRedirectDeviceAllResult true"},
        {"diskMapResultInUsb",
         [&] { Q_EMIT from->diskMapResultInUsb(QStringLiteral("pos"), QStringLiteral("Map"), true); }, true,
         "diskMapResultInUsbByInter pos Map true"},
        {"shareDeviceResult", [&] { Q_EMIT from->shareDeviceResult(one, false); }, false,
         "shareDeviceResultByInterface one false"},
        {"sendDevListInfoToVirApp", [&] { Q_EMIT from->sendDevListInfoToVirApp(list); }, true,
         "sendDevListInfoToVirAppByDevInter [a b]"},
        {"sendDevListInfoToShareDesk", [&] { Q_EMIT from->sendDevListInfoToShareDesk(list); }, true,
         "sendDevListInfoToShareDeskByDevInter [a b]"},
    };
    const auto noteResult = [this](const char *name) {
        return [this, name](const ExterDeviceInfo &d, bool result) {
            note(std::string(name) + " " + d.deviceId.toStdString() + " " + word(result));
        };
    };
    const auto noteList = [this](const char *name) {
        return [this, name](const QList<ExterDeviceInfo> &devices) { note(std::string(name) + " " + idsOf(devices)); };
    };
    const auto direct = Qt::DirectConnection;
    Interface *const i = redirect.get();
    QObject::connect(
        i, &Interface::deviceListResultByThread, &listener,
        [this](const QList<ExterDeviceInfo> &devices, bool status) {
            note("deviceListResultByThread " + idsOf(devices) + " " + word(status));
        },
        direct);
    QObject::connect(i, &Interface::redirectDeviceByIdResult, &listener, noteResult("redirectDeviceByIdResult"),
                     direct);
    QObject::connect(i, &Interface::unRedirectDeviceByIdResult, &listener, noteResult("unRedirectDeviceByIdResult"),
                     direct);
    QObject::connect(
        i, &Interface::unRedirectDeviceAllResult, &listener,
        [this](bool result) { note("unRedirectDeviceAllResult " + word(result)); }, direct);
    QObject::connect(
        i, &Interface::diskMapResultInUsbByInter, &listener,
        [this](const QString &name, const QString &type, bool status) {
            note("diskMapResultInUsbByInter " + name.toStdString() + " " + type.toStdString() + " " + word(status));
        },
        direct);
    QObject::connect(i, &Interface::shareDeviceResultByInterface, &listener, noteResult("shareDeviceResultByInterface"),
                     direct);
    QObject::connect(i, &Interface::sendDevListInfoToVirAppByDevInter, &listener,
                     noteList("sendDevListInfoToVirAppByDevInter"), direct);
    QObject::connect(i, &Interface::sendDevListInfoToShareDeskByDevInter, &listener,
                     noteList("sendDevListInfoToShareDeskByDevInter"), direct);

    for (const auto &row : table) {
        calls.clear();
        onWorkerThread(row.emitIt);
        if (row.onWorkerThread) {
            ASSERT_EQ(calls.count(), 1u) << row.name << " comes out before the emission returns";
        } else {
            EXPECT_EQ(calls.count(), 0u) << row.name << " waits for the host's event loop";
            ASSERT_TRUE(waitFor([this] { return calls.count() == 1; })) << row.name;
        }
        EXPECT_EQ(calls.all()[0], (Call{row.result, row.onWorkerThread ? workerThread() : QThread::currentThread()}))
            << row.name;
    }
}

TEST_F(Wiring, a_map_notification_of_the_worker_runs_the_map_callback_on_the_hosts_thread)
{
    static QThread *ranOn;
    ranOn = nullptr;
    redirect->sendMapCommandByDevModel([](QList<ExterDeviceInfo> &) { ranOn = QThread::currentThread(); });
    onWorkerThread([this] { Q_EMIT worker().sendMapCommandToVdiExterDevModel(); });
    EXPECT_EQ(ranOn, nullptr);
    ASSERT_TRUE(waitFor([] { return ranOn != nullptr; }));
    EXPECT_EQ(ranOn, QThread::currentThread());
}

TEST_F(Wiring, a_changed_mount_table_runs_the_event_handler_on_the_worker_thread)
{
    Q_EMIT redirect->myWatchMount();
    ASSERT_TRUE(waitFor([] { return MountTable::polls() > 0; }));
    QThread *const mountThread = MountTable::watchingThread();
    EXPECT_NE(mountThread, QThread::currentThread());
    EXPECT_NE(mountThread, workerThread());
    EXPECT_EQ(mountThread->priority(), QThread::InheritPriority);
    EXPECT_EQ(calls.count(), 0u);

    MountTable::change();
    ASSERT_TRUE(waitFor([this] { return calls.count() > 0; }));
    EXPECT_EQ(calls.all(), (std::vector<Call>{{"redirCtrl \"command\":\"list\"}", workerThread()}}));
    EXPECT_TRUE(log.has(
        moduleLine("debug", "onNotifyEventHandler", QStringLiteral(" enter to notify redirect event process."))));
}

TEST_F(Wiring, the_results_of_a_shared_disk_come_on_both_threads)
{
    QObject::connect(
        redirect.get(), &DevRedirectInterface::diskMapResultInUsbByInter, &listener,
        [this](const QString &name, const QString &, bool) { note(name.toStdString()); }, Qt::DirectConnection);
    QObject::connect(redirect.get(), &DevRedirectInterface::shareDeviceResultByInterface, &listener,
                     [this](const ExterDeviceInfo &shared, bool) { note(shared.deviceId.toStdString()); });
    QThread *const thread = workerThread();
    redirect->redirectDeviceById(device("d", "diskrdr"));
    waitForWorker();
    ASSERT_EQ(calls.count(), 2u) << "the share result waits for the host's event loop";
    EXPECT_EQ(calls.all()[1], (Call{"d-POS", thread}));
    ASSERT_TRUE(waitFor([this] { return calls.count() == 3; }));
    EXPECT_EQ(calls.all()[2], (Call{"d", QThread::currentThread()}));
}

TEST_F(Wiring, the_lists_for_the_views_come_out_before_the_request_returns)
{
    std::vector<std::string> lists;
    QObject::connect(redirect.get(), &DevRedirectInterface::sendDevListInfoToVirAppByDevInter, &listener,
                     [&](const QList<ExterDeviceInfo> &devices) { lists.push_back("virApp " + idsOf(devices)); });
    QObject::connect(redirect.get(), &DevRedirectInterface::sendDevListInfoToShareDeskByDevInter, &listener,
                     [&](const QList<ExterDeviceInfo> &devices) { lists.push_back("shareDesk " + idsOf(devices)); });
    script.ctrl = Component::listing(Component::listDocument({R"("deviceId":"a")"}));
    Q_EMIT redirect->getDevListByVirApp();
    Q_EMIT redirect->getDevListByShareDesk();
    EXPECT_EQ(lists, (std::vector<std::string>{"virApp [a]", "shareDesk [a]"}));
}

TEST_F(Wiring, destroying_the_interface_waits_for_the_busy_worker)
{
    Hold hold;
    std::atomic<bool> finished{false};
    script.ctrl = [&](const std::string &command, char *buffer, int &length) {
        const int result = hold(command, buffer, length);
        finished = true;
        return result;
    };
    redirect->unRedirectDeviceAll();
    ASSERT_TRUE(hold.waitUntilHeld());
    std::thread later([&hold] {
        QThread::msleep(100);
        hold.letGo();
    });
    redirect.reset();
    EXPECT_TRUE(finished);
    later.join();
}

TEST_F(Wiring, destroying_the_interface_waits_for_a_watch_until_the_mount_table_changes)
{
    Q_EMIT redirect->myWatchMount();
    ASSERT_TRUE(waitFor([] { return MountTable::polls() > 0; }));
    std::thread later([] {
        QThread::msleep(100);
        MountTable::change();
    });
    redirect.reset();
    EXPECT_EQ(watchersDestroyedOn.count(), 1u);
    later.join();
    EXPECT_EQ(MountTable::unseenChanges(), 0) << "the watch saw the change before the interface was gone";
}

TEST_F(Wiring, the_worker_and_then_the_watcher_die_on_their_own_threads)
{
    QPointer<DevRedirectWorker> alive = &worker();
    QThread *const thread = workerThread();
    QThread *diedOn = nullptr;
    QObject::connect(alive.data(), &QObject::destroyed, [&diedOn] {
        diedOn = QThread::currentThread();
        deaths.add("worker");
    });
    redirect.reset();
    EXPECT_TRUE(alive.isNull());
    EXPECT_EQ(diedOn, thread);
    EXPECT_EQ(deaths.all(), (std::vector<std::string>{"worker", "watcher"}));
    ASSERT_EQ(watchersDestroyedOn.count(), 1u);
    EXPECT_NE(watchersDestroyedOn.all()[0], QThread::currentThread());
    EXPECT_NE(watchersDestroyedOn.all()[0], thread);
}

TEST_F(Wiring, a_second_interface_after_the_first_works)
{
    for (int round = 0; round < 3; ++round) {
        redirect.reset();
        redirect = std::make_unique<DevRedirectInterface>(nullptr);
        redirect->setNotifyEventCallback([](void *, RedirEvent, const char *, int) {});
        calls.clear();
        Q_EMIT redirect->loadDevRedirComponentByThread(QStringLiteral("vm-8"));
        EXPECT_EQ(calls.all(), (std::vector<Call>{{"redirInit", QThread::currentThread()}}));

        int results = 0;
        QObject::connect(redirect.get(), &DevRedirectInterface::unRedirectDeviceAllResult, &listener,
                         [&results](bool result) { results += result ? 1 : 100; });
        redirect->unRedirectDeviceAll();
        ASSERT_TRUE(waitFor([&results] { return results > 0; }));
        EXPECT_EQ(results, 1);
        EXPECT_NE(workerThread(), QThread::currentThread());
        EXPECT_TRUE(workerThread()->isRunning());
        EXPECT_EQ(calls.all().back().thread, workerThread());
    }
}

TEST_F(Wiring, a_second_interface_begins_without_the_callbacks_and_addresses_of_the_first)
{
    redirect->setClientParam({QStringLiteral("192.0.2.10"), QStringLiteral("198.51.100.7")});
    redirect.reset();
    redirect = std::make_unique<DevRedirectInterface>(nullptr);
    calls.clear();
    script.forgetCalls();
    Q_EMIT redirect->loadDevRedirComponentByThread(QStringLiteral("vm-8"));
    EXPECT_EQ(calls.count(), 0u) << "no event callback, no start";
    redirect->syncUNRedirectDeviceAll();
    ASSERT_EQ(script.commands().size(), 1u);
    EXPECT_NE(script.commands()[0].find(R"("localIp":"")"), std::string::npos);
}

namespace {
using I = DevRedirectInterface;
using Device = const ExterDeviceInfo &;
using Devices = const QList<ExterDeviceInfo> &;
} // namespace

// How the host's compiler sees the signals: by reference, except the two texts of the disk result.
static_assert(std::is_same_v<decltype(&I::loadDynamicLib), void (I::*)()>);
static_assert(std::is_same_v<decltype(&I::loadDevRedirComponentByThread), void (I::*)(const QString &)>);
static_assert(
    std::is_same_v<decltype(&I::checkRedirChannelByThread), void (I::*)(SpicePortChannel *, const QString &, bool)>);
static_assert(std::is_same_v<decltype(&I::deviceListResultByThread), void (I::*)(Devices, bool)>);
static_assert(std::is_same_v<decltype(&I::redirectDeviceByIdByThread), void (I::*)(Device)>);
static_assert(std::is_same_v<decltype(&I::redirectDeviceByIdResult), void (I::*)(Device, bool)>);
static_assert(std::is_same_v<decltype(&I::unRedirectDeviceByIdByThread), void (I::*)(Device)>);
static_assert(std::is_same_v<decltype(&I::unRedirectDeviceByIdResult), void (I::*)(Device, bool)>);
static_assert(std::is_same_v<decltype(&I::diskMapResultInUsbByInter), void (I::*)(QString, QString, bool)>);
static_assert(std::is_same_v<decltype(&I::shareDeviceResultByInterface), void (I::*)(Device, bool)>);
static_assert(std::is_same_v<decltype(&I::sendDevListInfoToVirAppByDevInter), void (I::*)(Devices)>);
static_assert(std::is_same_v<decltype(&I::sendDevListInfoToShareDeskByDevInter), void (I::*)(Devices)>);

TEST(InterfaceMetaObject, has_twenty_two_signals_and_then_one_slot)
{
    const struct
    {
        const char *signature;
        QList<QByteArray> names;
    } table[] = {
        {"loadDynamicLib()", {}},
        {"loadDevRedirComponentByThread(QString)", {"vmId"}},
        {"checkRedirChannelByThread(SpicePortChannel*,QString,bool)", {"channel", "channelName", "isOpened"}},
        {"deviceListResultByThread(QList<ExterDeviceInfo>,bool)", {"devices", "status"}},
        {"redirectDeviceByIdByThread(ExterDeviceInfo)", {"device"}},
        {"redirectDeviceByIdResult(ExterDeviceInfo,bool)", {"device", "result"}},
        {"unRedirectDeviceByIdByThread(ExterDeviceInfo)", {"device"}},
        {"unRedirectDeviceAllByThread()", {}},
        {"unRedirectDeviceByIdResult(ExterDeviceInfo,bool)", {"device", "status"}},
        {"unRedirectDeviceAllResult(bool)", {"result"}},
        {"resetParametersByThread()", {}},
        {"realeaseDeviceResourceByThread()", {}},
        {"notifyEventHandler()", {}},
        {"myWatchMount()", {}},
        {"diskMapResultInUsbByInter(QString,QString,bool)", {"devName", "operateType", "status"}},
        {"getDevListAndMapping()", {}},
        {"stopMappingFunctionByThread()", {}},
        {"shareDeviceResultByInterface(ExterDeviceInfo,bool)", {"device", "result"}},
        {"getDevListByVirApp()", {}},
        {"sendDevListInfoToVirAppByDevInter(QList<ExterDeviceInfo>)", {"deviceInfos"}},
        {"getDevListByShareDesk()", {}},
        {"sendDevListInfoToShareDeskByDevInter(QList<ExterDeviceInfo>)", {"deviceInfos"}},
        {"onSendMapCommandByDevRedInter()", {}},
    };
    const QMetaObject &meta = DevRedirectInterface::staticMetaObject;
    int index = meta.methodOffset();
    for (const auto &row : table) {
        const bool isSlot = index == meta.methodOffset() + 22;
        const QMetaMethod method = meta.method(index);
        EXPECT_EQ(method.methodSignature(), row.signature);
        EXPECT_EQ(method.methodType(), isSlot ? QMetaMethod::Slot : QMetaMethod::Signal) << row.signature;
        EXPECT_EQ(method.parameterNames(), row.names) << row.signature;
        EXPECT_EQ(method.returnType(), int(QMetaType::Void)) << row.signature;
        EXPECT_EQ(method.access(), QMetaMethod::Public) << row.signature;
        EXPECT_EQ(meta.indexOfMethod(row.signature), index) << row.signature;
        ++index;
    }
    EXPECT_EQ(meta.methodCount(), index);
    EXPECT_EQ(meta.propertyCount(), QObject::staticMetaObject.propertyCount());
}

TEST_F(Wiring, a_cast_by_name_finds_the_interface_and_its_base_and_nothing_else)
{
    EXPECT_STREQ(redirect->metaObject()->className(), "DevRedirectInterface");
    EXPECT_EQ(redirect->metaObject()->superClass(), &QObject::staticMetaObject);
    EXPECT_EQ(redirect->qt_metacast("DevRedirectInterface"), redirect.get());
    EXPECT_EQ(redirect->qt_metacast("QObject"), static_cast<QObject *>(redirect.get()));
    EXPECT_EQ(redirect->qt_metacast("DevRedirectWorker"), nullptr);
    EXPECT_EQ(redirect->qt_metacast(nullptr), nullptr);
}

TEST_F(Wiring, every_signal_and_the_slot_can_be_called_by_its_index)
{
    static int mapped;
    mapped = 0;
    redirect->sendMapCommandByDevModel([](QList<ExterDeviceInfo> &) { ++mapped; });
    const QMetaObject *meta = redirect->metaObject();
    ASSERT_TRUE(meta->method(meta->methodOffset() + 22).invoke(redirect.get(), Qt::DirectConnection));
    EXPECT_EQ(mapped, 1);

    QString devName;
    QObject::connect(redirect.get(), &DevRedirectInterface::diskMapResultInUsbByInter, &listener,
                     [&devName](const QString &name, const QString &, bool) { devName = name; });
    ASSERT_TRUE(meta->method(meta->methodOffset() + 14)
                    .invoke(redirect.get(), Qt::DirectConnection, Q_ARG(QString, QStringLiteral("pos")),
                            Q_ARG(QString, QStringLiteral("Map")), Q_ARG(bool, true)));
    EXPECT_EQ(devName, QStringLiteral("pos"));
}
