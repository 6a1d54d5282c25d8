// SPDX-License-Identifier: LGPL-2.1-or-later

// Fetching device lists from the component and routing them: into the registry, or to one of the two views.

#include "component/redirecthandler.h"
#include "devices/devredirectmanger.h"
#include "devices/externaldevicelistparser.h"
#include "log/log.h"
#include "worker/devredirectworker.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <memory>

namespace {

constexpr int FirstCapacity = 81920;
constexpr int SecondCapacity = 2 * FirstCapacity;

struct DevList
{
    explicit DevList(int capacity) : buffer(std::make_unique<char[]>(size_t(capacity))), length(capacity) { }

    std::unique_ptr<char[]> buffer; ///< zeroed, for a component that writes less than it says
    int length;
};

struct FetchTexts
{
    const char *method;
    bool tellResult;
    QtMsgType giveUpLevel;
    const char *giveUp;
};

// Null if the component refused twice. A refusal always counts as a buffer that was too small.
std::unique_ptr<DevList> fetch(DevRedirectWorker &worker, const FetchTexts &texts)
{
    auto list = std::make_unique<DevList>(FirstCapacity);
    const bool success = worker.getDevList(list->buffer.get(), list->length);
    if (texts.tellResult)
        Log::module(QtDebugMsg, texts.method, " get devList Result: ", success ? "true" : "false");
    if (success)
        return list;

    Log::module(QtDebugMsg, texts.method, " buffer is not enough,try againt.");
    list.reset();
    list = std::make_unique<DevList>(SecondCapacity);
    if (worker.getDevList(list->buffer.get(), list->length))
        return list;

    Log::module(texts.giveUpLevel, texts.method, texts.giveUp);
    return nullptr;
}

} // namespace

bool DevRedirectWorker::getDevList(char *buffer, int &length)
{
    Log::module(QtInfoMsg, __func__, " get DevList entrance.");
    const QJsonObject command{{QStringLiteral("command"), QStringLiteral("list")}};
    const std::string text = QJsonDocument(command).toJson(QJsonDocument::Compact).toStdString();

    const int capacity = length;
    const bool success = m_redirectHandler->handlerRedirCtrlCommand(text, buffer, length) == 0;
    if (success && (length < 0 || length > capacity)) {
        Log::module(QtWarningMsg, __func__, " length of the device list is out of range: ", length,
                    ", capacity: ", capacity);
    }
    length = qBound(0, length, capacity);
    return success;
}

void DevRedirectWorker::onGetDevListAndMapping()
{
    Log::module(QtDebugMsg, __func__, " Get device list and mapping.");
    DevRedirectWorker *const worker = DevRedirectManger::instance()->getRedirectWorkerInstance();
    const auto list = fetch(
        *worker, {__func__, false, QtDebugMsg, " can't mapping device, because buffer*2 is not enough,do nothing."});
    if (!list)
        return;
    worker->mappingDeviceInDevList(list->buffer.get(), uint(list->length));
    Log::module(QtDebugMsg, __func__, " Get device list and mapping, function return.");
}

void DevRedirectWorker::onNotifyEventHandler()
{
    Log::module(QtDebugMsg, __func__, " enter to notify redirect event process.");
    const auto list = fetch(
        *this,
        {__func__, false, QtWarningMsg, "can't notify redirect event , because buffer*2 is not enough, do nothing."});
    if (!list)
        return;
    mappingDeviceInDevList(list->buffer.get(), uint(list->length));
    Log::module(QtDebugMsg, __func__, " leave.");
}

void DevRedirectWorker::onGetDevListByVirApp()
{
    sendDevList(__func__, &DevRedirectWorker::sendDevListInfoToVirApp);
}

void DevRedirectWorker::onGetDevListByShareDesk()
{
    sendDevList(__func__, &DevRedirectWorker::sendDevListInfoToShareDesk);
}

void DevRedirectWorker::sendDevList(const char *method, ListSignal signal)
{
    Log::module(QtDebugMsg, method, " enter.");
    const auto list = fetch(*this, {method, true, QtCriticalMsg, " buffer size double, but is still not enough."});
    if (!list)
        return;
    QList<ExterDeviceInfo> devices;
    parseExternalDeviceList(list->buffer.get(), uint(list->length), devices);
    // Support reads this text for both views.
    Log::module(QtDebugMsg, method, " list device list info by virApp.");
    printfDevList(devices);
    Q_EMIT(this->*signal)(devices);
    Log::module(QtDebugMsg, method, " leave.");
}

void DevRedirectWorker::mappingDeviceInDevList(char *buffer, unsigned int length)
{
    Log::module(QtDebugMsg, __func__, "map devList. length: ", length);
    QList<ExterDeviceInfo> devices;
    parseExternalDeviceList(buffer, length, devices);
    printfDevList(devices);

    DevRedirectManger *const registry = DevRedirectManger::instance();
    registry->setDevListInfo(devices);
    if (registry->getIsHandlerNotifyEvent()) {
        Log::module(QtDebugMsg, __func__, " devRedirectworker emit notify event.");
        registry->setIsHandlerNotifyEvent(false);
        Q_EMIT sendMapCommandToVdiExterDevModel();
    }
}

void DevRedirectWorker::sendMappingCommandToRedirectCom(QList<ExterDeviceInfo> &devices)
{
    Log::module(QtDebugMsg, __func__, "send mapping commond to unique frmae. devices.count: ", devices.size());
    Q_EMIT sendMapCommandToVdiExterDevModel();
}

void DevRedirectWorker::printfDevList(QList<ExterDeviceInfo> &devices)
{
    if (devices.isEmpty()) {
        Log::module(QtCriticalMsg, __func__, " device list is null.");
        return;
    }
    if (!Log::enabled(QtDebugMsg))
        return;
    Log::module(QtDebugMsg, __func__, " -------------------------deviceListInfo-----------------------------------");
    int index = 0;
    for (const ExterDeviceInfo &device : qAsConst(devices)) {
        Log::guard(QtDebugMsg, __func__,
                   QStringLiteral("devices[") + QString::number(index++) + QStringLiteral("]: ") + device.getDevInfo());
    }
}
