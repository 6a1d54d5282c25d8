// SPDX-License-Identifier: LGPL-2.1-or-later
#include "interface/devparamfromclient.h"
#include "worker/workerbench.h"

#include <QMutex>

#include <future>

namespace {

class Commands : public WorkerBench
{
protected:
    static ExterDeviceInfo disk()
    {
        ExterDeviceInfo device;
        device.rdrName = QStringLiteral("diskrdr");
        device.context = QStringLiteral("ctx-01");
        device.vendorId = QStringLiteral("0781");
        device.productId = QStringLiteral("5591");
        device.deviceId = QStringLiteral("2-1.3");
        device.readOnly = true;
        device.deviceClass = QStringLiteral("08");
        device.usbHub = QStringLiteral("2");
        device.usbPort = QStringLiteral("3");
        device.usbProt = QStringLiteral("50");
        device.deviceRel = QStringLiteral("0100");
        return device;
    }

    void setAddresses() { worker.setWorkerClientparam({QStringLiteral("192.0.2.10"), QStringLiteral("198.51.100.7")}); }

    std::vector<std::string> sent() const { return script.commands(); }
};

const char diskShared[] =
    R"({"command":"share","context":"ctx-01","deviceClass":"08","deviceId":"2-1.3","deviceRel":"0100",)"
    R"("localIp":"192.0.2.10","productId":"5591","rdrName":"diskrdr","readOnly":true,)"
    R"("remoteIp":"198.51.100.7","remotePort":"","usbHub":"2","usbPort":"3","usbProt":"50",)"
    R"("vendorId":"0781"})";
const char diskUnshared[] = R"({"command":"unshare","context":"ctx-01","deviceClass":"08","deviceId":"2-1.3",)"
                            R"("deviceRel":"0100","localIp":"192.0.2.10","productId":"5591","rdrName":"diskrdr",)"
                            R"("readOnly":true,"remoteIp":"198.51.100.7","remotePort":"","usbHub":"2","usbPort":"3",)"
                            R"("usbProt":"50","vendorId":"0781"})";
const char allUnshared[] =
    R"({"command":"unshareall","context":"","deviceClass":"","deviceId":"","deviceRel":"",)"
    R"("localIp":"192.0.2.10","productId":"","rdrName":"","readOnly":false,)"
    R"("remoteIp":"198.51.100.7","remotePort":"","usbHub":"","usbPort":"","usbProt":"","vendorId":""})";

} // namespace

TEST_F(Commands, sharing_a_disk_sends_this_document)
{
    setAddresses();
    worker.onShareDeviceByWorker(disk());
    EXPECT_EQ(sent(), std::vector<std::string>{diskShared});
}

TEST_F(Commands, unsharing_a_disk_sends_the_same_document_with_another_command_word)
{
    setAddresses();
    worker.onUnShareDeviceByWorker(disk());
    EXPECT_EQ(sent(), std::vector<std::string>{diskUnshared});
}

TEST_F(Commands, unsharing_everything_sends_every_device_key_with_an_empty_value)
{
    setAddresses();
    worker.onUnShareAllByWorker();
    EXPECT_EQ(sent(), std::vector<std::string>{allUnshared});
}

TEST_F(Commands, the_list_command_has_one_key)
{
    std::vector<char> buffer(64);
    int length = int(buffer.size());
    EXPECT_TRUE(worker.getDevList(buffer.data(), length));
    EXPECT_EQ(sent(), std::vector<std::string>{R"({"command":"list"})"});
}

TEST_F(Commands, a_usb_change_carries_the_descriptor_as_a_number)
{
    EXPECT_EQ(
        worker.structUsbInfoCommand(QStringLiteral("Mass Storage"), QStringLiteral("1-1.2"), QStringLiteral("1"), 23),
        QStringLiteral(R"({"command":"devchange","deviceAttach":"1","deviceName":"Mass Storage",)"
                       R"("devicePosition":"1-1.2","fd":23,"rdrName":"usbrdr"})"));
}

TEST_F(Commands, descriptors_of_every_size_of_an_int_stay_whole)
{
    const struct
    {
        int descriptor;
        const char *text;
    } table[] = {{0, "0"}, {-1, "-1"}, {2147483647, "2147483647"}, {-2147483647 - 1, "-2147483648"}};
    for (const auto &row : table) {
        const QString text = worker.structUsbInfoCommand(QString(), QString(), QString(), row.descriptor);
        EXPECT_EQ(
            text,
            QStringLiteral(
                R"({"command":"devchange","deviceAttach":"","deviceName":"","devicePosition":"","fd":%1,"rdrName":"usbrdr"})")
                .arg(QLatin1String(row.text)));
    }
}

