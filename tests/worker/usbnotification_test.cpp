// SPDX-License-Identifier: LGPL-2.1-or-later
#include "worker/workerbench.h"

#include <QRegularExpression>

namespace {

class UsbNotification : public WorkerBench
{
protected:
    std::vector<std::string> sentFor(const char *text)
    {
        script.forgetCalls();
        worker.notifyUsbInfo(QString::fromUtf8(text));
        return script.commands();
    }

    static std::string change(const char *name, const char *position, const char *attach, const char *descriptor)
    {
        return std::string(R"({"command":"devchange","deviceAttach":")") + attach + R"(","deviceName":")" + name
            + R"(","devicePosition":")" + position + R"(","fd":)" + descriptor + R"(,"rdrName":"usbrdr"})";
    }

    QStringList infoLinesOf(const char *method) const
    {
        const QString name = QLatin1String(method);
        return log.lines().filter(QRegularExpression(QStringLiteral("^info: (\\[ %1 \\]|DEVICE_REDIR %1) ").arg(name)));
    }

    static QString trace(const QString &rest) { return traceLine("info", "notifyUsbInfo", rest); }
    static QString module(const char *rest) { return moduleLine("info", "notifyUsbInfo", QLatin1String(rest)); }
};

const std::string list = R"({"command":"list"})";

} // namespace

TEST_F(UsbNotification, each_entry_becomes_a_change_command_and_then_the_list_is_fetched_once)
{
    script.ctrl = Component::listing(Component::listDocument({R"("deviceId":"a")"}));
    EXPECT_EQ(sentFor("Prod:dev1:1:17;Prod2:dev2:0:18"),
              (std::vector<std::string>{change("Prod", "dev1", "1", "17"), change("Prod2", "dev2", "0", "18"), list}));
    EXPECT_EQ(events.all(), std::vector<std::string>{"sendMapCommandToVdiExterDevModel()"});
    EXPECT_EQ(idsOf(registry.getDevListInfo()), "[a]");
}

TEST_F(UsbNotification, texts_are_split_into_these_commands)
{
    script.ctrl = Component::listing("[]");
    const struct
    {
        const char *text;
        std::vector<std::string> commands;
    } table[] = {
        {"", {}},
        {";", {}},
        {";;;", {}},
        {"Prod:dev1:1:17;", {change("Prod", "dev1", "1", "17")}},
        {";Prod:dev1:1:17", {change("Prod", "dev1", "1", "17")}},
        {"Prod:dev1:1:17;;Prod2:dev2:0:18", {change("Prod", "dev1", "1", "17"), change("Prod2", "dev2", "0", "18")}},
        {"Prod::1:17", {change("Prod", "", "1", "17")}},
        {":::", {change("", "", "", "0")}},
        {":::5", {change("", "", "", "5")}},
        {"a:b:c:9:more:fields", {change("a", "b", "c", "9")}},
        {"a:b:c:9:", {change("a", "b", "c", "9")}},
        {"a:b:c:", {change("a", "b", "c", "0")}},
        {"a:b:c:x", {change("a", "b", "c", "0")}},
        {"a:b:c:0x1f", {change("a", "b", "c", "0")}},
        {"a:b:c:12x", {change("a", "b", "c", "0")}},
        {"a:b:c:010", {change("a", "b", "c", "10")}},
        {"a:b:c:-3", {change("a", "b", "c", "-3")}},
        {"a:b:c:99999999999", {change("a", "b", "c", "0")}},
        {"A disk \xc3\xbc, 2:b:c:1", {change("A disk \xc3\xbc, 2", "b", "c", "1")}},
    };
    for (const auto &row : table) {
        std::vector<std::string> expected = row.commands;
        expected.push_back(list);
        EXPECT_EQ(sentFor(row.text), expected) << row.text;
    }
}

TEST_F(UsbNotification, an_entry_of_fewer_than_four_fields_is_skipped_with_a_warning_line)
{
    script.ctrl = Component::listing("[]");
    for (const char *entry : {"a", "a:b", "a:b:c", "::", " "}) {
        log.clear();
        EXPECT_EQ(
            sentFor((std::string("Prod:dev1:1:17;") + entry + ";Prod2:dev2:0:18").c_str()),
            (std::vector<std::string>{change("Prod", "dev1", "1", "17"), change("Prod2", "dev2", "0", "18"), list}))
            << entry;
        EXPECT_EQ(log.linesWith(QStringLiteral("warning: ")).size(), 1) << entry;
        EXPECT_EQ(log.linesWith(QStringLiteral("warning: [ notifyUsbInfo ] ")).size(), 1) << entry;
    }
}

TEST_F(UsbNotification, a_whole_entry_gives_no_warning)
{
    script.ctrl = Component::listing("[]");
    sentFor("Prod:dev1:1:17");
    EXPECT_EQ(log.linesWith(QStringLiteral("warning: ")), QStringList());
}

