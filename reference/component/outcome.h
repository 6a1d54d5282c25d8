// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <QString>

/// Why a command did not succeed. The number is what "redirCtrl" returns, and "errCode" of the device in the list.
struct Outcome
{
    int code = 0; ///< 0: it did succeed
    QString text;

    explicit operator bool() const { return code == 0; }
};

/// Codes from 2 on: 1 is what the library itself returns when there is no component.
namespace Refusal {
constexpr int UnknownCommand = 2;
constexpr int BufferTooSmall = 3;
constexpr int NoSuchDevice = 4;
constexpr int NoFreeChannel = 5;
constexpr int AlreadyShared = 6;
constexpr int NotShared = 7;
constexpr int Mounted = 8;
constexpr int ReadOnly = 9;
constexpr int NoPermission = 10;
constexpr int DeniedByPolicy = 11;
constexpr int UsbError = 12;
constexpr int RejectedByGuest = 13;
constexpr int BadArgument = 14;
} // namespace Refusal