TEST_F(Commands, a_camera_policy_keeps_the_order_of_its_texts)
{
    EXPECT_EQ(worker.structCameraConfigerInfoCommand({QStringLiteral("1280x720"), QStringLiteral("30")}),
              QStringLiteral(R"({"command":"setpolicy","policy":["1280x720","30"],"rdrName":"camrdr"})"));
    EXPECT_EQ(worker.structCameraConfigerInfoCommand({QStringLiteral("30"), QStringLiteral("1280x720")}),
              QStringLiteral(R"({"command":"setpolicy","policy":["30","1280x720"],"rdrName":"camrdr"})"));
}

TEST_F(Commands, an_empty_camera_policy_gives_an_empty_array)
{
    EXPECT_EQ(worker.structCameraConfigerInfoCommand({}),
              QStringLiteral(R"({"command":"setpolicy","policy":[],"rdrName":"camrdr"})"));
}

TEST_F(Commands, the_alternative_identifier_is_sent_only_when_a_usb_device_is_shared)
{
    const struct
    {
        const char *command;
        const char *rdrName;
        const char *alternative;
        const char *sentId;
    } table[] = {
        {"share", "usbrdr", "other", "other"},
        {"share", "usbrdr", "", "given"},
        {"share", "diskrdr", "other", "given"},
        {"share", "camrdr", "other", "given"},
        {"share", "USBRDR", "other", "given"},
        {"share", "usbrdr ", "other", "given"},
        {"share", "", "other", "given"},
        {"Share", "usbrdr", "other", "given"},
        {"share ", "usbrdr", "other", "given"},
        {"unshare", "usbrdr", "other", "given"},
        {"unshareall", "usbrdr", "other", "given"},
    };
    for (const auto &row : table) {
        ExterDeviceInfo device;
        device.rdrName = QLatin1String(row.rdrName);
        device.deviceId = QStringLiteral("the record's own");
        device.spareTextA = QLatin1String(row.alternative);
        const QString text =
            worker.structCtrlCommand(QString(), QStringLiteral("given"), QLatin1String(row.command), device);
        EXPECT_TRUE(text.contains(QStringLiteral("\"deviceId\":\"%1\",").arg(QLatin1String(row.sentId))))
            << row.command << " " << row.rdrName << " " << row.alternative << ": " << text.toStdString();
    }
}

TEST_F(Commands, sharing_a_usb_device_sends_the_alternative_and_unsharing_it_the_device_id)
{
    ExterDeviceInfo device = deviceOfClass(USBRDR);
    worker.onShareDeviceByWorker(device);
    device.spareTextA = QStringLiteral("other");
    worker.onShareDeviceByWorker(device);
    worker.onUnShareDeviceByWorker(device);

    const std::vector<std::string> commands = sent();
    ASSERT_EQ(commands.size(), 3u);
    EXPECT_NE(commands[0].find(R"("deviceId":"2-1.3")"), std::string::npos) << commands[0];
    EXPECT_NE(commands[1].find(R"("deviceId":"other")"), std::string::npos) << commands[1];
    EXPECT_NE(commands[2].find(R"("deviceId":"2-1.3")"), std::string::npos) << commands[2];
}

TEST_F(Commands, the_first_argument_of_a_device_command_is_ignored)
{
    EXPECT_EQ(
        worker.structCtrlCommand(QStringLiteral("whatever"), QStringLiteral("id"), QStringLiteral("share"), disk()),
        worker.structCtrlCommand(QString(), QStringLiteral("id"), QStringLiteral("share"), disk()));
}

TEST_F(Commands, before_the_client_parameters_are_set_both_addresses_are_empty)
{
    const QString text =
        worker.structCtrlCommand(QString(), QString(), QStringLiteral("unshareall"), ExterDeviceInfo());
    EXPECT_EQ(
        text,
        QString::fromLatin1(allUnshared).remove(QStringLiteral("192.0.2.10")).remove(QStringLiteral("198.51.100.7")));
}

TEST_F(Commands, the_latest_client_parameters_are_sent_and_the_port_stays_empty)
{
    setAddresses();
    worker.setWorkerClientparam({QStringLiteral("2001:db8::1"), QStringLiteral("host.example:5900")});
    const QString text = worker.structCtrlCommand(QString(), QString(), QStringLiteral("share"), disk());
    EXPECT_TRUE(text.contains(QStringLiteral(R"("localIp":"2001:db8::1")"))) << text.toStdString();
    EXPECT_TRUE(text.contains(QStringLiteral(R"("remoteIp":"host.example:5900","remotePort":"",)")))
        << text.toStdString();

    worker.setWorkerClientparam({});
    EXPECT_TRUE(worker.structCtrlCommand(QString(), QString(), QStringLiteral("share"), disk())
                    .contains(QStringLiteral(R"("localIp":"")")));
}

