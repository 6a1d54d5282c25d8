// SPDX-License-Identifier: LGPL-2.1-or-later
#include "interface/interfacebench.h"

namespace {

/// What the map callbacks, which are plain functions, have seen.
struct Mapped
{
    int calls = 0;
    std::string ids;
    bool gateWasOpen = false;
    QThread *thread = nullptr;
};
Mapped mapped;

class Queries : public InterfaceBench
{
protected:
    Queries() { mapped = Mapped(); }

    void store(const char *first, const char *second)
    {
        QList<ExterDeviceInfo> devices{device(first, "usbrdr"), device(second, "diskrdr")};
        registry.setDevListInfo(devices);
    }

    static void look(QList<ExterDeviceInfo> &devices)
    {
        ++mapped.calls;
        mapped.ids = idsOf(devices);
        mapped.gateWasOpen = DevRedirectManger::instance()->getIsHandlerNotifyEvent();
        mapped.thread = QThread::currentThread();
    }
};

} // namespace

TEST_F(Queries, a_known_device_is_returned_whole_and_nothing_is_logged)
{
    QList<ExterDeviceInfo> devices{device("a", "usbrdr")};
    devices[0].deviceName = QStringLiteral("A device");
    devices[0].functions.append(FunctionInfo{2, QStringLiteral("08"), 1});
    devices[0].status = 2;
    registry.setDevListInfo(devices);
    const ExterDeviceInfo found = redirect->getDeviceInfo(QStringLiteral("a"));
    EXPECT_EQ(found.deviceName, QStringLiteral("A device"));
    EXPECT_EQ(found.status, 2);
    ASSERT_EQ(found.functions.size(), 1);
    EXPECT_EQ(found.functions[0].founctionId, 2);
    EXPECT_EQ(log.lines(), QStringList());
}

TEST_F(Queries, an_unknown_or_empty_identifier_gives_a_default_record_and_one_warning)
{
    store("a", "b");
    for (const char *id : {"none", "", "A"}) {
        log.clear();
        const ExterDeviceInfo found = redirect->getDeviceInfo(QLatin1String(id));
        EXPECT_EQ(found.transportMode, QStringLiteral("spice"));
        EXPECT_EQ(found.getDevInfo(), ExterDeviceInfo().getDevInfo());
        for (const QString &text : {found.rdrName, found.context, found.deviceId, found.devicePosition,
                                    found.deviceName, found.vmId, found.spareTextA, found.spareTextB})
            EXPECT_EQ(text, QString());
        EXPECT_TRUE(found.functions.isEmpty());
        EXPECT_EQ(found.spareValueA, 1);
        EXPECT_TRUE(found.spareFlagB);
        EXPECT_EQ(log.lines(),
                  QStringList{moduleLine("warning", "getDeviceInfo",
                                         QStringLiteral(" Fail to find device infomation, deviceId: ")
                                             + quoted(QLatin1String(id)))});
    }
}

TEST_F(Queries, a_device_is_looked_up_in_the_latest_list_and_not_in_the_mapped_one)
{
    QList<ExterDeviceInfo> list{device("mapped", "usbrdr")};
    registry.setMapsDevListInfo(list);
    EXPECT_EQ(redirect->getDeviceInfo(QStringLiteral("mapped")).deviceId, QString());
}

TEST_F(Queries, the_device_list_is_the_mapped_one)
{
    store("a", "b");
    EXPECT_EQ(idsOf(redirect->getDeviceList()), "[]");
    QList<ExterDeviceInfo> list{device("m", "usbrdr"), device("m", "usbrdr")};
    registry.setMapsDevListInfo(list);
    log.clear();
    EXPECT_EQ(idsOf(redirect->getDeviceList()), "[m m]");
    EXPECT_EQ(log.lines().value(0),
              moduleLine("debug", "getMapDevListInfo", QStringLiteral(" Print device map list, list size =  2")));
}

TEST_F(Queries, asking_for_the_list_logs_and_then_emits_the_request)
{
    const QString asked =
        moduleLine("debug", "getDeviceListFromUniqueFrame", QStringLiteral(" emit getDeviceListAndMapping message."));
    std::vector<bool> loggedBefore;
    QObject::connect(redirect.get(), &DevRedirectInterface::getDevListAndMapping, &listener,
                     [&] { loggedBefore.push_back(log.has(asked)); });
    redirect->sendMapCommandByDevModel(look);
    script.ctrl = [](const std::string &, char *, int &) { return 1; };
    redirect->getDeviceListFromUniqueFrame();
    EXPECT_EQ(loggedBefore, std::vector<bool>{true});
    EXPECT_EQ(log.count(asked), 1);
    waitForWorker();
    EXPECT_EQ(script.commands(), std::vector<std::string>(2, R"({"command":"list"})"));
}

