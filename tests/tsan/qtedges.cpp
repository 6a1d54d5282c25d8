// SPDX-License-Identifier: LGPL-2.1-or-later

// Tells the thread sanitizer what Debian's Qt, which is built without it, orders between threads.
//
// Qt's mutex is a bare futex and its event queue hangs on one, so the sanitizer sees neither. Each function here takes
// the place of Qt's exported one, calls the real one and states the order that Qt documents. No report about our own
// code is suppressed by it. Linked into programs of the thread-sanitizer build only; this file itself is compiled
// without the sanitizer.

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QEvent>
#include <QMutex>
#include <QObject>
#include <QThread>
#include <QtGlobal>

#include <private/qobject_p.h> // who sent a queued call

#include <dlfcn.h>

#define TAKES_QTS_PLACE __attribute__((visibility("default")))

extern "C" void __tsan_acquire(void *);
extern "C" void __tsan_release(void *);

namespace {

// One byte stands for an object, since an event may outlive its sender. Two objects on one byte only add an order.
enum Order { Posted, Handled, Dropped, OrderCount };
char tags[OrderCount][16384];

void *tagOf(Order order, const void *object)
{
    const auto address = reinterpret_cast<quintptr>(object);
    return &tags[order][((address >> 4) ^ (address >> 18)) % sizeof tags[0]];
}

void before(Order order, const void *object)
{
    __tsan_release(tagOf(order, object));
}

void after(Order order, const void *object)
{
    __tsan_acquire(tagOf(order, object));
}

template<typename Function>
Function *qts(const char *symbol)
{
    void *address = dlsym(RTLD_NEXT, symbol);
    if (!address)
        qFatal("no %s in Qt", symbol);
    return reinterpret_cast<Function *>(address);
}

// Asked before every event is delivered: what was done before posting it has happened. After quit() and exit() the
// thread still handles what is queued, deferred deletions among them.
bool beforeEvent(void **data)
{
    after(Posted, data[0]);
    after(Posted, QThread::currentThread());
    auto *event = static_cast<QEvent *>(data[1]);
    if (event->type() == QEvent::MetaCall) {
        if (const QObject *sender = static_cast<QAbstractMetaCallEvent *>(event)->sender())
            after(Posted, sender);
    }
    return false;
}

const bool registered = QInternal::registerCallback(QInternal::EventNotifyCallback, beforeEvent);

} // namespace

// --- mutual exclusion ---

TAKES_QTS_PLACE void QMutex::lock() QT_MUTEX_LOCK_NOEXCEPT
{
    static auto *const real = qts<void(QMutex *)>("_ZN6QMutex4lockEv");
    real(this);
    __tsan_acquire(this);
}

TAKES_QTS_PLACE bool QMutex::tryLock(int timeout) QT_MUTEX_LOCK_NOEXCEPT
{
    static auto *const real = qts<bool(QMutex *, int)>("_ZN6QMutex7tryLockEi");
    const bool locked = real(this, timeout);
    if (locked)
        __tsan_acquire(this);
    return locked;
}

TAKES_QTS_PLACE void QMutex::unlock() noexcept
{
    static auto *const real = qts<void(QMutex *)>("_ZN6QMutex6unlockEv");
    __tsan_release(this);
    real(this);
}

// --- signals and events ---

TAKES_QTS_PLACE void QMetaObject::activate(QObject *sender, const QMetaObject *meta, int signal, void **arguments)
{
    static auto *const real =
        qts<void(QObject *, const QMetaObject *, int, void **)>("_ZN11QMetaObject8activateEP7QObjectPKS_iPPv");
    before(Posted, sender);
    before(Dropped, nullptr);
    real(sender, meta, signal, arguments);
}

// A function that is queued is deleted by whichever thread lets go of it last.
TAKES_QTS_PLACE bool QMetaObject::invokeMethodImpl(QObject *receiver, QtPrivate::QSlotObjectBase *function,
                                                   Qt::ConnectionType type, void *result)
{
    static auto *const real = qts<bool(QObject *, QtPrivate::QSlotObjectBase *, Qt::ConnectionType, void *)>(
        "_ZN11QMetaObject16invokeMethodImplEP7QObjectPN9QtPrivate15QSlotObjectBaseEN2Qt14ConnectionTypeEPv");
    function->ref();
    before(Posted, receiver);
    const bool invoked = real(receiver, function, type, result);
    after(Handled, receiver->thread());
    function->destroyIfLastRef();
    return invoked;
}

TAKES_QTS_PLACE void QCoreApplication::postEvent(QObject *receiver, QEvent *event, int priority)
{
    static auto *const real = qts<void(QObject *, QEvent *, int)>("_ZN16QCoreApplication9postEventEP7QObjectP6QEventi");
    before(Posted, receiver);
    real(receiver, event, priority);
}

TAKES_QTS_PLACE void QObject::deleteLater()
{
    static auto *const real = qts<void(QObject *)>("_ZN7QObject11deleteLaterEv");
    before(Posted, this);
    real(this);
}

TAKES_QTS_PLACE bool QObject::event(QEvent *event)
{
    static auto *const real = qts<bool(QObject *, QEvent *)>("_ZN7QObject5eventEP6QEvent");
    const QThread *thread = QThread::currentThread();
    const bool result = real(this, event); // may delete this
    before(Handled, thread);
    return result;
}

// An object takes the calls that are still queued for it along. Who made them is not known here.
extern "C" TAKES_QTS_PLACE void _ZN7QObjectD2Ev(QObject *object)
{
    static auto *const real = qts<void(QObject *)>("_ZN7QObjectD2Ev");
    after(Dropped, nullptr);
    real(object);
}

// --- threads ---

TAKES_QTS_PLACE void QThread::start(Priority priority)
{
    static auto *const real = qts<void(QThread *, Priority)>("_ZN7QThread5startENS_8PriorityE");
    before(Posted, this);
    real(this, priority);
}

TAKES_QTS_PLACE void QThread::quit()
{
    static auto *const real = qts<void(QThread *)>("_ZN7QThread4quitEv");
    before(Posted, this);
    real(this);
}

TAKES_QTS_PLACE bool QThread::wait(QDeadlineTimer deadline)
{
    static auto *const real = qts<bool(QThread *, QDeadlineTimer)>("_ZN7QThread4waitE14QDeadlineTimer");
    const bool ended = real(this, deadline);
    if (ended)
        after(Handled, this);
    return ended;
}

TAKES_QTS_PLACE bool QThread::wait(unsigned long milliseconds)
{
    static auto *const real = qts<bool(QThread *, unsigned long)>("_ZN7QThread4waitEm");
    const bool ended = real(this, milliseconds);
    if (ended)
        after(Handled, this);
    return ended;
}
