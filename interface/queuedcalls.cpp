// SPDX-License-Identifier: LGPL-2.1-or-later
#include "interface/queuedcalls.h"

#include <QCoreApplication>
#include <QEvent>
#include <QThread>

/// Goes with the receiver, also to its thread.
class QueuedCalls::Filter : public QObject
{
public:
    Filter(QObject *receiver, QueuedCalls &calls) : QObject(receiver), m_calls(calls)
    {
        receiver->installEventFilter(this);
    }

    bool eventFilter(QObject *receiver, QEvent *event) override
    {
        if (event->type() == QEvent::Quit) {
            receiver->thread()->quit();
            return true;
        }
        if (event->type() != QEvent::MetaCall || !m_calls.m_dropping)
            return false;
        ++m_calls.m_dropped;
        return true;
    }

private:
    QueuedCalls &m_calls;
};

void QueuedCalls::watch(QObject *receiver)
{
    new Filter(receiver, *this);
}

void QueuedCalls::quitThread(QObject *receiver)
{
    if (receiver)
        QCoreApplication::postEvent(receiver, new QEvent(QEvent::Quit));
}
