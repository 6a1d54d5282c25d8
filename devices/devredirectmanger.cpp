// SPDX-License-Identifier: LGPL-2.1-or-later
#include "devices/devredirectmanger.h"

#include "log/log.h"
#include "worker/devredirectworker.h"

#include <QThread>

DevRedirectManger *DevRedirectManger::m_instance = nullptr;

DevRedirectManger *DevRedirectManger::instance()
{
    if (!m_instance)
        m_instance = new DevRedirectManger(nullptr);
    return m_instance;
}

DevRedirectManger::DevRedirectManger(QObject *parent) : QObject(parent)
{
    adoptNewWorker();
}

DevRedirectManger::~DevRedirectManger() = default;

void DevRedirectManger::adoptNewWorker()
{
    auto *worker = new DevRedirectWorker(nullptr);
    m_worker = worker;
    connect(
        worker, &QObject::destroyed, this,
        [this, worker] {
            DevRedirectWorker *expected = worker;
            m_worker.compare_exchange_strong(expected, nullptr); // unless another one has taken its place
        },
        Qt::DirectConnection);
}

DevRedirectWorker *DevRedirectManger::getRedirectWorkerInstance()
{
    if (!m_worker)
        adoptNewWorker();
    return m_worker;
}

void DevRedirectManger::provideFreeWorker()
{
    if (getRedirectWorkerInstance()->thread() != QThread::currentThread())
        adoptNewWorker();
}

QList<ExterDeviceInfo> DevRedirectManger::getDevListInfo()
{
    const QMutexLocker lock(&m_mutex);
    return m_devices;
}

void DevRedirectManger::setDevListInfo(QList<ExterDeviceInfo> &devices)
{
    const QMutexLocker lock(&m_mutex);
    m_devices = devices;
}

QList<ExterDeviceInfo> DevRedirectManger::getMapDevListInfo()
{
    QMutexLocker lock(&m_mutex);
    const QList<ExterDeviceInfo> devices = m_mapDevices;
    lock.unlock();
    if (Log::enabled(QtDebugMsg)) {
        Log::module(QtDebugMsg, __func__, " Print device map list, list size = ", devices.size());
        for (const ExterDeviceInfo &device : devices)
            Log::guard(QtDebugMsg, __func__, "i: ", device.getDevInfo());
    }
    return devices;
}

void DevRedirectManger::setMapsDevListInfo(QList<ExterDeviceInfo> &devices)
{
    const QMutexLocker lock(&m_mutex);
    m_mapDevices = devices;
}

QString DevRedirectManger::getdevListJsonStr()
{
    const QMutexLocker lock(&m_mutex);
    return m_document;
}

void DevRedirectManger::setDevListJsonStr(const QString &text)
{
    const QMutexLocker lock(&m_mutex);
    m_document = text;
}

bool DevRedirectManger::getIsHandlerNotifyEvent()
{
    return m_notifyGate;
}

void DevRedirectManger::setIsHandlerNotifyEvent(bool armed)
{
    m_notifyGate = armed;
}

void DevRedirectManger::passNotificationOn()
{
    if (m_notifyGate)
        return;
    if (DevRedirectWorker *const heir = m_worker)
        QMetaObject::invokeMethod(heir, &DevRedirectWorker::sendMapCommandToVdiExterDevModel, Qt::QueuedConnection);
    else
        m_notifyGate = true;
}

bool DevRedirectManger::getDeviceInfoByDeviceId(const QString &deviceId, ExterDeviceInfo *out)
{
    if (!out)
        return false;
    const QList<ExterDeviceInfo> devices = getDevListInfo();
    for (const ExterDeviceInfo &device : devices) {
        if (device.deviceId != deviceId)
            continue;
        const QString spareTextB = out->spareTextB;
        const QList<FunctionInfo> functions = out->functions + device.functions;
        *out = device;
        out->spareTextB = spareTextB;
        out->functions = functions;
        return true;
    }
    return false;
}
