// SPDX-License-Identifier: LGPL-2.1-or-later
#include "readiness.h"

#include <array>
#include <cstdlib>
#include <fcntl.h>
#include <termios.h>

namespace usbworld {

Readiness::Readiness() : m_controller(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC))
{
    std::array<char, 64> name{};
    if (!m_controller || grantpt(m_controller.get()) != 0 || unlockpt(m_controller.get()) != 0
        || ptsname_r(m_controller.get(), name.data(), name.size()) != 0)
        return;
    m_terminal = FileDescriptor(open(name.data(), O_RDWR | O_NOCTTY | O_CLOEXEC));
    if (!m_terminal)
        return;
    m_path = name.data();
    setReady(false);
}

void Readiness::setReady(bool ready)
{
    if (!m_terminal || ready == m_ready)
        return;
    m_ready = ready;
    tcflow(m_terminal.get(), ready ? TCOON : TCOOFF);
}

void Readiness::hangUp()
{
    m_terminal.reset();
    m_controller.reset();
}

} // namespace usbworld
