// SPDX-License-Identifier: LGPL-2.1-or-later
#include "worker/workerbench.h"

namespace {

class Sharing : public WorkerBench
{
protected:
    QStringList linesOf(const char *method) const
    {
        return log.linesWith(QStringLiteral("[ %1 ]").arg(QLatin1String(method)));
    }
};

} // namespace

TEST_F(Sharing, emits_these_signals_for_each_class_and_outcome)
{
    const struct
    {
        const char *rdrName;
        int result;
        std::vector<std::string> emitted;
    } table[] = {
        {"usbrdr", 0, {}},
        {"usbrdr", 1, {}},
        {"camrdr", 0, {"shareDeviceResult(2-1.3, true)"}},
        {"camrdr", 1, {"shareDeviceResult(2-1.3, false)"}},
        {"diskrdr", 0, {"shareDeviceResult(2-1.3, true)", "diskMapResultInUsb(2-1.3-POS, Map, true)"}},
        {"diskrdr", -1, {"shareDeviceResult(2-1.3, false)", "diskMapResultInUsb(2-1.3-POS, Map, false)"}},
        {"", 0, {"shareDeviceResult(2-1.3, true)"}},
        {"USBRDR", 0, {"shareDeviceResult(2-1.3, true)"}},
        {"DiskRdr", 0, {"shareDeviceResult(2-1.3, true)"}},
        {"other", 7, {"shareDeviceResult(2-1.3, false)"}},
    };
    for (const auto &row : table) {
        events.clear();
        script.ctrl = returning(row.result);
        worker.onShareDeviceByWorker(deviceOfClass(QLatin1String(row.rdrName)));
        EXPECT_EQ(events.all(), row.emitted) << row.rdrName << " " << row.result;
    }
}

TEST_F(Sharing, share_of_a_usb_device_emits_nothing_even_when_refused)
{
    script.ctrl = returning(1);
    worker.onShareDeviceByWorker(deviceOfClass(USBRDR));
    EXPECT_EQ(script.commands().size(), 1u);
    EXPECT_EQ(events.all(), std::vector<std::string>());
}

TEST_F(Sharing, the_signal_carries_the_whole_record)
{
    ExterDeviceInfo sent = deviceOfClass(DISKRDR);
    sent.deviceName = QStringLiteral("A disk");
    sent.functions.append(FunctionInfo{3, QStringLiteral("08"), 4});
    QList<ExterDeviceInfo> received;
    QObject::connect(&worker, &DevRedirectWorker::shareDeviceResult, &listener,
                     [&received](const ExterDeviceInfo &device, bool) { received.append(device); });
    worker.onShareDeviceByWorker(sent);
    ASSERT_EQ(received.size(), 1);
    EXPECT_EQ(received[0].deviceName, QStringLiteral("A disk"));
    ASSERT_EQ(received[0].functions.size(), 1);
    EXPECT_EQ(received[0].functions[0].founctionId, 3);
}

TEST_F(Sharing, the_answer_of_the_component_is_ignored)
{
    script.ctrl = [](const std::string &, char *buffer, int &length) {
        std::string(R"([{"devices":[{"deviceId":"x"}]}])").copy(buffer, 512);
        length = 32;
        return 0;
    };
    worker.onShareDeviceByWorker(deviceOfClass(CAMRDR));
    worker.onUnShareDeviceByWorker(deviceOfClass(CAMRDR));
    worker.onUnShareAllByWorker();
    EXPECT_EQ(events.all(),
              (std::vector<std::string>{"shareDeviceResult(2-1.3, true)", "unRedirectDeviceByIdResult(2-1.3, true)",
                                        "unRedirectDeviceAllResult(true)"}));
    EXPECT_TRUE(registry.getDevListInfo().isEmpty());
}

TEST_F(Sharing, nothing_is_retried_or_logged_above_info_when_the_component_refuses)
{
    script.ctrl = returning(1);
    worker.onShareDeviceByWorker(deviceOfClass(DISKRDR));
    worker.onUnShareDeviceByWorker(deviceOfClass(DISKRDR));
    worker.onUnShareAllByWorker();
    EXPECT_EQ(script.commands().size(), 3u);
    EXPECT_EQ(log.linesWith(QStringLiteral("warning: ")) + log.linesWith(QStringLiteral("critical: ")), QStringList());
}

