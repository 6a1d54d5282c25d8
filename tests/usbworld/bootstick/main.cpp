// SPDX-License-Identifier: LGPL-2.1-or-later
//
// Makes the image of a stick that a PC boots from: it prints a text on the first serial port and, if asked to, the
// checksum of its first megabytes.
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

extern const unsigned char bootSector[512];

namespace {

constexpr std::size_t SectorSize = 512;
constexpr std::size_t SectorsOfAMebibyte = 2048;
constexpr std::size_t SectorsFieldOffset = 504;
constexpr unsigned long LargestSize = 1024;

const char UsageText[] = "usage: bootstick IMAGE --text TEXT --size MIB [--read MIB]\n"
                         "Makes a stick whose boot sector prints TEXT on the first serial port; with --read it then\n"
                         "reads that much from its start and prints \"SUM xxxxxxxx\". The sum is printed here, too.\n";

using Sector = std::array<std::uint8_t, SectorSize>;

struct Options
{
    std::string image;
    std::string text;
    unsigned long size = 0;
    unsigned long read = 0;
};

bool parseMebibytes(const char *text, unsigned long &value)
{
    char *end = nullptr;
    value = std::strtoul(text, &end, 10);
    return end != text && *end == '\0' && value > 0 && value <= LargestSize;
}

bool parse(int argc, char **argv, Options &options)
{
    if (argc < 2 || argc % 2 != 0)
        return false;
    options.image = argv[1];
    for (int i = 2; i < argc; i += 2) {
        const std::string name = argv[i];
        if (name == "--text")
            options.text = argv[i + 1];
        else if (!(name == "--size" && parseMebibytes(argv[i + 1], options.size))
                 && !(name == "--read" && parseMebibytes(argv[i + 1], options.read)))
            return false;
    }
    return !options.text.empty() && options.text.size() < SectorSize && options.size > 0
        && options.read <= options.size;
}

/** Content that differs from sector to sector, so that one read in the place of another is noticed. */
class Filler
{
public:
    Sector next()
    {
        Sector sector;
        for (std::size_t i = 0; i < sector.size(); i += sizeof m_state) {
            m_state ^= m_state << 13;
            m_state ^= m_state >> 17;
            m_state ^= m_state << 5;
            std::memcpy(sector.data() + i, &m_state, sizeof m_state);
        }
        return sector;
    }

private:
    std::uint32_t m_state = 0x2545f491;
};

/** The same sum as the boot sector makes. */
void addToSum(std::uint32_t &sum, const Sector &sector)
{
    for (std::size_t i = 0; i < sector.size(); i += 4) {
        const std::uint32_t word = sector[i] | std::uint32_t(sector[i + 1]) << 8 | std::uint32_t(sector[i + 2]) << 16
            | std::uint32_t(sector[i + 3]) << 24;
        sum = (sum << 1 | sum >> 31) + word;
    }
}

Sector firstSector(unsigned long sectorsToRead)
{
    Sector sector;
    std::memcpy(sector.data(), bootSector, sector.size());
    for (std::size_t i = 0; i < 4; ++i)
        sector[SectorsFieldOffset + i] = std::uint8_t(sectorsToRead >> (8 * i));
    return sector;
}

Sector textSector(const std::string &text)
{
    Sector sector{};
    std::memcpy(sector.data(), text.data(), text.size());
    return sector;
}

} // namespace

int main(int argc, char **argv)
{
    Options options;
    if (!parse(argc, argv, options)) {
        std::fputs(UsageText, stderr);
        return 2;
    }
    std::ofstream image(options.image, std::ios::binary | std::ios::trunc);
    const unsigned long sectorsToRead = options.read * SectorsOfAMebibyte;
    std::uint32_t sum = 0;
    Filler filler;
    for (unsigned long i = 0; i < options.size * SectorsOfAMebibyte; ++i) {
        const Sector sector = i == 0 ? firstSector(sectorsToRead) : i == 1 ? textSector(options.text) : filler.next();
        if (i < sectorsToRead)
            addToSum(sum, sector);
        image.write(reinterpret_cast<const char *>(sector.data()), std::streamsize(sector.size()));
    }
    image.close();
    if (!image) {
        std::fprintf(stderr, "bootstick: cannot write %s\n", options.image.c_str());
        return 1;
    }
    if (sectorsToRead > 0)
        std::printf("SUM %08x\n", unsigned(sum));
    return 0;
}
