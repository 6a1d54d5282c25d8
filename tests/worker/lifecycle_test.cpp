// SPDX-License-Identifier: LGPL-2.1-or-later
#include "component/redirecthandler.h"
#include "interface/devparamfromclient.h"
#include "worker/portchannelglue.h"
#include "worker/workerbench.h"

#include <QCoreApplication>
#include <QDir>
#include <QMetaMethod>
#include <QRegularExpression>

#include <memory>

namespace {

/// What "redirInit" was given.
struct Start
{
    SendCallback send;
    EventCallback notify;
    std::string vmId;
    std::string configPath;
};

class Lifecycle : public WorkerBench
{
protected:
    explicit Lifecycle(Loaded loaded = Loaded::Yes) : WorkerBench(loaded)
    {
        script.init = [this](SendCallback send, EventCallback notify, std::string vmId, std::string configPath) {
            starts.push_back({std::move(send), std::move(notify), std::move(vmId), std::move(configPath)});
            return starts.size() <= acceptedStarts;
        };
    }

    void setEventCallback()
    {
        worker.setEventCallback([this](void *, RedirEvent event, const char *, int) { eventsSeen.push_back(event); });
    }

    QStringList linesOf(const char *method) const
    {
        return log.lines().filter(
            QRegularExpression(QStringLiteral("^[a-z]+: (\\[ %1 \\]|DEVICE_REDIR %1) ").arg(QLatin1String(method))));
    }

    static std::string configPath()
    {
        return (QCoreApplication::applicationDirPath() + QStringLiteral("/Device Redirect/config.json")).toStdString();
    }

    std::vector<Start> starts;
    std::size_t acceptedStarts = 1000;
    std::vector<int> eventsSeen;
};

class BeforeLoading : public Lifecycle
{
protected:
    BeforeLoading() : Lifecycle(Loaded::No) { }
};

const char method[] = "onLoadDevRedirComponentByWorker";

} // namespace

TEST_F(BeforeLoading, loading_the_library_says_so_and_makes_the_component_reachable)
{
    EXPECT_FALSE(worker.excuteRedirectCmd(QStringLiteral("{}")));
    log.clear();
    worker.onLoadDynamicLibByWorker();
    EXPECT_EQ(log.lines().value(0), QStringLiteral("debug: load dynamic Lib"));
    EXPECT_TRUE(worker.excuteRedirectCmd(QStringLiteral("{}")));
}

TEST_F(BeforeLoading, commands_are_refused_and_the_signals_say_so)
{
    worker.onShareDeviceByWorker(deviceOfClass(DISKRDR));
    worker.onShareDeviceByWorker(deviceOfClass(USBRDR));
    worker.onUnShareDeviceByWorker(deviceOfClass(USBRDR));
    worker.onUnShareAllByWorker();
    EXPECT_EQ(
        events.all(),
        (std::vector<std::string>{"shareDeviceResult(2-1.3, false)", "diskMapResultInUsb(2-1.3-POS, Map, false)",
                                  "unRedirectDeviceByIdResult(2-1.3, false)", "unRedirectDeviceAllResult(false)"}));
}

TEST_F(BeforeLoading, starting_the_component_fails_with_a_critical_line)
{
    setEventCallback();
    worker.onLoadDevRedirComponentByWorker(QStringLiteral("vm-7"));
    EXPECT_TRUE(log.has(moduleLine("critical", method, QStringLiteral(" load Redir Component fail!"))));
    worker.onLoadDevRedirComponentByWorker(QStringLiteral("virApp"));
    EXPECT_TRUE(log.has(traceLine("critical", "loadDevRedirComponentByVirApp",
                                  QStringLiteral(" load Redir Component fail By virApp!"))));
}

TEST_F(BeforeLoading, the_handler_and_the_quit_flag_exist_once_the_library_is_in_memory)
{
    EXPECT_NE(DevRedirectWorker::m_redirectHandler, nullptr);
    EXPECT_FALSE(DevRedirectWorker::m_bQuit);
}

TEST_F(Lifecycle, the_configuration_file_is_found_beside_the_executable)
{
    bool ok = true;
    EXPECT_EQ(worker.getConfigFilePath(ok),
              QCoreApplication::applicationDirPath() + QDir::separator() + QStringLiteral("Device Redirect")
                  + QDir::separator() + QStringLiteral("config.json"));
    EXPECT_TRUE(ok);
    EXPECT_EQ(log.lines(), QStringList());
}

TEST_F(Lifecycle, finding_the_configuration_file_never_sets_ok_to_true)
{
    bool ok = false;
    worker.getConfigFilePath(ok);
    EXPECT_FALSE(ok);
}

