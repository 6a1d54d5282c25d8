// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "description.h"
#include "eventqueue.h"
#include "log.h"
#include "options.h"
#include "usbnode.h"

#include <atomic>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace usbworld {

/**
 * The emulated machine: a controller, an internal disk and the devices that the options ask for.
 *
 * Processes that are started with the environment of this one see it through /sys, /dev, libudev and libusb.
 * \thread main
 */
class World
{
public:
    explicit World(Log &log);
    ~World();
    World(const World &) = delete;
    World &operator=(const World &) = delete;

    /** Makes everything. False with a reason in \a error when a part cannot be made. */
    bool build(const Options &options, std::string &error);

    /** Runs one command of the control socket, "unplug 1-1" for example, and returns its one-line reply. */
    std::string command(const std::string &line);

private:
    enum class Numbers { First, Changing, Other };

    struct Port
    {
        std::string name;
        UsbIdentity identity;
        UsbNode::Functions functions;
        std::optional<DiskShape> disk;
        std::optional<int> videoNumber;
        /// Vendor and product after a reset, and once it has had one, those before it.
        std::optional<std::pair<std::uint16_t, std::uint16_t>> otherNumbers;
        bool plugged = false;
        std::atomic<Numbers> numbers{Numbers::First};
        bool denied = false;
        UsbPlace place;
        std::vector<DeviceRecord> usbRecords;
        std::vector<DeviceRecord> functionRecords; ///< what the kernel driver brings: disk or video device
        /// One for every time it was plugged, the last one is current: the others answer who still has them open.
        std::vector<std::unique_ptr<UsbNode>> nodes;
    };

    struct Command;
    static const Command Commands[];

    bool addStick(const StickOptions &stick, std::string &error);
    void addDevice(const DeviceOptions &device);
    Port *find(const std::string &name);

    int takeAddress();
    std::string plug(Port &port);
    std::string unplug(Port &port);
    void pull(Port &port);
    std::string driver(Port &port);
    std::string statistics(Port &port);
    std::string deny(Port &port);
    std::string allow(Port &port);
    std::string tell(Port &port, const std::string &word);

    bool attachNode(Port &port, std::string &error);
    bool placeNode(const Port &port);
    bool linkNode(const std::string &node, const std::string &target);
    bool denyNode(const std::string &node);

    void showFunction(Port &port);
    void hideFunction(Port &port);
    void addRecords(const std::vector<DeviceRecord> &records);
    void removeRecords(std::vector<DeviceRecord> &records);
    void addRecord(const DeviceRecord &record);
    void removeRecord(const DeviceRecord &record);
    void driverChanged();
    static gboolean onDriverChanged(gpointer self);
    static void swapNumbers(Port &port);
    bool resetKeepsNumbers(Port &port);
    static gboolean onReset(gpointer self);
    static std::string videoNode(const DeviceRecord &record);

    Log &m_log;
    GRef<UMockdevTestbed> m_testbed;
    std::string m_root;
    std::unique_ptr<EventQueue> m_events;
    std::string m_failure; ///< why a device directory could not be made
    std::list<Port> m_ports;
    bool m_disksFollowDriver = false;
    int m_videos = 0;
    int m_nextAddress = 2; // the root hub has 1
};

} // namespace usbworld
