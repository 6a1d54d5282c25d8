// SPDX-License-Identifier: LGPL-2.1-or-later

// What exists once in the process, in the order in which it is made while the library is being loaded. It stands in
// one source because only there is the order certain; nothing else in the library uses it before loading has ended.

#include "component/redirecthandler.h"
#include "devices/redirectconstants.h"
#include "worker/devredirectworker.h"

#include <QMutex>

// (A QStringLiteral owns no memory, so these can be read until the process has ended.)
const QString DISKRDR = QStringLiteral("diskrdr");
const QString CAMRDR = QStringLiteral("camrdr");
const QString USBRDR = QStringLiteral("usbrdr");

const QString SPICEMODE = QStringLiteral("spice");
const QString TCPMODE = QStringLiteral("tcp");

// A thread that outlives main(), inside the component or of the host's, may still lock it when it has been destroyed. A
// QMutex that nobody holds takes that: its destructor leaves it unlocked, and locking needs nothing else.
QMutex s_mutext;

// Never deleted, since such a thread may still use it.
RedirectHandler *DevRedirectWorker::m_redirectHandler = new RedirectHandler;
std::atomic<bool> DevRedirectWorker::m_bQuit{false};
