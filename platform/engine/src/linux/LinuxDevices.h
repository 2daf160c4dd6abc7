#pragma once
// morvain::LinuxDevices: the devices of this computer, read from /sys and
// /proc under a root folder ("/" normally, a fixture tree in tests).
//
// Sources, each giving one SourceReport, in this order: "dmi" (the root
// device with board and firmware), "cpu" (packages, cores under them),
// "memory" (the total, modules when the firmware tables can be read), "pci",
// "usb", "storage" (disks and their partitions), "optical", "network",
// "power" (batteries and mains adapters) and "sensors" (hwmon chips and
// thermal zones). Devices, property keys and locators follow LinuxModel.h.
// What cannot be read leaves a device or property out and is named in the
// source's reason; nothing read from the files can make a call throw or
// crash (a source whose code throws anyway fails with the exception's text).
//
// GUIDs are derived from what identifies the hardware, never from the order
// of enumeration: "system", "system:board", "system:firmware", "cpu:<pkg>",
// "cpu:<pkg>:<core>", "memory", "memory:<serial or slot>",
// "pci:<domain:bus:dev.fn>", "usb:<bus-port path>" ("usb:<bus>" for a root
// hub), "disk:<wwid, model:serial or device path>" with "...:part<n>" for its
// partitions, "optical:<...>", "net:<MAC>" (the interface name when the
// address is random), "battery:<...>", "power:<name>",
// "sensor:<chip>@<device path>:<input>", "thermal:<zone>:<type>". Two enumerations
// of the same machine give the same GUIDs.
//
// Skipped on purpose: block devices with no hardware under them (their sysfs
// path is under /sys/devices/virtual: loop, ram, zram, device-mapper, md,
// nbd) and hidden ones (NVMe multipath paths); network interfaces with no
// hardware (lo, bridges, veth, tunnels); USB interfaces (a device's
// interfaces only shape its type); power supplies of type USB or Wireless
// (charging ports, not supplies of the computer) and battery bays with no
// battery in them.
//
// Alerts: a sensor or thermal zone at or over its critical limit
// ("alert:overcritical:<device>", CRITICAL) and a battery whose full capacity
// is under 50 % of its design ("alert:batteryworn:<device>",
// HARDWARE_ISSUE). Indicators: one per sensor, thermal zone and battery
// ("indicator:<device>"), and the free indicator "indicator:temperatures"
// that reads every temperature at once; their module is INDICATOR_MODULE.
//
// Threads. enumerate() is called from one thread at a time. refresh(),
// pollChanges() and readIndicator() may run on another thread concurrently
// with enumerate(): they work on what the latest completed enumeration found
// (nothing before the first), guarded by a lock; enumerate() builds its
// result without holding that lock and swaps it in at the end. The three
// live calls are themselves serialised by the same lock.

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "morvain/MachineProvider.h"
#include "zel/IndicatorImp.h"
#include "zel/StateManager.h"
#include "zel/String.h"

namespace morvain {

namespace lxd {
struct Snapshot;
class PciNames;
} // namespace lxd

class LinuxDevices {
public:
  /// The module GUID the indicators name.
  static constexpr char const *INDICATOR_MODULE = "morvain.linux.sysinfo";
  /// The GUID of the root device.
  static constexpr char const *ROOT_GUID = "system";

  explicit LinuxDevices(zel::String const &root = "/");
  ~LinuxDevices();
  LinuxDevices(LinuxDevices const &) = delete;
  LinuxDevices &operator=(LinuxDevices const &) = delete;

  zel::String const &root() const noexcept { return m_rootText; }

  /// Puts every device, alert and indicator into `state`; one report per
  /// source. When `cancelled` turns true the sources that have not completed
  /// fail with the reason "cancelled". The result becomes the baseline of
  /// the live calls.
  std::vector<SourceReport> enumerate(zel::StateManager &state,
                                      std::function<bool()> const &cancelled);

  /// A fresh reading of one device (`propertyKey` empty: the whole device)
  /// or of one of its properties, as a partial state. False when the device
  /// or the property is unknown.
  bool refresh(zel::String const &deviceGuid, zel::String const &propertyKey, LiveUpdate &out);

  /// What changed since the previous look: sensor readings, link states,
  /// battery and mains state, devices appearing or going under /sys/block,
  /// /sys/class/net and /sys/bus/usb/devices, partitions and media of
  /// disks, alerts starting and ending. One update per call, or two when a
  /// device went away and came back under a new identity in the same look
  /// (a renamed interface): its removal first, its return after. Looks only
  /// once per poll interval (earlier calls return at once).
  void pollChanges(std::vector<LiveUpdate> &out);

  /// Fresh values of what the indicator watches, as a partial state; false
  /// when the indicator is not one of ours or its devices are gone.
  bool readIndicator(zel::IndicatorImp const &indicator, LiveUpdate &out);

  /// How often pollChanges looks (1 s unless set; 0 looks at every call).
  void setPollInterval(std::chrono::milliseconds interval);

private:
  void pollLocked(LiveUpdate &update);

  zel::String m_rootText;
  std::string m_root;
  std::unique_ptr<lxd::PciNames> m_pciNames;

  std::mutex m_mutex; // guards everything below
  std::unique_ptr<lxd::Snapshot> m_snapshot;
  std::chrono::milliseconds m_pollInterval{1000};
  std::chrono::steady_clock::time_point m_lastPoll{};
};

} // namespace morvain