TEST_F(Commands, the_addresses_are_read_under_the_process_wide_mutex)
{
    s_mutext.lock();
    EXPECT_FALSE(s_mutext.tryLock()) << "it is recursive";
    auto built = std::async(std::launch::async, [this] {
        return worker.structCtrlCommand(QString(), QString(), QStringLiteral("share"), ExterDeviceInfo());
    });
    auto stored = std::async(std::launch::async, [this] { setAddresses(); });
    EXPECT_EQ(built.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
    EXPECT_EQ(stored.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
    s_mutext.unlock();
    EXPECT_FALSE(built.get().isEmpty());
    stored.get();
}

TEST_F(Commands, the_mutex_is_free_while_the_component_runs)
{
    bool wasFree = false;
    script.ctrl = [&wasFree](const std::string &, char *, int &) {
        wasFree = s_mutext.tryLock();
        if (wasFree)
            s_mutext.unlock();
        return 0;
    };
    worker.onShareDeviceByWorker(disk());
    EXPECT_TRUE(wasFree);
}

TEST_F(Commands, building_a_command_does_not_send_it)
{
    worker.structCtrlCommand(QString(), QString(), QStringLiteral("share"), disk());
    worker.structUsbInfoCommand(QString(), QString(), QString(), 1);
    worker.structCameraConfigerInfoCommand({});
    EXPECT_EQ(sent(), std::vector<std::string>());
}

TEST_F(Commands, texts_reach_the_component_as_utf8)
{
    ExterDeviceInfo device = deviceOfClass(CAMRDR);
    device.context = QString::fromUtf8("Kamera \xc3\xbc \xe2\x82\xac");
    worker.onShareDeviceByWorker(device);
    ASSERT_EQ(sent().size(), 1u);
    EXPECT_NE(sent()[0].find("\"context\":\"Kamera \xc3\xbc \xe2\x82\xac\""), std::string::npos) << sent()[0];
}

TEST_F(Commands, quotes_and_line_breaks_in_a_text_are_escaped)
{
    ExterDeviceInfo device = deviceOfClass(CAMRDR);
    device.context = QStringLiteral("a \"b\"\n\\c");
    const QString text = worker.structCtrlCommand(QString(), QString(), QStringLiteral("share"), device);
    EXPECT_TRUE(text.contains(QStringLiteral(R"("context":"a \"b\"\n\\c")"))) << text.toStdString();
    EXPECT_FALSE(text.contains(QLatin1Char('\n')));
}

TEST_F(Commands, a_device_command_is_logged_at_debug_level)
{
    const QString text = worker.structCtrlCommand(QString(), QString(), QStringLiteral("share"), disk());
    EXPECT_EQ(log.lines(),
              QStringList{
                  moduleLine("debug", "structCtrlCommand", QStringLiteral("structed ctrl command:  ") + quoted(text))});
}

TEST_F(Commands, a_usb_change_is_logged_at_debug_level)
{
    const QString text = worker.structUsbInfoCommand(QStringLiteral("a"), QStringLiteral("b"), QStringLiteral("c"), 4);
    EXPECT_EQ(log.lines(),
              QStringList{moduleLine("debug", "structUsbInfoCommand",
                                     QStringLiteral("structed usb Info command:  ") + quoted(text))});
}

TEST_F(Commands, a_camera_policy_is_logged_at_info_level_as_a_list_and_as_a_command)
{
    const QString text = worker.structCameraConfigerInfoCommand({QStringLiteral("1280x720"), QStringLiteral("30")});
    EXPECT_EQ(log.lines(),
              (QStringList{moduleLine("info", "structCameraConfigerInfoCommand",
                                      QStringLiteral("struct camera configer info command:  (\"1280x720\", \"30\")")),
                           moduleLine("info", "structCameraConfigerInfoCommand",
                                      QStringLiteral("structed camera configer info command:  ") + quoted(text))}));
}

TEST_F(Commands, a_command_is_run_with_512_zeroed_bytes_for_the_answer_and_succeeds_with_0_only)
{
    const struct
    {
        int result;
        bool success;
    } table[] = {{0, true}, {1, false}, {-1, false}, {256, false}};
    DevRedirectWorker *const onWorker = &worker;
    for (auto run : {&DevRedirectWorker::excuteRedirectCmd, &DevRedirectWorker::excuteSendCameraConfigerInfo,
                     &DevRedirectWorker::excuteNotifyUsbInfoCmd}) {
        for (const auto &row : table) {
            int capacity = 0;
            bool zeroed = false;
            script.ctrl = [&](const std::string &, char *buffer, int &length) {
                capacity = length;
                zeroed = std::string(buffer, 512) == std::string(512, '\0');
                std::string(512, 'x').copy(buffer, 512);
                length = -7;
                return row.result;
            };
            EXPECT_EQ((onWorker->*run)(QStringLiteral("{\"a\":\"\u00fc\"}")), row.success) << row.result;
            EXPECT_EQ(capacity, 512);
            EXPECT_TRUE(zeroed);
        }
    }
    EXPECT_EQ(sent(), std::vector<std::string>(12, "{\"a\":\"\xc3\xbc\"}"));
}
