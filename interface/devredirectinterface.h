// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "component/redirevents.h"
#include "devices/exterdeviceinfo.h"
#include "devredirectexport.h"
#include "interface/devparamfromclient.h"
#include "worker/spiceportchannel.h"

#include <QList>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QThread>

#include <atomic>
#include <memory>
#include <string>

class DevRedirectWorker;
class ProcessEnd;
class RateLimitedLog;
class WatchMountWorker;

/// \file
/// What a host includes.

/// The library's one object for the host: makes local USB devices, USB disks and cameras usable in a virtual machine.
/// Create it on the host's main thread, one at a time, when there is a QCoreApplication with GLib's event loop. (A new
/// one may be made just before the old one is destroyed, as std::unique_ptr::reset() does. The old one may then only be
/// destroyed, and the new one needs its map callback before the event loop runs again: it may be handed a list that
/// the old one had not seen.) Then, in this order:
///  -# setClientParam(), setNotifyEventCallback(), sendMapCommandByDevModel(): the component starts only with an event
///     callback, and the map callback is called without a check.
///  -# Connect to the results that are wanted.
///  -# Emit loadDynamicLib() and ask isComponentLoaded(); componentLoadError() says why not.
///  -# Emit loadDevRedirComponentByThread() and ask isComponentStarted().
///  -# For each port channel whose name is known emit checkRedirChannelByThread(), once.
///  -# getDeviceListFromUniqueFrame(), deviceOperate() and so on. notifyEvent() only if the host can live with a
///     destructor that waits until the mount table changes.
///
/// At the end of the session, in this order:
///  -# Take the devices back: unRedirectDeviceAll() and wait for unRedirectDeviceAllResult(), or
///     syncUNRedirectDeviceAll(). The component then says goodbye to the virtual machine.
///  -# Let the main loop run until the ports that were announced are connected and what was sent has been written, a
///     second at most: a SPICE server may not survive a client that leaves earlier.
///  -# setQuitFlag(true): messages of the component are dropped from now on.
///  -# realeaseDeviceResource(): stops the component.
///  -# Destroy this object.
///  -# Disconnect the SPICE session: no channel goes away under a component that still uses it.
///
/// A second object needs its parameters and callbacks set again, and setQuitFlag(false): the quit flag and the last
/// lists belong to the process and outlive the object.
///
/// Nothing here throws and no call reports failure by itself unless it says so: a request that was accepted is not its
/// outcome, the outcome comes as the signal that is named there, and the reason of a failure stands in the log. Before
/// the component is loaded every request ends as refused (a signal with false, or none where none is named). After
/// setQuitFlag(true) messages of the component are dropped and everything else works as before.
///
/// \ownership The host owns the object, or its parent does. Callbacks are copied. Channels, contexts, buffers and
/// texts are borrowed for the call, unless it says otherwise.
///
/// \thread host for every member, unless it says otherwise. That is the thread that made the object. "worker" and
/// "mount" are the two that the object has of its own; "any" is each of these, and the component's, and others.
class DEVREDIRECT_EXPORT DevRedirectInterface : public QObject
{
    Q_OBJECT

public:
    /// What receives a new device list. It may change, add and remove records; what it leaves is what getDeviceList()
    /// returns from then on. It may neither run an event loop nor call notifyUsbInfo(): both can publish a newer list,
    /// which this list would then replace. \thread host
    using MapCallback = void (*)(QList<ExterDeviceInfo> &devices);

    /// Starts the worker thread and the mount thread. \a parent may be null.
    explicit DevRedirectInterface(QObject *parent);

    /// Stops both threads and waits for them, without a limit: for the worker's current operation, so as long as the
    /// component takes, and for a watch that notifyEvent() started, which ends only when the mount table changes. A
    /// host that cannot wait for that makes such a change itself (a mount and an unmount in the mount namespace of this
    /// process), or leaves the object alone and ends the process. Requests that have not begun are dropped. The
    /// component is neither stopped nor unloaded. If the application object goes first, or exit() is called, both
    /// threads take no more requests from then on.
    ~DevRedirectInterface() override;

    // --- device operations ---

    /// Shares (\a operateType "share") or unshares ("unshare") the device of this identifier. One that is not in the
    /// list is logged and goes on as a default record, which the component refuses. Any other type is only logged.
    void deviceOperate(const QString &deviceId, const QString &operateType);

