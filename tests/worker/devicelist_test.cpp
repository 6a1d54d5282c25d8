// SPDX-License-Identifier: LGPL-2.1-or-later
#include "worker/workerbench.h"

#include <climits>
#include <cstring>

namespace {

constexpr int FirstCapacity = 81920;
constexpr int SecondCapacity = 163840;

std::string listOf(const std::vector<std::string> &ids)
{
    std::vector<std::string> devices;
    for (const std::string &id : ids)
        devices.push_back("\"deviceId\":\"" + id + "\"");
    return Component::listDocument(devices);
}

struct Slot
{
    const char *method;
    void (DevRedirectWorker::*call)();
    const char *giveUpLevel;
    const char *giveUpText;
    const char *signal; ///< the one that a fetched list raises
};

const Slot mapping{"onGetDevListAndMapping", &DevRedirectWorker::onGetDevListAndMapping, "debug",
                   " can't mapping device, because buffer*2 is not enough,do nothing.",
                   "sendMapCommandToVdiExterDevModel()"};
const Slot event{"onNotifyEventHandler", &DevRedirectWorker::onNotifyEventHandler, "warning",
                 "can't notify redirect event , because buffer*2 is not enough, do nothing.",
                 "sendMapCommandToVdiExterDevModel()"};
const Slot virApp{"onGetDevListByVirApp", &DevRedirectWorker::onGetDevListByVirApp, "critical",
                  " buffer size double, but is still not enough.", "sendDevListInfoToVirApp([a b])"};
const Slot shareDesk{"onGetDevListByShareDesk", &DevRedirectWorker::onGetDevListByShareDesk, "critical",
                     " buffer size double, but is still not enough.", "sendDevListInfoToShareDesk([a b])"};
const Slot allSlots[] = {mapping, event, virApp, shareDesk};
const Slot mappingSlots[] = {mapping, event};
const Slot viewSlots[] = {virApp, shareDesk};

class DeviceList : public WorkerBench
{
protected:
    /// A component that refuses so many list commands and answers the others with \a document.
    void refuseFirst(std::size_t refusals, const std::string &document)
    {
        capacities.clear();
        script.ctrl = [this, refusals, document](const std::string &, char *buffer, int &length) {
            capacities.push_back(length);
            if (capacities.size() <= refusals)
                return 2;
            std::memcpy(buffer, document.data(), document.size());
            length = int(document.size());
            return 0;
        };
    }

    void run(const Slot &slot)
    {
        DevRedirectWorker *const onWorker = &worker;
        (onWorker->*slot.call)();
    }

    QStringList linesOf(const char *method) const
    {
        return log.linesWith(QStringLiteral("[ %1 ]").arg(QLatin1String(method)));
    }
    static QString line(const Slot &slot, const char *text)
    {
        return moduleLine("debug", slot.method, QLatin1String(text));
    }

    std::string storedIds() const { return idsOf(registry.getDevListInfo()); }

    std::vector<int> capacities; ///< of the buffers that the component was given
};

} // namespace

TEST_F(DeviceList, getting_the_list_succeeds_with_0_only_and_returns_the_length_of_the_text)
{
    for (const int result : {0, 1, 2, -1}) {
        std::vector<char> buffer(100);
        int length = int(buffer.size());
        script.ctrl = [result](const std::string &, char *bytes, int &size) {
            std::memcpy(bytes, "[]", 2);
            size = 2;
            return result;
        };
        EXPECT_EQ(worker.getDevList(buffer.data(), length), result == 0) << result;
        EXPECT_EQ(length, 2) << result;
        EXPECT_EQ(std::string(buffer.data(), 2), "[]") << result;
    }
}

TEST_F(DeviceList, getting_the_list_hands_the_capacity_on_and_is_logged_at_info_level)
{
    refuseFirst(0, "[]");
    std::vector<char> buffer(77);
    int length = int(buffer.size());
    worker.getDevList(buffer.data(), length);
    EXPECT_EQ(capacities, std::vector<int>{77});
    EXPECT_EQ(log.lines().value(0), moduleLine("info", "getDevList", QStringLiteral(" get DevList entrance.")));
}

TEST_F(DeviceList, the_first_buffer_is_enough_when_the_component_says_so)
{
    for (const Slot &slot : allSlots) {
        refuseFirst(0, listOf({"a", "b"}));
        registry.setIsHandlerNotifyEvent(true);
        events.clear();
        run(slot);
        EXPECT_EQ(capacities, std::vector<int>{FirstCapacity}) << slot.method;
        EXPECT_EQ(events.all(), std::vector<std::string>{slot.signal}) << slot.method;
    }
}

