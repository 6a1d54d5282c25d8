// SPDX-License-Identifier: LGPL-2.1-or-later
#include "interface/interfacebench.h"

#include <functional>

namespace {

class Operations : public InterfaceBench
{
protected:
    Operations()
    {
        using Interface = DevRedirectInterface;
        Interface *const i = redirect.get();
        const auto direct = Qt::DirectConnection;
        const auto noteDevice = [this](const char *name) {
            return [this, name](const ExterDeviceInfo &d) {
                emitted.add(std::string(name) + " " + d.deviceId.toStdString());
            };
        };
        const auto noteName = [this](const char *name) { return [this, name] { emitted.add(name); }; };
        QObject::connect(i, &Interface::redirectDeviceByIdByThread, &listener, noteDevice("redirectDeviceByIdByThread"),
                         direct);
        QObject::connect(i, &Interface::unRedirectDeviceByIdByThread, &listener,
                         noteDevice("unRedirectDeviceByIdByThread"), direct);
        QObject::connect(i, &Interface::unRedirectDeviceAllByThread, &listener, noteName("unRedirectDeviceAllByThread"),
                         direct);
        QObject::connect(i, &Interface::resetParametersByThread, &listener, noteName("resetParametersByThread"),
                         direct);
        QObject::connect(i, &Interface::realeaseDeviceResourceByThread, &listener,
                         noteName("realeaseDeviceResourceByThread"), direct);
        QObject::connect(i, &Interface::stopMappingFunctionByThread, &listener, noteName("stopMappingFunctionByThread"),
                         direct);

        QList<ExterDeviceInfo> devices{device("usb", "usbrdr"), device("disk", "diskrdr")};
        registry.setDevListInfo(devices);
        script.forgetCalls();
    }

    EventList<std::string> emitted;
};

const QString entered = moduleLine("debug", "deviceOperate", QStringLiteral(" enter to call function. "));

QString notFound(const char *id)
{
    return moduleLine("warning", "getDeviceInfo",
                      QStringLiteral(" Fail to find device infomation, deviceId: ") + quoted(QLatin1String(id)));
}

QString unknownType(const char *type)
{
    return moduleLine("warning", "deviceOperate",
                      QStringLiteral(" Redirect device  unkown operate type. operate type =  ")
                          + quoted(QLatin1String(type)));
}

} // namespace

TEST_F(Operations, each_logs_its_text_and_emits_its_request)
{
    const ExterDeviceInfo camera = device("cam", "camrdr");
    const struct
    {
        std::function<void(DevRedirectInterface &)> operate;
        const char *text;
        const char *request;
    } table[] = {
        {[&](DevRedirectInterface &i) { i.redirectDeviceById(camera); },
         " Redirect device by deviceID, emit redirectDeviceById message, device.rdrName: camrdr",
         "redirectDeviceByIdByThread cam"},
        {[&](DevRedirectInterface &i) { i.unRedirectDeviceById(camera); },
         " Cancle redirect device by deviceID, emit unRedirectDeviceById message, device.rdrName: camrdr",
         "unRedirectDeviceByIdByThread cam"},
        {[](DevRedirectInterface &i) { i.unRedirectDeviceAll(); },
         " Cancel redirect all device, emit unRedirectDeviceAll message. ", "unRedirectDeviceAllByThread"},
        {[](DevRedirectInterface &i) { i.vmRebootReset(); }, " Reset redirect Parameter, emit resetParameters message.",
         "resetParametersByThread"},
        {[](DevRedirectInterface &i) { i.realeaseDeviceResource(); },
         " Realease device resource, emit realeaseDeviceResource message.", "realeaseDeviceResourceByThread"},
        {[](DevRedirectInterface &i) { i.stopMappingFunctionByDevRedirInter(); },
         " Stop redirect mapping by device redirect internal, emit realeaseDeviceResource message. ",
         "stopMappingFunctionByThread"},
    };
    for (const auto &row : table) {
        log.clear();
        emitted.clear();
        row.operate(*redirect);
        waitForWorker();
        EXPECT_EQ(log.linesWith(QStringLiteral("[ infoLogOutput ]")), QStringList{limited(row.text)});
        EXPECT_EQ(emitted.all(), std::vector<std::string>{row.request});
    }
}

