#pragma once
// Internals of LinuxDevices shared by its two source files: reading files
// under the root folder without trusting their content, the record of each
// device found, and the builders of the enumeration sources.

#include <boost/shared_ptr.hpp>

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "zel/IAlertImp.h"
#include "zel/IDeviceImp.h"
#include "zel/IndicatorImp.h"
#include "zel/PropertyImp.h"

struct pci_access;

namespace morvain {
namespace lxd {

using DevicePtr = boost::shared_ptr<zel::IDeviceImp>;
using PropertyPtr = boost::shared_ptr<zel::PropertyImp>;

// --- text ---------------------------------------------------------------------

/// The first line of `raw`, as one clean display text: valid UTF-8, no control
/// characters, blanks collapsed and trimmed, at most `max` bytes.
std::string cleanText(std::string_view raw, std::size_t max = 256);
/// A strict integer: optional blanks around, optional sign, digits of `base`
/// (base 16 accepts a "0x" prefix), nothing else, no overflow.
std::optional<long long> parseInt(std::string_view text, int base = 10);
std::optional<unsigned long long> parseUInt(std::string_view text, int base = 10);
/// "a-b,c" into the numbers it names; nullopt when malformed or when it names
/// more than `limit` numbers (garbage must not make us allocate without end).
std::optional<std::vector<unsigned>> parseCpuList(std::string_view text, unsigned limit = 65536);
/// The numbers back into the shortest list form ("0-3,8").
std::string formatCpuList(std::vector<unsigned> const &cpus);
/// A piece of a GUID: printable ASCII without blanks, others as '_'.
std::string idPart(std::string_view text, std::size_t max = 128);
/// "1.5 GiB" and the like, for descriptions.
std::string humanBytes(unsigned long long bytes);

// --- files under the root folder -------------------------------------------------

class Fs {
public:
  explicit Fs(std::string const &root);

  /// The root as given, without a trailing '/' ("" for "/").
  std::string const &root() const noexcept { return m_root; }
  std::string abs(std::string const &rel) const { return m_root + rel; }

  /// The content of a regular file (up to `max` bytes); false when it cannot
  /// be opened or read or is not a regular file (a FIFO or a device node in a
  /// damaged tree would block or do harm).
  bool read(std::string const &rel, std::string &out, std::size_t max = 65536) const;
  /// The file's first line, cleaned; nullopt when unreadable or empty.
  std::optional<std::string> text(std::string const &rel) const;
  std::optional<unsigned long long> u64(std::string const &rel, int base = 10) const;
  std::optional<long long> i64(std::string const &rel, int base = 10) const;
  /// Why the file could not be read: "absent", "not readable (needs root)" or
  /// "unreadable".
  std::string whyUnreadable(std::string const &rel) const;

  bool exists(std::string const &rel) const;
  bool isDir(std::string const &rel) const;
  /// The names in a folder, sorted, without "." and ".."; empty when it
  /// cannot be read. At most 10,000 names.
  std::vector<std::string> list(std::string const &rel) const;
  /// The canonical path of `rel` relative to the root ("/sys/devices/..."),
  /// nullopt when it does not exist or leads out of the root.
  std::optional<std::string> realRel(std::string const &rel) const;
  /// The last component of a symbolic link's target (a driver's name).
  std::optional<std::string> linkName(std::string const &rel) const;

private:
  std::string m_root;
  std::string m_realRoot;
};

// --- PCI names ---------------------------------------------------------------------

/// Names from libpci's database (pci.ids), loaded on first use. Safe from any
/// thread; one look-up at a time.
class PciNames {
public:
  PciNames() = default;
  ~PciNames();
  PciNames(PciNames const &) = delete;
  PciNames &operator=(PciNames const &) = delete;

  std::string vendor(unsigned vendor);
  std::string device(unsigned vendor, unsigned device);
  std::string subsystem(unsigned vendor, unsigned device, unsigned subVendor, unsigned subDevice);
  /// `cls` is class and subclass (16 bits).
  std::string className(unsigned cls);
  std::string progIf(unsigned cls, unsigned progIf);

private:
  std::string lookup(int flags, unsigned a, unsigned b = 0, unsigned c = 0, unsigned d = 0);