TEST_F(DeviceList, after_a_refusal_the_doubled_buffer_is_read_with_the_length_that_the_component_returned)
{
    const std::string document = listOf({"a", "b"});
    for (const Slot &slot : allSlots) {
        registry.setIsHandlerNotifyEvent(true);
        events.clear();
        log.clear();
        capacities.clear();
        script.ctrl = [&](const std::string &, char *buffer, int &length) {
            capacities.push_back(length);
            if (capacities.size() == 1) {
                length = 3;
                return 2;
            }
            const std::string written = document + " and something that does not belong to it";
            std::memcpy(buffer, written.c_str(), written.size() + 1);
            length = int(document.size());
            return 0;
        };
        run(slot);
        EXPECT_EQ(capacities, (std::vector<int>{FirstCapacity, SecondCapacity})) << slot.method;
        EXPECT_EQ(events.all(), std::vector<std::string>{slot.signal}) << slot.method;
        EXPECT_EQ(log.count(line(slot, " buffer is not enough,try againt.")), 1) << slot.method;
        EXPECT_FALSE(log.has(moduleLine(slot.giveUpLevel, slot.method, QLatin1String(slot.giveUpText)))) << slot.method;
    }
}

TEST_F(DeviceList, a_list_that_fills_the_doubled_buffer_is_read_whole)
{
    std::string document = listOf({"a", "b"});
    document.resize(SecondCapacity, ' ');
    refuseFirst(1, document);
    run(mapping);
    EXPECT_EQ(storedIds(), "[a b]");
    EXPECT_TRUE(log.has(moduleLine("debug", "mappingDeviceInDevList", QStringLiteral("map devList. length:  163840"))));
}

TEST_F(DeviceList, after_a_second_refusal_the_slot_gives_up_and_changes_nothing)
{
    QList<ExterDeviceInfo> before = devicesWithIds({QStringLiteral("old")});
    for (const Slot &slot : allSlots) {
        for (const bool gate : {true, false}) {
            registry.setDevListInfo(before);
            registry.setDevListJsonStr(QStringLiteral("old text"));
            registry.setIsHandlerNotifyEvent(gate);
            events.clear();
            log.clear();
            refuseFirst(2, listOf({"a"}));
            run(slot);
            EXPECT_EQ(capacities, (std::vector<int>{FirstCapacity, SecondCapacity})) << slot.method;
            EXPECT_EQ(events.all(), std::vector<std::string>()) << slot.method;
            EXPECT_EQ(storedIds(), "[old]") << slot.method;
            EXPECT_EQ(registry.getdevListJsonStr(), QStringLiteral("old text")) << slot.method;
            EXPECT_EQ(registry.getIsHandlerNotifyEvent(), gate) << slot.method;
            EXPECT_EQ(linesOf(slot.method).last(),
                      moduleLine(slot.giveUpLevel, slot.method, QLatin1String(slot.giveUpText)));
            EXPECT_EQ(log.linesWith(QStringLiteral("parseExternalDeviceList")), QStringList()) << slot.method;
        }
    }
}

TEST_F(DeviceList, without_a_component_the_slots_give_up)
{
    worker.stopMappingFunctionByWorker();
    for (const Slot &slot : allSlots) {
        run(slot);
        EXPECT_EQ(linesOf(slot.method).last(),
                  moduleLine(slot.giveUpLevel, slot.method, QLatin1String(slot.giveUpText)));
    }
    EXPECT_EQ(events.all(), std::vector<std::string>());
}

TEST_F(DeviceList, the_mapping_slot_logs_its_way)
{
    refuseFirst(0, listOf({"a"}));
    run(mapping);
    EXPECT_EQ(linesOf(mapping.method),
              (QStringList{line(mapping, " Get device list and mapping."),
                           line(mapping, " Get device list and mapping, function return.")}));
    refuseFirst(2, "");
    log.clear();
    run(mapping);
    EXPECT_EQ(linesOf(mapping.method),
              (QStringList{line(mapping, " Get device list and mapping."),
                           line(mapping, " buffer is not enough,try againt."), line(mapping, mapping.giveUpText)}));
}