TEST_F(Operations, the_text_is_logged_before_the_request_is_emitted)
{
    qsizetype linesBefore = -1;
    QObject::connect(
        redirect.get(), &DevRedirectInterface::redirectDeviceByIdByThread, &listener,
        [&] { linesBefore = log.linesWith(QStringLiteral("[ infoLogOutput ]")).size(); }, Qt::DirectConnection);
    redirect->redirectDeviceById(ExterDeviceInfo());
    EXPECT_EQ(linesBefore, 1);
    EXPECT_TRUE(log.has(limited(" Redirect device by deviceID, emit redirectDeviceById message, device.rdrName: ")));
}

TEST_F(Operations, operating_by_identifier_follows_this_table)
{
    const struct
    {
        const char *id;
        const char *type;
        std::vector<std::string> requests;
        QStringList lines;
    } table[] = {
        {"usb", "share", {"redirectDeviceByIdByThread usb"}, {entered}},
        {"disk", "unshare", {"unRedirectDeviceByIdByThread disk"}, {entered}},
        {"usb", "Share", {}, {entered, unknownType("Share")}},
        {"usb", "UNSHARE", {}, {entered, unknownType("UNSHARE")}},
        {"usb", "share ", {}, {entered, unknownType("share ")}},
        {"usb", "", {}, {entered, unknownType("")}},
        {"usb", "unshareall", {}, {entered, unknownType("unshareall")}},
        {"none", "share", {"redirectDeviceByIdByThread "}, {entered, notFound("none")}},
        {"none", "unshare", {"unRedirectDeviceByIdByThread "}, {entered, notFound("none")}},
        {"none", "other", {}, {entered, notFound("none"), unknownType("other")}},
        {"USB", "share", {"redirectDeviceByIdByThread "}, {entered, notFound("USB")}},
        {"", "share", {"redirectDeviceByIdByThread "}, {entered, notFound("")}},
    };
    for (const auto &row : table) {
        emitted.clear();
        log.clear();
        redirect->deviceOperate(QLatin1String(row.id), QLatin1String(row.type));
        waitForWorker();
        EXPECT_EQ(emitted.all(), row.requests) << row.id << " " << row.type;
        EXPECT_EQ(log.linesWith(QStringLiteral("[ deviceOperate ]"))
                      + log.linesWith(QStringLiteral("[ getDeviceInfo ]")),
                  row.lines.filter(QStringLiteral("[ deviceOperate ]"))
                      + row.lines.filter(QStringLiteral("[ getDeviceInfo ]")))
            << row.id << " " << row.type;
    }
}

TEST_F(Operations, a_null_operation_type_is_logged_as_an_empty_one)
{
    redirect->deviceOperate(QStringLiteral("usb"), QString());
    EXPECT_TRUE(log.has(unknownType("")));
    EXPECT_EQ(emitted.count(), 0u);
}

TEST_F(Operations, an_unknown_device_is_shared_as_a_default_record)
{
    redirect->deviceOperate(QStringLiteral("none"), QStringLiteral("share"));
    waitForWorker();
    ASSERT_EQ(script.commands().size(), 1u);
    EXPECT_NE(script.commands()[0].find(R"("command":"share")"), std::string::npos);
    EXPECT_NE(script.commands()[0].find(R"("deviceId":"")"), std::string::npos);
    EXPECT_TRUE(log.has(limited(" Redirect device by deviceID, emit redirectDeviceById message, device.rdrName: ")));
}

TEST_F(Operations, a_known_device_is_shared_with_its_whole_record)
{
    redirect->deviceOperate(QStringLiteral("disk"), QStringLiteral("share"));
    waitForWorker();
    ASSERT_EQ(script.commands().size(), 1u);
    EXPECT_NE(script.commands()[0].find(R"("deviceId":"disk")"), std::string::npos);
    EXPECT_NE(script.commands()[0].find(R"("rdrName":"diskrdr")"), std::string::npos);
}

TEST_F(Operations, repeated_requests_are_not_filtered)
{
    redirect->redirectDeviceById(device("disk", "diskrdr"));
    redirect->redirectDeviceById(device("disk", "diskrdr"));
    waitForWorker();
    EXPECT_EQ(emitted.count(), 2u);
    EXPECT_EQ(script.commands().size(), 2u);
}

TEST_F(Operations, a_record_that_the_caller_changes_afterwards_is_sent_as_it_was)
{
    Hold hold;
    script.ctrl = std::ref(hold);
    redirect->unRedirectDeviceAll();
    ASSERT_TRUE(hold.waitUntilHeld());
    ExterDeviceInfo changing = device("before", "camrdr");
    redirect->redirectDeviceById(changing);
    changing.deviceId = QStringLiteral("after");
    hold.letGo();
    hold.letGo();
    waitForWorker();
    ASSERT_EQ(script.commands().size(), 2u);
    EXPECT_NE(script.commands()[1].find(R"("deviceId":"before")"), std::string::npos);
}

