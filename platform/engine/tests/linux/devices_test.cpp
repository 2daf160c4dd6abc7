// LinuxDevices: the devices of fixture trees (a laptop, a bare virtual
// machine) and of this computer, stable GUIDs, damaged trees, and live
// changes of a copied fixture.

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "linux/LinuxDevices.h"
#include "linux/LinuxDevicesDetail.h"
#include "linux/LinuxModel.h"

using namespace morvain;
namespace fs = std::filesystem;
namespace lm = morvain::linuxmodel;

namespace {

std::string fixture(char const *name) { return std::string(OSTREL_ENGINE_FIXTURES) + "/" + name; }

struct Enumeration {
  zel::StateManager state;
  std::vector<SourceReport> reports;

  SourceReport const &report(char const *name) const {
    for (SourceReport const &r : reports)
      if (r.sourceName == name)
        return r;
    throw std::runtime_error(std::string("no report ") + name);
  }
};

Enumeration enumerate(LinuxDevices &devices) {
  Enumeration e;
  e.reports = devices.enumerate(e.state, [] { return false; });
  return e;
}

Enumeration enumerate(std::string const &root) {
  LinuxDevices devices(root);
  return enumerate(devices);
}

std::string prop(zel::StateManager const &s, char const *guid, char const *key) {
  auto d = s.deviceByGuid(guid);
  if (!d)
    return "<no device " + std::string(guid) + ">";
  auto p = d->property(key);
  return p ? p->value().toString().str() : "<absent>";
}

std::set<std::string> guids(zel::StateManager const &s) {
  std::set<std::string> out;
  for (auto const &d : s.getDevices())
    out.insert(d->guid().str());
  return out;
}

/// A copy of a fixture in a temporary folder, removed at the end.
struct TempTree {
  std::string root;
  explicit TempTree(char const *name) {
    static std::atomic<int> n{0};
    char const *dir = ::access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
    root = std::string(dir) + "/devices_test_" + std::to_string(::getpid()) + "_" +
           std::to_string(++n);
    fs::copy(fixture(name), root, fs::copy_options::recursive | fs::copy_options::copy_symlinks);
  }
  ~TempTree() {
    std::error_code ec;
    fs::remove_all(root, ec);
  }
  void write(std::string const &rel, std::string const &text) const {
    if (fs::is_symlink(root + rel))
      fs::remove(root + rel); // never write through a link out of the tree
    fs::create_directories(fs::path(root + rel).parent_path());
    std::ofstream(root + rel, std::ios::binary | std::ios::trunc) << text;
  }
  void link(std::string const &rel, std::string const &target) const {
    fs::create_directory_symlink(target, root + rel);
  }
  void remove(std::string const &rel) const { fs::remove_all(root + rel); }
};

bool runTool(std::string const &command, std::string &out) {
  if (std::system(
          ("command -v " + command.substr(0, command.find(' ')) + " >/dev/null 2>&1").c_str()) != 0)
    return false;
  FILE *p = ::popen(command.c_str(), "r");
  if (!p)
    return false;
  char buf[4096];
  out.clear();
  while (std::size_t n = std::fread(buf, 1, sizeof buf, p))
    out.append(buf, n);
  return ::pclose(p) == 0;
}

std::vector<std::string> lines(std::string const &text) {
  std::vector<std::string> out;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);)
    if (!line.empty())
      out.push_back(line);
  return out;
}

/// The one device of a partial state and the keys of its properties.
std::set<std::string> keysOf(zel::StateManager const &s, std::string const &guid) {
  std::set<std::string> keys;
  if (auto d = s.deviceByGuid(guid))
    for (auto const &p : d->properties())
      keys.insert(p->key().str());
  return keys;
}

std::vector<std::string> strings(zel::Array<zel::String> const &a) {
  std::vector<std::string> out;
  for (auto const &s : a)
    out.push_back(s.str());
  return out;
}

char const *const NVME = "disk:eui.0025385b91b12345";
char const *const NVME_TEMP = "sensor:nvme@pci0000:00/0000:00:1d.0/0000:04:00.0/nvme/nvme0:temp1";
char const *const PKG_TEMP = "sensor:coretemp@platform/coretemp.0:temp1";
char const *const BATTERY = "battery:SMP:5B10W13930:1234";
char const *const ETHERNET = "net:8c:16:45:aa:bb:cc";

} // namespace

// --- the laptop fixture ---------------------------------------------------------------------

