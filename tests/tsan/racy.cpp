// SPDX-License-Identifier: LGPL-2.1-or-later

// Each mode holds one true data race, so that a thread-sanitizer build which stays silent about ours is known to see
// something. Run with a mode; the sanitizer has to report.

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QMutex>
#include <QThread>

#include <cstdio>
#include <cstring>

namespace {

long shared = 0;

class Receiver : public QObject
{
    Q_OBJECT
public Q_SLOTS:
    void write()
    {
        for (int i = 0; i < 2000; ++i)
            ++shared;
    }
    void writeLocked()
    {
        static QMutex otherMutex;
        const QMutexLocker lock(&otherMutex);
        write();
    }
};

void spin(int milliseconds)
{
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < milliseconds)
        QThread::yieldCurrentThread();
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    const char *mode = argc > 1 ? argv[1] : "";
    QThread thread;
    Receiver receiver;
    receiver.moveToThread(&thread);
    thread.start();

    if (std::strcmp(mode, "read_after_queued_call") == 0) {
        QMetaObject::invokeMethod(&receiver, "write", Qt::QueuedConnection);
        spin(100);
        std::printf("%ld\n", shared);
    } else if (std::strcmp(mode, "two_mutexes") == 0) {
        QMetaObject::invokeMethod(&receiver, "writeLocked", Qt::QueuedConnection);
        spin(100);
        QMutex mutex;
        const QMutexLocker lock(&mutex);
        ++shared;
    } else if (std::strcmp(mode, "write_after_second_call") == 0) {
        QMetaObject::invokeMethod(&receiver, "write", Qt::QueuedConnection);
        spin(100);
        QMetaObject::invokeMethod(&receiver, "write", Qt::QueuedConnection);
        ++shared;
        spin(100);
    }
    thread.quit();
    thread.wait();
    return 0;
}

#include "racy.moc"
