// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace selftest {

constexpr int StickCount = 4;
constexpr unsigned ImageMebibytes = 4;
constexpr std::size_t SectorSize = 512;

/** The path of the image of stick 1 to 4. */
std::string imagePath(int stick);

/** What the sector of a fresh image starts with. */
std::string sectorMark(int stick, unsigned sector);

struct Test
{
    const char *name;
    void (*run)();
    std::vector<std::string> worldOptions; ///< @ stands for the image of the first stick; besides the four sticks at
                                           ///< 1-1 to 1-4, 1-2 being read-only
};

/** Run inside an emulated machine of their own, each in a process of its own. */
extern const std::vector<Test> InsideTests;
extern const std::vector<Test> DeviceTests;

} // namespace selftest