TEST_F(UsbNotification, the_notification_is_logged_from_the_text_to_the_refresh)
{
    script.ctrl = Component::listing("[]");
    sentFor("Prod:dev1:1:17;Prod2:dev2:0:x");
    const QString first = QString::fromStdString(change("Prod", "dev1", "1", "17"));
    const QString second = QString::fromStdString(change("Prod2", "dev2", "0", "0"));
    EXPECT_EQ(infoLinesOf("notifyUsbInfo"),
              (QStringList{
                  trace(QStringLiteral(" DevRedirectWorker:strUsbInfos:  \"Prod:dev1:1:17;Prod2:dev2:0:x\"")),
                  trace(QStringLiteral(" DevRedirectWorker:slUsbInfos:  (\"Prod:dev1:1:17\", \"Prod2:dev2:0:x\")")),
                  trace(QStringLiteral(" DevRedirectWorker:strProductName:  \"Prod\" strDeviceName:  \"dev1\" "
                                       "strDeviceAttach:  \"1\" iFileDescrible:  17")),
                  trace(QStringLiteral(" DevRedirectWorker:strUsbInfoCommand:  ") + quoted(first)),
                  module(" excute notify usb info success."),
                  trace(QStringLiteral(" DevRedirectWorker:strProductName:  \"Prod2\" strDeviceName:  \"dev2\" "
                                       "strDeviceAttach:  \"0\" iFileDescrible:  0")),
                  trace(QStringLiteral(" DevRedirectWorker:strUsbInfoCommand:  ") + quoted(second)),
                  module(" excute notify usb info success."),
                  module("dlx before get device list for devredirectworker!"),
                  module("dlx after get device list for devredirectworker!"),
              }));
}

TEST_F(UsbNotification, the_refresh_runs_between_its_two_lines)
{
    script.ctrl = Component::listing("[]");
    sentFor("");
    const QStringList lines = log.lines();
    const auto before = lines.indexOf(module("dlx before get device list for devredirectworker!"));
    const auto enter = lines.indexOf(
        moduleLine("debug", "onNotifyEventHandler", QStringLiteral(" enter to notify redirect event process.")));
    const auto leave = lines.indexOf(moduleLine("debug", "onNotifyEventHandler", QStringLiteral(" leave.")));
    const auto after = lines.indexOf(module("dlx after get device list for devredirectworker!"));
    EXPECT_GE(before, 0);
    EXPECT_GT(enter, before);
    EXPECT_GT(leave, enter);
    EXPECT_GT(after, leave);
}

TEST_F(UsbNotification, an_empty_text_sends_no_change_but_still_refreshes_between_both_lines)
{
    script.ctrl = Component::listing("[]");
    EXPECT_EQ(sentFor(""), std::vector<std::string>{list});
    EXPECT_EQ(infoLinesOf("notifyUsbInfo"),
              (QStringList{trace(QStringLiteral(" DevRedirectWorker:strUsbInfos:  \"\"")),
                           trace(QStringLiteral(" DevRedirectWorker:slUsbInfos:  ()")),
                           module("dlx before get device list for devredirectworker!"),
                           module("dlx after get device list for devredirectworker!")}));
}

TEST_F(UsbNotification, a_refused_change_is_logged_and_the_next_one_is_sent)
{
    script.ctrl = [](const std::string &command, char *, int &) {
        return command.find("dev1") == std::string::npos ? 0 : 9;
    };
    EXPECT_EQ(sentFor("Prod:dev1:1:17;Prod2:dev2:0:18").size(), 3u);
    EXPECT_EQ(infoLinesOf("notifyUsbInfo").filter(QStringLiteral("excute")),
              (QStringList{module("excute notify usb info failed!"), module(" excute notify usb info success.")}));
    EXPECT_EQ(log.linesWith(QStringLiteral("critical: [ notifyUsbInfo")), QStringList());
}

TEST_F(UsbNotification, a_camera_policy_is_sent_as_it_is)
{
    script.forgetCalls();
    worker.sendConfigerInforToCamera({QStringLiteral("1280x720"), QStringLiteral("30")});
    worker.sendConfigerInforToCamera({});
    EXPECT_EQ(script.commands(),
              (std::vector<std::string>{R"({"command":"setpolicy","policy":["1280x720","30"],"rdrName":"camrdr"})",
                                        R"({"command":"setpolicy","policy":[],"rdrName":"camrdr"})"}));
    EXPECT_EQ(events.all(), std::vector<std::string>());
}

TEST_F(UsbNotification, the_outcome_of_a_camera_policy_is_logged_at_info_level)
{
    const struct
    {
        int result;
        const char *text;
    } table[] = {{0, "excute send configer infor to camera success!"},
                 {1, "excute send configer infor to camera failed!"}};
    for (const auto &row : table) {
        log.clear();
        script.ctrl = returning(row.result);
        worker.sendConfigerInforToCamera({QStringLiteral("30")});
        EXPECT_EQ(infoLinesOf("sendConfigerInforToCamera"),
                  QStringList{moduleLine("info", "sendConfigerInforToCamera", QLatin1String(row.text))});
    }
}
