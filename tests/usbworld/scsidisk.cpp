// SPDX-License-Identifier: LGPL-2.1-or-later
#include "scsidisk.h"

#include <algorithm>
#include <limits>

namespace usbworld {

namespace {

enum SenseKey : std::uint8_t {
    NotReady = 0x02,
    MediumError = 0x03,
    IllegalRequest = 0x05,
    UnitAttention = 0x06,
    DataProtect = 0x07,
};

enum SenseCode : std::uint8_t {
    WriteError = 0x0c,
    UnrecoveredReadError = 0x11,
    InvalidCommand = 0x20,
    AddressOutOfRange = 0x21,
    InvalidField = 0x24,
    WriteProtected = 0x27,
    MediumMayHaveChanged = 0x28,
    MediumNotPresent = 0x3a,
};

std::uint32_t bigEndian32(const std::uint8_t *p)
{
    return std::uint32_t(p[0]) << 24 | std::uint32_t(p[1]) << 16 | std::uint32_t(p[2]) << 8 | p[3];
}

std::size_t bigEndian16(const std::uint8_t *p)
{
    return std::size_t(p[0]) << 8 | p[1];
}

void appendBigEndian32(Bytes &bytes, std::uint32_t value)
{
    for (int shift = 24; shift >= 0; shift -= 8)
        bytes.push_back(std::uint8_t(value >> shift));
}

// SCSI text fields have a fixed width and are filled up with spaces.
void appendPadded(Bytes &bytes, std::string text, std::size_t width)
{
    text.resize(width, ' ');
    bytes.insert(bytes.end(), text.begin(), text.end());
}

ScsiDisk::Outcome answer(Bytes data, std::size_t allocated)
{
    data.resize(std::min(data.size(), allocated));
    ScsiDisk::Outcome outcome;
    outcome.dataIn = std::move(data);
    return outcome;
}

} // namespace

struct ScsiDisk::Command
{
    std::uint8_t opcode;
    bool needsMedium;
    Outcome (ScsiDisk::*run)(const std::uint8_t *cdb);
};

const ScsiDisk::Command ScsiDisk::Commands[] = {
    {0x00, true, &ScsiDisk::accept}, // TEST UNIT READY
    {0x03, false, &ScsiDisk::requestSense}, //
    {0x12, false, &ScsiDisk::inquiry}, //
    {0x1a, false, &ScsiDisk::modeSense6}, //
    {0x1b, false, &ScsiDisk::accept}, // START STOP UNIT
    {0x1e, false, &ScsiDisk::accept}, // PREVENT ALLOW MEDIUM REMOVAL
    {0x25, true, &ScsiDisk::readCapacity10}, //
    {0x28, true, &ScsiDisk::read10}, //
    {0x2a, true, &ScsiDisk::write10}, //
    {0x2f, true, &ScsiDisk::accept}, // VERIFY(10)
    {0x35, true, &ScsiDisk::accept}, // SYNCHRONIZE CACHE(10)
    {0xa0, false, &ScsiDisk::reportLuns}, //
};

ScsiDisk::ScsiDisk(FileDescriptor image, std::uint64_t sectors, bool readOnly, Identity identity)
    : m_image(std::move(image)), m_sectors(sectors), m_readOnly(readOnly), m_identity(std::move(identity))
{
}

ScsiDisk::Outcome ScsiDisk::execute(const std::uint8_t *cdb)
{
    const auto command =
        std::find_if(std::begin(Commands), std::end(Commands), [cdb](const Command &c) { return c.opcode == cdb[0]; });
    if (command == std::end(Commands))
        return refuse(IllegalRequest, InvalidCommand);
    if (command->needsMedium && !m_present)
        return refuse(NotReady, MediumNotPresent);
    if (command->needsMedium && std::exchange(m_hasChanged, false))
        return refuse(UnitAttention, MediumMayHaveChanged);
    return (this->*command->run)(cdb);
}

void ScsiDisk::setPresent(bool present)
{
    m_hasChanged = present && !m_present;
    m_present = present;
}

bool ScsiDisk::write(const std::uint8_t *data, std::size_t size)
{
    if (pwrite(m_image.get(), data, size, off_t(m_writeOffset)) != ssize_t(size)) {
        refuse(MediumError, WriteError);
        return false;
    }
    m_writeOffset += size;
    return true;
}

ScsiDisk::Outcome ScsiDisk::accept(const std::uint8_t *)
{
    return {};
}

ScsiDisk::Outcome ScsiDisk::requestSense(const std::uint8_t *cdb)
{
    Bytes sense(18, 0);
    sense[0] = 0x70; // a current error in fixed format
    sense[2] = std::exchange(m_senseKey, std::uint8_t(0));
    sense[7] = 10; // bytes that follow
    sense[12] = std::exchange(m_senseCode, std::uint8_t(0));
    return answer(std::move(sense), cdb[4]);
}

ScsiDisk::Outcome ScsiDisk::inquiry(const std::uint8_t *cdb)
{
    const bool wantsVitalProductData = cdb[1] & 1;
    const std::size_t allocated = bigEndian16(cdb + 3);
    if (wantsVitalProductData) {
        Outcome page = vitalProductData(cdb[2]);
        return page.good ? answer(std::move(page.dataIn), allocated) : page;
    }
    Bytes data{0x00, 0x80, 0x04, 0x02, 31, 0, 0, 0}; // a disk whose medium is removable
    appendPadded(data, m_identity.vendor, 8);
    appendPadded(data, m_identity.product, 16);
    appendPadded(data, "1.00", 4);
    return answer(std::move(data), allocated);
}

ScsiDisk::Outcome ScsiDisk::vitalProductData(std::uint8_t page)
{
    Outcome outcome;
    if (page == 0x00) {
        outcome.dataIn = {0, 0x00, 0, 2, 0x00, 0x80};
    } else if (page == 0x80) {
        const std::size_t size = std::min<std::size_t>(m_identity.serial.size(), 255);
        outcome.dataIn = {0, 0x80, 0, std::uint8_t(size)};
        appendPadded(outcome.dataIn, m_identity.serial, size);
    } else {
        return refuse(IllegalRequest, InvalidField);
    }
    return outcome;
}

ScsiDisk::Outcome ScsiDisk::modeSense6(const std::uint8_t *cdb)
{
    const std::uint8_t deviceSpecific = m_readOnly ? 0x80 : 0x00;
    return answer({3, 0, deviceSpecific, 0}, cdb[4]); // a header without pages
}

ScsiDisk::Outcome ScsiDisk::readCapacity10(const std::uint8_t *)
{
    Outcome outcome;
    const std::uint64_t limit = std::numeric_limits<std::uint32_t>::max();
    appendBigEndian32(outcome.dataIn, std::uint32_t(std::min(m_sectors - 1, limit)));
    appendBigEndian32(outcome.dataIn, SectorSize);
    return outcome;
}

ScsiDisk::Outcome ScsiDisk::read10(const std::uint8_t *cdb)
{
    const std::uint64_t lba = bigEndian32(cdb + 2);
    const std::size_t count = bigEndian16(cdb + 7);
    if (!isInside(lba, count))
        return refuse(IllegalRequest, AddressOutOfRange);
    Outcome outcome;
    outcome.dataIn.resize(count * SectorSize);
    const ssize_t size = ssize_t(outcome.dataIn.size());
    if (pread(m_image.get(), outcome.dataIn.data(), outcome.dataIn.size(), off_t(lba * SectorSize)) != size)
        return refuse(MediumError, UnrecoveredReadError);
    return outcome;
}

ScsiDisk::Outcome ScsiDisk::write10(const std::uint8_t *cdb)
{
    const std::uint64_t lba = bigEndian32(cdb + 2);
    const std::size_t count = bigEndian16(cdb + 7);
    if (m_readOnly)
        return refuse(DataProtect, WriteProtected);
    if (!isInside(lba, count))
        return refuse(IllegalRequest, AddressOutOfRange);
    m_writeOffset = lba * SectorSize;
    Outcome outcome;
    outcome.dataOut = count * SectorSize;
    return outcome;
}

ScsiDisk::Outcome ScsiDisk::reportLuns(const std::uint8_t *cdb)
{
    Bytes luns(16, 0); // a list of eight bytes: unit 0 alone
    luns[3] = 8;
    return answer(std::move(luns), bigEndian32(cdb + 6));
}

ScsiDisk::Outcome ScsiDisk::refuse(std::uint8_t key, std::uint8_t code)
{
    m_senseKey = key;
    m_senseCode = code;
    Outcome outcome;
    outcome.good = false;
    return outcome;
}

bool ScsiDisk::isInside(std::uint64_t lba, std::size_t count) const
{
    return lba <= m_sectors && count <= m_sectors - lba;
}

} // namespace usbworld
