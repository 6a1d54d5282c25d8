// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "function.h"
#include "handles.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace usbworld {

/**
 * A removable disk that answers SCSI commands from an image file.
 *
 * Sectors are 512 bytes; an image that is no multiple of that loses its tail.
 */
class ScsiDisk
{
public:
    static constexpr std::size_t SectorSize = 512;

    struct Identity
    {
        std::string vendor;
        std::string product;
        std::string serial;
    };

    /** What a command did: \a dataIn goes to the host, \a dataOut bytes are expected from it through write(). */
    struct Outcome
    {
        bool good = true;
        Bytes dataIn;
        std::size_t dataOut = 0;
    };

    ScsiDisk(FileDescriptor image, std::uint64_t sectors, bool readOnly, Identity identity);

    /** Runs the command block of 16 bytes at \a cdb. A refused command leaves its reason for REQUEST SENSE. */
    Outcome execute(const std::uint8_t *cdb);

    /** A card is put in or taken out: the host is told with its next command. */
    void setPresent(bool present);

    /** Stores the next bytes of the write in progress. False when the image does not take them. */
    bool write(const std::uint8_t *data, std::size_t size);

private:
    struct Command;
    static const Command Commands[];

    Outcome accept(const std::uint8_t *cdb);
    Outcome requestSense(const std::uint8_t *cdb);
    Outcome inquiry(const std::uint8_t *cdb);
    Outcome modeSense6(const std::uint8_t *cdb);
    Outcome readCapacity10(const std::uint8_t *cdb);
    Outcome read10(const std::uint8_t *cdb);
    Outcome write10(const std::uint8_t *cdb);
    Outcome reportLuns(const std::uint8_t *cdb);

    Outcome vitalProductData(std::uint8_t page);
    Outcome refuse(std::uint8_t key, std::uint8_t code);
    bool isInside(std::uint64_t lba, std::size_t count) const;

    FileDescriptor m_image;
    std::uint64_t m_sectors;
    bool m_readOnly;
    bool m_present = true;
    bool m_hasChanged = false; ///< a card was put in, and the host has not been told
    Identity m_identity;
    std::uint8_t m_senseKey = 0;
    std::uint8_t m_senseCode = 0;
    std::uint64_t m_writeOffset = 0;
};

} // namespace usbworld
