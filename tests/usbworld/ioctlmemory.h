// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "handles.h"

#include <umockdev.h>

#include <cstddef>
#include <cstring>

namespace usbworld {

/** Reads the block that \a pointer leads to in the process that made the request. Null: there is none. */
template<class T>
GRef<UMockdevIoctlData> fetch(UMockdevIoctlData *pointer, T &value)
{
    GRef<UMockdevIoctlData> block(umockdev_ioctl_data_resolve(pointer, 0, sizeof(T), nullptr));
    if (block)
        std::memcpy(&value, block->data, sizeof(T));
    return block;
}

/** Changes the block in that process, at the latest when the request is answered. */
template<class T>
void store(UMockdevIoctlData *block, T value, std::size_t offset = 0)
{
    umockdev_ioctl_data_update(block, offset, reinterpret_cast<guint8 *>(&value), sizeof(T));
}

} // namespace usbworld
