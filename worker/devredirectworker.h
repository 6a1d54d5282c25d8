// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "component/redirevents.h"
#include "devices/exterdeviceinfo.h"
#include "devredirectexport.h"
#include "worker/spiceportchannel.h"

#include <QList>
#include <QMutex>
#include <QObject>
#include <QString>

#include <atomic>
#include <cstdint>
#include <string>

class RedirectHandler;
struct DevparamfromClient;

/// \file
/// What the interface asks the component for, one request after the other.

/// Guards every worker's copy of the two client addresses, and nothing else. Not recursive. Never held while the
/// component or the host is called. \thread any
extern DEVREDIRECT_EXPORT QMutex s_mutext;

/// Does the work that talks to the redirection component. There is one worker, made and handed out by
/// DevRedirectManger. All component calls go through the one m_redirectHandler.
///
/// Before the component is loaded every call to it fails with a critical line: commands count as refused, lists are
/// not fetched. After setQuitFlag(true) what the component sends is dropped, everything else goes on as before.
///
/// \ownership DevRedirectInterface moves the worker to the worker thread and deletes it when that thread ends.
///
/// \thread A slot runs where its connection puts it: sharing, unsharing, reset, event handling and the
/// list-and-mapping request on the worker thread, the others on the thread that emits, normally the host's. A signal
/// is emitted on the thread that did the work. Each member says what else holds.
class DEVREDIRECT_EXPORT DevRedirectWorker : public QObject
{
    Q_OBJECT

public:
    explicit DevRedirectWorker(QObject *parent); ///< on the thread that makes it, until it is moved
    ~DevRedirectWorker() override; ///< neither stops nor unloads the component

    /// Keeps the two addresses that every device command carries. \thread any
    void setWorkerClientparam(const DevparamfromClient &param);
    /// true: the application is exiting, so what the component sends is dropped. One flag for all workers. \thread any
    void setQuitFlag(bool quit);
    /// An empty one keeps the component from starting for a virtual machine. \thread host, before the start
    void setEventCallback(EventCallback callback);
    /// Kept and never called: what the component sends goes to its port channel. \thread host, before the start
    void setSendDevRedirectMsgToSpiceCallback(SendCallback callback);

    /// Unshares everything and, as after every reset, publishes the mapped device list with deviceListResult().
    /// \thread any. It returns when the component has answered.
    void setParameters();
    /// The path of "config.json" in "Device Redirect" beside the executable. \a ok becomes false if there is no such
    /// file and is left alone otherwise: set it to true before the call. \thread host
    QString getConfigFilePath(bool &ok);
    /// Starts the component for "virApp" or "shareDesk": without a way to send and without an event sink. \thread host
    void loadDevRedirComponentByVirApp(const QString &vmId);

    /// Runs a JSON command; true if the component returned 0. What it answers is not looked at. \thread any
    bool excuteRedirectCmd(const QString &command);
    /// The same, for a camera policy. \thread any
    bool excuteSendCameraConfigerInfo(const QString &command);
    /// The same, for a USB device that comes or goes. \thread any
    bool excuteNotifyUsbInfoCmd(const QString &command);

    /// Builds a device command ("share", "unshare" or "unshareall"): compact JSON, keys in alphabetical order. Instead
    /// of \a deviceId a USBRDR device's spareTextA, if it is not empty, goes out in a "share". \thread any
    QString structCtrlCommand(const QString &ignored, const QString &deviceId, const QString &command,
                              const ExterDeviceInfo &device);
    /// Builds a "devchange" command. \a fileDescriptor is an open descriptor of the device, or 0.
    /// \ownership The descriptor stays the caller's.
    /// \thread any
    QString structUsbInfoCommand(const QString &deviceName, const QString &devicePosition, const QString &deviceAttach,
                                 int fileDescriptor);
    /// Builds a "setpolicy" command for cameras; an empty list gives an empty policy. \thread any
    QString structCameraConfigerInfoCommand(const QList<QString> &policies);

    /// RedirectHandler::checkRedirChannel() of the one handler. \thread any
    bool checkRedirChannel(std::string channelName, void **context);
    /// RedirectHandler::setupRedirContext() of the one handler.
    /// \ownership \a channel has to live until the component has sent its first message on it.
    /// \thread any
    bool setupRedirContext(void *context, void *channel);
    /// RedirectHandler::handlerRedirData() of the one handler. \thread any
    void handlerRedirData(char *data, int length, void *context);
    /// RedirectHandler::handlerRedirNoticeEvent() of the one handler. \thread any
    void handlerRedirNoticeEvent(ChannelEvent event, char *data, int length, void *context);

