// SPDX-License-Identifier: LGPL-2.1-or-later

// The life of the program: connect, load, bind, and leave.

#include "host.h"

#include <QCoreApplication>

#include <spice-client.h> // a connection to a signal needs its arguments' types

namespace {
constexpr int DeadlineMilliseconds = 15000;
Host *theHost = nullptr; // the map callback is a plain function
} // namespace

Host::Host(Options options)
    : m_options(std::move(options)), m_output(m_options.json), m_requests(m_options.requests),
      m_expectMore(m_options.interactive)
{
    theHost = this;
    m_deadline.setSingleShot(true);
    m_deadline.setInterval(DeadlineMilliseconds);
    connect(&m_deadline, &QTimer::timeout, this, &Host::timedOut);
    connect(&m_session, &SpicePortSession::portFound, this, &Host::portFound);
    connect(&m_session, &SpicePortSession::closed, this, [this](const QString &reason) {
        if (m_leaving)
            return;
        m_output.tell("disconnected",
                      QStringLiteral("connection lost: %1. Is the virtual machine running, and is this "
                                     "its SPICE address: %2?")
                          .arg(reason, m_options.uri));
        leave(ExitCode::NoConnection);
    });
}

Host::~Host()
{
    theHost = nullptr;
}

void Host::start()
{
    m_deadline.start();
    loadComponent();
    m_session.connectTo(m_options.uri);
}

void Host::loadComponent()
{
    m_redirect = std::make_unique<DevRedirectInterface>(nullptr);
    connectResults();
    m_redirect->setClientParam({QString(), m_options.uri});
    m_redirect->sendMapCommandByDevModel(&Host::onDeviceList);
    m_redirect->setNotifyEventCallback([this](void *, RedirEvent event, const char *text, int length) {
        QMetaObject::invokeMethod(
            this, [this, event, text = QByteArray(text, length)] { componentReported(event, text); },
            Qt::QueuedConnection);
    });
    Q_EMIT m_redirect->loadDynamicLib();
    Q_EMIT m_redirect->loadDevRedirComponentByThread(m_options.vmId);
    m_redirect->getDeviceListFromUniqueFrame();
    m_output.tell("loading", QStringLiteral("component: asked to start"));
}

void Host::portFound(SpicePortChannel *channel, const QString &name, bool isOpened)
{
    // Which names are the component's own only the component knows: it logs the others and leaves them alone.
    if (!m_redirect || m_leaving)
        return;
    Q_EMIT m_redirect->checkRedirChannelByThread(channel, name, isOpened);
    m_channelBound = true;
    m_output.tell(
        "channel",
        QStringLiteral("channel: %1 (%2)").arg(name, isOpened ? QStringLiteral("open") : QStringLiteral("closed")));
    shareByRules();
    runNext();
}

void Host::onDeviceList(QList<ExterDeviceInfo> &devices)
{
    if (theHost)
        theHost->devicesListed(devices);
}

void Host::devicesListed(const QList<ExterDeviceInfo> &devices)
{
    if (!m_listed) {
        m_listed = true;
        for (const ExterDeviceInfo &device : devices)
            m_unjudged.insert(device.deviceId);
        m_output.tell("started", QStringLiteral("component: started, %1 devices").arg(devices.size()));
    }
    shareByRules();
    runNext();
}

// Each device is looked at once for each plug: one that the user takes back stays where it is.
void Host::shareByRules()
{
    if (!m_options.autoShare || !m_channelBound || m_unjudged.isEmpty() || m_leaving)
        return;
    for (const ExterDeviceInfo &device : listNow()) {
        if (m_unjudged.remove(device.deviceId)
            && m_options.autoRules.allow(device.deviceClass, device.vendorId, device.productId, false))
            request(QStringLiteral("share ") + device.deviceId);
    }
}

void Host::timedOut()
{
    if (!m_listed) {
        m_output.tell("error",
                      QStringLiteral("the component does not answer. Is libdevredir.so with its config.json in "
                                     "\"%1/Device Redirect\"? --log-rules '*=true' shows why.")
                          .arg(QCoreApplication::applicationDirPath()));
        leave(ExitCode::NoComponent);
    } else if (!m_channelBound) {
        m_output.tell("error",
                      QStringLiteral("the virtual machine offers no channel for devices. It needs a port whose "
                                     "name begins with \"channelPrefix\" of config.json."));
        leave(ExitCode::NoChannel);
    } else {
        requestFailed(
            QStringLiteral("no outcome of \"%1\" within %2 seconds").arg(m_current).arg(DeadlineMilliseconds / 1000),
            QString());
        m_pending.clear();
        finishedPart();
    }
}

void Host::leave(int exitCode)
{
    if (m_leaving)
        return;
    m_leaving = true;
    m_exitCode = exitCode != ExitCode::Success ? exitCode : m_exitCode;
    m_deadline.stop();
    if (m_shared.isEmpty()) {
        quit();
        return;
    }
    m_output.tell("leaving", QStringLiteral("taking back %1 devices").arg(m_shared.size()));
    connect(m_redirect.get(), &DevRedirectInterface::unRedirectDeviceAllResult, this, &Host::quit);
    QTimer::singleShot(DeadlineMilliseconds, this, &Host::quit);
    m_redirect->unRedirectDeviceAll();
}

void Host::quit()
{
    if (!m_redirect)
        return;
    // What the component has sent to say goodbye goes out first.
    for (int i = 0; i < 20; ++i)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
    m_redirect->setQuitFlag(true);
    m_redirect->realeaseDeviceResource();
    m_redirect.reset();
    m_session.disconnectFromServer();
    m_output.tell("bye", QStringLiteral("bye"));
    QCoreApplication::exit(m_exitCode);
}