TEST_F(DeviceList, the_event_slot_logs_its_way)
{
    refuseFirst(0, listOf({"a"}));
    run(event);
    EXPECT_EQ(linesOf(event.method),
              (QStringList{line(event, " enter to notify redirect event process."), line(event, " leave.")}));
    refuseFirst(2, "");
    log.clear();
    run(event);
    EXPECT_EQ(linesOf(event.method),
              (QStringList{line(event, " enter to notify redirect event process."),
                           line(event, " buffer is not enough,try againt."),
                           moduleLine("warning", event.method, QLatin1String(event.giveUpText))}));
}

TEST_F(DeviceList, both_view_slots_log_their_way_with_the_same_words)
{
    for (const Slot &slot : viewSlots) {
        refuseFirst(0, listOf({"a"}));
        log.clear();
        run(slot);
        EXPECT_EQ(linesOf(slot.method),
                  (QStringList{line(slot, " enter."), line(slot, " get devList Result:  true"),
                               line(slot, " list device list info by virApp."), line(slot, " leave.")}));
        refuseFirst(1, listOf({"a"}));
        log.clear();
        run(slot);
        EXPECT_EQ(linesOf(slot.method),
                  (QStringList{line(slot, " enter."), line(slot, " get devList Result:  false"),
                               line(slot, " buffer is not enough,try againt."),
                               line(slot, " list device list info by virApp."), line(slot, " leave.")}));
        refuseFirst(2, "");
        log.clear();
        run(slot);
        EXPECT_EQ(linesOf(slot.method),
                  (QStringList{line(slot, " enter."), line(slot, " get devList Result:  false"),
                               line(slot, " buffer is not enough,try againt."),
                               moduleLine("critical", slot.method, QLatin1String(slot.giveUpText))}));
    }
}

TEST_F(DeviceList, the_view_slots_leave_the_lists_and_the_gate_alone)
{
    QList<ExterDeviceInfo> latest = devicesWithIds({QStringLiteral("latest")});
    QList<ExterDeviceInfo> mapped = devicesWithIds({QStringLiteral("mapped")});
    for (const Slot &slot : viewSlots) {
        for (const bool gate : {true, false}) {
            registry.setDevListInfo(latest);
            registry.setMapsDevListInfo(mapped);
            registry.setDevListJsonStr(QStringLiteral("old text"));
            registry.setIsHandlerNotifyEvent(gate);
            events.clear();
            refuseFirst(0, listOf({"a", "b"}));
            run(slot);
            EXPECT_EQ(events.all(), std::vector<std::string>{slot.signal});
            EXPECT_EQ(storedIds(), "[latest]");
            EXPECT_EQ(idsOf(registry.getMapDevListInfo()), "[mapped]");
            EXPECT_EQ(registry.getIsHandlerNotifyEvent(), gate);
            EXPECT_EQ(registry.getdevListJsonStr(), QString()) << "every parse replaces the text";
        }
    }
}

TEST_F(DeviceList, the_view_slots_emit_an_empty_list_when_the_text_is_not_json)
{
    refuseFirst(0, "no list");
    run(virApp);
    run(shareDesk);
    EXPECT_EQ(events.all(),
              (std::vector<std::string>{"sendDevListInfoToVirApp([])", "sendDevListInfoToShareDesk([])"}));
    EXPECT_EQ(log.count(moduleLine("critical", "printfDevList", QStringLiteral(" device list is null."))), 2);
}

TEST_F(DeviceList, a_fetched_list_is_dumped_before_the_signal_comes)
{
    for (const Slot &slot : allSlots) {
        registry.setIsHandlerNotifyEvent(true);
        log.clear();
        refuseFirst(0, listOf({"a", "b"}));
        qsizetype dumpedBefore = -1;
        const auto look = [this, &dumpedBefore] {
            dumpedBefore = log.linesWith(QStringLiteral("[ printfDevList ] \"devices[")).size();
        };
        const auto map = QObject::connect(&worker, &DevRedirectWorker::sendMapCommandToVdiExterDevModel, look);
        const auto view = QObject::connect(&worker, &DevRedirectWorker::sendDevListInfoToVirApp, look);
        const auto desk = QObject::connect(&worker, &DevRedirectWorker::sendDevListInfoToShareDesk, look);
        run(slot);
        EXPECT_EQ(dumpedBefore, 2) << slot.method;
        QObject::disconnect(map);
        QObject::disconnect(view);
        QObject::disconnect(desk);
    }
}

