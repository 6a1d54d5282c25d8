// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace usbworld {

using Bytes = std::vector<std::uint8_t>;

/** A request to endpoint 0. */
struct Setup
{
    unsigned request; ///< the type and, in the low byte, the request: 0x8006 is GET_DESCRIPTOR
    unsigned value;
    unsigned index;
};

/**
 * What one function of a device does with its requests and transfers: a disk, a camera, a serial port.
 *
 * Called with the lock of the node held. A function without an own answer keeps the host waiting.
 */
class Function
{
public:
    enum class Answer { Data, Stall, NotYet };

    /** The reply to one IN transfer or packet. \a data stays valid until the next call to the object. */
    struct In
    {
        Answer answer;
        const std::uint8_t *data;
        std::size_t size;
    };

    Function() = default;
    virtual ~Function() = default;
    Function(const Function &) = delete;
    Function &operator=(const Function &) = delete;

    /** A request to an interface, with the data that came with it. False: it stalls. */
    virtual bool control(const Setup & /*setup*/, const Bytes & /*data*/, Bytes & /*answer*/) { return false; }
    virtual void setAlternate(unsigned /*interface*/, unsigned /*alternate*/) { }

    /** Takes what the host sent. False: the endpoint stalls. */
    virtual bool out(unsigned /*endpoint*/, const std::uint8_t * /*data*/, std::size_t /*size*/) { return true; }

    /** Gives at most \a room bytes to the host. */
    virtual In in(unsigned endpoint, std::size_t room) = 0;

    /** So many packets of an isochronous stream are lost, since nobody asked for them in time. */
    virtual void skip(unsigned /*endpoint*/, std::uint64_t /*packets*/) { }

    /** Forgets what was under way, as after a reset of the port. */
    virtual void reset() { }

    /** The host cleared the stall of \a endpoint. */
    virtual void clearHalt(unsigned /*endpoint*/) { }

    /** A word of the control socket: what a person does with the device. False: it makes no sense to it. */
    virtual bool tell(const std::string & /*word*/) { return false; }

protected:
    static In give(const Bytes &bytes) { return {Answer::Data, bytes.data(), bytes.size()}; }
    static In notYet() { return {Answer::NotYet, nullptr, 0}; }
};

} // namespace usbworld