TEST_F(Sharing, a_shared_disk_is_logged_step_by_step)
{
    worker.onShareDeviceByWorker(deviceOfClass(DISKRDR));
    const char method[] = "onShareDeviceByWorker";
    EXPECT_EQ(
        linesOf(method),
        (QStringList{
            moduleLine("debug", method, QStringLiteral(" Share deveic. deviceId: \"2-1.3\" rdrName: \"diskrdr\"")),
            moduleLine("debug", method, QStringLiteral("  when device is not usb, deviceWorker returns share result.")),
            moduleLine("debug", method, QStringLiteral(" usb disk mapping.")),
            moduleLine("debug", method, QStringLiteral(" end"))}));
}

TEST_F(Sharing, a_shared_usb_device_is_logged_as_one_whose_result_comes_later)
{
    worker.onShareDeviceByWorker(deviceOfClass(USBRDR));
    const char method[] = "onShareDeviceByWorker";
    EXPECT_EQ(linesOf(method),
              (QStringList{
                  moduleLine("debug", method, QStringLiteral(" Share deveic. deviceId: \"2-1.3\" rdrName: \"usbrdr\"")),
                  moduleLine("debug", method,
                             QStringLiteral("  when device is usb, deviceWorker do not return share result.")),
                  moduleLine("debug", method, QStringLiteral(" end"))}));
}

TEST_F(Sharing, a_shared_camera_is_not_logged_as_a_disk)
{
    worker.onShareDeviceByWorker(deviceOfClass(CAMRDR));
    EXPECT_EQ(linesOf("onShareDeviceByWorker").size(), 3);
    EXPECT_EQ(log.linesWith(QStringLiteral(" usb disk mapping.")), QStringList());
}

TEST_F(Sharing, unsharing_emits_its_result_for_every_class)
{
    for (const char *rdrName : {"usbrdr", "diskrdr", "camrdr", ""}) {
        for (const int result : {0, 1, -3}) {
            events.clear();
            script.ctrl = returning(result);
            worker.onUnShareDeviceByWorker(deviceOfClass(QLatin1String(rdrName)));
            EXPECT_EQ(events.all(),
                      std::vector<std::string>{"unRedirectDeviceByIdResult(2-1.3, " + word(result == 0) + ")"})
                << rdrName << " " << result;
        }
    }
}

TEST_F(Sharing, unsharing_is_logged_with_the_device)
{
    worker.onUnShareDeviceByWorker(deviceOfClass(USBRDR));
    EXPECT_EQ(linesOf("onUnShareDeviceByWorker"),
              QStringList{moduleLine("debug", "onUnShareDeviceByWorker",
                                     QStringLiteral(" begin to unshare deveic.  deviceId:  \"2-1.3\""))});
}

TEST_F(Sharing, unsharing_everything_is_sent_even_when_nothing_is_shared)
{
    for (const int result : {0, 1, -1}) {
        events.clear();
        script.forgetCalls();
        script.ctrl = returning(result);
        worker.onUnShareAllByWorker();
        EXPECT_EQ(script.commands().size(), 1u);
        EXPECT_EQ(events.all(), std::vector<std::string>{"unRedirectDeviceAllResult(" + word(result == 0) + ")"})
            << result;
    }
}

TEST_F(Sharing, unsharing_everything_gives_the_component_512_zeroed_bytes)
{
    int capacity = 0;
    bool zeroed = false;
    script.ctrl = [&](const std::string &, char *buffer, int &length) {
        capacity = length;
        zeroed = std::string(buffer, 512) == std::string(512, '\0');
        return 0;
    };
    worker.onUnShareAllByWorker();
    EXPECT_EQ(capacity, 512);
    EXPECT_TRUE(zeroed);
}

TEST_F(Sharing, unsharing_everything_is_logged)
{
    worker.onUnShareAllByWorker();
    EXPECT_EQ(linesOf("onUnShareAllByWorker"),
              QStringList{moduleLine("debug", "onUnShareAllByWorker", QStringLiteral("is called."))});
}

TEST_F(Sharing, sharing_does_not_change_the_registry)
{
    QList<ExterDeviceInfo> devices{deviceOfClass(DISKRDR)};
    registry.setDevListInfo(devices);
    worker.onShareDeviceByWorker(devices[0]);
    worker.onUnShareDeviceByWorker(devices[0]);
    ASSERT_EQ(registry.getDevListInfo().size(), 1);
    EXPECT_EQ(registry.getDevListInfo()[0].status, 0);
}