TEST(DevicesLaptop, GivesExactlyItsDevicesWithTypesLocatorsAndParents) {
  Enumeration const e = enumerate(fixture("laptop"));
  struct Expected {
    char const *guid, *type, *parent, *os, *hw;
  };
  std::string const optical =
      "optical:path:pci0000:00/0000:00:17.0/ata2/host1/target1:0:0/1:0:0:0/block/sr0";
  std::vector<Expected> const expected = {
      {"system", "System", "", "", ""},
      {"system:board", "SystemBoard", "system", "", ""},
      {"system:firmware", "BIOS", "system", "", ""},
      {"cpu:0", "CPU", "system", "/sys/devices/system/cpu", "cpu:0"},
      {"cpu:0:0", "CPUCore", "cpu:0", "/sys/devices/system/cpu/cpu0", "cpu:0:0"},
      {"cpu:0:1", "CPUCore", "cpu:0", "/sys/devices/system/cpu/cpu1", "cpu:0:1"},
      {"memory", "Memory", "system", "/proc/meminfo", ""},
      {"memory:4A3B2C1D", "MemoryChip", "memory", "/sys/firmware/dmi/entries/17-0", ""},
      {"pci:0000:00:00.0", "PCIHostBridge", "system", "/sys/bus/pci/devices/0000:00:00.0",
       "0000:00:00.0"},
      {"pci:0000:00:02.0", "VideoCard", "system", "/sys/bus/pci/devices/0000:00:02.0",
       "0000:00:02.0"},
      {"pci:0000:00:14.0", "USBController", "system", "/sys/bus/pci/devices/0000:00:14.0",
       "0000:00:14.0"},
      {"pci:0000:00:14.3", "Wireless", "system", "/sys/bus/pci/devices/0000:00:14.3",
       "0000:00:14.3"},
      {"pci:0000:00:17.0", "MassStorageController", "system", "/sys/bus/pci/devices/0000:00:17.0",
       "0000:00:17.0"},
      {"pci:0000:00:1d.0", "PCIPCIBridge", "system", "/sys/bus/pci/devices/0000:00:1d.0",
       "0000:00:1d.0"},
      {"pci:0000:04:00.0", "NVMEController", "pci:0000:00:1d.0",
       "/sys/bus/pci/devices/0000:04:00.0", "0000:04:00.0"},
      {"pci:0000:00:1f.3", "SoundCard", "system", "/sys/bus/pci/devices/0000:00:1f.3",
       "0000:00:1f.3"},
      {"pci:0000:00:1f.6", "Ethernet", "system", "/sys/bus/pci/devices/0000:00:1f.6",
       "0000:00:1f.6"},
      {"usb:1", "HUB", "pci:0000:00:14.0", "/dev/bus/usb/001/001", "usb:1"},
      {"usb:2", "HUB", "pci:0000:00:14.0", "/dev/bus/usb/002/001", "usb:2"},
      {"usb:1-1", "Keyboard", "usb:1", "/dev/bus/usb/001/002", "usb:1-1"},
      {"usb:1-5", "Camera", "usb:1", "/dev/bus/usb/001/003", "usb:1-5"},
      {NVME, "HardDrive", "pci:0000:04:00.0", "/dev/nvme0n1", ""},
      {"disk:eui.0025385b91b12345:part1", "DrivePartition", NVME, "/dev/nvme0n1p1", ""},
      {"disk:eui.0025385b91b12345:part2", "DrivePartition", NVME, "/dev/nvme0n1p2", ""},
      {optical.c_str(), "Optical", "pci:0000:00:17.0", "/dev/sr0", ""},
      {"net:a4:c3:f0:12:34:56", "NetworkCard", "pci:0000:00:14.3", "wlp0s20f3", "0000:00:14.3"},
      {ETHERNET, "NetworkCard", "pci:0000:00:1f.6", "enp0s31f6", "0000:00:1f.6"},
      {BATTERY, "Battery", "system", "/sys/class/power_supply/BAT0", ""},
      {"power:AC", "PowerSupply", "system", "/sys/class/power_supply/AC", ""},
      {NVME_TEMP, "TempSensor", NVME, "/sys/class/hwmon/hwmon2/temp1", ""},
      {"sensor:BAT0@LNXSYSTM:00/LNXSYBUS:00/PNP0C0A:00/power_supply/BAT0:in0", "VoltSensor",
       BATTERY, "/sys/class/hwmon/hwmon3/in0", ""},
      {PKG_TEMP, "TempSensor", "system", "/sys/class/hwmon/hwmon4/temp1", ""},
      {"sensor:coretemp@platform/coretemp.0:temp2", "TempSensor", "system",
       "/sys/class/hwmon/hwmon4/temp2", ""},
      {"sensor:coretemp@platform/coretemp.0:temp3", "TempSensor", "system",
       "/sys/class/hwmon/hwmon4/temp3", ""},
      {"sensor:thinkpad@platform/thinkpad_hwmon:fan1", "Fan", "system",
       "/sys/class/hwmon/hwmon5/fan1", ""},
      {"thermal:thermal_zone0:x86_pkg_temp", "ThermalZone", "system",
       "/sys/class/thermal/thermal_zone0", ""},
  };
  std::set<std::string> want;
  for (Expected const &x : expected) {
    want.insert(x.guid);
    auto d = e.state.deviceByGuid(x.guid);
    ASSERT_TRUE(d) << x.guid;
    EXPECT_EQ(d->deviceType().toString().str(), x.type) << x.guid;
    EXPECT_EQ(d->parentGuid().str(), x.parent) << x.guid;
    EXPECT_EQ(d->osLocator().str(), x.os) << x.guid;
    EXPECT_EQ(d->hwLocator().str(), x.hw) << x.guid;
    EXPECT_TRUE(d->capabilities().isCapable(d->deviceType())) << x.guid;
  }
  // Nothing else: no loop device, no lo, no USB-C port supply, no USB
  // interfaces, no cooling device.
  EXPECT_EQ(guids(e.state), want);
  EXPECT_EQ(e.state.rootDevice()->guid(), "system");
  EXPECT_EQ(e.state.rootDevice()->name(), "LENOVO 20U9CTO1WW");

  std::map<std::string, unsigned> const counts = {
      {"dmi", 3},     {"cpu", 3},     {"memory", 2},  {"pci", 9},   {"usb", 4},
      {"storage", 3}, {"optical", 1}, {"network", 2}, {"power", 2}, {"sensors", 7}};
  ASSERT_EQ(e.reports.size(), counts.size());
  for (SourceReport const &r : e.reports) {
    EXPECT_FALSE(r.failed) << r.sourceName.str();
    EXPECT_EQ(r.reason, "") << r.sourceName.str();
    EXPECT_EQ(r.count, counts.at(r.sourceName.str())) << r.sourceName.str();
  }
}