TEST_F(Queries, a_fetched_list_goes_through_the_map_callback_on_the_hosts_thread_and_becomes_the_device_list)
{
    redirect->sendMapCommandByDevModel([](QList<ExterDeviceInfo> &devices) {
        look(devices);
        devices.removeFirst();
        devices.append(device("added", "camrdr"));
    });
    script.ctrl = Component::listing(Component::listDocument({R"("deviceId":"a")", R"("deviceId":"b")"}));
    redirect->getDeviceListFromUniqueFrame();
    ASSERT_TRUE(waitFor([] { return mapped.calls > 0; }));
    EXPECT_EQ(mapped.thread, QThread::currentThread());
    EXPECT_EQ(mapped.ids, "[a b]");
    EXPECT_TRUE(mapped.gateWasOpen) << "armed again before the callback runs";
    EXPECT_EQ(idsOf(redirect->getDeviceList()), "[b added]");
    EXPECT_EQ(idsOf(registry.getDevListInfo()), "[a b]") << "the callback changed a copy";
    EXPECT_TRUE(registry.getIsHandlerNotifyEvent());
}

TEST_F(Queries, lists_that_come_before_the_host_has_handled_the_first_give_one_callback_with_the_newest)
{
    redirect->sendMapCommandByDevModel(look);
    script.ctrl = Component::listing(Component::listDocument({R"("deviceId":"old")"}));
    redirect->getDeviceListFromUniqueFrame();
    waitForWorker();
    script.ctrl = Component::listing(Component::listDocument({R"("deviceId":"new")"}));
    redirect->getDeviceListFromUniqueFrame();
    waitForWorker();
    EXPECT_EQ(mapped.calls, 0);
    ASSERT_TRUE(waitFor([] { return mapped.calls > 0; }));
    EXPECT_EQ(mapped.ids, "[new]");
    QCoreApplication::processEvents();
    EXPECT_EQ(mapped.calls, 1);

    redirect->getDeviceListFromUniqueFrame();
    EXPECT_TRUE(waitFor([] { return mapped.calls == 2; })) << "the gate was armed again";
}

TEST_F(Queries, the_slot_hands_the_latest_list_to_the_callback_and_stores_what_it_leaves)
{
    store("a", "b");
    registry.setIsHandlerNotifyEvent(false);
    redirect->sendMapCommandByDevModel([](QList<ExterDeviceInfo> &devices) {
        look(devices);
        devices[1].deviceName = QStringLiteral("changed");
    });
    redirect->onSendMapCommandByDevRedInter();
    EXPECT_EQ(mapped.ids, "[a b]");
    EXPECT_TRUE(mapped.gateWasOpen);
    EXPECT_TRUE(registry.getIsHandlerNotifyEvent());
    ASSERT_EQ(redirect->getDeviceList().size(), 2);
    EXPECT_EQ(redirect->getDeviceList()[1].deviceName, QStringLiteral("changed"));
    EXPECT_EQ(registry.getDevListInfo()[1].deviceName, QString());
}

TEST_F(Queries, the_mapped_list_is_not_touched_while_the_callback_runs)
{
    static std::string during;
    store("a", "b");
    QList<ExterDeviceInfo> before{device("before", "usbrdr")};
    registry.setMapsDevListInfo(before);
    redirect->sendMapCommandByDevModel(
        [](QList<ExterDeviceInfo> &) { during = idsOf(DevRedirectManger::instance()->getMapDevListInfo()); });
    redirect->onSendMapCommandByDevRedInter();
    EXPECT_EQ(during, "[before]");
    EXPECT_EQ(idsOf(redirect->getDeviceList()), "[a b]");
}

TEST_F(Queries, a_callback_that_empties_the_list_empties_the_mapped_list)
{
    store("a", "b");
    redirect->sendMapCommandByDevModel(look);
    redirect->onSendMapCommandByDevRedInter();
    ASSERT_EQ(redirect->getDeviceList().size(), 2);
    redirect->sendMapCommandByDevModel([](QList<ExterDeviceInfo> &devices) { devices.clear(); });
    redirect->onSendMapCommandByDevRedInter();
    EXPECT_TRUE(redirect->getDeviceList().isEmpty());
    EXPECT_EQ(registry.getDevListInfo().size(), 2);
}

