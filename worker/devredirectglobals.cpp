// SPDX-License-Identifier: LGPL-2.1-or-later

// What exists once in the process, in the order in which it is made while the library is being loaded. It stands in
// one source because only there is the order certain; nothing else in the library uses it before loading has ended.
// Nothing of it is torn down at exit: the worker's thread may still run then. (A QStringLiteral owns no memory.)

#include "component/redirecthandler.h"
#include "devices/redirectconstants.h"
#include "worker/devredirectworker.h"

#include <QMutex>

const QString DISKRDR = QStringLiteral("diskrdr");
const QString CAMRDR = QStringLiteral("camrdr");
const QString USBRDR = QStringLiteral("usbrdr");

const QString SPICEMODE = QStringLiteral("spice");
const QString TCPMODE = QStringLiteral("tcp");

QMutex &s_mutext = *new QMutex;

RedirectHandler *const DevRedirectWorker::m_redirectHandler = new RedirectHandler;
std::atomic<bool> DevRedirectWorker::m_bQuit{false};