    /// Shares \a device with the virtual machine. Queued to the worker thread; requests run in the order in which they
    /// were made. The outcome arrives as shareDeviceResultByInterface(), for a "diskrdr" device also as
    /// diskMapResultInUsbByInter(); a "usbrdr" device's comes from the component through the event callback only.
    void redirectDeviceById(const ExterDeviceInfo &device);
    /// Takes \a device back. Queued; the outcome arrives as unRedirectDeviceByIdResult().
    void unRedirectDeviceById(const ExterDeviceInfo &device);
    /// Takes all devices back. Queued; the outcome arrives as unRedirectDeviceAllResult().
    void unRedirectDeviceAll();
    /// Takes all devices back before it returns, and ends the taking of requests: from then on this object starts no
    /// component, binds no channel, shares, unshares and resets nothing, and getDeviceListFromUniqueFrame() does
    /// nothing. Lists are still fetched for the two views, by notifyUsbInfo(), and at the end of a watch, also of one
    /// that notifyEvent() starts only now. What was queued before may still run on the worker thread. Blocks for as
    /// long as the component takes.
    void syncUNRedirectDeviceAll();
    /// The virtual machine was restarted: takes all devices back and publishes the list again. Queued; the outcome
    /// arrives as unRedirectDeviceAllResult() and then deviceListResultByThread().
    void vmRebootReset();
    /// Stops the component ("redirDeinit"). Blocks for as long as the component takes.
    void realeaseDeviceResource();
    /// Cuts the component off: until it is loaded again only realeaseDeviceResource() reaches it.
    void stopMappingFunctionByDevRedirInter();

    // --- parameters, callbacks, events ---

    /// Sets the addresses that the component is told with each command. Empty texts are allowed. \thread any
    void setClientParam(const DevparamfromClient &param);
    /// Sets the host's event sink, before the component is started. The component calls it from its own threads.
    void setNotifyEventCallback(EventCallback callback);
    /// Keeps the callback, which is not called: the component's messages go to their port channel.
    void setSendDevRedirectMsgToSpiceCallback(SendCallback callback);
    /// true: the session ends, so messages of the component are dropped. \thread any
    void setQuitFlag(bool quit);

    /// Joins a component's context to its channel, for a host that binds channels itself. False: the component wants
    /// to be told of an open channel by handlerRedirNoticeEvent(), or could not be asked.
    /// \ownership \a channel has to live until the component has sent its first message on it;
    /// checkRedirChannelByThread() does not ask for that.
    /// \thread any
    bool setupRedirContext(void *context, void *channel);
    /// Asks whether the channel of this name (UTF-8) is the component's: 1 yes, 0 no. \a context, which may not be
    /// null, receives its context.
    /// \ownership The context is the component's, until it is stopped.
    /// \thread any
    int checkRedirChannel(std::string channelName, void **context);
    /// Hands \a length bytes from the channel to the component. \thread any
    void handlerRedirData(char *data, int length, void *context);
    /// Hands a channel event to the component. With a null \a context it is only logged. \thread any
    void handlerRedirNoticeEvent(ChannelEvent event, char *text, int length, void *context);

    /// Fetches the device list now, and again when the mount table has changed and every USB disk is mounted. Queued;
    /// each call adds one watch, which keeps the mount thread until the next change (see the destructor).
    void notifyEvent();

    // --- queries and notifications ---

    /// What became of loadDynamicLib(), which does its work before it returns: is the component loaded, with all its
    /// entry points? \thread any
    bool isComponentLoaded() const;
    /// If not, why: one line for people. Empty before the first loadDynamicLib() and if all is well. \thread any
    QString componentLoadError() const;
    /// What became of loadDevRedirComponentByThread(), which does its work before it returns: what the component's
    /// "redirInit" returned last; false again when realeaseDeviceResource() has stopped it. A start that does not get
    /// as far as "redirInit" changes nothing. \thread any
    bool isComponentStarted() const;

    /// The record of this identifier; a default record, and one warning line, if it is not in the list. \thread any
    ExterDeviceInfo getDeviceInfo(const QString &deviceId);
    /// The list as it was last published through the map callback. \thread any
    QList<ExterDeviceInfo> getDeviceList();
    /// Asks the component for its list. Queued; it arrives through the map callback.
    void getDeviceListFromUniqueFrame();
    /// Sets the map callback; null is refused with a critical line. The callback is called without a check, so set one
    /// before a list is asked for.
    void sendMapCommandByDevModel(MapCallback callback);
    /// Tells the component of USB devices that were plugged in or pulled out, and fetches the list again: "product
    /// name:device name:attach state:file descriptor", several separated by ";". The first three are passed on unread,
    /// so what they mean is the component's. An entry of fewer fields is skipped with a warning line, further fields
    /// are ignored, a descriptor that is no number counts as 0. Empty: only the list is fetched. Blocks for as long as
    /// the component takes.
    /// \ownership Descriptors stay the caller's.
    /// \thread any
    void notifyUsbInfo(const QString &strUsbInfos);
    /// Sends a camera policy to the component: rules in the component's own words, passed on unread. An empty list is
    /// sent as an empty policy. Blocks for as long as the component takes. \thread any
    void sendConfigerInforToCamera(const QList<QString> &configerInfos);