TEST_F(Lifecycle, the_component_is_started_with_a_way_to_send_the_event_sink_the_machine_and_the_configuration)
{
    setEventCallback();
    worker.onLoadDevRedirComponentByWorker(QStringLiteral("vm-7"));

    ASSERT_EQ(starts.size(), 1u);
    EXPECT_EQ(starts[0].vmId, "vm-7");
    EXPECT_EQ(starts[0].configPath, configPath());
    ASSERT_TRUE(starts[0].send);
    ASSERT_TRUE(starts[0].notify);
    starts[0].notify(nullptr, RedirEvent(41), "", 0);
    EXPECT_EQ(eventsSeen, std::vector<int>{41});
    EXPECT_EQ(linesOf(method),
              (QStringList{QStringLiteral("info: [ onLoadDevRedirComponentByWorker ] vmId   \"vm-7\""),
                           traceLine("debug", method, QStringLiteral(" extrance."))}));
    EXPECT_EQ(events.all(), std::vector<std::string>());
}

TEST_F(Lifecycle, identifiers_reach_the_component_like_this)
{
    const struct
    {
        QString vmId;
        std::string received;
    } table[] = {
        {QString(), "DEBUG"},
        {QStringLiteral(""), "DEBUG"},
        {QStringLiteral(" "), " "},
        {QStringLiteral("vm-7"), "vm-7"},
        {QStringLiteral("VirApp"), "VirApp"},
        {QStringLiteral("virapp"), "virapp"},
        {QStringLiteral("ShareDesk"), "ShareDesk"},
        {QStringLiteral("virApp "), "virApp "},
        {QStringLiteral("debug"), "debug"},
        {QString::fromUtf8("vm-\xc3\xbc"), QString::fromUtf8("vm-\xc3\xbc").toLocal8Bit().toStdString()},
    };
    setEventCallback();
    for (const auto &row : table) {
        starts.clear();
        worker.onLoadDevRedirComponentByWorker(row.vmId);
        ASSERT_EQ(starts.size(), 1u) << row.received;
        EXPECT_EQ(starts[0].vmId, row.received);
        EXPECT_TRUE(starts[0].notify) << row.received;
        EXPECT_TRUE(starts[0].send) << row.received;
    }
}

TEST_F(Lifecycle, an_empty_identifier_is_logged_as_critical_and_the_component_starts_all_the_same)
{
    setEventCallback();
    for (const QString &vmId : {QString(), QStringLiteral("")}) {
        log.clear();
        worker.onLoadDevRedirComponentByWorker(vmId);
        EXPECT_EQ(
            linesOf(method),
            (QStringList{QStringLiteral("info: [ onLoadDevRedirComponentByWorker ] vmId   \"\""),
                         traceLine("debug", method, QStringLiteral(" extrance.")),
                         moduleLine("critical", method,
                                    QStringLiteral("load devRedir Component by worker failed: vm Id is null!"))}));
    }
    EXPECT_EQ(starts.size(), 2u);
}

TEST_F(Lifecycle, without_an_event_callback_the_component_is_not_started_for_a_machine)
{
    worker.onLoadDevRedirComponentByWorker(QStringLiteral("vm-7"));
    EXPECT_EQ(starts.size(), 0u);
    EXPECT_EQ(linesOf(method).value(2),
              moduleLine("critical", method,
                         QStringLiteral("load devRedir Component by worker failed: notifyDevRedirEvent is null!")));
    EXPECT_EQ(linesOf(method).size(), 3);

    setEventCallback();
    worker.setEventCallback(EventCallback());
    worker.onLoadDevRedirComponentByWorker(QStringLiteral("vm-7"));
    EXPECT_EQ(starts.size(), 0u);
}

TEST_F(Lifecycle, an_empty_identifier_without_an_event_callback_logs_both_reasons)
{
    worker.onLoadDevRedirComponentByWorker(QString());
    EXPECT_EQ(starts.size(), 0u);
    EXPECT_EQ(
        linesOf(method).mid(2),
        (QStringList{
            moduleLine("critical", method, QStringLiteral("load devRedir Component by worker failed: vm Id is null!")),
            moduleLine("critical", method,
                       QStringLiteral("load devRedir Component by worker failed: notifyDevRedirEvent is null!"))}));
}

