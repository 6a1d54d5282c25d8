// SPDX-License-Identifier: LGPL-2.1-or-later

// A host in one file. It needs a redirection component in "Device Redirect" beside the program.
//   minimal-host                   lists this machine's devices and ends
//   minimal-host ADDRESS [DEVICE]  connects to a virtual machine (spice://HOST:PORT or spice+unix:///PATH), lists,
//                                  shares the device of this identifier, and stays until it is interrupted

#include <interface/devredirectinterface.h>

#include <QCoreApplication>
#include <QTimer>

#include <cstdio>
#include <memory>

#include <glib-unix.h>
#include <spice-client.h>

static std::unique_ptr<DevRedirectInterface> redirect;
static QString wanted; // the device to be shared
static bool isShared = false; // there is a list for each port: the first port may be somebody else's
static SpiceSession *session = nullptr; // null if there is only a list to be shown

// The map callback: each new list comes here, on the main thread, before getDeviceList() returns it.
static void onDeviceList(QList<ExterDeviceInfo> &devices)
{
    for (const ExterDeviceInfo &device : devices) {
        std::printf("%s  %s  %s\n", qPrintable(device.deviceId), qPrintable(device.deviceName),
                    device.status == 2 ? "shared" : "local");
        if (!isShared && device.status != 2 && device.deviceId == wanted) // as soon as the list is published
            QTimer::singleShot(0, redirect.get(), [] { redirect->deviceOperate(wanted, QStringLiteral("share")); });
    }
    if (!session)
        QCoreApplication::quit();
}

// Hand each port channel over once, as soon as its name is known. The component knows which ones are its own.
static void onPortName(SpicePortChannel *port, GParamSpec *, gpointer)
{
    g_autofree gchar *name = nullptr;
    gboolean isOpened = FALSE;
    g_object_get(port, "port-name", &name, "port-opened", &isOpened, nullptr);
    Q_EMIT redirect->checkRedirChannelByThread(port, QString::fromUtf8(name), isOpened);
    redirect->getDeviceListFromUniqueFrame();
}

static void onMainChannelEvent(SpiceChannel *, SpiceChannelEvent event, gpointer)
{
    if (event == SPICE_CHANNEL_OPENED)
        return;
    std::fprintf(stderr, "The connection failed or has ended.\n");
    QCoreApplication::exit(4);
}

static void onChannelNew(SpiceSession *, SpiceChannel *channel, gpointer)
{
    if (SPICE_IS_MAIN_CHANNEL(channel))
        g_signal_connect(channel, "channel-event", G_CALLBACK(onMainChannelEvent), nullptr);
    if (!SPICE_IS_PORT_CHANNEL(channel))
        return;
    g_signal_connect(channel, "notify::port-name", G_CALLBACK(onPortName), nullptr);
    spice_channel_connect(channel);
}

int main(int argc, char **argv)
{
    // Qt's event loop is GLib's on Linux, so that SPICE runs in it. Do not set QT_NO_GLIB.
    QCoreApplication application(argc, argv);
    const auto quit = [](void *) -> gboolean { return QCoreApplication::quit(), TRUE; };
    g_unix_signal_add(SIGINT, quit, nullptr);
    wanted = QString::fromLocal8Bit(argc > 2 ? argv[2] : "");

    // 1. The callbacks come first: the map callback is called without a check, and without an event callback the
    //    component is not started. Events come on the component's threads.
    redirect = std::make_unique<DevRedirectInterface>(nullptr);
    redirect->sendMapCommandByDevModel(onDeviceList);
    redirect->setNotifyEventCallback([](void *, RedirEvent event, const char *text, int length) {
        std::printf("event %d: %.*s\n", int(event), length, text);
    });
    QObject::connect(redirect.get(), &DevRedirectInterface::shareDeviceResultByInterface,
                     [](const ExterDeviceInfo &device, bool succeeded) {
                         isShared = isShared || succeeded;
                         std::printf("%s: %s\n", isShared ? "shared" : "not shared", qPrintable(device.deviceId));
                     });

    // 2. Load the component and start it. Both are done when the signal has been emitted.
    Q_EMIT redirect->loadDynamicLib();
    Q_EMIT redirect->loadDevRedirComponentByThread(QStringLiteral("my-vm"));
    if (!redirect->isComponentStarted()) {
        std::fprintf(stderr, "Not started; the log says why. %s\n", qPrintable(redirect->componentLoadError()));
        redirect.reset();
        return 3;
    }

    // 3. Connect to the virtual machine, or just ask for the list. With "enable-usbredir" the session would
    //    redirect devices by itself, and take them away from the component.
    if (argc > 1) {
        session = spice_session_new();
        g_object_set(session, "uri", argv[1], "enable-usbredir", FALSE, nullptr);
        g_signal_connect(session, "channel-new", G_CALLBACK(onChannelNew), nullptr);
        spice_session_connect(session);
    } else {
        redirect->getDeviceListFromUniqueFrame();
    }
    const int status = QCoreApplication::exec();

    // 4. Leave in this order: take the devices back while messages still go out, give the main loop a moment to write
    //    them, and only then drop what the component sends, stop it, and let go of the library and the session.
    redirect->syncUNRedirectDeviceAll();
    QTimer::singleShot(session ? 1000 : 0, &application, &QCoreApplication::quit);
    QCoreApplication::exec();
    redirect->setQuitFlag(true);
    redirect->realeaseDeviceResource();
    redirect.reset();
    if (session)
        spice_session_disconnect(session);
    g_clear_object(&session);
    return status;
}
