// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "devices/devredirectmanger.h"
#include "support/component.h"
#include "support/eventlist.h"
#include "support/logrecorder.h"
#include "support/logtext.h"
#include "support/printing.h"
#include "worker/devredirectworker.h"

#include <gtest/gtest.h>

#include <QObject>

#include <string>
#include <vector>

/// The process's worker on the test's own thread, its component loaded, and every signal that it emits noted.
class WorkerBench : public ::testing::Test
{
protected:
    enum class Loaded { No, Yes };

    explicit WorkerBench(Loaded loaded = Loaded::Yes)
    {
        if (loaded == Loaded::Yes)
            worker.onLoadDynamicLibByWorker();
        log.clear();
        noteSignals();
    }

    static std::string word(bool value) { return value ? "true" : "false"; }

    static std::string idsOf(const QList<ExterDeviceInfo> &devices)
    {
        std::string ids;
        for (const ExterDeviceInfo &device : devices)
            ids += (ids.empty() ? "" : " ") + device.deviceId.toStdString();
        return "[" + ids + "]";
    }

    static ExterDeviceInfo deviceOfClass(const QString &rdrName)
    {
        ExterDeviceInfo device;
        device.rdrName = rdrName;
        device.deviceId = QStringLiteral("2-1.3");
        device.devicePosition = QStringLiteral("2-1.3-POS");
        return device;
    }

    static QList<ExterDeviceInfo> devicesWithIds(const QStringList &ids)
    {
        QList<ExterDeviceInfo> devices;
        for (const QString &id : ids) {
            devices.append(ExterDeviceInfo());
            devices.last().deviceId = id;
        }
        return devices;
    }

    /// A "redirCtrl" that returns \a result for every command.
    static std::function<RedirCtrl> returning(int result)
    {
        return [result](const std::string &, char *, int &) { return result; };
    }

    LogRecorder log;
    DevRedirectManger &registry = *DevRedirectManger::instance();
    DevRedirectWorker &worker = *registry.getRedirectWorkerInstance();
    Script &script = Component::script();
    QObject listener; ///< lives as long as the connections that a test makes
    EventList<std::string> events; ///< each signal with its arguments, as "name(argument, ...)"

private:
    void noteSignals()
    {
        using Worker = DevRedirectWorker;
        const auto noteResult = [this](const char *name) {
            return [this, name](const ExterDeviceInfo &device, bool result) {
                events.add(name + ("(" + device.deviceId.toStdString()) + ", " + word(result) + ")");
            };
        };
        const auto noteList = [this](const char *name) {
            return [this, name](const QList<ExterDeviceInfo> &devices) {
                events.add(name + ("(" + idsOf(devices)) + ")");
            };
        };
        QObject::connect(&worker, &Worker::deviceListResult, &listener,
                         [this](const QList<ExterDeviceInfo> &devices, bool status) {
                             events.add("deviceListResult(" + idsOf(devices) + ", " + word(status) + ")");
                         });
        QObject::connect(&worker, &Worker::redirectDeviceByIdResult, &listener, noteResult("redirectDeviceByIdResult"));
        QObject::connect(&worker, &Worker::unRedirectDeviceByIdResult, &listener,
                         noteResult("unRedirectDeviceByIdResult"));
        QObject::connect(&worker, &Worker::unRedirectDeviceAllResult, &listener,
                         [this](bool status) { events.add("unRedirectDeviceAllResult(" + word(status) + ")"); });
        QObject::connect(&worker, &Worker::sendMapCommandToVdiExterDevModel, &listener,
                         [this] { events.add("sendMapCommandToVdiExterDevModel()"); });
        QObject::connect(&worker, &Worker::diskMapResultInUsb, &listener,
                         [this](const QString &devName, const QString &operateType, bool status) {
                             events.add("diskMapResultInUsb(" + devName.toStdString() + ", " + operateType.toStdString()
                                        + ", " + word(status) + ")");
                         });
        QObject::connect(&worker, &Worker::shareDeviceResult, &listener, noteResult("shareDeviceResult"));
        QObject::connect(&worker, &Worker::sendDevListInfoToVirApp, &listener, noteList("sendDevListInfoToVirApp"));
        QObject::connect(&worker, &Worker::sendDevListInfoToShareDesk, &listener,
                         noteList("sendDevListInfoToShareDesk"));
    }
};
