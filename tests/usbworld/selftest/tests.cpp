// SPDX-License-Identifier: LGPL-2.1-or-later
#include "tests.h"

#include "check.h"
#include "usbclient.h"

#include <libudev.h>
#include <poll.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <sstream>

namespace selftest {

namespace {

struct UdevUnref
{
    void operator()(udev *one) const { udev_unref(one); }
    void operator()(udev_enumerate *one) const { udev_enumerate_unref(one); }
    void operator()(udev_device *one) const { udev_device_unref(one); }
    void operator()(udev_monitor *one) const { udev_monitor_unref(one); }
};
template<class T>
using Udev = std::unique_ptr<T, UdevUnref>;

std::string orDash(const char *text)
{
    return text ? text : "-";
}

/** One line for each device of a subsystem: name, node, and the serial of the USB device above it. */
std::string udevList(const char *subsystem, const char *type)
{
    const Udev<udev> context(udev_new());
    const Udev<udev_enumerate> enumerate(udev_enumerate_new(context.get()));
    udev_enumerate_add_match_subsystem(enumerate.get(), subsystem);
    if (type)
        udev_enumerate_add_match_property(enumerate.get(), "DEVTYPE", type);
    udev_enumerate_scan_devices(enumerate.get());
    std::string text;
    udev_list_entry *entry = nullptr;
    udev_list_entry_foreach(entry, udev_enumerate_get_list_entry(enumerate.get()))
    {
        const Udev<udev_device> device(udev_device_new_from_syspath(context.get(), udev_list_entry_get_name(entry)));
        CHECK(device);
        udev_device *usb = udev_device_get_parent_with_subsystem_devtype(device.get(), "usb", "usb_device");
        if (orDash(udev_device_get_devtype(device.get())) == "usb_device")
            usb = device.get();
        text += orDash(udev_device_get_sysname(device.get())) + ' ' + orDash(udev_device_get_devnode(device.get()))
            + ' ' + (usb ? orDash(udev_device_get_sysattr_value(usb, "serial")) : "-") + '\n';
    }
    return text;
}

std::string outputOf(const std::string &command)
{
    const std::unique_ptr<FILE, int (*)(FILE *)> pipe(popen(command.c_str(), "r"), pclose);
    CHECK(pipe);
    std::string text;
    std::array<char, 256> part{};
    while (std::fgets(part.data(), int(part.size()), pipe.get()))
        text += part.data();
    return text;
}

Bytes imageSectors(int stick, unsigned sector, unsigned count)
{
    std::ifstream image(imagePath(stick), std::ios::binary);
    Bytes bytes(count * SectorSize);
    image.seekg(std::streamoff(sector * SectorSize));
    image.read(reinterpret_cast<char *>(bytes.data()), std::streamsize(bytes.size()));
    CHECK(image.good());
    return bytes;
}

std::string portName(int stick)
{
    return "1-" + std::to_string(stick);
}

// ---------------------------------------------------------------------------------------------------------------

void libudevSeesEverything()
{
    CHECK_EQUAL(udevList("usb", "usb_device"),
                std::string("usb1 /dev/bus/usb/001/001 0000:00:14.0\n"
                            "1-1 /dev/bus/usb/001/002 STICK0001\n"
                            "1-2 /dev/bus/usb/001/003 STICK0002\n"
                            "1-3 /dev/bus/usb/001/004 STICK0003\n"
                            "1-4 /dev/bus/usb/001/005 STICK0004\n"
                            "1-5 /dev/bus/usb/001/006 CAMERA0001\n"));
    CHECK_EQUAL(udevList("block", "disk"),
                std::string("sda /dev/sda STICK0001\n"
                            "sdb /dev/sdb STICK0002\n"
                            "sdc /dev/sdc STICK0003\n"
                            "sdd /dev/sdd STICK0004\n"
                            "sde /dev/sde -\n"));
    CHECK_EQUAL(udevList("block", "partition"),
                std::string("sda1 /dev/sda1 STICK0001\n"
                            "sdb1 /dev/sdb1 STICK0002\n"
                            "sdc1 /dev/sdc1 STICK0003\n"
                            "sdd1 /dev/sdd1 STICK0004\n"));
    CHECK_EQUAL(udevList("video4linux", nullptr), std::string("video0 /dev/video0 CAMERA0001\n"));
}

void lsblkSeesDisksAndPartitions()
{
    const std::string expected = "sda disk 4M 0 usb STICK0001\n"
                                 "sda1 part 3M 0  \n"
                                 "sdb disk 4M 1 usb STICK0002\n"
                                 "sdb1 part 3M 1  \n"
                                 "sdc disk 4M 0 usb STICK0003\n"
                                 "sdc1 part 3M 0  \n"
                                 "sdd disk 4M 0 usb STICK0004\n"
                                 "sdd1 part 3M 0  \n"
                                 "sde disk 476.9G 0 sata INTERNAL0001\n";
    CHECK_EQUAL(outputOf("lsblk -rno NAME,TYPE,SIZE,RO,TRAN,SERIAL"), expected);
    const std::string link = outputOf("readlink /sys/block/sdb");
    CHECK(link.find("/usb1/1-2/1-2:1.0/") != std::string::npos);
}

void libusbReadsDescriptorsAndStrings()
{
    const Context context = makeContext();
    for (int stick = 1; stick <= StickCount; ++stick) {
        const Handle handle = openDevice(context.get(), portName(stick));
        libusb_device *device = libusb_get_device(handle.get());
        CHECK_EQUAL(int(libusb_get_device_address(device)), stick + 1);
        libusb_device_descriptor descriptor{};
        CHECK_EQUAL(libusb_get_device_descriptor(device, &descriptor), 0);
        CHECK_EQUAL(int(descriptor.idProduct), stick);
        std::array<unsigned char, 64> text{};
        CHECK(libusb_get_string_descriptor_ascii(handle.get(), descriptor.iSerialNumber, text.data(), 64) > 0);
        CHECK_EQUAL(std::string(reinterpret_cast<char *>(text.data())), "STICK000" + std::to_string(stick));
        libusb_config_descriptor *configuration = nullptr;
        CHECK_EQUAL(libusb_get_active_config_descriptor(device, &configuration), 0);
        CHECK_EQUAL(int(configuration->interface[0].altsetting[0].bInterfaceClass), 8);
        CHECK_EQUAL(int(configuration->interface[0].altsetting[0].bNumEndpoints), 2);
        libusb_free_config_descriptor(configuration);
    }
}

void fourSticksAreReadAtOnce()
{
    constexpr unsigned Chunk = 128;
    const auto readWholeStick = [](int stick) {
        const Context context = makeContext();
        const Handle handle = openAndClaim(context.get(), portName(stick));
        for (unsigned sector = 0; sector < ImageMebibytes * 2048; sector += Chunk) {
            const Reply reply = readCommand(handle.get(), transferBlock(0x28, sector, Chunk), Chunk * SectorSize);
            CHECK_EQUAL(reply.status, 0);
            CHECK(reply.data == imageSectors(stick, sector, Chunk));
            CHECK_EQUAL(std::string(reinterpret_cast<const char *>(reply.data.data())), sectorMark(stick, sector));
        }
        giveBack(handle.get());
    };
    std::vector<std::thread> threads;
    for (int stick = 1; stick <= StickCount; ++stick)
        threads.emplace_back(readWholeStick, stick);
    for (std::thread &thread : threads)
        thread.join();
    CHECK_EQUAL(control("stats 1-4").substr(0, 8), std::string("ok urbs="));
}

void writesReachTheImage()
{
    const Context context = makeContext();
    const Handle handle = openAndClaim(context.get(), "1-3");
    Bytes data(200 * SectorSize);
    for (std::size_t i = 0; i < data.size(); ++i)
        data[i] = std::uint8_t(i * 7 + i / 512);
    CHECK_EQUAL(writeCommand(handle.get(), transferBlock(0x2a, 1000, 200), data).status, 0);
    CHECK_EQUAL(writeCommand(handle.get(), {0x35, 0, 0, 0, 0, 0, 0, 0, 0, 0}, {}).status, 0);
    CHECK(imageSectors(3, 1000, 200) == data);
    CHECK(readCommand(handle.get(), transferBlock(0x28, 1000, 200), 200 * SectorSize).data == data);
    CHECK_EQUAL(std::string(reinterpret_cast<const char *>(imageSectors(3, 1200, 1).data())), sectorMark(3, 1200));
}

void checkSense(libusb_device_handle *handle, int key, int code)
{
    const Reply sense = readCommand(handle, {0x03, 0, 0, 0, 18, 0}, 18);
    CHECK_EQUAL(sense.status, 0);
    CHECK_EQUAL(sense.data.size(), std::size_t(18));
    CHECK_EQUAL(int(sense.data[2]), key);
    CHECK_EQUAL(int(sense.data[12]), code);
}

void readOnlyStickRefusesWrites()
{
    const Context context = makeContext();
    const Handle handle = openAndClaim(context.get(), "1-2");
    const Bytes before = imageSectors(2, 5, 1);
    const Reply refused = writeCommand(handle.get(), transferBlock(0x2a, 5, 1), Bytes(SectorSize, 0x55));
    CHECK_EQUAL(refused.status, 1);
    CHECK_EQUAL(refused.residue, SectorSize);
    checkSense(handle.get(), 7, 0x27);
    CHECK(imageSectors(2, 5, 1) == before);
    const Reply mode = readCommand(handle.get(), {0x1a, 0, 0x3f, 0, 192, 0}, 192);
    CHECK_EQUAL(int(mode.data[2]), 0x80);
}

void scsiCommandsAnswer()
{
    const Context context = makeContext();
    const Handle handle = openAndClaim(context.get(), "1-1");
    libusb_device_handle *stick = handle.get();
    CHECK_EQUAL(writeCommand(stick, {0x00, 0, 0, 0, 0, 0}, {}).status, 0);
    CHECK_EQUAL(writeCommand(stick, {0x1e, 0, 0, 0, 1, 0}, {}).status, 0);
    CHECK_EQUAL(writeCommand(stick, {0x1b, 0, 0, 0, 2, 0}, {}).status, 0);
    const Reply inquiry = readCommand(stick, {0x12, 0, 0, 0, 36, 0}, 36);
    CHECK_EQUAL(std::string(inquiry.data.begin() + 8, inquiry.data.end()), std::string("Example Stick 1         1.00"));
    const Reply capacity = readCommand(stick, {0x25, 0, 0, 0, 0, 0, 0, 0, 0, 0}, 8);
    CHECK(capacity.data == (Bytes{0, 0, 0x1f, 0xff, 0, 0, 2, 0}));
    const Reply luns = readCommand(stick, {0xa0, 0, 0, 0, 0, 0, 0, 0, 0, 16, 0, 0}, 16);
    CHECK_EQUAL(luns.data.size(), std::size_t(16));
    CHECK_EQUAL(int(luns.data[3]), 8);
}

void unknownCommandStallsAndRecovers()
{
    const Context context = makeContext();
    const Handle handle = openAndClaim(context.get(), "1-1");
    const Reply unknown = readCommand(handle.get(), {0xe7, 0, 0, 0, 0, 0}, 64);
    CHECK(unknown.stalled);
    CHECK_EQUAL(unknown.status, 1);
    CHECK_EQUAL(unknown.residue, 64u);
    checkSense(handle.get(), 5, 0x20);
    const Reply outside = readCommand(handle.get(), transferBlock(0x28, ImageMebibytes * 2048, 1), SectorSize);
    CHECK(outside.stalled);
    CHECK_EQUAL(outside.status, 1);
    checkSense(handle.get(), 5, 0x21);
    const Reply fine = readCommand(handle.get(), transferBlock(0x28, 9, 1), SectorSize);
    CHECK_EQUAL(fine.status, 0);
}

/** What libusb told about one device, as text. */
int LIBUSB_CALL onHotplug(libusb_context *, libusb_device *device, libusb_hotplug_event event, void *data)
{
    *static_cast<std::string *>(data) += (event == LIBUSB_HOTPLUG_EVENT_DEVICE_ARRIVED ? "arrived " : "left ")
        + std::to_string(libusb_get_device_address(device)) + '\n';
    return 0;
}

std::string nextUsbEvent(udev_monitor *monitor)
{
    pollfd waiting{udev_monitor_get_fd(monitor), POLLIN, 0};
    CHECK_EQUAL(poll(&waiting, 1, 5000), 1);
    const Udev<udev_device> device(udev_monitor_receive_device(monitor));
    CHECK(device);
    return orDash(udev_device_get_action(device.get())) + ' ' + orDash(udev_device_get_sysname(device.get()));
}

void unplugAndPlugAreNoticed()
{
    const Context context = makeContext();
    std::string events;
    CHECK_EQUAL(libusb_hotplug_register_callback(context.get(),
                                                 LIBUSB_HOTPLUG_EVENT_DEVICE_ARRIVED | LIBUSB_HOTPLUG_EVENT_DEVICE_LEFT,
                                                 0, LIBUSB_HOTPLUG_MATCH_ANY, LIBUSB_HOTPLUG_MATCH_ANY,
                                                 LIBUSB_HOTPLUG_MATCH_ANY, onHotplug, &events, nullptr),
                0);
    const Udev<udev> udevContext(udev_new());
    const Udev<udev_monitor> monitor(udev_monitor_new_from_netlink(udevContext.get(), "udev"));
    CHECK(monitor);
    CHECK_EQUAL(udev_monitor_enable_receiving(monitor.get()), 0);

    CHECK_EQUAL(control("unplug 1-2"), std::string("ok"));
    for (const char *expected :
         {"remove sdb1", "remove sdb", "remove 3:0:0:0", "remove host3", "remove 1-2:1.0", "remove 1-2"})
        CHECK_EQUAL(nextUsbEvent(monitor.get()), std::string(expected));
    CHECK_EVENTUALLY((handleEvents(context.get()), events == "left 3\n"));
    CHECK(!findDevice(context.get(), "1-2"));
    CHECK(udevList("block", "disk").find("sdb") == std::string::npos);
    CHECK(outputOf("lsblk -rno NAME").find("sdb") == std::string::npos);
    CHECK_EQUAL(control("unplug 1-2"), std::string("error not plugged"));

    CHECK_EQUAL(control("plug 1-2"), std::string("ok 6"));
    for (const char *expected : {"add 1-2", "add 1-2:1.0", "add host3", "add 3:0:0:0", "add sdb", "add sdb1"})
        CHECK_EQUAL(nextUsbEvent(monitor.get()), std::string(expected));
    CHECK_EVENTUALLY((handleEvents(context.get()), events == "left 3\narrived 6\n"));
    CHECK(udevList("usb", "usb_device").find("1-2 /dev/bus/usb/001/006 STICK0002\n") != std::string::npos);
    const Handle handle = openAndClaim(context.get(), "1-2");
    CHECK_EQUAL(readCommand(handle.get(), transferBlock(0x28, 0, 8), 8 * SectorSize).status, 0);
    giveBack(handle.get());
}

void slowMonitorLosesNothing()
{
    const Udev<udev> context(udev_new());
    const Udev<udev_monitor> monitor(udev_monitor_new_from_netlink(context.get(), "udev"));
    CHECK_EQUAL(udev_monitor_enable_receiving(monitor.get()), 0);
    constexpr int Rounds = 5; // many more events than a monitor holds
    for (int i = 0; i < Rounds; ++i) {
        CHECK_EQUAL(control("unplug 1-2"), std::string("ok"));
        CHECK_EQUAL(control("plug 1-2"), "ok " + std::to_string(6 + i));
    }
    for (int i = 0; i < Rounds; ++i) {
        for (const char *expected :
             {"remove sdb1", "remove sdb", "remove 3:0:0:0", "remove host3", "remove 1-2:1.0", "remove 1-2", "add 1-2",
              "add 1-2:1.0", "add host3", "add 3:0:0:0", "add sdb", "add sdb1"})
            CHECK_EQUAL(nextUsbEvent(monitor.get()), std::string(expected));
    }
    CHECK_EVENTUALLY(udevList("block", "partition").find("sdb1 /dev/sdb1 STICK0002") != std::string::npos);
}

struct TransferFree
{
    void operator()(libusb_transfer *transfer) const { libusb_free_transfer(transfer); }
};

/** One IN transfer that the device has no answer for. */
struct WaitingTransfer
{
    explicit WaitingTransfer(libusb_device_handle *handle) : transfer(libusb_alloc_transfer(0))
    {
        libusb_fill_bulk_transfer(transfer.get(), handle, 0x81, buffer.data(), int(buffer.size()), onDone, this, 0);
        CHECK_EQUAL(libusb_submit_transfer(transfer.get()), 0);
    }
    static void LIBUSB_CALL onDone(libusb_transfer *one)
    {
        static_cast<WaitingTransfer *>(one->user_data)->done = true;
    }
    std::unique_ptr<libusb_transfer, TransferFree> transfer;
    std::array<unsigned char, 512> buffer{};
    bool done = false;
};

void unplugFailsWhatIsUnderWay()
{
    const Context context = makeContext();
    const Handle handle = openAndClaim(context.get(), "1-1");
    WaitingTransfer waiting(handle.get());
    handleEvents(context.get());
    CHECK(!waiting.done);
    CHECK_EQUAL(control("unplug 1-1"), std::string("ok"));
    CHECK_EVENTUALLY((handleEvents(context.get()), waiting.done));
    CHECK_EQUAL(int(waiting.transfer->status), int(LIBUSB_TRANSFER_NO_DEVICE));
    CHECK_EQUAL(libusb_claim_interface(handle.get(), 0), int(LIBUSB_ERROR_NO_DEVICE));
    std::array<unsigned char, 31> bytes{};
    int sent = 0;
    CHECK_EQUAL(libusb_bulk_transfer(handle.get(), 2, bytes.data(), 31, &sent, 1000), int(LIBUSB_ERROR_NO_DEVICE));

    // The old descriptor stays dead while the device is back under another address.
    CHECK_EQUAL(control("plug 1-1"), std::string("ok 6"));
    CHECK_EQUAL(libusb_release_interface(handle.get(), 0), int(LIBUSB_ERROR_NO_DEVICE));
    CHECK_EVENTUALLY((handleEvents(context.get()), findDevice(context.get(), "1-1")));
    const Handle again = openAndClaim(context.get(), "1-1");
    CHECK_EQUAL(readCommand(again.get(), transferBlock(0x28, 3, 1), SectorSize).status, 0);
}

void waitingTransferIsCancelled()
{
    const Context context = makeContext();
    const Handle handle = openAndClaim(context.get(), "1-1");
    WaitingTransfer waiting(handle.get());
    CHECK_EQUAL(libusb_cancel_transfer(waiting.transfer.get()), 0);
    CHECK_EVENTUALLY((handleEvents(context.get()), waiting.done));
    CHECK_EQUAL(int(waiting.transfer->status), int(LIBUSB_TRANSFER_CANCELLED));
    CHECK_EQUAL(readCommand(handle.get(), transferBlock(0x28, 0, 1), SectorSize).status, 0);
}

void waitingTransferEndsWhenTheAnswerComes()
{
    const Context context = makeContext();
    const Handle handle = openAndClaim(context.get(), "1-1");
    WaitingTransfer waiting(handle.get());
    Bytes command(31, 0);
    std::copy_n("USBC", 4, command.begin());
    command[14] = 6; // TEST UNIT READY
    int sent = 0;
    CHECK_EQUAL(libusb_bulk_transfer(handle.get(), 2, command.data(), 31, &sent, 1000), 0);
    CHECK_EVENTUALLY((handleEvents(context.get()), waiting.done));
    CHECK_EQUAL(waiting.transfer->actual_length, 13);
    CHECK_EQUAL(std::string(waiting.buffer.begin(), waiting.buffer.begin() + 4), std::string("USBS"));
}

void driverIsBoundAgain()
{
    const Context context = makeContext();
    CHECK_EQUAL(control("driver 1-1"), std::string("ok usb-storage"));
    {
        const Handle handle = openDevice(context.get(), "1-1");
        CHECK_EQUAL(libusb_claim_interface(handle.get(), 0), int(LIBUSB_ERROR_BUSY));
        CHECK_EQUAL(libusb_kernel_driver_active(handle.get(), 0), 1);
        CHECK_EQUAL(libusb_detach_kernel_driver(handle.get(), 0), 0);
        CHECK_EQUAL(control("driver 1-1"), std::string("ok none"));
        CHECK_EQUAL(libusb_kernel_driver_active(handle.get(), 0), 0);
        CHECK_EQUAL(libusb_detach_kernel_driver(handle.get(), 0), int(LIBUSB_ERROR_NOT_FOUND));
        CHECK_EQUAL(libusb_claim_interface(handle.get(), 0), 0);
        CHECK_EQUAL(control("driver 1-1"), std::string("ok usbfs"));
        CHECK_EQUAL(control("driver 1-2"), std::string("ok usb-storage"));
        CHECK_EQUAL(libusb_attach_kernel_driver(handle.get(), 0), int(LIBUSB_ERROR_BUSY));
        giveBack(handle.get());
        CHECK_EQUAL(control("driver 1-1"), std::string("ok usb-storage"));

        CHECK_EQUAL(libusb_set_auto_detach_kernel_driver(handle.get(), 1), 0);
        CHECK_EQUAL(libusb_claim_interface(handle.get(), 0), 0);
        CHECK_EQUAL(control("driver 1-1"), std::string("ok usbfs"));
        CHECK_EQUAL(libusb_reset_device(handle.get()), 0);
        CHECK_EQUAL(control("driver 1-1"), std::string("ok usbfs"));
        CHECK_EQUAL(libusb_release_interface(handle.get(), 0), 0);
        CHECK_EQUAL(control("driver 1-1"), std::string("ok usb-storage"));
        CHECK_EQUAL(libusb_claim_interface(handle.get(), 0), 0);
    }
    // A descriptor that is just closed gives up its claim, and no driver comes back by itself.
    CHECK_EVENTUALLY(control("driver 1-1") == "ok none");
}

void twoDescriptorsShareOneDevice()
{
    const Context context = makeContext();
    Handle first = openAndClaim(context.get(), "1-1");
    const Context otherContext = makeContext();
    const Handle second = openDevice(otherContext.get(), "1-1");
    CHECK_EQUAL(libusb_claim_interface(second.get(), 0), int(LIBUSB_ERROR_BUSY));
    CHECK_EQUAL(libusb_release_interface(second.get(), 0), int(LIBUSB_ERROR_NOT_FOUND));
    CHECK_EQUAL(readCommand(first.get(), transferBlock(0x28, 0, 1), SectorSize).status, 0);
    std::array<unsigned char, 64> text{};
    CHECK(libusb_get_string_descriptor_ascii(second.get(), 2, text.data(), 64) > 0);
    CHECK_EQUAL(libusb_release_interface(first.get(), 0), 0);
    CHECK_EQUAL(libusb_claim_interface(second.get(), 0), 0);
    CHECK_EQUAL(libusb_claim_interface(first.get(), 0), int(LIBUSB_ERROR_BUSY));
    CHECK_EQUAL(readCommand(second.get(), transferBlock(0x28, 0, 1), SectorSize).status, 0);
    giveBack(second.get());
    for (int i = 0; i < 20; ++i) {
        first.reset();
        first = openAndClaim(context.get(), "1-1");
        CHECK_EQUAL(readCommand(first.get(), transferBlock(0x28, 0, 1), SectorSize).status, 0);
        giveBack(first.get());
    }
    CHECK_EQUAL(control("driver 1-1"), std::string("ok usb-storage"));
}

void idleDeviceDoesNotWakeAnybody()
{
    const Context context = makeContext();
    const Handle handle = openAndClaim(context.get(), "1-1");
    CHECK_EQUAL(readCommand(handle.get(), transferBlock(0x28, 0, 8), 8 * SectorSize).status, 0);
    const std::unique_ptr<const libusb_pollfd *, void (*)(const libusb_pollfd **)> fds(
        libusb_get_pollfds(context.get()), libusb_free_pollfds);
    std::vector<pollfd> waiting;
    for (const libusb_pollfd **fd = fds.get(); *fd; ++fd)
        waiting.push_back({(*fd)->fd, (*fd)->events, 0});
    CHECK(std::any_of(waiting.begin(), waiting.end(), [](const pollfd &one) { return one.events & POLLOUT; }));
    CHECK_EQUAL(poll(waiting.data(), waiting.size(), 100), 0);
}

void deniedNodeCannotBeOpened()
{
    const Context context = makeContext();
    const auto open = [&context](const char *port) {
        libusb_device_handle *handle = nullptr;
        const int result = libusb_open(findDevice(context.get(), port).get(), &handle);
        const Handle owner(handle);
        return result;
    };
    CHECK_EQUAL(open("1-2"), int(LIBUSB_ERROR_ACCESS)); // so from the start
    CHECK_EQUAL(control("deny 1-1"), std::string("ok"));
    CHECK_EQUAL(open("1-1"), int(LIBUSB_ERROR_ACCESS));
    CHECK_EQUAL(open("1-3"), 0);
    CHECK_EQUAL(control("unplug 1-1"), std::string("ok"));
    CHECK_EQUAL(control("plug 1-1"), std::string("ok 6"));
    CHECK_EVENTUALLY((handleEvents(context.get()), findDevice(context.get(), "1-1")));
    CHECK_EQUAL(open("1-1"), int(LIBUSB_ERROR_ACCESS));
    CHECK_EQUAL(control("allow 1-1"), std::string("ok"));
    CHECK_EQUAL(open("1-1"), 0);
}

void disksFollowTheDriver()
{
    const Context context = makeContext();
    const auto shown = [] { return outputOf("lsblk -rno NAME").find("sda1") != std::string::npos; };
    CHECK(shown());
    const Handle handle = openAndClaim(context.get(), "1-1");
    CHECK_EVENTUALLY(!shown());
    giveBack(handle.get());
    CHECK_EVENTUALLY(shown());
}

void controlRefusesNonsense()
{
    CHECK_EQUAL(control("unplug 1-9"), std::string("error no port 1-9"));
    CHECK_EQUAL(control("dance 1-1"), std::string("error unknown command dance"));
    CHECK_EQUAL(control("plug 1-1"), std::string("error already plugged"));
}

} // namespace

std::string sectorMark(int stick, unsigned sector)
{
    return "stick " + std::to_string(stick) + " sector " + std::to_string(sector);
}

const std::vector<Test> InsideTests = {
    {"libudev_sees_everything", libudevSeesEverything, {"--camera", "1-5"}},
    {"lsblk_sees_disks_and_partitions", lsblkSeesDisksAndPartitions, {}},
    {"libusb_reads_descriptors_and_strings", libusbReadsDescriptorsAndStrings, {}},
    {"four_sticks_are_read_at_once", fourSticksAreReadAtOnce, {}},
    {"writes_reach_the_image", writesReachTheImage, {}},
    {"read_only_stick_refuses_writes", readOnlyStickRefusesWrites, {}},
    {"scsi_commands_answer", scsiCommandsAnswer, {}},
    {"unknown_command_stalls_and_recovers", unknownCommandStallsAndRecovers, {}},
    {"unplug_and_plug_are_noticed", unplugAndPlugAreNoticed, {}},
    {"slow_monitor_loses_nothing", slowMonitorLosesNothing, {}},
    {"unplug_fails_what_is_under_way", unplugFailsWhatIsUnderWay, {}},
    {"waiting_transfer_is_cancelled", waitingTransferIsCancelled, {}},
    {"waiting_transfer_ends_when_the_answer_comes", waitingTransferEndsWhenTheAnswerComes, {}},
    {"driver_is_bound_again", driverIsBoundAgain, {}},
    {"two_descriptors_share_one_device", twoDescriptorsShareOneDevice, {}},
    {"idle_device_does_not_wake_anybody", idleDeviceDoesNotWakeAnybody, {}},
    {"denied_node_cannot_be_opened", deniedNodeCannotBeOpened, {"--no-permission", "1-2"}},
    {"disks_follow_the_driver", disksFollowTheDriver, {"--disks-follow-driver"}},
    {"control_refuses_nonsense", controlRefusesNonsense, {}},
};

} // namespace selftest