    /// Writes a line to this object's rate-limited log channel. \thread any
    void infoLogOutput(const QString &text);

Q_SIGNALS:
    // Requests say "request", results "result". A result is emitted on the host's thread unless it says otherwise.

    /// Request, for the host to emit: load the component library. Runs at once on the emitting thread.
    void loadDynamicLib();
    /// Request, for the host to emit: start the component for this virtual machine. Runs at once. Needs an event
    /// callback and "config.json". "virApp" and "shareDesk" start it without channel and event sink. An empty
    /// identifier is logged and counts as "DEBUG".
    void loadDevRedirComponentByThread(const QString &vmId);
    /// Request, for the host to emit: bind this port channel if it is the component's. Runs at once. Emit it once for
    /// each channel: every time binds once more.
    /// \ownership \a channel, which may not be null, is borrowed; what is bound to it ends when it goes.
    void checkRedirChannelByThread(SpicePortChannel *channel, const QString &channelName, bool isOpened);
    /// Result of vmRebootReset(): the published list; \a status is false if it is empty.
    void deviceListResultByThread(const QList<ExterDeviceInfo> &devices, bool status);
    void redirectDeviceByIdByThread(const ExterDeviceInfo &device); ///< request of redirectDeviceById()
    /// Declared for hosts that connect to it; never emitted. \sa shareDeviceResultByInterface()
    void redirectDeviceByIdResult(const ExterDeviceInfo &device, bool result);
    void unRedirectDeviceByIdByThread(const ExterDeviceInfo &device); ///< request of unRedirectDeviceById()
    void unRedirectDeviceAllByThread(); ///< request of unRedirectDeviceAll()
    void unRedirectDeviceByIdResult(const ExterDeviceInfo &device, bool status); ///< result of unRedirectDeviceById()
    /// Result of unRedirectDeviceAll(), syncUNRedirectDeviceAll() and vmRebootReset().
    void unRedirectDeviceAllResult(bool result);
    void resetParametersByThread(); ///< request of vmRebootReset()
    void realeaseDeviceResourceByThread(); ///< request of realeaseDeviceResource(); runs at once
    void notifyEventHandler(); ///< request of notifyEvent(): fetch the list
    void myWatchMount(); ///< request of notifyEvent(): watch the mount table
    /// Result for a "diskrdr" device that was to be shared. \a devName is its devicePosition, \a operateType "Map".
    /// \thread worker
    void diskMapResultInUsbByInter(QString devName, QString operateType, bool status);
    void getDevListAndMapping(); ///< request of getDeviceListFromUniqueFrame()
    void stopMappingFunctionByThread(); ///< request of stopMappingFunctionByDevRedirInter(); runs at once
    /// Result of redirectDeviceById() for every device except a "usbrdr" one.
    void shareDeviceResultByInterface(const ExterDeviceInfo &device, bool result);
    /// Request, for the host to emit: fetch the list for the virtual application view. Runs at once. No result comes
    /// if the component refuses.
    void getDevListByVirApp();
    /// Result of getDevListByVirApp(): the list, which is not published. \thread the one that emitted the request
    void sendDevListInfoToVirAppByDevInter(const QList<ExterDeviceInfo> &deviceInfos);
    /// Request, for the host to emit: the same for the shared desktop view.
    void getDevListByShareDesk();
    /// Result of getDevListByShareDesk(). \thread the one that emitted the request
    void sendDevListInfoToShareDeskByDevInter(const QList<ExterDeviceInfo> &deviceInfos);

public Q_SLOTS:
    /// Gives the latest list to the map callback and publishes what it leaves. Called when a new list has come.
    void onSendMapCommandByDevRedInter();

private:
    class CallFilter;
    void connectWorker();
    void endThreads();

    QThread m_workerThread;
    QPointer<DevRedirectWorker> m_devRedirectWorker; ///< not owned; dies with the worker thread
    MapCallback m_mapCallback = nullptr;
    QThread m_mountThread;
    QPointer<WatchMountWorker> m_watchMountWorker; ///< not owned; dies with the mount thread
    const std::unique_ptr<RateLimitedLog> m_log;
    std::atomic<bool> m_isDropping{false}; ///< what is queued is not done any more
    std::atomic<int> m_dropped{0};
    std::unique_ptr<ProcessEnd> m_processEnd;
};
