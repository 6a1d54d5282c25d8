// SPDX-License-Identifier: LGPL-2.1-or-later
// usage: usbcheck camera [FORMAT WIDTH HEIGHT FRAMES]... | serial BYTES | keyboard KEYS
// Runs in the guest: uses a redirected device and tells on the console whether what arrives is right. FORMAT is YUYV or
// MJPG; 0 FRAMES are taken until the camera is gone, with a new start of the stream when nothing comes any more.
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <linux/input.h>
#include <linux/videodev2.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <termios.h>
#include <unistd.h>

namespace {

int fail(const char *what)
{
    std::printf("GUEST FAILS at %s: %s\n", what, std::strerror(errno));
    return 1;
}

bool waitFor(int fd, int milliseconds)
{
    pollfd ready{fd, POLLIN, 0};
    return poll(&ready, 1, milliseconds) > 0 && !(ready.revents & (POLLHUP | POLLNVAL));
}

// --- camera ---

struct Run
{
    const char *format;
    unsigned width, height, frames;
};

struct Counts
{
    unsigned good = 0, damaged = 0, wrong = 0, missing = 0;
};

// A camera stays in use for as long as one of its buffers is mapped.
struct Buffers
{
    ~Buffers()
    {
        for (const auto &[bytes, size] : maps)
            munmap(bytes, size);
    }
    std::vector<std::pair<void *, std::size_t>> maps;
};

std::uint32_t numberAt(const std::uint8_t *bytes)
{
    std::uint32_t number = 0;
    std::memcpy(&number, bytes, sizeof number);
    return number;
}

// The number of a frame as the emulated camera makes them, or 0 if its checksum is wrong.
std::uint32_t checked(const std::uint8_t *bytes, std::size_t size)
{
    const std::size_t head = bytes[0] == 0xff && bytes[1] == 0xd8 && bytes[2] == 0xff ? 6 : 0;
    std::uint32_t sum = 2166136261U;
    for (std::size_t i = head + 4; i < size - (head > 0 ? 2 : 0); ++i)
        sum = (sum ^ bytes[i]) * 16777619U;
    return size > 16 && sum == numberAt(bytes + head) ? numberAt(bytes + head + 4) : 0;
}

bool setFormat(int fd, const Run &run)
{
    v4l2_format format{};
    format.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    format.fmt.pix.width = run.width;
    format.fmt.pix.height = run.height;
    format.fmt.pix.pixelformat = numberAt(reinterpret_cast<const std::uint8_t *>(run.format));
    return ioctl(fd, VIDIOC_S_FMT, &format) == 0 && format.fmt.pix.width == run.width;
}

bool mapBuffers(int fd, Buffers &buffers)
{
    v4l2_requestbuffers request{};
    request.count = 4;
    request.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    request.memory = V4L2_MEMORY_MMAP;
    if (ioctl(fd, VIDIOC_REQBUFS, &request) != 0)
        return false;
    for (unsigned i = 0; i < request.count; ++i) {
        v4l2_buffer buffer{};
        buffer.index = i;
        buffer.type = request.type;
        buffer.memory = request.memory;
        if (ioctl(fd, VIDIOC_QUERYBUF, &buffer) != 0 || ioctl(fd, VIDIOC_QBUF, &buffer) != 0)
            return false;
        void *map = mmap(nullptr, buffer.length, PROT_READ, MAP_SHARED, fd, buffer.m.offset);
        buffers.maps.emplace_back(map, buffer.length);
    }
    return true;
}

// False once the camera gives nothing any more.
bool takeFrame(int fd, const Buffers &buffers, Counts &counts)
{
    static std::uint32_t last = 0;
    v4l2_buffer buffer{};
    buffer.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    buffer.memory = V4L2_MEMORY_MMAP;
    if (!waitFor(fd, 3000) || ioctl(fd, VIDIOC_DQBUF, &buffer) != 0)
        return false;
    const std::uint32_t number =
        checked(static_cast<const std::uint8_t *>(buffers.maps[buffer.index].first), buffer.bytesused);
    if (buffer.flags & V4L2_BUF_FLAG_ERROR) {
        ++counts.damaged;
    } else if (number == 0) {
        ++counts.wrong;
    } else {
        if (counts.good > 0 && number > last)
            counts.missing += number - last - 1;
        ++counts.good;
        last = number;
    }
    return ioctl(fd, VIDIOC_QBUF, &buffer) == 0;
}

// True if the frames came, false if the stream has to be started again.
bool stream(int fd, const Run &run, Counts &counts)
{
    Buffers buffers;
    int type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    if (!mapBuffers(fd, buffers) || ioctl(fd, VIDIOC_STREAMON, &type) != 0)
        return fail("the start of the stream") == 0;
    while (run.frames == 0 || counts.good < run.frames) {
        if (!takeFrame(fd, buffers, counts))
            return false;
        if (run.frames == 0 && counts.good % 10 == 1)
            std::printf("GUEST FRAMES %u wrong %u\n", counts.good, counts.wrong);
    }
    return true;
}

int camera(const std::vector<Run> &runs)
{
    for (const Run &run : runs) {
        Counts counts;
        for (bool done = false; !done;) {
            const int fd = open("/dev/video0", O_RDWR);
            if (fd < 0)
                return fail("opening");
            if (!setFormat(fd, run))
                return fail("the format");
            done = stream(fd, run, counts);
            if (!done)
                std::printf("GUEST STARTS THE STREAM AGAIN\n");
            close(fd);
        }
        std::printf("GUEST CAMERA %s %ux%u good %u wrong %u damaged %u missing %u\n", run.format, run.width, run.height,
                    counts.good, counts.wrong, counts.damaged, counts.missing);
    }
    return 0;
}

// --- serial port and keyboard ---

int serial(int bytes)
{
    const int fd = open("/dev/ttyACM0", O_RDWR | O_NOCTTY);
    termios raw{};
    if (fd < 0 || tcgetattr(fd, &raw) != 0)
        return fail("opening");
    cfmakeraw(&raw);
    tcsetattr(fd, TCSANOW, &raw);
    for (int done = 0; done < bytes; done += 256) {
        std::uint8_t out[256], in[256];
        for (int i = 0; i < 256; ++i)
            out[i] = std::uint8_t(done / 256 * 7 + i * 13);
        if (write(fd, out, sizeof out) != sizeof out)
            return fail("writing");
        for (std::size_t got = 0; got < sizeof in;) {
            const ssize_t part = waitFor(fd, 5000) ? read(fd, in + got, sizeof in - got) : 0;
            if (part <= 0)
                return fail("reading");
            got += std::size_t(part);
        }
        if (std::memcmp(in, out, sizeof in) != 0)
            return fail("comparing");
        if (done % 16384 == 0)
            std::printf("GUEST ECHO %d\n", done);
    }
    std::printf("GUEST SERIAL %d bytes came back\n", bytes);
    return 0;
}

// The machine has a keyboard of its own: the redirected one is found by its name.
int openKeyboard()
{
    for (int i = 0; i < 8; ++i) {
        char path[32], name[128]{};
        std::snprintf(path, sizeof path, "/dev/input/event%d", i);
        const int fd = open(path, O_RDONLY);
        if (fd >= 0 && ioctl(fd, EVIOCGNAME(sizeof name), name) >= 0 && std::strstr(name, "Example Keyboard"))
            return fd;
        close(fd);
    }
    return -1;
}

int keyboard(int keys)
{
    const int fd = openKeyboard();
    if (fd < 0)
        return fail("opening");
    std::printf("GUEST KEYBOARD\n");
    while (keys > 0) {
        input_event event{};
        if (!waitFor(fd, 60000) || read(fd, &event, sizeof event) != sizeof event)
            return fail("reading");
        if (event.type == EV_KEY && event.value == 1) {
            std::printf("GUEST KEY %u\n", event.code);
            --keys;
        }
    }
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    const std::vector<char *> words(argv + 1, argv + argc);
    if (words.size() == 2 && std::strcmp(words[0], "serial") == 0)
        return serial(std::atoi(words[1]));
    if (words.size() == 2 && std::strcmp(words[0], "keyboard") == 0)
        return keyboard(std::atoi(words[1]));
    if (words.empty() || std::strcmp(words[0], "camera") != 0)
        return 2;
    std::vector<Run> runs;
    const auto number = [&words](std::size_t at) { return unsigned(std::atoi(words[at])); };
    for (std::size_t at = 1; at + 4 <= words.size(); at += 4)
        runs.push_back({words[at], number(at + 1), number(at + 2), number(at + 3)});
    return camera(runs);
}
