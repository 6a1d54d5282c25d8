// SPDX-License-Identifier: LGPL-2.1-or-later
#include "world.h"

#include "bulkonly.h"
#include "camera.h"
#include "keyboard.h"
#include "serialport.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>

namespace usbworld {

namespace {

constexpr int FirstAddress = 2; // the root hub has 1
constexpr int HighestAddress = 127;

// Opening these for writing is refused to everyone, root included.
const char *const UnwritableFiles[] = {"/proc/sys/kernel/ostype", "/sys/kernel/uevent_seqnum"};

std::string takeMessage(GError *error)
{
    std::string message = error ? error->message : "unknown error";
    g_clear_error(&error);
    return message;
}

} // namespace

struct World::Command
{
    const char *name;
    std::string (World::*run)(Port &port);
};

const World::Command World::Commands[] = {
    {"plug", &World::plug},        {"unplug", &World::unplug}, {"driver", &World::driver},
    {"stats", &World::statistics}, {"deny", &World::deny},     {"allow", &World::allow},
};

World::World(Log &log) : m_log(log), m_testbed(umockdev_testbed_new())
{
    m_root = GOwned<char>(umockdev_testbed_get_root_dir(m_testbed.get())).get();
    m_events = std::make_unique<EventQueue>(m_root);
}

World::~World()
{
    g_idle_remove_by_data(this);
}

bool World::build(const Options &options, std::string &error)
{
    if (!umockdev_in_mock_environment()) {
        error = "run it through umockdev-wrapper";
        return false;
    }
    m_disksFollowDriver = options.disksFollowDriver;
    addRecords(controllerRecords());
    addRecords(internalDiskRecords(options.internalDisk));
    for (const StickOptions &stick : options.sticks) {
        if (!addStick(stick, error))
            return false;
    }
    for (const DeviceOptions &device : options.devices)
        addDevice(device);
    for (Port &port : m_ports) {
        port.denied = std::count(options.deniedPorts.begin(), options.deniedPorts.end(), port.name) > 0;
        const std::string reply = plug(port);
        if (reply.compare(0, 2, "ok") != 0) {
            error = port.name + ": " + reply;
            return false;
        }
    }
    error = m_failure;
    return error.empty();
}

bool World::addStick(const StickOptions &stick, std::string &error)
{
    FileDescriptor image(open(stick.image.c_str(), (stick.readOnly ? O_RDONLY : O_RDWR) | O_CLOEXEC));
    struct stat status
    {
    };
    if (!image || fstat(image.get(), &status) != 0 || status.st_size < off_t(ScsiDisk::SectorSize)) {
        error = "no usable image " + stick.image;
        return false;
    }
    const auto sectors = std::uint64_t(status.st_size) / ScsiDisk::SectorSize;
    const int hostNumber = int(m_ports.size()) + 2;
    Port &port = m_ports.emplace_back();
    port.name = stick.port;
    port.identity = {stick.vendorId,
                     stick.productId,
                     0,
                     "Example",
                     stick.product,
                     stick.serial,
                     {diskInterface(stick.superSpeed ? 1024 : 512)}};
    if (stick.superSpeed)
        port.identity.speed = UsbIdentity::SuperSpeed;
    const ScsiDisk::Identity identity{port.identity.manufacturer, stick.product, stick.serial};
    port.functions = {std::make_shared<BulkOnly>(ScsiDisk(std::move(image), sectors, stick.readOnly, identity))};
    if (stick.cardReader)
        port.functions[0]->tell("eject");
    if (stick.withSerial) {
        port.identity.deviceClass = MiscellaneousClass;
        for (UsbInterface &interface : SerialPort::interfaces(1))
            port.identity.interfaces.push_back(std::move(interface));
        port.functions.resize(3, std::make_shared<SerialPort>());
    }
    if (stick.becomesVendorId != 0)
        port.otherNumbers = {stick.becomesVendorId, stick.becomesProductId};
    port.disk = DiskShape{stick.diskName, sectors, stick.readOnly, hostNumber};
    return true;
}

void World::addDevice(const DeviceOptions &device)
{
    Port &port = m_ports.emplace_back();
    port.name = device.port;
    if (device.option == "--serial") {
        port.identity = {
            TestVendorId, 0x11, 0x02, "Example", "Serial adapter", "SERIAL0001", SerialPort::interfaces(0)};
        port.functions.resize(2, std::make_shared<SerialPort>());
    } else if (device.option == "--keyboard") {
        port.identity = Keyboard::identity();
        port.functions = {std::make_shared<Keyboard>()};
    } else {
        const auto transfer = device.option == "--camera" ? Camera::Transfer::Isochronous : Camera::Transfer::Bulk;
        port.identity = Camera::identity(transfer);
        port.functions.resize(2, std::make_shared<Camera>(transfer));
        port.videoNumber = m_videos++;
    }
}

std::string World::command(const std::string &line)
{
    const std::size_t space = line.find(' ');
    const std::string verb = line.substr(0, space);
    std::string argument = space == std::string::npos ? std::string() : line.substr(space + 1);
    std::string word;
    if (verb == "tell" && argument.find(' ') != std::string::npos) {
        word = argument.substr(argument.find(' ') + 1);
        argument.resize(argument.find(' '));
    }
    const auto entry =
        std::find_if(std::begin(Commands), std::end(Commands), [&verb](const Command &c) { return verb == c.name; });
    if (entry == std::end(Commands) && verb != "tell")
        return "error unknown command " + verb;
    Port *port = find(argument);
    if (port && verb == "tell")
        return tell(*port, word);
    return port ? (this->*entry->run)(*port) : "error no port " + argument;
}

World::Port *World::find(const std::string &name)
{
    const auto port =
        std::find_if(m_ports.begin(), m_ports.end(), [&name](const Port &one) { return one.name == name; });
    return port == m_ports.end() ? nullptr : &*port;
}

std::string World::plug(Port &port)
{
    if (port.plugged)
        return "error already plugged";
    port.place = {port.name, takeAddress()};
    port.usbRecords = usbRecords(port.identity, port.place);
    std::string error;
    // The node comes before the directory, so that whoever finds the device can open it.
    if (!attachNode(port, error))
        return "error " + error;
    port.plugged = true;
    addRecords(port.usbRecords);
    showFunction(port);
    m_log.line(port.name + " plugged, address " + std::to_string(port.place.address));
    return "ok " + std::to_string(port.place.address);
}

// Addresses go round, as the kernel's do; one that a plugged device has is passed over.
int World::takeAddress()
{
    const auto taken = [this](int address) {
        return std::any_of(m_ports.begin(), m_ports.end(),
                           [address](const Port &port) { return port.plugged && port.place.address == address; });
    };
    int address = 0;
    do {
        address = m_nextAddress;
        m_nextAddress = address == HighestAddress ? FirstAddress : address + 1;
    } while (taken(address));
    return address;
}

std::string World::unplug(Port &port)
{
    if (!port.plugged)
        return "error not plugged";
    pull(port);
    if (port.numbers.exchange(Numbers::First) == Numbers::Other)
        swapNumbers(port);
    return "ok";
}

void World::pull(Port &port)
{
    port.plugged = false;
    port.nodes.back()->disconnect();
    hideFunction(port);
    unlink((m_root + "/dev/" + port.place.node()).c_str());
    removeRecords(port.usbRecords);
}

std::string World::driver(Port &port)
{
    return port.plugged ? "ok " + port.nodes.back()->driver() : "error not plugged";
}

std::string World::statistics(Port &port)
{
    const UsbNode::Statistics statistics = port.nodes.back()->statistics();
    return "ok urbs=" + std::to_string(statistics.urbs) + " bytes=" + std::to_string(statistics.bytes)
        + " missed=" + std::to_string(statistics.missed);
}

std::string World::deny(Port &port)
{
    port.denied = true;
    return !port.plugged || placeNode(port) ? "ok" : "error nothing here refuses to be opened";
}

std::string World::allow(Port &port)
{
    port.denied = false;
    return !port.plugged || placeNode(port) ? "ok" : "error cannot make the node";
}

std::string World::tell(Port &port, const std::string &word)
{
    return port.plugged && port.nodes.back()->tell(word) ? "ok" : "error it cannot do that";
}

bool World::attachNode(Port &port, std::string &error)
{
    const UsbNode::Events events{[this] { g_idle_add(onDriverChanged, this); },
                                 [this, &port] { return resetKeepsNumbers(port); }};
    port.nodes.push_back(std::make_unique<UsbNode>(port.identity, port.functions, m_log, port.name, events));
    GError *failure = nullptr;
    if (!port.nodes.back()->attach(m_testbed.get(), port.place.node(), &failure)) {
        error = takeMessage(failure);
        return false;
    }
    if (placeNode(port))
        return true;
    error = "cannot make the node " + port.place.node();
    return false;
}

bool World::placeNode(const Port &port)
{
    return port.denied ? denyNode(port.place.node()) : linkNode(port.place.node(), port.nodes.back()->backingPath());
}

bool World::linkNode(const std::string &node, const std::string &target)
{
    const std::string path = m_root + "/dev/" + node;
    const std::string temporary = m_root + "/node-in-the-making";
    const GOwned<char> directory(g_path_get_dirname(path.c_str()));
    return !target.empty() && g_mkdir_with_parents(directory.get(), 0755) == 0
        && symlink(target.c_str(), temporary.c_str()) == 0 && rename(temporary.c_str(), path.c_str()) == 0;
}

bool World::denyNode(const std::string &node)
{
    const std::string path = m_root + "/dev/" + node;
    for (const char *file : UnwritableFiles) {
        if (linkNode(node, file) && !FileDescriptor(open(path.c_str(), O_RDWR | O_CLOEXEC)) && errno == EACCES)
            return true;
    }
    return false;
}

void World::showFunction(Port &port)
{
    if (port.disk)
        port.functionRecords = usbDiskRecords(port.identity, port.place, *port.disk);
    else if (port.videoNumber)
        port.functionRecords = videoRecords(port.identity, port.place, *port.videoNumber);
    addRecords(port.functionRecords);
}

void World::hideFunction(Port &port)
{
    removeRecords(port.functionRecords);
}

void World::addRecords(const std::vector<DeviceRecord> &records)
{
    for (const DeviceRecord &record : records)
        m_events->push([this, record] { addRecord(record); });
}

void World::removeRecords(std::vector<DeviceRecord> &records)
{
    for (; !records.empty(); records.pop_back())
        m_events->push([this, record = records.back()] { removeRecord(record); });
}

void World::addRecord(const DeviceRecord &record)
{
    GError *failure = nullptr;
    if (!umockdev_testbed_add_from_string(m_testbed.get(), record.text().c_str(), &failure)) {
        m_failure = takeMessage(failure);
        m_log.line(record.path + ' ' + m_failure);
    }
    if (!videoNode(record).empty())
        FileDescriptor(open((m_root + "/dev/" + videoNode(record)).c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0600));
    // /sys/block lists whole disks; the test bed would list partitions too.
    if (record.isPartition())
        unlink((m_root + "/sys/block/" + record.node).c_str());
}

void World::removeRecord(const DeviceRecord &record)
{
    const std::string path = record.sysPath();
    umockdev_testbed_uevent(m_testbed.get(), path.c_str(), "remove");
    umockdev_testbed_remove_device(m_testbed.get(), path.c_str());
    if (!videoNode(record).empty())
        unlink((m_root + "/dev/" + videoNode(record)).c_str());
    // Links that the test bed leaves behind, and that it could not make a second time.
    for (const std::string &link : record.indexLinks())
        unlink((m_root + link).c_str());
}

// "video0" for the record of a camera's picture, and nothing for any other.
std::string World::videoNode(const DeviceRecord &record)
{
    return record.path.find("/video4linux/") == std::string::npos ? std::string()
                                                                  : record.path.substr(record.path.rfind('/') + 1);
}

// On the thread of the test bed.
bool World::resetKeepsNumbers(Port &port)
{
    Numbers first = Numbers::First;
    if (!port.otherNumbers || !port.numbers.compare_exchange_strong(first, Numbers::Changing))
        return true;
    g_idle_add(onReset, this);
    return false;
}

void World::swapNumbers(Port &port)
{
    std::swap(port.identity.vendorId, port.otherNumbers->first);
    std::swap(port.identity.productId, port.otherNumbers->second);
}

gboolean World::onReset(gpointer self)
{
    auto *world = static_cast<World *>(self);
    for (Port &port : world->m_ports) {
        if (port.numbers != Numbers::Changing)
            continue;
        world->pull(port);
        swapNumbers(port);
        port.numbers = Numbers::Other;
        world->plug(port);
    }
    return G_SOURCE_REMOVE;
}

gboolean World::onDriverChanged(gpointer self)
{
    static_cast<World *>(self)->driverChanged();
    return G_SOURCE_REMOVE;
}

void World::driverChanged()
{
    if (!m_disksFollowDriver)
        return;
    for (Port &port : m_ports) {
        if (!port.plugged || !port.disk)
            continue;
        const bool bound = port.nodes.back()->driver() == port.identity.interfaces[0].kernelDriver;
        const bool shown = !port.functionRecords.empty();
        if (shown && !bound)
            hideFunction(port);
        else if (bound && !shown)
            showFunction(port);
    }
}

} // namespace usbworld