TEST(DevicesLaptop, ReadsKeyPropertiesCapabilitiesAlertsAndIndicators) {
  Enumeration const e = enumerate(fixture("laptop"));
  zel::StateManager const &s = e.state;
  auto caps = [&](char const *guid) {
    return s.deviceByGuid(guid)->capabilities().toString().str();
  };
  EXPECT_EQ(prop(s, "system", "Serial"), "PF2ABCDE");
  EXPECT_EQ(prop(s, "system", "Chassis"), "Notebook");
  EXPECT_EQ(prop(s, "system:board", "AssetTag"), "<absent>"); // "Not Available"
  EXPECT_EQ(prop(s, "system:firmware", "Version"), "R1BET65W(1.34 )");

  // Topology, not the "ht" flag, makes HT: two threads per core.
  EXPECT_EQ(caps("cpu:0"), "CPU|MMX|SSE|SSE2|SSE3|SSSE3|PSE36|HT|MultiCore");
  EXPECT_EQ(prop(s, "cpu:0", lm::KEY_LOGICAL_PROCESSORS), "4");
  EXPECT_EQ(prop(s, "cpu:0", lm::KEY_CPU_LIST), "0-3");
  EXPECT_EQ(prop(s, "cpu:0:1", lm::KEY_CPU_LIST), "1,3");
  EXPECT_EQ(prop(s, "cpu:0", "MaxFrequency"), "4100");
  EXPECT_EQ(prop(s, "cpu:0", "L3Cache"), "4194304");

  EXPECT_EQ(prop(s, "memory", lm::KEY_TOTAL_BYTES), "16596475904");
  EXPECT_EQ(prop(s, "memory:4A3B2C1D", lm::KEY_SIZE_BYTES), "8589934592");
  EXPECT_EQ(prop(s, "memory:4A3B2C1D", "Type"), "DDR4");
  EXPECT_EQ(prop(s, "memory:4A3B2C1D", "SpeedMTs"), "3200");
  EXPECT_EQ(prop(s, "memory:4A3B2C1D", "PartNumber"), "M471A1K43DB1-CWE");

  EXPECT_EQ(prop(s, "pci:0000:00:1f.6", "Manufacturer"), "Intel Corporation");
  EXPECT_EQ(prop(s, "pci:0000:00:1f.6", lm::KEY_DRIVER), "e1000e");
  EXPECT_EQ(prop(s, "pci:0000:04:00.0", "Manufacturer"), "Samsung Electronics Co Ltd");
  EXPECT_EQ(caps("pci:0000:00:14.0"), "PCI|USBController");
  EXPECT_EQ(caps("usb:1-5"), "USB|USB2|Camera");
  EXPECT_EQ(prop(s, "usb:1-1", lm::KEY_DRIVER), "usbhid");

  EXPECT_EQ(caps(NVME), "NVME|HardDrive|SSD");
  EXPECT_EQ(prop(s, NVME, lm::KEY_SIZE_BYTES), "500107862016");
  EXPECT_EQ(prop(s, NVME, lm::KEY_LOGICAL_BLOCK), "512");
  EXPECT_EQ(prop(s, NVME, lm::KEY_ROTATIONAL), "false");
  EXPECT_EQ(prop(s, NVME, "Serial"), "S4EVNX0N123456A");
  EXPECT_EQ(prop(s, "disk:eui.0025385b91b12345:part2", "Offset"), "537919488");
  auto optical = s.getDevices(zel::CapabilityImp(lm::OPTICAL), true);
  ASSERT_EQ(optical.size(), 1u);
  EXPECT_EQ(optical[0]->capabilities().toString(),
            "RemovableStorage|Optical|CDROM|CDDA|CDR|CDRW|DVD|DVDMINUSR|DVDRAM");
  EXPECT_EQ(optical[0]->property("MediaPresent")->value().toString(), "false");

  EXPECT_EQ(caps("net:a4:c3:f0:12:34:56"), "NetworkCard|Wireless");
  EXPECT_EQ(prop(s, "net:a4:c3:f0:12:34:56", lm::KEY_LINK), "up");
  EXPECT_EQ(prop(s, "net:a4:c3:f0:12:34:56", lm::KEY_DRIVER), "iwlwifi");
  EXPECT_EQ(prop(s, ETHERNET, lm::KEY_LINK), "down");
  EXPECT_EQ(prop(s, ETHERNET, lm::KEY_SPEED_MBPS), "<absent>"); // speed -1: unknown

  EXPECT_EQ(prop(s, BATTERY, lm::KEY_CAPACITY_PERCENT), "76");
  EXPECT_EQ(prop(s, BATTERY, lm::KEY_HEALTH_PERCENT), "46");
  EXPECT_EQ(prop(s, BATTERY, lm::KEY_DESIGN_CAPACITY), "57000000");
  EXPECT_EQ(prop(s, "power:AC", lm::KEY_ONLINE), "false");
  EXPECT_EQ(prop(s, NVME_TEMP, lm::KEY_READING), "86.85");
  EXPECT_EQ(prop(s, NVME_TEMP, lm::KEY_CRITICAL), "84.85");
  EXPECT_EQ(prop(s, "sensor:thinkpad@platform/thinkpad_hwmon:fan1", lm::KEY_READING), "2411");
  EXPECT_EQ(prop(s, "thermal:thermal_zone0:x86_pkg_temp", lm::KEY_CRITICAL), "105");

  for (auto const &d : s.getDevices())
    EXPECT_FALSE(d->capabilities().contains(zel::CapabilityImp::Row::INVALID)) << d->guid().str();

  // The NVMe disk is over its critical temperature; the battery is worn.
  std::map<std::string, std::string> alerts;
  for (auto const &a : s.getAlerts())
    alerts[a->guid().str()] = a->deviceGuid().str() + " " + a->type().toString().str();
  EXPECT_EQ(alerts,
            (std::map<std::string, std::string>{{std::string("alert:overcritical:") + NVME_TEMP,
                                                 std::string(NVME_TEMP) + " CRITICAL"},
                                                {std::string("alert:batteryworn:") + BATTERY,
                                                 std::string(BATTERY) + " HARDWARE_ISSUE"}}));

  std::map<std::string, std::string> indicators;
  for (auto const &i : s.getIndicators())
    indicators[i->guid().str()] = i->deviceGuid().str();
  EXPECT_EQ(indicators.size(), 9u); // 5 temperatures, a fan, a voltage, the battery, all temps
  EXPECT_EQ(indicators.at("indicator:temperatures"), "");
  EXPECT_EQ(indicators.at(std::string("indicator:") + BATTERY), BATTERY);
}

// --- the bare virtual machine --------------------------------------------------------------