TEST_F(Lifecycle, a_component_that_refuses_to_start_is_logged_and_no_signal_comes)
{
    acceptedStarts = 0;
    setEventCallback();
    worker.onLoadDevRedirComponentByWorker(QStringLiteral("vm-7"));
    EXPECT_EQ(linesOf(method).mid(2),
              QStringList{moduleLine("critical", method, QStringLiteral(" load Redir Component fail!"))});
    EXPECT_EQ(events.all(), std::vector<std::string>());
}

TEST_F(Lifecycle, the_two_views_start_the_component_without_callbacks_even_if_the_host_has_set_them)
{
    for (const bool withCallbacks : {false, true}) {
        if (withCallbacks) {
            setEventCallback();
            worker.setSendDevRedirectMsgToSpiceCallback([](void *, char *, int length) { return length; });
        }
        for (const char *vmId : {"virApp", "shareDesk"}) {
            starts.clear();
            log.clear();
            worker.onLoadDevRedirComponentByWorker(QLatin1String(vmId));
            ASSERT_EQ(starts.size(), 1u) << vmId;
            EXPECT_EQ(starts[0].vmId, vmId);
            EXPECT_EQ(starts[0].configPath, configPath());
            EXPECT_FALSE(starts[0].send) << vmId;
            EXPECT_FALSE(starts[0].notify) << vmId;
            EXPECT_EQ(
                linesOf(method),
                (QStringList{
                    QStringLiteral("info: [ onLoadDevRedirComponentByWorker ] vmId   \"%1\"").arg(QLatin1String(vmId)),
                    moduleLine("info", method, QStringLiteral(" vmId: virApp or shareDesk"))}));
            EXPECT_EQ(linesOf("loadDevRedirComponentByVirApp"),
                      QStringList{traceLine("info", "loadDevRedirComponentByVirApp",
                                            QStringLiteral(" load Redir Component success By virApp!"))});
        }
    }
    EXPECT_EQ(events.all(), std::vector<std::string>());
}

TEST_F(Lifecycle, a_component_that_refuses_to_start_for_a_view_is_logged)
{
    acceptedStarts = 0;
    worker.loadDevRedirComponentByVirApp(QStringLiteral("shareDesk"));
    EXPECT_EQ(starts.size(), 1u);
    EXPECT_EQ(linesOf("loadDevRedirComponentByVirApp"),
              QStringList{traceLine("critical", "loadDevRedirComponentByVirApp",
                                    QStringLiteral(" load Redir Component fail By virApp!"))});
    EXPECT_EQ(events.all(), std::vector<std::string>());
}

TEST_F(Lifecycle, a_new_callback_replaces_and_frees_the_previous_one)
{
    auto first = std::make_shared<int>(1);
    auto second = std::make_shared<int>(2);
    const std::weak_ptr<int> oldEvent = first;
    const std::weak_ptr<int> oldSend = second;
    worker.setEventCallback([first = std::move(first)](void *, RedirEvent, const char *, int) {});
    worker.setSendDevRedirectMsgToSpiceCallback([second = std::move(second)](void *, char *, int) { return 0; });
    EXPECT_FALSE(oldEvent.expired());
    EXPECT_FALSE(oldSend.expired());

    setEventCallback();
    worker.setSendDevRedirectMsgToSpiceCallback(SendCallback());
    EXPECT_TRUE(oldEvent.expired());
    EXPECT_TRUE(oldSend.expired());
}

TEST_F(Lifecycle, the_component_gets_a_copy_of_the_callback_that_a_later_one_does_not_change)
{
    setEventCallback();
    worker.onLoadDevRedirComponentByWorker(QStringLiteral("vm-7"));
    worker.setEventCallback(EventCallback());
    ASSERT_EQ(starts.size(), 1u);
    starts[0].notify(nullptr, RedirEvent(5), "", 0);
    EXPECT_EQ(eventsSeen, std::vector<int>{5});
}

TEST_F(Lifecycle, what_the_component_sends_is_dropped_while_the_quit_flag_is_set)
{
    setEventCallback();
    worker.onLoadDevRedirComponentByWorker(QStringLiteral("vm-7"));
    ASSERT_EQ(starts.size(), 1u);
    worker.setQuitFlag(true);
    char message[] = "abc";
    log.clear();
    EXPECT_EQ(starts[0].send(message, message, 3), -1);
    EXPECT_EQ(log.lines(),
              QStringList{
                  moduleLine("info", "sendDevRedirectMsgToSpice", QStringLiteral("app is exiting, ignore message."))});
}

