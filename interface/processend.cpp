// SPDX-License-Identifier: LGPL-2.1-or-later
#include "interface/processend.h"

#include "log/log.h"

#include <QAbstractEventDispatcher>
#include <QCoreApplication>
#include <QList>

#include <atomic>
#include <cstdlib>

namespace {

std::atomic<Qt::HANDLE> mainThread{nullptr};
std::atomic<QAbstractEventDispatcher *> keptDispatcher{nullptr}; // so that leak checkers can see it

// What is made first is destroyed last: all that Qt makes for the first line has to be there before onProcessEnds() is
// registered.
void makeWhatLinesNeed()
{
    QLoggingCategory::defaultCategory();
    (void)qFormatLogMessage(QtDebugMsg, QMessageLogContext(), QString());
}

QList<ProcessEnd *> &living()
{
    Q_ASSERT_X(mainThread == QThread::currentThreadId(), "DevRedirectInterface", "used on another thread");
    static auto *const all = new QList<ProcessEnd *>;
    return *all;
}

} // namespace

ProcessEnd::ProcessEnd(std::function<void()> endThreads) : m_endThreads(std::move(endThreads))
{
    [[maybe_unused]] static const bool isRegistered = [] {
        mainThread = QThread::currentThreadId();
        makeWhatLinesNeed();
        return std::atexit(onProcessEnds) == 0;
    }();
    qRemovePostRoutine(onApplicationGoes); // Qt forgets it with each application object
    qAddPostRoutine(onApplicationGoes);
    living().append(this);
}

ProcessEnd::~ProcessEnd()
{
    living().removeOne(this);
    if (living().isEmpty())
        qRemovePostRoutine(onApplicationGoes);
}

void ProcessEnd::endAllThreads()
{
    for (ProcessEnd *const interface : qAsConst(living()))
        interface->m_endThreads();
}

void ProcessEnd::onApplicationGoes()
{
    if (QAbstractEventDispatcher *const dispatcher = QCoreApplication::eventDispatcher()) {
        dispatcher->setParent(nullptr); // or it would go with the application
        keptDispatcher = dispatcher;
    }
    endAllThreads();
}

void ProcessEnd::onProcessEnds()
{
    if (QThread::currentThreadId() == mainThread)
        endAllThreads();
    Log::keepToThisThread();
}
