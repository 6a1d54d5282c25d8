// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "handles.h"

#include <string>

namespace usbworld {

/**
 * What stands behind a device node, so that polling it behaves as on a real one.
 *
 * A USB device node is writable exactly when a finished transfer waits, and reports an error once the device is gone.
 * A plain file is always writable and would make a poller spin. A terminal does better: while its output is stopped
 * it is not writable, and once its other end is closed it reports an error and a hang-up.
 */
class Readiness
{
public:
    Readiness();

    /** Path of the file to put in place of the device node. Empty when the system has no terminals to give. */
    const std::string &path() const { return m_path; }

    void setReady(bool ready);

    /** Everyone who has the node open sees an error from now on. */
    void hangUp();

private:
    FileDescriptor m_controller;
    FileDescriptor m_terminal;
    std::string m_path;
    bool m_ready = true;
};

} // namespace usbworld