TEST(DevicesBareVm, ReportsWhatIsAbsentAndFindsTheRest) {
  Enumeration const e = enumerate(fixture("bare-vm"));
  std::string const vda = "disk:path:pci0000:00/0000:00:02.0/virtio0/block/vda";
  EXPECT_EQ(guids(e.state),
            (std::set<std::string>{"system", "cpu:0", "cpu:0:0", "memory", "pci:0000:00:00.0",
                                   "pci:0000:00:01.0", "pci:0000:00:02.0", "pci:0000:00:03.0", vda,
                                   vda + ":part1", "net:52:54:00:12:34:56"}));
  EXPECT_EQ(e.state.rootDevice()->name(), "bare-vm");
  EXPECT_EQ(e.state.deviceByGuid(vda)->parentGuid(), "pci:0000:00:02.0");
  EXPECT_EQ(e.state.deviceByGuid(vda)->capabilities().toString(), "HardDrive");
  EXPECT_EQ(prop(e.state, vda.c_str(), lm::KEY_DRIVER), "virtio_blk");
  EXPECT_EQ(prop(e.state, "net:52:54:00:12:34:56", lm::KEY_LINK), "up");
  EXPECT_EQ(prop(e.state, "net:52:54:00:12:34:56", lm::KEY_DRIVER), "virtio_net");
  // Without topology in sysfs the processor comes from /proc/cpuinfo alone.
  EXPECT_EQ(prop(e.state, "cpu:0", lm::KEY_LOGICAL_PROCESSORS), "1");
  EXPECT_EQ(prop(e.state, "cpu:0", "CacheSize"), "524288");
  EXPECT_EQ(e.state.alertCount(), 0u);
  EXPECT_TRUE(e.state.getIndicators().isEmpty());

  for (SourceReport const &r : e.reports)
    EXPECT_FALSE(r.failed) << r.sourceName.str() << ": " << r.reason.str();
  EXPECT_TRUE(e.report("dmi").reason.contains("no DMI tables"));
  EXPECT_TRUE(e.report("memory").reason.contains("memory modules unknown"));
  EXPECT_TRUE(e.report("usb").reason.contains("/sys/bus/usb/devices is absent"));
  EXPECT_TRUE(e.report("power").reason.contains("/sys/class/power_supply is absent"));
  EXPECT_TRUE(e.report("sensors").reason.contains("/sys/class/hwmon is absent"));
  EXPECT_TRUE(e.report("sensors").reason.contains("/sys/class/thermal is absent"));
  EXPECT_EQ(e.report("storage").reason, "");
  EXPECT_EQ(e.report("sensors").count, 0u);
}

TEST(DevicesBareVm, AnEmptyRootGivesTheComputerAloneAndReasons) {
  TempTree tree("bare-vm");
  tree.remove("/sys");
  tree.remove("/proc");
  Enumeration const e = enumerate(tree.root);
  EXPECT_EQ(guids(e.state), (std::set<std::string>{"system", "memory"}));
  EXPECT_EQ(e.state.rootDevice()->name(), "This computer");
  EXPECT_TRUE(e.report("cpu").reason.contains("no processors found"));
  EXPECT_TRUE(e.report("memory").reason.contains("/proc/meminfo absent"));
  EXPECT_TRUE(e.report("pci").reason.contains("no PCI bus"));
}

// --- reading values that cannot be trusted ---------------------------------------------------

TEST(DevicesSysfsValues, NumbersAreReadStrictly) {
  using lxd::parseInt;
  using lxd::parseUInt;
  EXPECT_EQ(parseInt(" -42\n"), -42);
  EXPECT_EQ(parseInt("-9223372036854775808"), LLONG_MIN);
  EXPECT_FALSE(parseInt("9223372036854775808"));
  EXPECT_FALSE(parseInt("12abc"));
  EXPECT_FALSE(parseInt(""));
  EXPECT_FALSE(parseInt("-"));
  EXPECT_FALSE(parseInt("1 2"));
  EXPECT_EQ(parseUInt("0x8086", 16), 0x8086u);
  EXPECT_EQ(parseUInt("ffff", 16), 0xffffu);
  EXPECT_FALSE(parseUInt("0x", 16));
  EXPECT_FALSE(parseUInt("-1"));
  EXPECT_FALSE(parseUInt("18446744073709551616"));
  EXPECT_EQ(parseUInt("18446744073709551615"), 18446744073709551615ULL);
}

TEST(DevicesSysfsValues, CpuListsAreBoundedAndRoundTrip) {
  using lxd::parseCpuList;
  EXPECT_EQ(parseCpuList("0-3,8-11\n"), (std::vector<unsigned>{0, 1, 2, 3, 8, 9, 10, 11}));
  EXPECT_EQ(parseCpuList(""), std::vector<unsigned>{});
  EXPECT_EQ(lxd::formatCpuList({0, 1, 2, 3, 8, 10, 11}), "0-3,8,10-11");
  for (char const *bad : {"3-1", "0-", "1,,2", "a", "0-4294967295", "0-100000"})
    EXPECT_FALSE(parseCpuList(bad, 8192)) << bad;
}

TEST(DevicesSysfsValues, TextsComeOutAsOneCleanValidLine) {
  EXPECT_EQ(lxd::cleanText("  Samsung\tSSD  970 \nsecond line"), "Samsung SSD 970");
  EXPECT_EQ(lxd::cleanText(std::string("a\0b\x7f"
                                       "c",
                                       5)),
            "a b c");
  std::string const bad = lxd::cleanText("caf\xc3 \xff!");
  EXPECT_TRUE(zel::String::isValidUTF8(zel::String(bad))) << bad;
  // Cut to the limit without splitting a character.
  std::string const cut = lxd::cleanText("\xc3\xa9\xc3\xa9\xc3\xa9", 5);
  EXPECT_EQ(cut, "\xc3\xa9\xc3\xa9");
  EXPECT_EQ(lxd::idPart(" WD 10EZEX\xff "), "WD_10EZEX_");
}

