// SPDX-License-Identifier: LGPL-2.1-or-later

// Device records and lists, and what the host pushes down to the component.

#include "component/contained.h"
#include "component/redirecthandler.h"
#include "devices/devredirectmanger.h"
#include "interface/devredirectinterface.h"
#include "worker/devredirectworker.h"

bool DevRedirectInterface::isComponentLoaded() const
{
    return DevRedirectWorker::m_redirectHandler->isLoaded();
}

QString DevRedirectInterface::componentLoadError() const
{
    return DevRedirectWorker::m_redirectHandler->loadError();
}

bool DevRedirectInterface::isComponentStarted() const
{
    return DevRedirectWorker::m_redirectHandler->isStarted();
}

ExterDeviceInfo DevRedirectInterface::getDeviceInfo(const QString &deviceId)
{
    ExterDeviceInfo device;
    if (!DevRedirectManger::instance()->getDeviceInfoByDeviceId(deviceId, &device))
        Log::module(QtWarningMsg, __func__, " Fail to find device infomation, deviceId:", deviceId);
    return device;
}

QList<ExterDeviceInfo> DevRedirectInterface::getDeviceList()
{
    return DevRedirectManger::instance()->getMapDevListInfo();
}

void DevRedirectInterface::getDeviceListFromUniqueFrame()
{
    Log::module(QtDebugMsg, __func__, " emit getDeviceListAndMapping message.");
    Q_EMIT getDevListAndMapping();
}

void DevRedirectInterface::sendMapCommandByDevModel(MapCallback callback)
{
    if (!callback) {
        Log::module(QtCriticalMsg, __func__, "invalid input.");
        return;
    }
    m_mapCallback = callback;
}

void DevRedirectInterface::onSendMapCommandByDevRedInter()
{
    DevRedirectManger *const registry = DevRedirectManger::instance();
    // Armed first, so that a list which comes during the callback raises a notification of its own.
    registry->setIsHandlerNotifyEvent(true);
    QList<ExterDeviceInfo> devices = registry->getDevListInfo();
    containedVoid(__func__, "the map callback", [&] { m_mapCallback(devices); });
    registry->setMapsDevListInfo(devices);
}

void DevRedirectInterface::notifyUsbInfo(const QString &strUsbInfos)
{
    Log::trace(QtInfoMsg, __func__, " DevRedirectInterface:strUsbInfos: ", strUsbInfos);
    m_devRedirectWorker->notifyUsbInfo(strUsbInfos);
    Log::trace(QtInfoMsg, __func__, "dlxUsb usbInfos do not notify eventHandler.");
}

void DevRedirectInterface::sendConfigerInforToCamera(const QList<QString> &configerInfos)
{
    Log::module(QtInfoMsg, __func__,
                "devRedirect interface send configer info to camera, configerInfos: ", Log::Texts{configerInfos});
    m_devRedirectWorker->sendConfigerInforToCamera(configerInfos);
}