TEST_F(Lifecycle, the_quit_flag_of_one_worker_is_that_of_all)
{
    DevRedirectWorker other(nullptr);
    char message[] = "abc";
    other.setQuitFlag(true);
    EXPECT_TRUE(DevRedirectWorker::m_bQuit);
    EXPECT_EQ(sendDevRedirectMsgToSpice(message, message, 3), -1);
    worker.setQuitFlag(false);
    EXPECT_FALSE(DevRedirectWorker::m_bQuit);
    {
        DevRedirectWorker third(nullptr);
        third.setQuitFlag(true);
    }
    EXPECT_TRUE(DevRedirectWorker::m_bQuit);
}

TEST_F(Lifecycle, the_component_stays_loaded_when_a_worker_dies)
{
    auto other = std::make_unique<DevRedirectWorker>(nullptr);
    RedirectHandler *const handler = DevRedirectWorker::m_redirectHandler;
    EXPECT_TRUE(other->excuteRedirectCmd(QStringLiteral("{}")));
    script.forgetCalls();
    other.reset();
    EXPECT_EQ(script.calls(), std::vector<std::string>());
    EXPECT_EQ(DevRedirectWorker::m_redirectHandler, handler);
    EXPECT_TRUE(worker.excuteRedirectCmd(QStringLiteral("{}")));
}

TEST_F(Lifecycle, a_worker_frees_its_callbacks_when_it_dies)
{
    auto token = std::make_shared<int>(1);
    const std::weak_ptr<int> held = token;
    {
        DevRedirectWorker other(nullptr);
        other.setEventCallback([token = std::move(token)](void *, RedirEvent, const char *, int) {});
        EXPECT_FALSE(held.expired());
    }
    EXPECT_TRUE(held.expired());
}

TEST_F(Lifecycle, two_workers_keep_addresses_of_their_own)
{
    DevRedirectWorker other(nullptr);
    other.setWorkerClientparam({QStringLiteral("192.0.2.1"), QStringLiteral("192.0.2.2")});
    const QString text = worker.structCtrlCommand(QString(), QString(), QStringLiteral("share"), ExterDeviceInfo());
    EXPECT_FALSE(text.contains(QStringLiteral("192.0.2.")));
}

TEST_F(Lifecycle, a_reset_unshares_everything_and_then_publishes_the_mapped_list)
{
    QList<ExterDeviceInfo> mapped = devicesWithIds({QStringLiteral("a"), QStringLiteral("b")});
    QList<ExterDeviceInfo> latest = devicesWithIds({QStringLiteral("c")});
    registry.setMapsDevListInfo(mapped);
    registry.setDevListInfo(latest);
    worker.onResetParametersByThread();
    EXPECT_EQ(events.all(),
              (std::vector<std::string>{"unRedirectDeviceAllResult(true)", "deviceListResult([a b], true)"}));
    ASSERT_EQ(script.commands().size(), 1u);
    EXPECT_NE(script.commands()[0].find(R"("command":"unshareall")"), std::string::npos);
}

TEST_F(Lifecycle, a_reset_without_mapped_devices_publishes_an_empty_list_with_a_false_status)
{
    QList<ExterDeviceInfo> latest = devicesWithIds({QStringLiteral("c")});
    registry.setDevListInfo(latest);
    script.ctrl = returning(3);
    worker.onResetParametersByThread();
    EXPECT_EQ(events.all(),
              (std::vector<std::string>{"unRedirectDeviceAllResult(false)", "deviceListResult([], false)"}));
}

TEST_F(Lifecycle, setting_the_parameters_republishes_from_the_start_and_every_time)
{
    worker.setParameters();
    worker.setParameters();
    EXPECT_EQ(events.all(),
              (std::vector<std::string>{"unRedirectDeviceAllResult(true)", "deviceListResult([], false)",
                                        "unRedirectDeviceAllResult(true)", "deviceListResult([], false)"}));
}

TEST_F(Lifecycle, a_reset_logs_its_two_steps)
{
    worker.onResetParametersByThread();
    EXPECT_EQ(linesOf("setParameters"),
              (QStringList{moduleLine("debug", "setParameters", QStringLiteral("call UnShareAll")),
                           traceLine("debug", "setParameters", QStringLiteral(" auto refresh device list."))}));
}

TEST_F(Lifecycle, releasing_the_resources_stops_the_component)
{
    worker.onReleaseDeviceResourceByWorker();
    EXPECT_EQ(script.calls(), std::vector<std::string>{"redirDeinit"});
    EXPECT_EQ(events.all(), std::vector<std::string>());
}

