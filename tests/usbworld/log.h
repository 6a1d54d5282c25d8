// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <cstdio>
#include <memory>
#include <mutex>
#include <string>

namespace usbworld {

/** Writes one line a call to a file, or nothing when no file was asked for. \thread any */
class Log
{
public:
    /** Returns false when \a path cannot be written. */
    bool openFile(const std::string &path);
    void line(const std::string &text);

private:
    struct Close
    {
        void operator()(FILE *file) const { std::fclose(file); }
    };
    std::mutex m_mutex;
    std::unique_ptr<FILE, Close> m_file;
};

} // namespace usbworld