TEST_F(Operations, releasing_and_stopping_are_done_when_they_return)
{
    redirect->realeaseDeviceResource();
    EXPECT_EQ(script.calls(), std::vector<std::string>{"redirDeinit"});
    redirect->stopMappingFunctionByDevRedirInter();
    script.forgetCalls();
    EXPECT_EQ(redirect->checkRedirChannel("name", nullptr), 0);
    EXPECT_EQ(script.calls(), std::vector<std::string>());
    redirect->realeaseDeviceResource();
    EXPECT_EQ(script.calls(), std::vector<std::string>{"redirDeinit"}) << "the component can still be stopped";
}

TEST_F(Operations, results_come_back_on_the_hosts_thread_in_order)
{
    std::vector<std::string> results;
    DevRedirectInterface *const i = redirect.get();
    QObject::connect(i, &DevRedirectInterface::unRedirectDeviceAllResult, &listener,
                     [&](bool result) { results.push_back("all " + word(result)); });
    QObject::connect(i, &DevRedirectInterface::deviceListResultByThread, &listener,
                     [&](const QList<ExterDeviceInfo> &devices, bool status) {
                         results.push_back("list " + idsOf(devices) + " " + word(status));
                     });
    QObject::connect(i, &DevRedirectInterface::unRedirectDeviceByIdResult, &listener,
                     [&](const ExterDeviceInfo &d, bool status) {
                         results.push_back("unshared " + d.deviceId.toStdString() + " " + word(status));
                     });
    QList<ExterDeviceInfo> mapped{device("m", "usbrdr")};
    registry.setMapsDevListInfo(mapped);
    redirect->vmRebootReset();
    redirect->unRedirectDeviceById(device("d", "usbrdr"));
    ASSERT_TRUE(waitFor([&results] { return results.size() == 3; }));
    EXPECT_EQ(results, (std::vector<std::string>{"all true", "list [m] true", "unshared d true"}));
}

TEST_F(Operations, without_a_worker_unsharing_everything_logs_a_critical_line_and_emits_nothing)
{
    QThread *const thread = workerThread();
    thread->quit();
    ASSERT_TRUE(thread->wait(20000));
    log.clear();
    redirect->unRedirectDeviceAll();
    EXPECT_EQ(
        log.lines(),
        (QStringList{limited(" Cancel redirect all device, emit unRedirectDeviceAll message. "),
                     moduleLine("critical", "unRedirectDeviceAll", QStringLiteral("m_devRedirectWorker is null."))}));
    EXPECT_EQ(emitted.count(), 0u);
}

TEST_F(Operations, unsharing_everything_at_once_is_done_on_the_callers_thread_when_it_returns)
{
    QThread *ranOn = nullptr;
    script.ctrl = [&ranOn](const std::string &, char *, int &) {
        ranOn = QThread::currentThread();
        return 0;
    };
    bool result = false;
    QObject::connect(redirect.get(), &DevRedirectInterface::unRedirectDeviceAllResult, &listener,
                     [&result](bool success) { result = success; });
    redirect->syncUNRedirectDeviceAll();
    EXPECT_EQ(ranOn, QThread::currentThread());
    EXPECT_TRUE(result) << "the result is there before the call returns";
    ASSERT_EQ(script.commands().size(), 1u);
    EXPECT_NE(script.commands()[0].find(R"("command":"unshareall")"), std::string::npos);
    EXPECT_EQ(emitted.count(), 0u);
    EXPECT_EQ(log.linesWith(QStringLiteral("[ infoLogOutput ]")), QStringList());
}

TEST_F(Operations, unsharing_everything_at_once_does_not_wait_for_the_busy_worker)
{
    Hold hold;
    std::atomic<int> commands{0};
    script.ctrl = [&](const std::string &command, char *buffer, int &length) {
        return ++commands == 1 ? hold(command, buffer, length) : 0;
    };
    redirect->redirectDeviceById(device("a", "usbrdr"));
    ASSERT_TRUE(hold.waitUntilHeld());
    redirect->unRedirectDeviceById(device("b", "usbrdr")); // queued before the requests are cut off
    redirect->syncUNRedirectDeviceAll();
    EXPECT_EQ(commands, 2) << "it ran while the worker was held";
    hold.letGo();
    waitForWorker();
    EXPECT_EQ(commands, 3) << "what was queued before still runs";
}