TEST_F(Lifecycle, after_the_mapping_was_stopped_only_releasing_reaches_the_component)
{
    setEventCallback();
    worker.stopMappingFunctionByWorker();
    EXPECT_FALSE(worker.excuteRedirectCmd(QStringLiteral("{}")));
    worker.onLoadDevRedirComponentByWorker(QStringLiteral("vm-7"));
    EXPECT_TRUE(log.has(moduleLine("critical", method, QStringLiteral(" load Redir Component fail!"))));
    EXPECT_EQ(script.calls(), std::vector<std::string>());
    worker.onReleaseDeviceResourceByWorker();
    EXPECT_EQ(script.calls(), std::vector<std::string>{"redirDeinit"});
}

TEST(WorkerMetaObject, has_nine_signals_and_then_thirteen_slots)
{
    const struct
    {
        QMetaMethod::MethodType type;
        const char *signature;
        QList<QByteArray> names;
    } table[] = {
        {QMetaMethod::Signal, "deviceListResult(QList<ExterDeviceInfo>,bool)", {"devices", "status"}},
        {QMetaMethod::Signal, "redirectDeviceByIdResult(ExterDeviceInfo,bool)", {"device", "result"}},
        {QMetaMethod::Signal, "unRedirectDeviceByIdResult(ExterDeviceInfo,bool)", {"device", "status"}},
        {QMetaMethod::Signal, "unRedirectDeviceAllResult(bool)", {"status"}},
        {QMetaMethod::Signal, "sendMapCommandToVdiExterDevModel()", {}},
        {QMetaMethod::Signal, "diskMapResultInUsb(QString,QString,bool)", {"devName", "operateType", "status"}},
        {QMetaMethod::Signal, "shareDeviceResult(ExterDeviceInfo,bool)", {"device", "result"}},
        {QMetaMethod::Signal, "sendDevListInfoToVirApp(QList<ExterDeviceInfo>)", {"deviceInfos"}},
        {QMetaMethod::Signal, "sendDevListInfoToShareDesk(QList<ExterDeviceInfo>)", {"deviceInfos"}},
        {QMetaMethod::Slot, "onLoadDynamicLibByWorker()", {}},
        {QMetaMethod::Slot, "onLoadDevRedirComponentByWorker(QString)", {"vmId"}},
        {QMetaMethod::Slot,
         "onCheckRedirChannelByWorker(SpicePortChannel*,QString,bool)",
         {"channel", "channelName", "isOpened"}},
        {QMetaMethod::Slot, "onShareDeviceByWorker(ExterDeviceInfo)", {"device"}},
        {QMetaMethod::Slot, "onUnShareDeviceByWorker(ExterDeviceInfo)", {"device"}},
        {QMetaMethod::Slot, "onUnShareAllByWorker()", {}},
        {QMetaMethod::Slot, "onResetParametersByThread()", {}},
        {QMetaMethod::Slot, "onReleaseDeviceResourceByWorker()", {}},
        {QMetaMethod::Slot, "onNotifyEventHandler()", {}},
        {QMetaMethod::Slot, "onGetDevListAndMapping()", {}},
        {QMetaMethod::Slot, "stopMappingFunctionByWorker()", {}},
        {QMetaMethod::Slot, "onGetDevListByVirApp()", {}},
        {QMetaMethod::Slot, "onGetDevListByShareDesk()", {}},
    };
    const QMetaObject &meta = DevRedirectWorker::staticMetaObject;
    int index = meta.methodOffset();
    for (const auto &row : table) {
        const QMetaMethod declared = meta.method(index++);
        EXPECT_EQ(declared.methodSignature(), row.signature);
        EXPECT_EQ(declared.methodType(), row.type) << row.signature;
        EXPECT_EQ(declared.parameterNames(), row.names) << row.signature;
        EXPECT_EQ(declared.returnType(), int(QMetaType::Void)) << row.signature;
        EXPECT_EQ(declared.access(), QMetaMethod::Public) << row.signature;
    }
    EXPECT_EQ(meta.methodCount(), index);
    EXPECT_EQ(meta.propertyCount(), QObject::staticMetaObject.propertyCount());
}

TEST(WorkerMetaObject, answers_to_its_own_name_and_that_of_its_base)
{
    DevRedirectWorker worker(nullptr);
    EXPECT_STREQ(worker.metaObject()->className(), "DevRedirectWorker");
    EXPECT_EQ(worker.qt_metacast("DevRedirectWorker"), &worker);
    EXPECT_EQ(worker.qt_metacast("QObject"), static_cast<QObject *>(&worker));
    EXPECT_EQ(worker.qt_metacast("DevRedirectInterface"), nullptr);
    EXPECT_EQ(worker.metaObject()->superClass(), &QObject::staticMetaObject);
}
