// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "devices/exterdeviceinfo.h"
#include "devredirectexport.h"

#include <QList>
#include <QMutex>
#include <QObject>
#include <QString>

#include <atomic>

class DevRedirectWorker;

/// \file
/// The registry of devices.

/// The process-wide registry of device state: it keeps the latest device list that the worker fetched, the map device
/// list that was last published to the host, the gate that lets one "map" notification be outstanding at a time, and
/// the process's one worker. Nothing of it depends on the component: before one is loaded the lists are empty.
///
/// \thread any, but the first call of instance() must have returned before a second thread calls it
/// (DevRedirectInterface makes it). Lists and text are replaced whole; readers get copies.
class DEVREDIRECT_EXPORT DevRedirectManger : public QObject
{
    Q_OBJECT

public:
    /// The one registry, made on the first call and never deleted.
    static DevRedirectManger *instance();

    /// Makes a registry apart from the one of instance(), with a worker and lists of its own. The library uses only
    /// that one. \a parent may be null.
    explicit DevRedirectManger(QObject *parent);
    ~DevRedirectManger() override; ///< leaves the worker to whoever has it

    /// The latest list that was fetched from the component.
    QList<ExterDeviceInfo> getDevListInfo();
    /// Keeps a copy of \a devices as the latest list.
    void setDevListInfo(QList<ExterDeviceInfo> &devices);

    /// The list that was last published to the host. It is written to the log, one line a device.
    QList<ExterDeviceInfo> getMapDevListInfo();
    /// Keeps a copy of \a devices as the published list.
    void setMapsDevListInfo(QList<ExterDeviceInfo> &devices);

    /// The text form of the document that was parsed last: empty, since a list document is an array.
    QString getdevListJsonStr();
    /// Replaces that text.
    void setDevListJsonStr(const QString &text);

    /// The process's one worker; never null. When it has died, the next call, which the next interface's constructor
    /// has to make, makes a new one on the calling thread.
    /// \ownership Borrowed: it dies with the worker thread of the DevRedirectInterface that uses it.
    DevRedirectWorker *getRedirectWorkerInstance();

    /// Makes sure that the worker is free to be moved to a thread by the caller: one that already lives on another
    /// thread belongs to an interface that has not been destroyed yet, or was left behind by one that outlived the
    /// application object; a new worker takes its place here.
    /// \thread host
    void provideFreeWorker();

    /// May a new list raise a "map" notification? True at the start. The worker makes it false when it raises one, the
    /// interface makes it true again when it handles that.
    bool getIsHandlerNotifyEvent();
    /// Opens or closes that gate.
    void setIsHandlerNotifyEvent(bool armed);

    /// For an interface that goes and takes with it a notification that it has not handled: the worker of the one that
    /// lives raises it again, or the next list will. \thread host
    void passNotificationOn();

    /// Looks a device up in the latest list.
    ///
    /// \param deviceId  the first record with exactly this one counts
    /// \param out       receives the record. Its spareTextB stays as it is, and the functions are appended to those
    ///                  that it already has: give a fresh record to get a plain copy. Untouched without a match.
    /// \return false without a match or if \a out is null
    bool getDeviceInfoByDeviceId(const QString &deviceId, ExterDeviceInfo *out);

private:
    void adoptNewWorker();

    static DevRedirectManger *m_instance;

    QMutex m_mutex; ///< guards the lists and the text
    QList<ExterDeviceInfo> m_devices;
    QString m_document;
    QList<ExterDeviceInfo> m_mapDevices;
    std::atomic<DevRedirectWorker *> m_worker{nullptr};
    std::atomic<bool> m_notifyGate{true};
};