    /// Asks the component for its device list; true if it returned 0. \a buffer receives the document, \a length is
    /// its capacity in bytes and then the document's length, always within 0 and the capacity: a component that
    /// succeeds and claims another one gets one warning line.
    /// \ownership \a buffer is borrowed for the call.
    /// \thread any
    bool getDevList(char *buffer, int &length);
    /// Reads a device list (see parseExternalDeviceList()), stores it in the registry, also when it is empty, and
    /// emits sendMapCommandToVdiExterDevModel() unless the last one has not been handled yet. \thread any
    void mappingDeviceInDevList(char *buffer, unsigned int length);
    /// Emits sendMapCommandToVdiExterDevModel(); the list is only counted for the log. \thread any
    void sendMappingCommandToRedirectCom(QList<ExterDeviceInfo> &devices);
    /// Writes a list to the log, one line a device. \a devices is only read. \thread any
    void printfDevList(QList<ExterDeviceInfo> &devices);

    /// Does what DevRedirectInterface::notifyUsbInfo() asks for.
    /// \thread any. It returns when the component has answered.
    void notifyUsbInfo(const QString &strUsbInfos);
    /// Does what DevRedirectInterface::sendConfigerInforToCamera() asks for.
    /// \thread any. It returns when the component has answered.
    void sendConfigerInforToCamera(const QList<QString> &policies);

    /// The process's one handler; never null.
    /// \ownership The process's: it is never deleted.
    static RedirectHandler *m_redirectHandler;
    static std::atomic<bool> m_bQuit; ///< the application is exiting

Q_SIGNALS:
    /// After a reset: the published list; \a status is false if it is empty.
    void deviceListResult(const QList<ExterDeviceInfo> &devices, bool status);
    /// Never emitted. \sa shareDeviceResult()
    void redirectDeviceByIdResult(const ExterDeviceInfo &device, bool result);
    /// Has the component given \a device back?
    void unRedirectDeviceByIdResult(const ExterDeviceInfo &device, bool status);
    /// Has the component given all devices back?
    void unRedirectDeviceAllResult(bool status);
    void sendMapCommandToVdiExterDevModel(); ///< there is a new list in the registry
    /// Has the component taken a "diskrdr" device? \a devName is its devicePosition, \a operateType "Map".
    void diskMapResultInUsb(QString devName, QString operateType, bool status);
    /// Has the component taken a device that is not a "usbrdr" one?
    void shareDeviceResult(const ExterDeviceInfo &device, bool result);
    /// The list for the virtual application view.
    void sendDevListInfoToVirApp(const QList<ExterDeviceInfo> &deviceInfos);
    /// The list for the shared desktop view.
    void sendDevListInfoToShareDesk(const QList<ExterDeviceInfo> &deviceInfos);

public Q_SLOTS:
    /// Loads the component library.
    void onLoadDynamicLibByWorker();
    /// Starts the component for a virtual machine, under "DEBUG" if \a vmId is empty; see also
    /// loadDevRedirComponentByVirApp(). Needs an event callback and "config.json". Failure shows in the log only.
    void onLoadDevRedirComponentByWorker(const QString &vmId);
    /// Binds a port channel to the component if that knows its name. Each call binds once more. \a isOpened: the port
    /// is open already.
    /// \ownership \a channel is borrowed and alive; what is bound to it ends when it goes.
    void onCheckRedirChannelByWorker(SpicePortChannel *channel, const QString &channelName, bool isOpened);
    /// Shares a device. A "usbrdr" device's outcome is reported by the component's events, any other's by
    /// shareDeviceResult(), a "diskrdr" device's also by diskMapResultInUsb().
    void onShareDeviceByWorker(const ExterDeviceInfo &device);
    /// Takes a device back; the outcome is unRedirectDeviceByIdResult().
    void onUnShareDeviceByWorker(const ExterDeviceInfo &device);
    void onUnShareAllByWorker(); ///< takes all devices back; the outcome is unRedirectDeviceAllResult()
    void onResetParametersByThread(); ///< setParameters() with the list published
    void onReleaseDeviceResourceByWorker(); ///< stops the component
    void onNotifyEventHandler(); ///< something changed: fetches the list and maps it
    void onGetDevListAndMapping(); ///< the host asked: fetches the list and maps it
    void stopMappingFunctionByWorker(); ///< cuts the component off
    void onGetDevListByVirApp(); ///< fetches the list for the virtual application view
    void onGetDevListByShareDesk(); ///< fetches the list for the shared desktop view

private:
    using ListSignal = void (DevRedirectWorker::*)(const QList<ExterDeviceInfo> &);
    void sendDevList(const char *method, ListSignal signal);

    void *m_contextWord = nullptr; ///< used by nobody
    std::atomic<bool> m_autoRefresh{true};
    EventCallback m_eventCallback;
    QString m_localIp; ///< guarded by s_mutext
    QString m_remoteIp; ///< guarded by s_mutext
    std::uint16_t m_port = 50240; ///< used by nobody: "remotePort" is always empty
    SendCallback m_sendCallback;
};