TEST(DevicesSysfsValues, MemoryModuleTablesAreReadWithinTheirBounds) {
  TempTree tree("laptop");
  std::string const entries = "/sys/firmware/dmi/entries/";
  std::ifstream in(tree.root + entries + "17-0/raw", std::ios::binary);
  std::string const raw((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  ASSERT_GT(raw.size(), 0x28u);
  // A 32 GiB module: size 0x7FFF sends the reader to the extended size
  // (in MiB); its serial names a string past the end of the set.
  std::string big = raw;
  big[0x0C] = '\xff';
  big[0x0D] = '\x7f';
  big[0x1C] = '\x00';
  big[0x1D] = '\x80';
  big[0x1E] = big[0x1F] = '\0';
  big[0x18] = '\x09';
  big[0x02] = '\x3d';
  tree.write(entries + "17-2/raw", big);
  // 512 KiB in KiB units (bit 15), from a table that ends in its formatted
  // area: no strings at all.
  std::string small = raw.substr(0, 0x1C);
  small[1] = '\x1c';
  small[0x0C] = '\x00';
  small[0x0D] = '\x82';
  small[0x02] = '\x3e';
  tree.write(entries + "17-3/raw", small);
  tree.write(entries + "17-4/raw", std::string("\x11\xff\x00", 3)); // length past the data
  Enumeration const e = enumerate(tree.root);
  std::map<std::string, std::string> sizes;
  for (auto const &d : e.state.getDevices(zel::CapabilityImp(lm::MEMORY_MODULE), true))
    sizes[d->guid().str()] = prop(e.state, d->guid().c_str(), lm::KEY_SIZE_BYTES);
  EXPECT_EQ(sizes,
            (std::map<std::string, std::string>{{"memory:4A3B2C1D", "8589934592"},
                                                {"memory:BANK_0/ChannelA-DIMM0", "34359738368"},
                                                {"memory:handle-003e", "524288"}}));
  EXPECT_TRUE(e.report("memory").reason.contains("1 of 5 memory device entries malformed"))
      << e.report("memory").reason.str();
}

// --- identity, cancellation, damage ---------------------------------------------------------

TEST(DevicesEnumeration, GuidsAndTreeAreTheSameOnEveryRun) {
  for (char const *root : {"laptop", "bare-vm", ""}) {
    std::string const path = *root ? fixture(root) : "/";
    Enumeration const a = enumerate(path), b = enumerate(path);
    std::map<std::string, std::string> treeA, treeB;
    for (auto const &d : a.state.getDevices())
      treeA[d->guid().str()] = d->parentGuid().str();
    for (auto const &d : b.state.getDevices())
      treeB[d->guid().str()] = d->parentGuid().str();
    EXPECT_EQ(treeA, treeB) << path;
    EXPECT_FALSE(treeA.empty());
  }
}

TEST(DevicesEnumeration, CancellingFailsTheSourcesNotYetDone) {
  LinuxDevices devices(fixture("laptop"));
  zel::StateManager state;
  int calls = 0;
  // Cancelled once the cpu source has asked.
  auto reports = devices.enumerate(state, [&] { return ++calls > 3; });
  ASSERT_EQ(reports.size(), 10u);
  EXPECT_FALSE(reports[0].failed);
  std::size_t failed = 0;
  for (SourceReport const &r : reports)
    if (r.failed) {
      ++failed;
      EXPECT_EQ(r.reason, "cancelled");
    }
  EXPECT_GE(failed, 8u);
  EXPECT_TRUE(state.deviceByGuid("system"));
  EXPECT_FALSE(state.deviceByGuid("usb:1"));
}

TEST(DevicesEnumeration, TwoDevicesWithTheSameIdentityGetDistinctGuids) {
  TempTree tree("bare-vm");
  // A second virtio disk with the same serial as the first.
  std::string const v = "/sys/devices/pci0000:00/0000:00:02.0/virtio0/block/";
  tree.write(v + "vda/serial", "SAME");
  tree.write(v + "vdb/serial", "SAME");
  tree.write(v + "vdb/size", "2048");
  tree.link("/sys/block/vdb", "../devices/pci0000:00/0000:00:02.0/virtio0/block/vdb");
  Enumeration const e = enumerate(tree.root);
  EXPECT_TRUE(e.state.deviceByGuid("disk:SAME"));
  ASSERT_TRUE(e.state.deviceByGuid("disk:SAME#2"));
  EXPECT_EQ(e.state.deviceByGuid("disk:SAME#2")->osLocator(), "/dev/vdb");
  EXPECT_EQ(e.state.deviceByGuid("disk:SAME:part1")->parentGuid(), "disk:SAME");
}

namespace {

/// A copy of the laptop in one folder that every case of the damage
/// property reuses (a LinuxDevices with its PCI names loaded goes with it).
struct DamageBench {
  TempTree tree{"laptop"};
  std::vector<std::string> files; // relative, regular files
  LinuxDevices devices{tree.root};
  DamageBench() {
    for (auto const &e : fs::recursive_directory_iterator(tree.root))
      if (e.is_regular_file() && !e.is_symlink())
        files.push_back(e.path().string().substr(tree.root.size()));
    std::sort(files.begin(), files.end());
    devices.setPollInterval(std::chrono::milliseconds(0));
  }
  std::vector<std::string> edited;
  /// Puts back the files the previous case damaged.
  void restore() {
    for (std::string const &f : edited) {
      fs::remove_all(tree.root + f);
      fs::copy_file(fixture("laptop") + f, tree.root + f);
    }
    edited.clear();
  }
};

} // namespace

RC_GTEST_PROP(DevicesEnumeration, DamagedFilesNeitherCrashNorFailASource, ()) {
  static DamageBench bench;
  bench.restore();
  static std::vector<std::string> const tokens = {"",
                                                  "-1",
                                                  "0",
                                                  "18446744073709551616",
                                                  "-9223372036854775808",
                                                  "0x",
                                                  "nan",
                                                  "\xff\xfe\xc3",
                                                  "0-4294967295",
                                                  "1-,",
                                                  "9999999999999999999999",
                                                  std::string(70000, '7'),
                                                  std::string("\0\0\0", 3),
                                                  "up\ndown"};
  int const edits = *rc::gen::inRange(1, 12);
  for (int i = 0; i < edits; ++i) {
    std::string const file = *rc::gen::elementOf(bench.files);
    bench.edited.push_back(file);
    switch (*rc::gen::inRange(0, 6)) {
    case 0:
      bench.tree.write(file, *rc::gen::elementOf(tokens));
      break;
    case 1: {
      std::string bytes = *rc::gen::container<std::string>(rc::gen::arbitrary<char>());
      bench.tree.write(file, bytes);
      break;
    }
    case 2: { // truncated
      if (!fs::is_regular_file(bench.tree.root + file))
        break;
      std::ifstream in(bench.tree.root + file, std::ios::binary);
      std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
      bench.tree.write(file, text.substr(0, *rc::gen::inRange<std::size_t>(0, text.size() + 1)));
      break;
    }
    case 3:
      bench.tree.remove(file);
      break;
    case 4: // a folder where a file was
      bench.tree.remove(file);
      fs::create_directories(bench.tree.root + file);
      break;
    case 5: // a link where a file was: to a device, to itself, up the tree
      bench.tree.remove(file);
      fs::create_symlink(*rc::gen::element<std::string>("/dev/zero", fs::path(file).filename(),
                                                        "../../../..", "missing-target"),
                         bench.tree.root + file);
      break;
    }
  }
  zel::StateManager state;
  auto reports = bench.devices.enumerate(state, [] { return false; });
  for (SourceReport const &r : reports)
    RC_ASSERT(!r.failed);
  RC_ASSERT(state.deviceByGuid("system") != nullptr);
  std::vector<LiveUpdate> updates;
  bench.devices.pollChanges(updates);
  for (auto const &d : state.getDevices()) {
    LiveUpdate out;
    bench.devices.refresh(d->guid(), zel::String(), out);
  }
  for (auto const &i : state.getIndicators()) {
    LiveUpdate out;
    bench.devices.readIndicator(*i, out);
  }
}

// --- live changes -------------------------------------------------------------------------------

namespace {

struct Live {
  TempTree tree{"laptop"};
  LinuxDevices devices{tree.root};
  zel::StateManager state;
  Live() {
    devices.enumerate(state, [] { return false; });
    devices.setPollInterval(std::chrono::milliseconds(0));
  }
  std::vector<LiveUpdate> poll() {
    std::vector<LiveUpdate> out;
    devices.pollChanges(out);
    return out;
  }
};

std::string const CORETEMP = "/sys/devices/platform/coretemp.0/hwmon/hwmon4/";
std::string const NVME_HWMON =
    "/sys/devices/pci0000:00/0000:00:1d.0/0000:04:00.0/nvme/nvme0/hwmon2/";
std::string const EN_DIR = "/sys/devices/pci0000:00/0000:00:1f.6/net/enp0s31f6/";

} // namespace

TEST(DevicesLive, NothingChangedGivesNothingAndPollingIsRateLimited) {
  Live live;
  EXPECT_TRUE(live.poll().empty());
  live.devices.setPollInterval(std::chrono::hours(1));
  live.tree.write(CORETEMP + "temp1_input", "52000");
  EXPECT_TRUE(live.poll().empty()); // not yet time to look
  live.devices.setPollInterval(std::chrono::milliseconds(0));
  EXPECT_EQ(live.poll().size(), 1u);
}

TEST(DevicesLive, ATemperatureChangeGivesThatReadingOnly) {
  Live live;
  live.tree.write(CORETEMP + "temp1_input", "52000");
  auto updates = live.poll();
  ASSERT_EQ(updates.size(), 1u);
  LiveUpdate const &u = updates[0];
  ASSERT_EQ(u.state.deviceCount(), 1u);
  EXPECT_EQ(keysOf(u.state, PKG_TEMP), (std::set<std::string>{lm::KEY_READING}));
  EXPECT_EQ(prop(u.state, PKG_TEMP, lm::KEY_READING), "52");
  EXPECT_EQ(u.state.deviceByGuid(PKG_TEMP)->name(), "coretemp Package id 0");
  EXPECT_TRUE(u.deviceGuidsToRemove.isEmpty());
  EXPECT_TRUE(u.alertGuidsToRemove.isEmpty());
  EXPECT_EQ(u.state.alertCount(), 0u);
  EXPECT_TRUE(live.poll().empty()); // reported once
}

TEST(DevicesLive, CrossingTheCriticalLimitRaisesAndEndsAlerts) {
  Live live;
  live.tree.write(NVME_HWMON + "temp1_input", "70000");
  live.tree.write(CORETEMP + "temp1_input", "101000");
  auto updates = live.poll();
  ASSERT_EQ(updates.size(), 1u);
  LiveUpdate const &u = updates[0];
  EXPECT_EQ(strings(u.alertGuidsToRemove),
            std::vector<std::string>{std::string("alert:overcritical:") + NVME_TEMP});
  ASSERT_EQ(u.state.alertCount(), 1u);
  auto alert = u.state.getAlerts()[0];
  EXPECT_EQ(alert->guid(), std::string("alert:overcritical:") + PKG_TEMP);
  EXPECT_EQ(alert->deviceGuid(), PKG_TEMP);
  EXPECT_TRUE(alert->timeIsReal());
  EXPECT_EQ(prop(u.state, NVME_TEMP, lm::KEY_READING), "70");
  EXPECT_EQ(prop(u.state, PKG_TEMP, lm::KEY_READING), "101");
}

TEST(DevicesLive, ALinkComingUpAndGoingDown) {
  Live live;
  live.tree.write(EN_DIR + "operstate", "up");
  live.tree.write(EN_DIR + "carrier", "1");
  live.tree.write(EN_DIR + "speed", "1000");
  live.tree.write(EN_DIR + "duplex", "full");
  auto up = live.poll();
  ASSERT_EQ(up.size(), 1u);
  ASSERT_EQ(up[0].state.deviceCount(), 1u);
  EXPECT_EQ(
      keysOf(up[0].state, ETHERNET),
      (std::set<std::string>{lm::KEY_LINK, lm::KEY_SPEED_MBPS, "OperState", "Carrier", "Duplex"}));
  EXPECT_EQ(prop(up[0].state, ETHERNET, lm::KEY_LINK), "up");
  EXPECT_EQ(prop(up[0].state, ETHERNET, lm::KEY_SPEED_MBPS), "1000");

  live.tree.write(EN_DIR + "operstate", "down");
  live.tree.write(EN_DIR + "carrier", "0");
  auto down = live.poll();
  ASSERT_EQ(down.size(), 1u);
  EXPECT_EQ(prop(down[0].state, ETHERNET, lm::KEY_LINK), "down");
  // Speed and duplex mean nothing without a link: they go away.
  std::vector<std::string> keys = strings(down[0].propertyKeysToRemove);
  std::sort(keys.begin(), keys.end());
  EXPECT_EQ(keys, (std::vector<std::string>{"Duplex", lm::KEY_SPEED_MBPS}));
  EXPECT_EQ(strings(down[0].deviceGuidsForPropertiesToRemove),
            (std::vector<std::string>{ETHERNET, ETHERNET}));
}

TEST(DevicesLive, DisksAndPartitionsComeAndGo) {
  Live live;
  std::string const dev = "/sys/devices/pci0000:00/0000:00:17.0/ata1/host0/target0:0:0/0:0:0:0";
  live.tree.write(dev + "/model", "WDC WD10EZEX-08W");
  live.tree.write(dev + "/vendor", "ATA");
  live.tree.write(dev + "/block/sda/size", "1953525168");
  live.tree.write(dev + "/block/sda/queue/rotational", "1");
  live.tree.write(dev + "/block/sda/sda1/partition", "1");
  live.tree.write(dev + "/block/sda/sda1/size", "1953521664");
  fs::create_directory_symlink("../..", live.tree.root + dev + "/block/sda/device");
  live.tree.link("/sys/block/sda", "../devices/pci0000:00/0000:00:17.0/ata1/host0/target0:0:0/"
                                   "0:0:0:0/block/sda");
  auto added = live.poll();
  ASSERT_EQ(added.size(), 1u);
  std::string const sda = "disk:path:pci0000:00/0000:00:17.0/ata1/host0/target0:0:0/0:0:0:0/"
                          "block/sda";
  EXPECT_EQ(guids(added[0].state), (std::set<std::string>{sda, sda + ":part1"}));
  auto disk = added[0].state.deviceByGuid(sda);
  EXPECT_EQ(disk->parentGuid(), "pci:0000:00:17.0");
  EXPECT_EQ(disk->capabilities().toString(), "SATA|HardDrive");
  EXPECT_EQ(prop(added[0].state, sda.c_str(), "Model"), "WDC WD10EZEX-08W");

  // A new partition on the NVMe disk: only it is new.
  std::string const nvme = "/sys/devices/pci0000:00/0000:00:1d.0/0000:04:00.0/nvme/nvme0/nvme0n1";
  live.tree.write(nvme + "/nvme0n1p3/partition", "3");
  live.tree.write(nvme + "/nvme0n1p3/size", "2048");
  auto part = live.poll();
  ASSERT_EQ(part.size(), 1u);
  EXPECT_EQ(guids(part[0].state), (std::set<std::string>{"disk:eui.0025385b91b12345:part3"}));
  EXPECT_TRUE(part[0].deviceGuidsToRemove.isEmpty());

  // Unplugged: the disk goes, its partition with it (one removal).
  live.tree.remove("/sys/block/sda");
  live.tree.remove(dev);
  auto removed = live.poll();
  ASSERT_EQ(removed.size(), 1u);
  EXPECT_EQ(strings(removed[0].deviceGuidsToRemove), std::vector<std::string>{sda});
  EXPECT_TRUE(removed[0].state.isEmpty());
}

TEST(DevicesLive, AnUnpluggedUsbDeviceIsRemoved) {
  Live live;
  live.tree.remove("/sys/bus/usb/devices/1-5");
  auto updates = live.poll();
  ASSERT_EQ(updates.size(), 1u);
  EXPECT_EQ(strings(updates[0].deviceGuidsToRemove), std::vector<std::string>{"usb:1-5"});
  LiveUpdate out;
  EXPECT_FALSE(live.devices.refresh("usb:1-5", "", out));
}

TEST(DevicesLive, RefreshAndIndicatorsReadFreshValues) {
  Live live;
  live.tree.write(CORETEMP + "temp1_input", "61000");
  LiveUpdate one;
  ASSERT_TRUE(live.devices.refresh(PKG_TEMP, lm::KEY_READING, one));
  EXPECT_EQ(keysOf(one.state, PKG_TEMP), (std::set<std::string>{lm::KEY_READING}));
  EXPECT_EQ(prop(one.state, PKG_TEMP, lm::KEY_READING), "61");
  LiveUpdate whole;
  ASSERT_TRUE(live.devices.refresh(BATTERY, "", whole));
  EXPECT_EQ(prop(whole.state, BATTERY, "Serial"), "1234");
  LiveUpdate none;
  EXPECT_FALSE(live.devices.refresh("no-such-device", "", none));
  EXPECT_FALSE(live.devices.refresh(PKG_TEMP, "NoSuchKey", none));

  live.tree.write(CORETEMP + "temp2_input", "48000");
  auto all = live.state.indicatorByGuid("indicator:temperatures");
  ASSERT_TRUE(all);
  LiveUpdate reading;
  ASSERT_TRUE(live.devices.readIndicator(*all, reading));
  EXPECT_EQ(reading.state.deviceCount(), 5u);
  EXPECT_EQ(prop(reading.state, "sensor:coretemp@platform/coretemp.0:temp2", lm::KEY_READING),
            "48");
  EXPECT_FALSE(live.devices.readIndicator(zel::IndicatorImp("x", "m", "k", "n"), none));
  // What the refresh and the indicator delivered is not reported again.
  auto updates = live.poll();
  for (auto const &u : updates)
    EXPECT_FALSE(u.state.deviceByGuid(PKG_TEMP)) << u.state.toString().str();
}

TEST(DevicesLive, ARenamedInterfaceIsRemovedThenAddedAgain) {
  Live live;
  // udev renames an interface: same card (same MAC), new name and locator.
  std::string const pci = "/sys/devices/pci0000:00/0000:00:1f.6/net/";
  fs::rename(live.tree.root + pci + "enp0s31f6", live.tree.root + pci + "eth7");
  live.tree.remove("/sys/class/net/enp0s31f6");
  live.tree.link("/sys/class/net/eth7", "../../devices/pci0000:00/0000:00:1f.6/net/eth7");
  auto updates = live.poll();
  // The client applies additions before removals: the new identity must
  // come in an update after the one that removes the old.
  ASSERT_EQ(updates.size(), 2u);
  EXPECT_EQ(strings(updates[0].deviceGuidsToRemove), std::vector<std::string>{ETHERNET});
  EXPECT_FALSE(updates[0].state.deviceByGuid(ETHERNET));
  ASSERT_TRUE(updates[1].state.deviceByGuid(ETHERNET));
  EXPECT_EQ(updates[1].state.deviceByGuid(ETHERNET)->osLocator(), "eth7");
  EXPECT_TRUE(updates[1].deviceGuidsToRemove.isEmpty());
}

TEST(DevicesLive, LiveCallsRunBesideEnumerations) {
  Live live;
  std::atomic<bool> done{false};
  std::thread enumerator([&] {
    for (int i = 0; i < 20; ++i) {
      zel::StateManager s;
      live.devices.enumerate(s, [] { return false; });
    }
    done = true;
  });
  auto indicator = live.state.indicatorByGuid("indicator:temperatures");
  ASSERT_TRUE(indicator);
  unsigned reads = 0;
  while (!done) {
    std::vector<LiveUpdate> out;
    live.devices.pollChanges(out);
    LiveUpdate a, b;
    live.devices.refresh(PKG_TEMP, lm::KEY_READING, a);
    if (live.devices.readIndicator(*indicator, b))
      ++reads;
  }
  enumerator.join();
  EXPECT_GT(reads, 0u);
  // The last enumeration is the baseline: nothing has changed since.
  EXPECT_TRUE(live.poll().empty());
}

// --- this computer -------------------------------------------------------------------------------

TEST(DevicesThisComputer, PciFunctionsAreThoseOfLspci) {
  std::string out;
  if (!runTool("lspci -D", out))
    GTEST_SKIP() << "lspci is not installed";
  std::set<std::string> expected;
  for (std::string const &l : lines(out))
    expected.insert(l.substr(0, l.find(' ')));
  Enumeration const e = enumerate("/");
  std::set<std::string> found;
  for (auto const &d : e.state.getDevices(zel::CapabilityImp("PCI"), false))
    found.insert(d->hwLocator().str());
  EXPECT_EQ(found, expected);
}

TEST(DevicesThisComputer, DisksAreThoseOfLsblkWithoutVirtualOnes) {
  std::string out;
  if (!runTool("lsblk -d -n -o NAME,TYPE", out))
    GTEST_SKIP() << "lsblk is not installed";
  // Skipped on purpose: block devices with no hardware (their sysfs path is
  // under /sys/devices/virtual: loop, ram, zram, dm, md, nbd).
  std::set<std::string> disks, optical;
  for (std::string const &l : lines(out)) {
    std::istringstream in(l);
    std::string name, type;
    in >> name >> type;
    std::error_code ec;
    fs::path real = fs::canonical("/sys/block/" + name, ec);
    if (ec || real.string().rfind("/sys/devices/virtual/", 0) == 0)
      continue;
    (type == "rom" ? optical : disks).insert("/dev/" + name);
  }
  Enumeration const e = enumerate("/");
  std::set<std::string> foundDisks, foundOptical;
  for (auto const &d : e.state.getDevices(zel::CapabilityImp(lm::DISK), true))
    foundDisks.insert(d->osLocator().str());
  for (auto const &d : e.state.getDevices(zel::CapabilityImp(lm::OPTICAL), true))
    foundOptical.insert(d->osLocator().str());
  EXPECT_EQ(foundDisks, disks);
  EXPECT_EQ(foundOptical, optical);
}

TEST(DevicesThisComputer, ProcessorsAndMemoryAddUpToWhatTheSystemSays) {
  Enumeration const e = enumerate("/");
  std::string out;
  if (runTool("nproc", out)) {
    std::string all;
    runTool("getconf _NPROCESSORS_ONLN", all);
    if (std::stoul(out) != std::stoul(all))
      GTEST_SKIP() << "this process may not use every online processor";
    unsigned long sum = 0;
    for (auto const &d : e.state.getDevices(zel::CapabilityImp(lm::PROCESSOR), true))
      sum += std::stoul(d->property(lm::KEY_LOGICAL_PROCESSORS)->value().toString().str());
    EXPECT_EQ(sum, std::stoul(out));
  }
  std::ifstream meminfo("/proc/meminfo");
  std::string key;
  unsigned long long kib = 0;
  while (meminfo >> key && key != "MemTotal:")
    meminfo.ignore(1 << 20, '\n');
  meminfo >> kib;
  ASSERT_GT(kib, 0u);
  EXPECT_EQ(prop(e.state, "memory", lm::KEY_TOTAL_BYTES), std::to_string(kib * 1024));
  for (SourceReport const &r : e.reports)
    EXPECT_FALSE(r.failed) << r.sourceName.str() << ": " << r.reason.str();
}