TEST_F(DeviceList, mapping_stores_the_list_in_the_registry_before_it_notifies)
{
    for (const Slot &slot : mappingSlots) {
        QList<ExterDeviceInfo> none;
        registry.setDevListInfo(none);
        registry.setIsHandlerNotifyEvent(true);
        refuseFirst(0, listOf({"a", "b"}));
        std::string seen;
        bool armed = true;
        const auto connection = QObject::connect(&worker, &DevRedirectWorker::sendMapCommandToVdiExterDevModel, [&] {
            seen = storedIds();
            armed = registry.getIsHandlerNotifyEvent();
        });
        run(slot);
        EXPECT_EQ(seen, "[a b]") << slot.method;
        EXPECT_FALSE(armed) << slot.method;
        QObject::disconnect(connection);
    }
}

TEST_F(DeviceList, mapping_is_logged_with_the_length)
{
    std::string document = listOf({"a"});
    worker.mappingDeviceInDevList(document.data(), unsigned(document.size()));
    EXPECT_EQ(linesOf("mappingDeviceInDevList"),
              (QStringList{moduleLine("debug", "mappingDeviceInDevList",
                                      QStringLiteral("map devList. length:  %1").arg(document.size())),
                           moduleLine("debug", "mappingDeviceInDevList",
                                      QStringLiteral(" devRedirectworker emit notify event."))}));
    log.clear();
    worker.mappingDeviceInDevList(document.data(), unsigned(document.size()));
    EXPECT_EQ(linesOf("mappingDeviceInDevList").size(), 1) << "the gate is closed now";
}

TEST_F(DeviceList, mapping_reads_exactly_the_given_length)
{
    std::string document = listOf({"a"}) + "]]]";
    worker.mappingDeviceInDevList(document.data(), unsigned(document.size() - 3));
    EXPECT_EQ(storedIds(), "[a]");
}

TEST_F(DeviceList, two_changes_before_the_first_is_handled_raise_one_notification_and_the_second_list_is_stored)
{
    refuseFirst(0, listOf({"a"}));
    run(event);
    refuseFirst(0, listOf({"a", "b"}));
    run(event);
    EXPECT_EQ(events.all(), std::vector<std::string>{"sendMapCommandToVdiExterDevModel()"});
    EXPECT_EQ(storedIds(), "[a b]");

    registry.setIsHandlerNotifyEvent(true);
    run(mapping);
    EXPECT_EQ(events.count(), 2u) << "armed again, the next list notifies again";
}

TEST_F(DeviceList, mapping_is_done_by_the_registrys_worker_and_event_handling_by_the_asked_one)
{
    DevRedirectWorker other(nullptr);
    int otherNotified = 0;
    QObject::connect(&other, &DevRedirectWorker::sendMapCommandToVdiExterDevModel,
                     [&otherNotified] { ++otherNotified; });
    refuseFirst(0, listOf({"a"}));
    other.onGetDevListAndMapping();
    EXPECT_EQ(events.count(), 1u);
    EXPECT_EQ(otherNotified, 0);

    registry.setIsHandlerNotifyEvent(true);
    other.onNotifyEventHandler();
    EXPECT_EQ(events.count(), 1u);
    EXPECT_EQ(otherNotified, 1);
}

TEST_F(DeviceList, a_closed_gate_stays_closed_and_the_list_is_stored)
{
    registry.setIsHandlerNotifyEvent(false);
    refuseFirst(0, listOf({"a"}));
    run(mapping);
    EXPECT_EQ(events.all(), std::vector<std::string>());
    EXPECT_FALSE(registry.getIsHandlerNotifyEvent());
    EXPECT_EQ(storedIds(), "[a]");
}

TEST_F(DeviceList, a_text_that_is_not_json_empties_the_stored_list_and_notifies_as_usual)
{
    for (const Slot &slot : mappingSlots) {
        QList<ExterDeviceInfo> before = devicesWithIds({QStringLiteral("old")});
        registry.setDevListInfo(before);
        registry.setIsHandlerNotifyEvent(true);
        events.clear();
        refuseFirst(0, "{broken");
        run(slot);
        EXPECT_EQ(storedIds(), "[]") << slot.method;
        EXPECT_EQ(events.all(), std::vector<std::string>{slot.signal}) << slot.method;
        EXPECT_FALSE(registry.getIsHandlerNotifyEvent()) << slot.method;
    }
}

