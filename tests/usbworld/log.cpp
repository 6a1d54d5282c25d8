// SPDX-License-Identifier: LGPL-2.1-or-later
#include "log.h"

#include <glib.h>

namespace usbworld {

bool Log::openFile(const std::string &path)
{
    m_file.reset(std::fopen(path.c_str(), "we"));
    return m_file != nullptr;
}

void Log::line(const std::string &text)
{
    if (!m_file)
        return;
    const std::lock_guard<std::mutex> lock(m_mutex);
    std::fprintf(m_file.get(), "%.6f %s\n", double(g_get_monotonic_time()) / 1e6, text.c_str());
    std::fflush(m_file.get());
}

} // namespace usbworld
