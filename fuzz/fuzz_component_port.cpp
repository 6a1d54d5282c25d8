// SPDX-License-Identifier: LGPL-2.1-or-later

// Port messages from a virtual machine that means harm, into a channel of the reference component.
//
// An input: one byte for the size of the pieces in which the rest arrives (0: all at once), then the messages.

#include "deliver.h"
#include "logging.h"
#include "target.h"

#include <sanitizer/allocator_interface.h>

#include <algorithm>

Q_LOGGING_CATEGORY(logComponent, "devredir.component", QtWarningMsg)

namespace {

// One message may be announced as this long; room for it is taken at once.
constexpr std::size_t LongestMessage = 128u << 20;
constexpr std::size_t OrdinaryNeed = 1u << 20;
constexpr std::size_t LongestAnswer = 256; // to one message, whose header alone has 12 bytes

libusb_context *usb = nullptr;
std::string sent;

int keep(void *, char *message, int length)
{
    sent.append(message, std::size_t(length));
    return length;
}

std::string greetingOf(UsbChannel &channel)
{
    sent.clear();
    channel.open(usb);
    expect(channel.isOpen(), "the channel can be opened");
    return sent;
}

void exchange(std::size_t pieceSize, const std::string &messages)
{
    UsbChannel channel(QStringLiteral("org.devredir.usb.0"), keep);
    const std::string greeting = greetingOf(channel);
    expect(!greeting.empty(), "the channel greets");
    sent.clear();

    const std::size_t before = __sanitizer_get_current_allocated_bytes();
    bool goesOn = true;
    for (std::size_t next = 0; goesOn && next < messages.size(); next += pieceSize)
        goesOn = deliver(channel, messages.substr(next, pieceSize));
    const std::size_t after = __sanitizer_get_current_allocated_bytes();
    expect(after < before + LongestMessage + OrdinaryNeed, "what comes in is not piled up");
    expect(sent.size() <= LongestAnswer * (messages.size() / 12 + 1), "answers are not much longer than questions");

    channel.close();
    expect(!channel.isOpen() && channel.deviceId().isEmpty(), "a closed channel is free");
    expect(deliver(channel, messages), "what is left over for a closed channel does no harm");
    expect(greetingOf(channel) == greeting, "a channel that is opened again greets as the first time");
    sent.clear();
}

} // namespace

int LLVMFuzzerInitialize(int *, char ***)
{
    switchLogOff();
    libusb_set_option(nullptr, LIBUSB_OPTION_NO_DEVICE_DISCOVERY); // the machine's own devices are left alone
    expectEqual(libusb_init(&usb), LIBUSB_SUCCESS, "libusb can be used");
    exchange(64, std::string(64, '\xff')); // what is made only once, for complaints too, is there now
    return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size)
{
    if (size == 0)
        return 0;
    std::string messages(reinterpret_cast<const char *>(data) + 1, size - 1);
    const std::size_t pieceSize = data[0] ? data[0] : std::max<std::size_t>(messages.size(), 1);
    sent.shrink_to_fit();
    const std::size_t before = __sanitizer_get_current_allocated_bytes();
    {
        const std::string own = std::move(messages);
        exchange(pieceSize, own);
    }
    sent.shrink_to_fit();
    expect(__sanitizer_get_current_allocated_bytes() <= before, "a channel leaves nothing behind");
    return 0;
}
