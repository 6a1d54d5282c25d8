// SPDX-License-Identifier: LGPL-2.1-or-later

// Sharing, unsharing and releasing devices.

#include "interface/devredirectinterface.h"
#include "log/ratelimitedlog.h"
#include "worker/devredirectworker.h"

void DevRedirectInterface::deviceOperate(const QString &deviceId, const QString &operateType)
{
    Log::module(QtDebugMsg, __func__, " enter to call function. ");
    const ExterDeviceInfo device = getDeviceInfo(deviceId);
    if (operateType == QLatin1String("share"))
        redirectDeviceById(device);
    else if (operateType == QLatin1String("unshare"))
        unRedirectDeviceById(device);
    else
        Log::module(QtWarningMsg, __func__, " Redirect device  unkown operate type. operate type = ", operateType);
}

void DevRedirectInterface::redirectDeviceById(const ExterDeviceInfo &device)
{
    m_log->write([&device] {
        return QStringLiteral(" Redirect device by deviceID, emit redirectDeviceById message, device.rdrName: ")
            + device.rdrName;
    });
    Q_EMIT redirectDeviceByIdByThread(device);
}

void DevRedirectInterface::unRedirectDeviceById(const ExterDeviceInfo &device)
{
    m_log->write([&device] {
        return QStringLiteral(
                   " Cancle redirect device by deviceID, emit unRedirectDeviceById message, device.rdrName: ")
            + device.rdrName;
    });
    Q_EMIT unRedirectDeviceByIdByThread(device);
}

void DevRedirectInterface::unRedirectDeviceAll()
{
    infoLogOutput(QStringLiteral(" Cancel redirect all device, emit unRedirectDeviceAll message. "));
    if (!m_devRedirectWorker) {
        Log::module(QtCriticalMsg, __func__, "m_devRedirectWorker is null.");
        return;
    }
    Q_EMIT unRedirectDeviceAllByThread();
}

void DevRedirectInterface::syncUNRedirectDeviceAll()
{
    using Interface = DevRedirectInterface;
    using Worker = DevRedirectWorker;
    Worker *const worker = m_devRedirectWorker;
    disconnect(this, &Interface::loadDevRedirComponentByThread, worker, &Worker::onLoadDevRedirComponentByWorker);
    disconnect(this, &Interface::checkRedirChannelByThread, worker, &Worker::onCheckRedirChannelByWorker);
    disconnect(this, &Interface::redirectDeviceByIdByThread, worker, &Worker::onShareDeviceByWorker);
    disconnect(this, &Interface::unRedirectDeviceByIdByThread, worker, &Worker::onUnShareDeviceByWorker);
    disconnect(this, &Interface::unRedirectDeviceAllByThread, worker, &Worker::onUnShareAllByWorker);
    disconnect(this, &Interface::resetParametersByThread, worker, &Worker::onResetParametersByThread);
    disconnect(this, &Interface::notifyEventHandler, worker, &Worker::onNotifyEventHandler);
    disconnect(this, &Interface::getDevListAndMapping, worker, &Worker::onGetDevListAndMapping);
    worker->onUnShareAllByWorker();
}

void DevRedirectInterface::vmRebootReset()
{
    infoLogOutput(QStringLiteral(" Reset redirect Parameter, emit resetParameters message."));
    Q_EMIT resetParametersByThread();
}

void DevRedirectInterface::realeaseDeviceResource()
{
    infoLogOutput(QStringLiteral(" Realease device resource, emit realeaseDeviceResource message."));
    Q_EMIT realeaseDeviceResourceByThread();
}

void DevRedirectInterface::stopMappingFunctionByDevRedirInter()
{
    infoLogOutput(
        QStringLiteral(" Stop redirect mapping by device redirect internal, emit realeaseDeviceResource message. "));
    Q_EMIT stopMappingFunctionByThread();
}