TEST_F(DeviceList, mapping_does_not_touch_the_mapped_list)
{
    QList<ExterDeviceInfo> mapped = devicesWithIds({QStringLiteral("mapped")});
    registry.setMapsDevListInfo(mapped);
    refuseFirst(0, listOf({"a"}));
    run(mapping);
    EXPECT_EQ(idsOf(registry.getMapDevListInfo()), "[mapped]");
}

TEST_F(DeviceList, the_map_command_counts_its_devices_and_notifies_whatever_the_gate_says)
{
    registry.setIsHandlerNotifyEvent(false);
    QList<ExterDeviceInfo> devices = devicesWithIds({QStringLiteral("a"), QStringLiteral("b")});
    worker.sendMappingCommandToRedirectCom(devices);
    EXPECT_EQ(log.lines(),
              QStringList{moduleLine("debug", "sendMappingCommandToRedirectCom",
                                     QStringLiteral("send mapping commond to unique frmae. devices.count:  2"))});
    EXPECT_EQ(events.all(), std::vector<std::string>{"sendMapCommandToVdiExterDevModel()"});
    EXPECT_FALSE(registry.getIsHandlerNotifyEvent());
    EXPECT_EQ(storedIds(), "[]");
    EXPECT_EQ(script.calls(), std::vector<std::string>());
}

TEST_F(DeviceList, a_length_outside_the_buffer_gives_one_warning_line_and_nothing_outside_is_read)
{
    for (const int claimed : {-1, INT_MIN, FirstCapacity + 1, SecondCapacity, INT_MAX}) {
        for (const Slot &slot : allSlots) {
            registry.setIsHandlerNotifyEvent(true);
            events.clear();
            log.clear();
            script.ctrl = [claimed](const std::string &, char *buffer, int &length) {
                std::memset(buffer, 'x', std::size_t(length)); // no NUL inside
                length = claimed;
                return 0;
            };
            run(slot);
            EXPECT_EQ(log.linesWith(QStringLiteral("warning: ")).size(), 1) << slot.method << " " << claimed;
            EXPECT_EQ(events.count(), 1u) << slot.method << " " << claimed;
            for (const QString &parsed : log.linesWith(QStringLiteral("map devList. length: "))) {
                const int length = parsed.section(QLatin1Char(' '), -1).toInt();
                EXPECT_GE(length, 0) << claimed;
                EXPECT_LE(length, FirstCapacity) << claimed;
            }
        }
    }
}

TEST_F(DeviceList, the_lengths_at_the_borders_give_no_warning)
{
    for (const int claimed : {0, 1, FirstCapacity - 1, FirstCapacity}) {
        log.clear();
        script.ctrl = [claimed](const std::string &, char *buffer, int &length) {
            std::memset(buffer, ' ', std::size_t(length));
            std::memcpy(buffer, "[]", 2);
            length = claimed;
            return 0;
        };
        run(mapping);
        EXPECT_EQ(log.linesWith(QStringLiteral("warning: ")), QStringList()) << claimed;
        EXPECT_TRUE(log.has(
            moduleLine("debug", "mappingDeviceInDevList", QStringLiteral("map devList. length:  %1").arg(claimed))));
    }
}

TEST_F(DeviceList, getting_the_list_never_leaves_a_length_outside_the_buffer)
{
    for (const int claimed : {-1, INT_MIN, 101, INT_MAX}) {
        std::vector<char> buffer(100);
        int length = int(buffer.size());
        log.clear();
        script.ctrl = [claimed](const std::string &, char *, int &size) {
            size = claimed;
            return 0;
        };
        worker.getDevList(buffer.data(), length);
        EXPECT_GE(length, 0) << claimed;
        EXPECT_LE(length, 100) << claimed;
        EXPECT_EQ(log.linesWith(QStringLiteral("warning: ")).size(), 1) << claimed;
    }
}

TEST_F(DeviceList, a_device_that_is_listed_can_be_found_with_all_its_fields)
{
    refuseFirst(0,
                Component::listDocument({R"("deviceId":"d1","rdrName":"diskrdr","vendorId":"0a5c","isShared":"1")"}));
    run(event);
    ExterDeviceInfo found;
    ASSERT_TRUE(registry.getDeviceInfoByDeviceId(QStringLiteral("d1"), &found));
    EXPECT_EQ(found.vendorId, QStringLiteral("0A5C"));
    EXPECT_EQ(found.status, 2);
}