TEST_F(Queries, a_callback_that_throws_is_reported_and_what_it_left_becomes_the_device_list)
{
    store("a", "b");
    for (const auto thrower : {+[](QList<ExterDeviceInfo> &) { throw std::runtime_error("the host's trouble"); },
                               +[](QList<ExterDeviceInfo> &) { throw 5; }}) {
        redirect->sendMapCommandByDevModel(thrower);
        log.clear();
        redirect->onSendMapCommandByDevRedInter();
        const QStringList lines = log.linesWith(QStringLiteral("critical: "));
        ASSERT_EQ(lines.size(), 1);
        EXPECT_TRUE(lines[0].startsWith(
            moduleLine("critical", "onSendMapCommandByDevRedInter", QStringLiteral("exception from the map callback"))))
            << lines[0].toStdString();
        EXPECT_EQ(idsOf(redirect->getDeviceList()), "[a b]");
    }
    redirect->sendMapCommandByDevModel(look);
    script.ctrl = Component::listing(Component::listDocument({R"("deviceId":"c")"}));
    redirect->getDeviceListFromUniqueFrame();
    EXPECT_TRUE(waitFor([] { return mapped.ids == "[c]"; })) << "lists are published as before";
}

TEST_F(Queries, a_null_callback_is_refused_and_the_earlier_one_stays)
{
    store("a", "b");
    redirect->sendMapCommandByDevModel(look);
    EXPECT_EQ(log.lines(), QStringList());
    redirect->sendMapCommandByDevModel(nullptr);
    EXPECT_EQ(log.lines(),
              QStringList{moduleLine("critical", "sendMapCommandByDevModel", QStringLiteral("invalid input."))});
    redirect->onSendMapCommandByDevRedInter();
    EXPECT_EQ(mapped.calls, 1);
}

TEST_F(Queries, a_later_callback_replaces_the_earlier_one)
{
    redirect->sendMapCommandByDevModel(look);
    redirect->sendMapCommandByDevModel([](QList<ExterDeviceInfo> &) { mapped.calls += 100; });
    redirect->onSendMapCommandByDevRedInter();
    EXPECT_EQ(mapped.calls, 100);
}

TEST_F(Queries, usb_information_is_passed_to_the_worker_on_the_callers_thread_between_two_lines)
{
    QList<QThread *> threads;
    script.ctrl = [&threads](const std::string &, char *, int &length) {
        threads.append(QThread::currentThread());
        length = 0;
        return 0;
    };
    registry.setIsHandlerNotifyEvent(false);
    for (const char *text : {"Prod:dev1:1:17", ""}) {
        log.clear();
        threads.clear();
        script.forgetCalls();
        redirect->notifyUsbInfo(QLatin1String(text));
        EXPECT_EQ(log.lines().first(),
                  traceLine("info", "notifyUsbInfo",
                            QStringLiteral(" DevRedirectInterface:strUsbInfos:  ") + quoted(QLatin1String(text))));
        EXPECT_EQ(log.lines().last(),
                  traceLine("info", "notifyUsbInfo", QStringLiteral("dlxUsb usbInfos do not notify eventHandler.")));
        EXPECT_TRUE(log.has(
            moduleLine("info", "notifyUsbInfo", QStringLiteral("dlx before get device list for devredirectworker!"))));
        EXPECT_EQ(script.commands().back(), R"({"command":"list"})");
        EXPECT_EQ(script.commands().size(), *text ? 2u : 1u);
        for (QThread *thread : threads)
            EXPECT_EQ(thread, QThread::currentThread());
    }
}

TEST_F(Queries, the_last_line_about_usb_information_is_written_even_if_the_component_refuses)
{
    script.ctrl = [](const std::string &, char *, int &) { return 1; };
    redirect->notifyUsbInfo(QStringLiteral("Prod:dev1:1:17"));
    EXPECT_EQ(log.lines().last(),
              traceLine("info", "notifyUsbInfo", QStringLiteral("dlxUsb usbInfos do not notify eventHandler.")));
}

TEST_F(Queries, a_camera_policy_is_logged_as_a_list_and_passed_on_at_once)
{
    const struct
    {
        QList<QString> policy;
        const char *logged;
        const char *command;
    } table[] = {
        {{QStringLiteral("1280x720"), QStringLiteral("30")},
         "(\"1280x720\", \"30\")",
         R"({"command":"setpolicy","policy":["1280x720","30"],"rdrName":"camrdr"})"},
        {{}, "()", R"({"command":"setpolicy","policy":[],"rdrName":"camrdr"})"},
    };
    for (const auto &row : table) {
        log.clear();
        script.forgetCalls();
        redirect->sendConfigerInforToCamera(row.policy);
        EXPECT_EQ(log.lines().first(),
                  moduleLine("info", "sendConfigerInforToCamera",
                             QStringLiteral("devRedirect interface send configer info to camera, configerInfos:  ")
                                 + QLatin1String(row.logged)));
        EXPECT_EQ(script.commands(), std::vector<std::string>{row.command});
    }
}
