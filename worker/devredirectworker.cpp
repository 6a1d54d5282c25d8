// SPDX-License-Identifier: LGPL-2.1-or-later

// Life cycle: what the worker keeps for the host, and the start of the component.

#include "worker/devredirectworker.h"

#include "component/redirecthandler.h"
#include "devices/devredirectmanger.h"
#include "interface/devparamfromclient.h"
#include "log/log.h"
#include "worker/portchannelglue.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QMutex>

DevRedirectWorker::DevRedirectWorker(QObject *parent) : QObject(parent) { }

DevRedirectWorker::~DevRedirectWorker() = default;

void DevRedirectWorker::setWorkerClientparam(const DevparamfromClient &param)
{
    const QMutexLocker lock(&s_mutext);
    m_localIp = param.localIp;
    m_remoteIp = param.vmIp;
}

void DevRedirectWorker::setQuitFlag(bool quit)
{
    m_bQuit = quit;
}

void DevRedirectWorker::setEventCallback(EventCallback callback)
{
    m_eventCallback = std::move(callback);
}

void DevRedirectWorker::setSendDevRedirectMsgToSpiceCallback(SendCallback callback)
{
    m_sendCallback = std::move(callback);
}

void DevRedirectWorker::onLoadDynamicLibByWorker()
{
    Log::plain(QtDebugMsg, "load dynamic Lib");
    m_redirectHandler->loadDynamicLib();
}

QString DevRedirectWorker::getConfigFilePath(bool &ok)
{
    QString path = QCoreApplication::applicationDirPath() + QDir::separator() + QStringLiteral("Device Redirect")
        + QDir::separator() + QStringLiteral("config.json");
    if (!QFileInfo::exists(path)) {
        Log::module(QtCriticalMsg, __func__, "config file is not exist!");
        ok = false;
    }
    return path;
}

void DevRedirectWorker::onLoadDevRedirComponentByWorker(const QString &vmId)
{
    Log::guard(QtInfoMsg, __func__, "vmId  ", vmId);
    if (vmId == QLatin1String("virApp") || vmId == QLatin1String("shareDesk")) {
        Log::module(QtInfoMsg, __func__, " vmId: virApp or shareDesk");
        loadDevRedirComponentByVirApp(vmId);
        return;
    }
    Log::trace(QtDebugMsg, __func__, " extrance.");

    QByteArray id = vmId.toLocal8Bit();
    if (vmId.isEmpty()) {
        Log::module(QtCriticalMsg, __func__, "load devRedir Component by worker failed: vm Id is null!");
        id = "DEBUG";
    }
    if (!m_eventCallback) {
        Log::module(QtCriticalMsg, __func__, "load devRedir Component by worker failed: notifyDevRedirEvent is null!");
        return;
    }
    bool ok = true;
    const std::string configPath = getConfigFilePath(ok).toStdString();
    if (!ok) {
        Log::module(QtCriticalMsg, __func__, "load devRedir Component by worker failed: get config file fail!");
        return;
    }
    if (!m_redirectHandler->loadRedirComponent(sendDevRedirectMsgToSpice, m_eventCallback, id.toStdString(),
                                               configPath)) {
        Log::module(QtCriticalMsg, __func__, " load Redir Component fail!");
    }
}

void DevRedirectWorker::loadDevRedirComponentByVirApp(const QString &vmId)
{
    bool ok = true;
    const std::string configPath = getConfigFilePath(ok).toStdString();
    if (!ok) {
        Log::trace(QtCriticalMsg, __func__, "load devRedir Component by virApp failed: get config file fail!");
        return;
    }
    if (m_redirectHandler->loadRedirComponent(SendCallback(), EventCallback(), vmId.toStdString(), configPath))
        Log::trace(QtInfoMsg, __func__, " load Redir Component success By virApp!");
    else
        Log::trace(QtCriticalMsg, __func__, " load Redir Component fail By virApp!");
}

void DevRedirectWorker::onResetParametersByThread()
{
    m_autoRefresh = true;
    setParameters();
}

void DevRedirectWorker::setParameters()
{
    Log::module(QtDebugMsg, __func__, "call UnShareAll");
    onUnShareAllByWorker();
    if (m_autoRefresh) {
        Log::trace(QtDebugMsg, __func__, " auto refresh device list.");
        const QList<ExterDeviceInfo> devices = DevRedirectManger::instance()->getMapDevListInfo();
        Q_EMIT deviceListResult(devices, !devices.isEmpty());
    }
}

void DevRedirectWorker::onReleaseDeviceResourceByWorker()
{
    m_redirectHandler->redirDeinit();
}

void DevRedirectWorker::stopMappingFunctionByWorker()
{
    m_redirectHandler->stopMappingFunction();
}