TEST_F(Operations, unsharing_everything_at_once_cuts_off_exactly_eight_requests)
{
    redirect->setNotifyEventCallback([](void *, RedirEvent, const char *, int) {});
    redirect->sendMapCommandByDevModel([](QList<ExterDeviceInfo> &) {});
    using I = DevRedirectInterface;
    const struct
    {
        const char *name;
        std::function<void(I &)> emitIt;
        const char *call; ///< what reaches the component; null: nothing
    } table[] = {
        {"loadDevRedirComponentByThread", [](I &i) { Q_EMIT i.loadDevRedirComponentByThread(QStringLiteral("vm-7")); },
         nullptr},
        {"checkRedirChannelByThread",
         [](I &i) { Q_EMIT i.checkRedirChannelByThread(nullptr, QStringLiteral("name"), false); }, nullptr},
        {"redirectDeviceByIdByThread", [](I &i) { Q_EMIT i.redirectDeviceByIdByThread(ExterDeviceInfo()); }, nullptr},
        {"unRedirectDeviceByIdByThread", [](I &i) { Q_EMIT i.unRedirectDeviceByIdByThread(ExterDeviceInfo()); },
         nullptr},
        {"unRedirectDeviceAllByThread", [](I &i) { Q_EMIT i.unRedirectDeviceAllByThread(); }, nullptr},
        {"resetParametersByThread", [](I &i) { Q_EMIT i.resetParametersByThread(); }, nullptr},
        {"notifyEventHandler", [](I &i) { Q_EMIT i.notifyEventHandler(); }, nullptr},
        {"getDevListAndMapping", [](I &i) { Q_EMIT i.getDevListAndMapping(); }, nullptr},
        {"realeaseDeviceResourceByThread", [](I &i) { Q_EMIT i.realeaseDeviceResourceByThread(); }, "redirDeinit"},
        {"getDevListByVirApp", [](I &i) { Q_EMIT i.getDevListByVirApp(); }, "redirCtrl"},
        {"getDevListByShareDesk", [](I &i) { Q_EMIT i.getDevListByShareDesk(); }, "redirCtrl"},
    };
    for (const auto &row : table) {
        script.forgetCalls();
        row.emitIt(*redirect);
        waitForWorker();
        if (std::string(row.name) != "checkRedirChannelByThread") {
            EXPECT_FALSE(script.calls().empty()) << row.name << " works before";
        }
    }

    redirect->syncUNRedirectDeviceAll();
    for (const auto &row : table) {
        script.forgetCalls();
        row.emitIt(*redirect);
        waitForWorker();
        EXPECT_EQ(script.calls(), row.call ? std::vector<std::string>{row.call} : std::vector<std::string>())
            << row.name;
    }

    log.clear();
    Q_EMIT redirect->loadDynamicLib();
    EXPECT_EQ(log.lines().value(0), QStringLiteral("debug: load dynamic Lib"));

    script.forgetCalls();
    Q_EMIT redirect->myWatchMount();
    MountTable::change();
    EXPECT_TRUE(waitFor([this] { return !script.commands().empty(); }))
        << "a changed mount table still fetches the list";

    redirect->stopMappingFunctionByDevRedirInter();
    EXPECT_EQ(redirect->checkRedirChannel("name", nullptr), 0);
    EXPECT_TRUE(log.has(moduleLine("critical", "checkRedirChannel",
                                   QStringLiteral(" Fail to call redirCheck, due to that m_funcRedirCheck is NULL"))));
}

TEST_F(Operations, after_unsharing_everything_at_once_the_operations_still_log_and_emit)
{
    redirect->syncUNRedirectDeviceAll();
    script.forgetCalls();
    log.clear();
    redirect->unRedirectDeviceAll();
    redirect->redirectDeviceById(device("a", "usbrdr"));
    waitForWorker();
    EXPECT_EQ(script.calls(), std::vector<std::string>());
    EXPECT_EQ(emitted.all(), (std::vector<std::string>{"unRedirectDeviceAllByThread", "redirectDeviceByIdByThread a"}));
    EXPECT_TRUE(log.has(limited(" Cancel redirect all device, emit unRedirectDeviceAll message. ")));
}

TEST_F(Operations, unsharing_everything_at_once_can_be_called_twice)
{
    redirect->syncUNRedirectDeviceAll();
    redirect->syncUNRedirectDeviceAll();
    EXPECT_EQ(script.commands().size(), 2u);
}
