// SPDX-License-Identifier: LGPL-2.1-or-later

// Output of the block-device lister. The pipe to it and the links below /sys/block are replaced, so that the input is
// what the lister writes, and a disk's name says whether it is on USB: those that begin with "s" are.

#include "mount/watchmountworker.h"
#include "secondreader.h"
#include "target.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>

#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr char SysBlock[] = "/sys/block/";
constexpr std::size_t LongestPiece = 4095;
constexpr std::size_t Limit = 4096;

const uint8_t *listing = nullptr;
std::size_t listingSize = 0;

// The output that is expected of a listing: line by line, long lines in pieces, each up to its first NUL, until the
// limit has been passed.
std::string expectedOutput(const std::string &text)
{
    std::string output;
    for (std::size_t begin = 0; begin < text.size() && output.size() <= Limit;) {
        const std::size_t newline = text.find('\n', begin);
        const std::size_t lineEnd = newline == std::string::npos ? text.size() : newline + 1;
        const std::size_t end = std::min(lineEnd, begin + LongestPiece);
        output += text.substr(begin, end - begin).c_str();
        begin = end;
    }
    return output;
}

bool hasText(const QJsonValue &value, const char *key)
{
    return !value.toObject().value(QLatin1String(key)).toString().isEmpty();
}

bool expectedDone(const QJsonObject &listed)
{
    for (const QJsonValue device : listed.value(QLatin1String("blockdevices")).toArray()) {
        const QJsonObject disk = device.toObject();
        if (!disk.value(QLatin1String("name")).toString().startsWith(QLatin1Char('s')) || hasText(disk, "mountpoint"))
            continue;
        const QJsonArray partitions = disk.value(QLatin1String("children")).toArray();
        if (std::none_of(partitions.begin(), partitions.end(),
                         [](const QJsonValue &partition) { return hasText(partition, "mountpoint"); }))
            return false;
    }
    return true;
}

} // namespace

extern "C" __attribute__((visibility("default"))) FILE *popen(const char *, const char *)
{
    // A stream over no bytes at all is not to be had.
    return listingSize ? fmemopen(const_cast<uint8_t *>(listing), listingSize, "r") : std::fopen("/dev/null", "r");
}

extern "C" __attribute__((visibility("default"))) int pclose(FILE *stream)
{
    return std::fclose(stream);
}

extern "C" __attribute__((visibility("default"))) ssize_t readlink(const char *path, char *target, std::size_t size)
{
    if (std::strncmp(path, SysBlock, sizeof SysBlock - 1) != 0)
        return syscall(SYS_readlink, path, target, size);
    const char first = path[sizeof SysBlock - 1];
    if (first != 's' && first != 'n')
        return -1;
    const std::string link = first == 's' ? "../devices/usb1/1-1/host0/block" : "../devices/pci0/nvme0";
    link.copy(target, link.size());
    return ssize_t(link.size());
}

int LLVMFuzzerInitialize(int *, char ***)
{
    switchLogOff();
    return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size)
{
    listing = data;
    listingSize = size;
    WatchMountWorker worker;

    const std::unique_ptr<char[]> output(new char[WatchMountWorker::OutputSize]());
    expect(worker.excuCmd("lister", output.get()), "the lister can be run");
    const std::string expected = expectedOutput(std::string(reinterpret_cast<const char *>(data), size));
    expect(expected.size() < std::size_t(WatchMountWorker::OutputSize), "the room is large enough");
    expect(expected == output.get(), "the output is the lister's, up to the limit");

    const bool done = whereQtReads([&worker] { return worker.mountDone(); });
    if (const auto listed = whereQtReads([&expected] { return SecondReader::read(expected); }))
        expectEqual(done, expectedDone(listed->toObject()), "whether every USB disk is mounted");
    return 0;
}