  std::mutex m_mutex;
  pci_access *m_access = nullptr;
  bool m_failed = false;
};

// --- what was found ------------------------------------------------------------------

/// What a device's live values are read from.
enum class Live { NONE, SENSOR, THERMAL, NETWORK, BATTERY, MAINS };

struct Record {
  DevicePtr device; // our own copy, never the object handed to a mirror
  Live live = Live::NONE;
  /// SENSOR: the attribute prefix ("/sys/class/hwmon/hwmon3/temp1"); the
  /// others: the class folder ("/sys/class/net/eth0", "/sys/block/sr0").
  std::string path;
  /// The hot-plug entry that made it ("block:sda", "net:eth0", "usb:1-1"),
  /// empty for devices that are not watched for coming and going.
  std::string entry;
};

struct IndicatorEntry {
  zel::IndicatorImp indicator;
  std::vector<std::string> deviceGuids;
};

/// Everything one enumeration found, and what the live calls compare against.
struct Snapshot {
  std::vector<Record> records;
  std::unordered_map<std::string, std::size_t> index; // device GUID -> records
  /// Canonical sysfs paths of devices that others hang under (PCI functions,
  /// USB devices, disks, batteries) -> their GUIDs.
  std::map<std::string, std::string> paths;
  std::map<std::string, zel::IAlertImp> alerts; // active alerts by GUID
  std::vector<IndicatorEntry> indicators;
  /// Names last seen in the watched folders; for block devices also what
  /// their partitions and size looked like ("" for skipped devices).
  std::set<std::string> usbNames, netNames;
  std::map<std::string, std::string> blockSignatures;

  Record *find(std::string const &guid);
  void add(Record record);
  /// Removes the records whose GUIDs are in `guids`.
  void remove(std::set<std::string> const &guids);
};

// --- building devices ------------------------------------------------------------------

/// What a source builds with.
struct Context {
  Fs const &fs;
  PciNames *pci = nullptr;
  /// Paths of an earlier enumeration, for devices found later (hot plug).
  std::map<std::string, std::string> const *knownPaths = nullptr;
  std::function<bool()> cancelled;

  std::vector<Record> added;
  std::map<std::string, std::string> paths;
  /// GUIDs in use; add() gives a device whose GUID is taken a "#2", "#3"...
  /// suffix (two identical USB sticks with the same serial are two devices).
  std::set<std::string> taken;
  /// What could not be read, for the source's reason.
  std::vector<std::string> problems;

  explicit Context(Fs const &f) : fs(f) {}
  bool isCancelled() const { return cancelled && cancelled(); }
  /// The device a sysfs path belongs under: the nearest registered ancestor
  /// (the path itself excluded), else the root.
  std::string parentFor(std::string const &realPath) const;
  /// Adds the device (making its GUID unique); children must take the GUID
  /// from the returned record.
  Record &add(DevicePtr const &device, Live live = Live::NONE, std::string const &path = {},
              std::string const &entry = {});
  void problem(std::string text);
};

DevicePtr makeDevice(std::string const &guid, std::string const &name, char const *type,
                     std::string const &parent);
void addCapabilities(zel::IDeviceImp &device, char const *rows);
/// Sets a property unless the value is empty text.
void setText(zel::IDeviceImp &device, char const *key, std::optional<std::string> const &value,
             unsigned category = 0);
PropertyPtr property(char const *key, zel::ValueImp const &value, unsigned category = 0);

// The sources. Each adds its devices to the context and returns nothing; the
// caller counts what was added and reads the problems.
void dmiSource(Context &ctx);
void cpuSource(Context &ctx);
void memorySource(Context &ctx);
void pciSource(Context &ctx);
void usbSource(Context &ctx);
void storageSource(Context &ctx);
void opticalSource(Context &ctx);
void networkSource(Context &ctx);
void powerSource(Context &ctx);
void sensorsSource(Context &ctx);

/// One hot-plug entry: a USB device ("1-1.4", "usb2"), a block device with its
/// partitions, a network interface. Adds nothing when the entry is skipped or
/// gone.
void usbEntry(Context &ctx, std::string const &name);
void blockEntry(Context &ctx, std::string const &name, bool optical);
void netEntry(Context &ctx, std::string const &name);
/// Whether /sys/block/<name> is an optical drive.
bool isOptical(Fs const &fs, std::string const &name);
/// What changes of a block device are watched for: its size and partitions.
std::string blockSignature(Fs const &fs, std::string const &name);
/// Names in the watched folders (USB interfaces left out).
std::vector<std::string> usbNames(Fs const &fs);
std::vector<std::string> blockNames(Fs const &fs);
std::vector<std::string> netNames(Fs const &fs);

/// The live properties of a record, read now; absent values are left out.
std::vector<PropertyPtr> liveProperties(Fs const &fs, Record const &record);
/// The keys liveProperties may give for a kind (a key among them that it
/// does not give has gone away).
std::vector<char const *> const &liveKeys(Live live);
/// The alert the record's current properties call for, if any.
std::optional<zel::IAlertImp> alertFor(Record const &record, bool timeIsReal);
/// The indicator of a record (sensors, thermal zones, batteries).
std::optional<zel::IndicatorImp> indicatorFor(Record const &record);

} // namespace lxd
} // namespace morvain
