// The enumeration sources of LinuxDevices: what each kind of device is made
// of, read from /sys and /proc under the root folder. Every value read is
// checked before it is used; a value that does not parse is left out.

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <utility>

#include "LinuxDevices.h"
#include "LinuxDevicesDetail.h"
#include "LinuxModel.h"
#include "zel/CapabilityImp.h"
#include "zel/PropertyCategoryImp.h"

namespace morvain {
namespace lxd {

namespace lm = linuxmodel;
using zel::PropertyCategoryImp;
using zel::String;
using zel::ValueImp;

// Property categories as bits, so that a property can be given several.
enum Cat : unsigned {
  KEY = 1u << 0,
  SERIAL = 1u << 1,
  MODEL = 1u << 2,
  FIRMWARE = 1u << 3,
  MANUFACTURER = 1u << 4,
  SUMMARY = 1u << 5,
  VOLATILE = 1u << 6,
  ID = 1u << 7,
};

namespace {

PropertyCategoryImp categories(unsigned bits) {
  using Row = PropertyCategoryImp::Row;
  static std::pair<unsigned, Row> const rows[] = {{KEY, Row::Key},
                                                  {SERIAL, Row::Serial},
                                                  {MODEL, Row::Model},
                                                  {FIRMWARE, Row::Firmware},
                                                  {MANUFACTURER, Row::Manufacturer},
                                                  {SUMMARY, Row::Summary},
                                                  {VOLATILE, Row::Volatile},
                                                  {ID, Row::ID}};
  PropertyCategoryImp out;
  for (auto const &r : rows)
    if (bits & r.first)
      out |= PropertyCategoryImp(r.second);
  return out;
}

/// "LogicalBlockSize" -> "Logical block size": a display name for a key.
std::string displayName(char const *key) {
  std::string out;
  for (char const *p = key; *p; ++p) {
    char c = *p;
    bool upper = c >= 'A' && c <= 'Z';
    bool nextLower = p[1] >= 'a' && p[1] <= 'z';
    bool prevLower = p != key && p[-1] >= 'a' && p[-1] <= 'z';
    if (upper && p != key && (prevLower || nextLower)) {
      out += ' ';
      if (nextLower)
        c = static_cast<char>(c - 'A' + 'a');
    }
    out += c;
  }
  return out;
}

std::string join(std::vector<std::string> const &parts, char const *separator) {
  std::string out;
  for (std::string const &p : parts) {
    if (p.empty())
      continue;
    if (!out.empty())
      out += separator;
    out += p;
  }
  return out;
}

bool startsWith(std::string const &s, char const *prefix) {
  std::size_t n = std::char_traits<char>::length(prefix);
  return s.size() >= n && s.compare(0, n, prefix) == 0;
}

bool allDigits(std::string const &s, std::size_t from = 0) {
  if (s.size() <= from)
    return false;
  return std::all_of(s.begin() + static_cast<long>(from), s.end(),
                     [](char c) { return c >= '0' && c <= '9'; });
}

std::string lower(std::string s) {
  for (char &c : s)
    if (c >= 'A' && c <= 'Z')
      c = static_cast<char>(c - 'A' + 'a');
  return s;
}

std::string hex4(unsigned v) {
  char buf[16];
  std::snprintf(buf, sizeof buf, "%04x", v & 0xffffu);
  return buf;
}

/// The value firmware writes where it has nothing to say.
bool isPlaceholder(std::string const &value) {
  static char const *const known[] = {"to be filled by o.e.m.",
                                      "to be filled by oem",
                                      "default string",
                                      "system product name",
                                      "system manufacturer",
                                      "system version",
                                      "system serial number",
                                      "base board serial number",
                                      "chassis serial number",
                                      "not specified",
                                      "not applicable",
                                      "not available",
                                      "not present",
                                      "none",
                                      "n/a",
                                      "na",
                                      "unknown",
                                      "invalid",
                                      "oem",
                                      "o.e.m.",
                                      "0123456789",
                                      "123456789",
                                      "empty",
                                      "no dimm",
                                      "serialnum",
                                      "partnum",
                                      "assettagnum",
                                      "manufacturer",
                                      "dimm_serial",
                                      "unknown unknown"};
  std::string const l = lower(value);
  if (l.empty())
    return true;
  for (char const *k : known)
    if (l == k)
      return true;
  // "00000000", "FFFFFFFF", "0x00000000", "xxxxxxxx": no information.
  std::string s = startsWith(l, "0x") ? l.substr(2) : l;
  return !s.empty() && (std::all_of(s.begin(), s.end(), [](char c) { return c == '0'; }) ||
                        std::all_of(s.begin(), s.end(), [](char c) { return c == 'f'; }) ||
                        std::all_of(s.begin(), s.end(), [](char c) { return c == 'x'; }));
}

std::optional<std::string> meaningful(std::optional<std::string> v) {
  if (!v || isPlaceholder(*v))
    return std::nullopt;
  return v;
}

/// A device's own link-sensitive canonical path, or the path as given when
/// the tree holds a plain folder there.
std::string realOr(Fs const &fs, std::string const &rel) {
  std::optional<std::string> real = fs.realRel(rel);
  return real ? *real : rel;
}

/// "1.5" with at most `digits` decimals and no trailing zeros.
std::string number(double v, int digits = 2) {
  char buf[400];
  std::snprintf(buf, sizeof buf, "%.*f", digits, v);
  std::string s = buf;
  if (s.find('.') != std::string::npos) {
    while (!s.empty() && s.back() == '0')
      s.pop_back();
    if (!s.empty() && s.back() == '.')
      s.pop_back();
  }
  return s;
}

bool isVirtual(std::string const &real) { return startsWith(real, "/sys/devices/virtual/"); }

} // namespace

// --- building blocks ------------------------------------------------------------------------

DevicePtr makeDevice(std::string const &guid, std::string const &name, char const *type,
                     std::string const &parent) {
  return DevicePtr(
      new zel::IDeviceImp(String(guid), String(name), zel::CapabilityImp(type), String(parent)));
}

void addCapabilities(zel::IDeviceImp &device, char const *rows) {
  device.setCapabilities(device.capabilities() | zel::CapabilityImp(rows));
}

PropertyPtr property(char const *key, ValueImp const &value, unsigned category) {
  PropertyPtr p(new zel::PropertyImp(key, value, categories(category)));
  p->setLocalizedName(String(displayName(key)));
  return p;
}

void setText(zel::IDeviceImp &device, char const *key, std::optional<std::string> const &value,
             unsigned category) {
  if (value && !value->empty())
    device.setProperty(property(key, ValueImp(String(*value)), category));
}

namespace {

void setU64(zel::IDeviceImp &d, char const *key, std::optional<unsigned long long> v,
            unsigned category = 0) {
  if (v)
    d.setProperty(property(key, ValueImp(static_cast<unsigned long long>(*v)), category));
}

void setU32(zel::IDeviceImp &d, char const *key, std::optional<unsigned long long> v,
            unsigned category = 0) {
  if (v && *v <= 0xffffffffULL)
    d.setProperty(property(key, ValueImp(static_cast<unsigned int>(*v)), category));
}

void setDouble(zel::IDeviceImp &d, char const *key, std::optional<double> v,
               unsigned category = 0) {
  if (v && std::isfinite(*v))
    d.setProperty(property(key, ValueImp(*v, zel::DataTypeImp::DOUBLE), category));
}

void setBool(zel::IDeviceImp &d, char const *key, std::optional<unsigned long long> v,
             unsigned category = 0) {
  if (v && *v <= 1)
    d.setProperty(property(key, ValueImp(*v == 1), category));
}

void addLive(Fs const &fs, Record &r) {
  for (PropertyPtr const &p : liveProperties(fs, r))
    r.device->setProperty(p);
}

} // namespace

// --- dmi: the computer, its board and firmware ----------------------------------------------

namespace {

char const *chassisName(unsigned long long type) {
  static char const *const names[] = {nullptr,
                                      "Other",
                                      "Unknown",
                                      "Desktop",
                                      "Low Profile Desktop",
                                      "Pizza Box",
                                      "Mini Tower",
                                      "Tower",
                                      "Portable",
                                      "Laptop",
                                      "Notebook",
                                      "Hand Held",
                                      "Docking Station",
                                      "All in One",
                                      "Sub Notebook",
                                      "Space-saving",
                                      "Lunch Box",
                                      "Main Server Chassis",
                                      "Expansion Chassis",
                                      "SubChassis",
                                      "Bus Expansion Chassis",
                                      "Peripheral Chassis",
                                      "RAID Chassis",
                                      "Rack Mount Chassis",
                                      "Sealed-case PC",
                                      "Multi-system chassis",
                                      "Compact PCI",
                                      "Advanced TCA",
                                      "Blade",
                                      "Blade Enclosure",
                                      "Tablet",
                                      "Convertible",
                                      "Detachable",
                                      "IoT Gateway",
                                      "Embedded PC",
                                      "Mini PC",
                                      "Stick PC"};
  type &= 0x7f; // bit 7 is the chassis lock
  return type < sizeof names / sizeof *names ? names[type] : nullptr;
}

} // namespace

void dmiSource(Context &ctx) {
  Fs const &fs = ctx.fs;
  std::string const base = "/sys/class/dmi/id/";
  bool const dmi = fs.isDir(base);
  std::vector<std::string> secret; // present but not readable
  auto get = [&](char const *name) { return meaningful(fs.text(base + name)); };
  auto getSecret = [&](char const *name) {
    std::optional<std::string> v = get(name);
    if (!v && dmi && fs.whyUnreadable(base + name) == "not readable (needs root)")
      secret.push_back(name);
    return v;
  };

  std::optional<std::string> vendor = get("sys_vendor"), product = get("product_name"),
                             version = get("product_version"), family = get("product_family"),
                             sku = get("product_sku"), serial = getSecret("product_serial"),
                             uuid = getSecret("product_uuid");
  std::optional<std::string> host = fs.text("/proc/sys/kernel/hostname");
  std::optional<std::string> osType = fs.text("/proc/sys/kernel/ostype");
  std::optional<std::string> osRelease = fs.text("/proc/sys/kernel/osrelease");

  std::string name = join({vendor.value_or(""), product.value_or("")}, " ");
  if (name.empty())
    name = host ? *host : "This computer";
  DevicePtr root = makeDevice("system", name, lm::SYSTEM, "");
  if (dmi)
    addCapabilities(*root, "SMBIOS");
  root->setDescription(String(join({"Computer", host ? "named " + *host : ""}, " ")));
  setText(*root, lm::KEY_MANUFACTURER, vendor, MANUFACTURER | SUMMARY);
  setText(*root, lm::KEY_MODEL, product, MODEL | SUMMARY);
  setText(*root, "Version", version, MODEL);
  setText(*root, "Family", family, MODEL);
  setText(*root, "SKU", sku, MODEL);
  setText(*root, lm::KEY_SERIAL, serial, SERIAL | KEY);
  setText(*root, "UUID", uuid, ID);
  if (std::optional<unsigned long long> chassis = fs.u64(base + "chassis_type"))
    if (char const *c = chassisName(*chassis))
      setText(*root, "Chassis", std::string(c), SUMMARY);
  setText(*root, "Hostname", host, SUMMARY);
  if (osType || osRelease)
    setText(*root, "OperatingSystem", join({osType.value_or("Linux"), osRelease.value_or("")}, " "),
            SUMMARY);
  setText(*root, "FirmwareInterface", std::string(fs.isDir("/sys/firmware/efi") ? "UEFI" : "BIOS"),
          0);
  ctx.add(root);

  if (!dmi) {
    ctx.problem("no DMI tables (/sys/class/dmi/id is absent): no manufacturer, model, board or "
                "firmware");
    return;
  }

  std::optional<std::string> boardVendor = get("board_vendor"), boardName = get("board_name"),
                             boardVersion = get("board_version"),
                             boardSerial = getSecret("board_serial"),
                             boardAsset = get("board_asset_tag");
  if (boardVendor || boardName) {
    DevicePtr board = makeDevice("system:board", boardName ? *boardName : "System board",
                                 lm::SYSTEM_BOARD, "system");
    board->setDescription(String(join({"System board", boardVendor.value_or("")}, " by ")));
    setText(*board, lm::KEY_MANUFACTURER, boardVendor, MANUFACTURER | SUMMARY);
    setText(*board, lm::KEY_MODEL, boardName, MODEL | SUMMARY);
    setText(*board, "Version", boardVersion, MODEL);
    setText(*board, lm::KEY_SERIAL, boardSerial, SERIAL | KEY);
    setText(*board, "AssetTag", boardAsset, 0);
    ctx.add(board);
  }

  std::optional<std::string> biosVendor = get("bios_vendor"), biosVersion = get("bios_version"),
                             biosDate = get("bios_date"), biosRelease = get("bios_release");
  if (biosVendor || biosVersion) {
    DevicePtr fw = makeDevice("system:firmware", join({"Firmware", biosVersion.value_or("")}, " "),
                              lm::FIRMWARE, "system");
    addCapabilities(*fw, "Firmware");
    fw->setDescription(String(join({"System firmware", biosVendor.value_or("")}, " by ")));
    setText(*fw, lm::KEY_MANUFACTURER, biosVendor, MANUFACTURER | SUMMARY);
    setText(*fw, "Version", biosVersion, FIRMWARE | SUMMARY);
    setText(*fw, "ReleaseDate", biosDate, FIRMWARE);
    setText(*fw, "Release", biosRelease, FIRMWARE);
    ctx.add(fw);
  }
  if (!secret.empty())
    ctx.problem(join(secret, ", ") + " not readable (needs root)");
}

// --- cpu: packages and cores ------------------------------------------------------------------

namespace {

using Fields = std::map<std::string, std::string>;

/// /proc/cpuinfo as blocks by processor number; fields outside a numbered
/// block (ARM's "Hardware") go to `global`.
std::map<unsigned, Fields> parseCpuInfo(std::string const &text, Fields &global) {
  std::map<unsigned, Fields> out;
  Fields current;
  std::optional<unsigned> number;
  auto flush = [&] {
    if (number && out.size() < 8192)
      out[*number] = std::move(current);
    else
      for (auto &f : current)
        global.emplace(f.first, f.second);
    current.clear();
    number.reset();
  };
  std::size_t pos = 0;
  while (pos <= text.size()) {
    std::size_t eol = text.find('\n', pos);
    if (eol == std::string::npos)
      eol = text.size();
    std::string_view line(text.data() + pos, eol - pos);
    pos = eol + 1;
    std::size_t colon = line.find(':');
    if (colon == std::string_view::npos) {
      if (cleanText(line).empty())
        flush();
      continue;
    }
    std::string key = cleanText(line.substr(0, colon), 64);
    std::string value = cleanText(line.substr(colon + 1), 16384);
    if (key.empty())
      continue;
    if (key == "processor") {
      std::optional<unsigned long long> n = parseUInt(value);
      if (n && *n < 1000000) {
        if (number)
          flush();
        number = static_cast<unsigned>(*n);
        continue;
      }
    }
    current.emplace(std::move(key), std::move(value));
  }
  flush();
  return out;
}

std::optional<unsigned long long> cacheSize(std::string const &text) {
  std::string t = text;
  unsigned long long unit = 1;
  if (!t.empty()) {
    char last = t.back();
    if (last == 'K' || last == 'k')
      unit = 1024;
    else if (last == 'M' || last == 'm')
      unit = 1024ULL * 1024;
    else if (last == 'G' || last == 'g')
      unit = 1024ULL * 1024 * 1024;
    if (unit != 1)
      t.pop_back();
  }
  std::optional<unsigned long long> n = parseUInt(t);
  unsigned long long bytes;
  if (!n || __builtin_mul_overflow(*n, unit, &bytes))
    return std::nullopt;
  return bytes;
}

struct Cpu {
  unsigned id = 0;
  long long package = 0;
  long long die = 0;
  long long core = 0;
};

std::string field(Fields const *f, char const *key) {
  if (!f)
    return {};
  auto it = f->find(key);
  return it == f->end() ? std::string() : it->second;
}

long long topology(Fs const &fs, unsigned cpu, char const *file, Fields const *info,
                   char const *infoKey, long long fallback) {
  std::optional<long long> v =
      fs.i64("/sys/devices/system/cpu/cpu" + std::to_string(cpu) + "/topology/" + file);
  if (!v && info && infoKey)
    if (std::optional<long long> w = parseInt(field(info, infoKey)))
      v = w;
  return v && *v >= 0 && *v < 1000000000LL ? *v : fallback;
}

} // namespace

void cpuSource(Context &ctx) {
  Fs const &fs = ctx.fs;
  std::string raw;
  Fields global;
  std::map<unsigned, Fields> info;
  if (fs.read("/proc/cpuinfo", raw, 8u << 20))
    info = parseCpuInfo(raw, global);
  else
    ctx.problem("/proc/cpuinfo " + fs.whyUnreadable("/proc/cpuinfo") +
                ": no model names or features");

  std::vector<unsigned> online;
  if (std::optional<std::string> list = fs.text("/sys/devices/system/cpu/online")) {
    if (std::optional<std::vector<unsigned>> parsed = parseCpuList(*list, 8192))
      online = *parsed;
  }
  if (online.empty())
    for (auto const &i : info)
      online.push_back(i.first);
  if (online.empty()) {
    ctx.problem("no processors found in /proc/cpuinfo or /sys/devices/system/cpu");
    return;
  }

  std::map<long long, std::vector<Cpu>> packages;
  for (unsigned id : online) {
    auto it = info.find(id);
    Fields const *f = it == info.end() ? nullptr : &it->second;
    Cpu c;
    c.id = id;
    c.package = topology(fs, id, "physical_package_id", f, "physical id", 0);
    c.die = topology(fs, id, "die_id", nullptr, nullptr, 0);
    c.core = topology(fs, id, "core_id", f, "core id", id);
    packages[c.package].push_back(c);
  }

  static std::pair<char const *, char const *> const flagRows[] = {
      {"mmx", "MMX"},     {"sse", "SSE"},     {"sse2", "SSE2"},   {"pni", "SSE3"},
      {"ssse3", "SSSE3"}, {"pse36", "PSE36"}, {"3dnow", "3DNOW"}, {"3dnowext", "3DNOWEXT"}};

  for (auto const &pkg : packages) {
    if (ctx.isCancelled())
      return;
    std::vector<Cpu> const &cpus = pkg.second;
    unsigned const first = cpus.front().id;
    auto infoIt = info.find(first);
    Fields const *f = infoIt == info.end() ? nullptr : &infoIt->second;

    // Cores by (die, core id); a core id that repeats on different dies is
    // told apart by its die.
    std::map<std::pair<long long, long long>, std::vector<unsigned>> cores;
    std::map<long long, std::set<long long>> diesOfCore;
    for (Cpu const &c : cpus) {
      cores[{c.die, c.core}].push_back(c.id);
      diesOfCore[c.core].insert(c.die);
    }
    bool const ambiguous = std::any_of(diesOfCore.begin(), diesOfCore.end(),
                                       [](auto const &e) { return e.second.size() > 1; });
    bool smt =
        std::any_of(cores.begin(), cores.end(), [](auto const &e) { return e.second.size() > 1; });

    std::string model = field(f, "model name");
    if (model.empty())
      model = field(&global, "model name");
    if (model.empty())
      model = field(&global, "Hardware");
    std::string vendorId = field(f, "vendor_id");
    std::string vendor = vendorId == "GenuineIntel"   ? "Intel"
                         : vendorId == "AuthenticAMD" ? "AMD"
                                                      : vendorId;

    std::string const pkgNo = std::to_string(pkg.first);
    std::string const guid = "cpu:" + pkgNo;
    DevicePtr d =
        makeDevice(guid, model.empty() ? "Processor " + pkgNo : model, lm::PROCESSOR, "system");
    d->setHwLocator(String(guid)).setOsLocator("/sys/devices/system/cpu");
    // HT means more than one logical processor on a core, as the topology
    // shows it: the "ht" flag only says the processor could signal it.
    std::string flags = field(f, "flags");
    std::set<std::string> flagSet;
    for (std::size_t p = 0; p < flags.size();) {
      std::size_t sp = flags.find(' ', p);
      if (sp == std::string::npos)
        sp = flags.size();
      flagSet.insert(flags.substr(p, sp - p));
      p = sp + 1;
    }
    for (auto const &fr : flagRows)
      if (flagSet.count(fr.first))
        addCapabilities(*d, fr.second);
    if (smt)
      addCapabilities(*d, "HT");
    if (cores.size() > 1)
      addCapabilities(*d, "MultiCore");

    std::vector<unsigned> ids;
    for (Cpu const &c : cpus)
      ids.push_back(c.id);
    d->setDescription(String(std::to_string(cores.size()) + " cores, " +
                             std::to_string(ids.size()) + " logical processors"));
    setText(*d, lm::KEY_MANUFACTURER,
            vendor.empty() ? std::nullopt : std::optional<std::string>(vendor),
            MANUFACTURER | SUMMARY);
    setText(*d, lm::KEY_MODEL, model.empty() ? std::nullopt : std::optional<std::string>(model),
            MODEL | SUMMARY);
    setU32(*d, "Family", parseUInt(field(f, "cpu family")));
    setU32(*d, "ModelNumber", parseUInt(field(f, "model")));
    setU32(*d, "Stepping", parseUInt(field(f, "stepping")));
    std::string microcode = field(f, "microcode");
    setText(*d, "Microcode",
            microcode.empty() ? std::nullopt : std::optional<std::string>(microcode), FIRMWARE);
    setU32(*d, lm::KEY_LOGICAL_PROCESSORS, ids.size(), SUMMARY);
    setU32(*d, "Cores", cores.size(), SUMMARY);
    setText(*d, lm::KEY_CPU_LIST, formatCpuList(ids));

    std::string const cpuDir = "/sys/devices/system/cpu/cpu" + std::to_string(first);
    auto mhz = [&](char const *file) -> std::optional<unsigned long long> {
      std::optional<unsigned long long> khz = fs.u64(cpuDir + "/cpufreq/" + file);
      if (!khz || *khz == 0)
        return std::nullopt;
      return (*khz + 500) / 1000;
    };
    setU32(*d, "MaxFrequency", mhz("cpuinfo_max_freq"), SUMMARY);
    setU32(*d, "MinFrequency", mhz("cpuinfo_min_freq"));
    std::optional<unsigned long long> current = mhz("scaling_cur_freq");
    if (!current) {
      bool ok = false;
      double v = String::strToReal64(String(field(f, "cpu MHz")), &ok);
      if (ok && v > 0 && v < 1e6)
        current = static_cast<unsigned long long>(std::llround(v));
    }
    setU32(*d, "CurrentFrequency", current);

    bool caches = false;
    for (std::string const &index : fs.list(cpuDir + "/cache")) {
      if (!startsWith(index, "index"))
        continue;
      std::string const dir = cpuDir + "/cache/" + index + "/";
      std::optional<unsigned long long> level = fs.u64(dir + "level");
      std::optional<std::string> type = fs.text(dir + "type");
      std::optional<std::string> size = fs.text(dir + "size");
      if (!level || !type || !size || *level == 0 || *level > 9)
        continue;
      std::optional<unsigned long long> bytes = cacheSize(*size);
      if (!bytes)
        continue;
      std::string key = "L" + std::to_string(*level);
      key += *type == "Data" ? "DataCache" : *type == "Instruction" ? "InstructionCache" : "Cache";
      setU64(*d, key.c_str(), bytes);
      caches = true;
    }
    if (!caches) {
      std::string size = field(f, "cache size");
      if (size.size() > 3 && size.compare(size.size() - 3, 3, " KB") == 0)
        setU64(*d, "CacheSize", cacheSize(size.substr(0, size.size() - 3) + "K"));
    }
    setText(*d, "Flags", flags.empty() ? std::nullopt : std::optional<std::string>(flags));
    ctx.add(d);

    for (auto const &core : cores) {
      long long const number =
          ambiguous ? core.first.first * 65536 + core.first.second : core.first.second;
      std::string const coreGuid = guid + ":" + std::to_string(number);
      DevicePtr c =
          makeDevice(coreGuid, "Core " + std::to_string(number), lm::PROCESSOR_CORE, guid);
      if (core.second.size() > 1)
        addCapabilities(*c, "HT");
      c->setHwLocator(String(coreGuid))
          .setOsLocator(String("/sys/devices/system/cpu/cpu" + std::to_string(core.second[0])));
      setText(*c, lm::KEY_CPU_LIST, formatCpuList(core.second));
      setU32(*c, lm::KEY_LOGICAL_PROCESSORS, core.second.size(), SUMMARY);
      setU32(*c, "Die", static_cast<unsigned long long>(core.first.first));
      ctx.add(c);
    }
  }
}

// --- memory: the total and the modules --------------------------------------------------------

namespace {

char const *memoryTypeName(unsigned t) {
  static char const *const names[] = {
      nullptr,        "Other",  "Unknown", "DRAM",
      "EDRAM",        "VRAM",   "SRAM",    "RAM",
      "ROM",          "Flash",  "EEPROM",  "FEPROM",
      "EPROM",        "CDRAM",  "3DRAM",   "SDRAM",
      "SGRAM",        "RDRAM",  "DDR",     "DDR2",
      "DDR2 FB-DIMM", nullptr,  nullptr,   nullptr,
      "DDR3",         "FBD2",   "DDR4",    "LPDDR",
      "LPDDR2",       "LPDDR3", "LPDDR4",  "Logical non-volatile device",
      "HBM",          "HBM2",   "DDR5",    "LPDDR5",
      "HBM3"};
  return t < sizeof names / sizeof *names ? names[t] : nullptr;
}

char const *formFactorName(unsigned f) {
  static char const *const names[] = {nullptr,   "Other",  "Unknown",
                                      "SIMM",    "SIP",    "Chip",
                                      "DIP",     "ZIP",    "Proprietary Card",
                                      "DIMM",    "TSOP",   "Row of chips",
                                      "RIMM",    "SODIMM", "SRIMM",
                                      "FB-DIMM", "Die"};
  return f < sizeof names / sizeof *names ? names[f] : nullptr;
}

/// One SMBIOS structure: the formatted area and its strings.
class DmiStructure {
public:
  explicit DmiStructure(std::string const &raw) : m_raw(raw) {
    if (raw.size() >= 4 && static_cast<unsigned char>(raw[1]) >= 4 &&
        static_cast<unsigned char>(raw[1]) <= raw.size())
      m_length = static_cast<unsigned char>(raw[1]);
  }
  bool valid() const { return m_length != 0; }
  unsigned type() const { return byte(0).value_or(0xff); }
  std::optional<unsigned> byte(std::size_t at) const {
    if (at >= m_length)
      return std::nullopt;
    return static_cast<unsigned char>(m_raw[at]);
  }
  std::optional<unsigned> word(std::size_t at) const {
    if (at + 2 > m_length)
      return std::nullopt;
    return static_cast<unsigned>(static_cast<unsigned char>(m_raw[at])) |
           static_cast<unsigned>(static_cast<unsigned char>(m_raw[at + 1])) << 8;
  }
  std::optional<unsigned long> dword(std::size_t at) const {
    if (at + 4 > m_length)
      return std::nullopt;
    unsigned long v = 0;
    for (std::size_t i = 0; i < 4; ++i)
      v |= static_cast<unsigned long>(static_cast<unsigned char>(m_raw[at + i])) << (8 * i);
    return v;
  }
  /// String number `at`'s byte names (1-based); nullopt for 0 or a number
  /// past the strings.
  std::optional<std::string> string(std::size_t at) const {
    std::optional<unsigned> n = byte(at);
    if (!n || *n == 0)
      return std::nullopt;
    std::size_t pos = m_length;
    for (unsigned i = 1; pos < m_raw.size(); ++i) {
      std::size_t end = m_raw.find('\0', pos);
      if (end == std::string::npos)
        end = m_raw.size();
      if (end == pos) // the empty string ends the set
        return std::nullopt;
      if (i == *n)
        return meaningful(cleanText(std::string_view(m_raw).substr(pos, end - pos)));
      pos = end + 1;
    }
    return std::nullopt;
  }

private:
  std::string const &m_raw;
  std::size_t m_length = 0;
};

/// Size of a memory device in bytes; nullopt when unknown, 0 when the slot is
/// empty.
std::optional<unsigned long long> moduleSize(DmiStructure const &s) {
  std::optional<unsigned> size = s.word(0x0C);
  if (!size || *size == 0xFFFF)
    return std::nullopt;
  if (*size == 0)
    return 0;
  if (*size == 0x7FFF) {
    std::optional<unsigned long> ext = s.dword(0x1C);
    if (!ext)
      return std::nullopt;
    return static_cast<unsigned long long>(*ext & 0x7FFFFFFFul) << 20;
  }
  unsigned long long const value = *size & 0x7FFFu;
  return (*size & 0x8000u) ? value << 10 : value << 20;
}

std::optional<unsigned long long> moduleSpeed(DmiStructure const &s, std::size_t at,
                                              std::size_t extended) {
  std::optional<unsigned> v = s.word(at);
  if (!v || *v == 0)
    return std::nullopt;
  if (*v == 0xFFFF) {
    std::optional<unsigned long> ext = s.dword(extended);
    if (!ext || *ext == 0)
      return std::nullopt;
    return *ext & 0x7FFFFFFFul;
  }
  return *v;
}

void memoryModules(Context &ctx) {
  Fs const &fs = ctx.fs;
  std::string const base = "/sys/firmware/dmi/entries";
  if (!fs.isDir(base)) {
    ctx.problem("memory modules unknown: no firmware DMI tables (" + base + " is absent)");
    return;
  }
  unsigned found = 0, unreadable = 0;
  std::string why;
  std::set<std::string> used;
  for (std::string const &entry : fs.list(base)) {
    if (!startsWith(entry, "17-"))
      continue;
    ++found;
    std::string raw;
    if (!fs.read(base + "/" + entry + "/raw", raw, 65536)) {
      ++unreadable;
      why = fs.whyUnreadable(base + "/" + entry + "/raw");
      continue;
    }
    DmiStructure s(raw);
    if (!s.valid() || s.type() != 17 || !s.byte(0x14)) {
      ++unreadable;
      why = "malformed";
      continue;
    }
    std::optional<unsigned long long> size = moduleSize(s);
    if (size && *size == 0)
      continue; // an empty slot
    std::optional<std::string> locator = s.string(0x10), bank = s.string(0x11),
                               maker = s.string(0x17), serial = s.string(0x18),
                               part = s.string(0x1A);
    std::optional<unsigned> handle = s.word(2);
    std::string id = serial    ? idPart(*serial)
                     : locator ? idPart(join({bank.value_or(""), *locator}, "/"))
                               : "handle-" + hex4(handle.value_or(0));
    if (!used.insert(id).second)
      id += "-" + hex4(handle.value_or(0));
    std::string const slot = locator ? *locator : "handle " + hex4(handle.value_or(0));
    DevicePtr d = makeDevice("memory:" + id, "Memory module " + slot, lm::MEMORY_MODULE, "memory");
    char const *type = memoryTypeName(s.byte(0x12).value_or(0));
    char const *form = formFactorName(s.byte(0x0E).value_or(0));
    std::optional<unsigned long long> speed = moduleSpeed(s, 0x15, 0x54);
    std::optional<unsigned long long> configured = moduleSpeed(s, 0x20, 0x58);
    std::vector<std::string> what = {size ? humanBytes(*size) : "",
                                     type ? type : "",
                                     form ? form : "",
                                     speed ? std::to_string(*speed) + " MT/s" : "",
                                     maker.value_or(""),
                                     part.value_or("")};
    d->setDescription(String(join(what, " ")));
    d->setOsLocator(String(base + "/" + entry));
    setU64(*d, lm::KEY_SIZE_BYTES, size, SUMMARY);
    setText(*d, "Type", type ? std::optional<std::string>(type) : std::nullopt, SUMMARY);
    setText(*d, "FormFactor", form ? std::optional<std::string>(form) : std::nullopt);
    setU32(*d, "SpeedMTs", speed, SUMMARY);
    setU32(*d, "ConfiguredSpeedMTs", configured);
    setText(*d, lm::KEY_MANUFACTURER, maker, MANUFACTURER);
    setText(*d, "PartNumber", part, MODEL);
    setText(*d, lm::KEY_SERIAL, serial, SERIAL | KEY);
    setText(*d, "Locator", locator);
    setText(*d, "BankLocator", bank);
    std::optional<unsigned> total = s.word(0x08), data = s.word(0x0A);
    if (data && *data != 0xFFFF && *data != 0)
      setU32(*d, "DataWidth", *data);
    if (total && data && *total != 0xFFFF && *data != 0xFFFF && *total != 0)
      setBool(*d, "ECC", *total > *data ? 1 : 0);
    ctx.add(d);
  }
  if (found == 0)
    ctx.problem("memory modules unknown: the firmware tables list no memory devices");
  else if (unreadable == found)
    ctx.problem("memory modules unknown: " + base + "/17-*/raw " + why);
  else if (unreadable > 0)
    ctx.problem(std::to_string(unreadable) + " of " + std::to_string(found) +
                " memory device entries " + why);
}

} // namespace

void memorySource(Context &ctx) {
  Fs const &fs = ctx.fs;
  DevicePtr d = makeDevice("memory", "System memory", lm::MEMORY, "system");
  d->setOsLocator("/proc/meminfo");
  std::string raw;
  if (fs.read("/proc/meminfo", raw, 1u << 20)) {
    auto kib = [&](char const *key) -> std::optional<unsigned long long> {
      std::string const prefix = std::string("\n") + key + ":";
      std::string const text = "\n" + raw;
      std::size_t at = text.find(prefix);
      if (at == std::string::npos)
        return std::nullopt;
      std::size_t from = at + prefix.size();
      std::size_t eol = text.find('\n', from);
      std::string value =
          text.substr(from, eol == std::string::npos ? std::string::npos : eol - from);
      std::string v = cleanText(value);
      if (v.size() > 3 && v.compare(v.size() - 3, 3, " kB") == 0)
        v.resize(v.size() - 3);
      std::optional<unsigned long long> n = parseUInt(v);
      unsigned long long bytes;
      if (!n || __builtin_mul_overflow(*n, 1024ULL, &bytes))
        return std::nullopt;
      return bytes;
    };
    std::optional<unsigned long long> total = kib("MemTotal");
    setU64(*d, lm::KEY_TOTAL_BYTES, total, SUMMARY);
    setU64(*d, "SwapBytes", kib("SwapTotal"));
    if (total)
      d->setDescription(String(humanBytes(*total) + " usable"));
    else
      ctx.problem("/proc/meminfo holds no readable MemTotal");
  } else {
    ctx.problem("/proc/meminfo " + fs.whyUnreadable("/proc/meminfo") + ": total unknown");
  }
  ctx.add(d);
  memoryModules(ctx);
}

// --- pci ----------------------------------------------------------------------------------------

namespace {

bool isPciAddress(std::string const &a) {
  // dddd:bb:dd.f, the domain possibly longer (VMD uses 5 digits).
  std::size_t const n = a.size();
  if (n < 12 || a[n - 2] != '.' || a[n - 5] != ':' || a[n - 8] != ':')
    return false;
  for (std::size_t i = 0; i < n; ++i) {
    if (i == n - 2 || i == n - 5 || i == n - 8)
      continue;
    char c = a[i];
    if (!((c >= '0' && c <= '9') || (c >= 'a' && c <= 'f')))
      return false;
  }
  return a[n - 1] >= '0' && a[n - 1] <= '7';
}

} // namespace

namespace {

/// The device type a PCI class stands for, and what else it makes the
/// device. Network functions are typed Ethernet or Wireless, not
/// NetworkCard: NetworkCard is the interface (eth0) that sits under them, the
/// device the network tests use.
std::pair<char const *, char const *> pciType(unsigned cls, unsigned prog, bool wifi) {
  unsigned const base = cls >> 8, sub = cls & 0xff;
  switch (base) {
  case 0x00:
    return {sub == 0x01 ? "VideoCard" : "Other", ""};
  case 0x01:
    switch (sub) {
    case 0x00:
      return {"MassStorageController", "SCSI"};
    case 0x01:
      return {"MassStorageController", "IDE"};
    case 0x04:
      return {"MassStorageController", "RAID"};
    case 0x05:
      return {"MassStorageController", "ATA"};
    case 0x06:
      return {"MassStorageController", "SATA"};
    case 0x07:
      return {"MassStorageController", "SAS"};
    case 0x08:
      return {"NVMEController", "MassStorageController|NVME"};
    default:
      return {"MassStorageController", ""};
    }
  case 0x02:
    if (wifi)
      return {"Wireless", ""};
    switch (sub) {
    case 0x00:
      return {"Ethernet", ""};
    case 0x01:
      return {"TokenRing", ""};
    case 0x03:
      return {"ATM", ""};
    case 0x04:
      return {"ISDNAdapter", ""};
    default:
      return {"Other", ""};
    }
  case 0x03:
    return {"VideoCard", sub == 0x02 ? "GPU" : ""};
  case 0x04:
    switch (sub) {
    case 0x00:
      return {"VideoCapture", ""};
    case 0x01:
      return {"SoundCard", ""};
    case 0x03:
      return {"SoundCard", "HDAudioController"};
    default:
      return {"Other", ""};
    }
  case 0x05:
    return {"MemoryController", ""};
  case 0x06:
    switch (sub) {
    case 0x00:
      return {"PCIHostBridge", "PCIBridge"};
    case 0x01:
      return {"PCIISABridge", "PCIBridge"};
    case 0x02:
      return {"PCIEISABridge", "PCIBridge"};
    case 0x04:
      return {"PCIPCIBridge", "PCIBridge"};
    case 0x05:
      return {"PCIPCMCIABridge", "PCIBridge"};
    case 0x07:
      return {"PCICardBusBridge", "PCIBridge"};
    default:
      return {"PCIBridge", ""};
    }
  case 0x07:
    switch (sub) {
    case 0x00:
      return {"SerialPort", ""};
    case 0x01:
      return {"ParallelPort", ""};
    case 0x03:
      return {"Modem", ""};
    default:
      return {"CommunicationsController", ""};
    }
  case 0x08:
    switch (sub) {
    case 0x03:
      return {"RTC", ""};
    case 0x05:
      return {"MMCHostController", ""};
    default:
      return {"Other", ""};
    }
  case 0x09:
    switch (sub) {
    case 0x00:
      return {"Keyboard", "HID"};
    case 0x01:
      return {"Digitizer", "HID"};
    case 0x02:
      return {"Mouse", "HID"};
    default:
      return {"HID", ""};
    }
  case 0x0a:
    return {"DockingStation", ""};
  case 0x0b:
    return {sub == 0x40 ? "ComputeDevice" : "Other", ""};
  case 0x0c:
    switch (sub) {
    case 0x00:
      return {"IEEE1394Controller", "IEEE1394"};
    case 0x03:
      return {"USBController", prog == 0x00   ? "UHCI"
                               : prog == 0x10 ? "OHCI"
                               : prog == 0x20 ? "EHCI"
                                              : ""};
    case 0x05:
      return {"SMBusController", ""};
    default:
      return {"Other", ""};
    }
  case 0x0d:
    return {sub == 0x11 ? "BlueTooth" : "Wireless", ""};
  case 0x10:
    return {"EncryptionController", ""};
  case 0x12:
    return {"ComputeDevice", ""};
  default:
    return {"Other", ""};
  }
}

} // namespace

void pciSource(Context &ctx) {
  Fs const &fs = ctx.fs;
  std::string const base = "/sys/bus/pci/devices/";
  if (!fs.isDir(base)) {
    ctx.problem("no PCI bus (/sys/bus/pci/devices is absent)");
    return;
  }
  std::vector<std::pair<std::string, std::string>> functions; // address, real path
  for (std::string const &address : fs.list(base)) {
    if (!isPciAddress(address))
      continue;
    std::string const real = realOr(fs, base + address);
    functions.emplace_back(address, real);
    ctx.paths[real] = "pci:" + address;
  }
  for (auto const &fn : functions) {
    if (ctx.isCancelled())
      return;
    std::string const &address = fn.first;
    std::string const dir = base + address + "/";
    // -1 for what cannot be read or is out of range.
    auto hexAttr = [&](char const *file, unsigned long long max) -> long long {
      std::optional<unsigned long long> v = fs.u64(dir + file, 16);
      return v && *v <= max ? static_cast<long long>(*v) : -1;
    };
    long long const vendor = hexAttr("vendor", 0xffff), device = hexAttr("device", 0xffff),
                    cls = hexAttr("class", 0xffffff),
                    subVendor = hexAttr("subsystem_vendor", 0xffff),
                    subDevice = hexAttr("subsystem_device", 0xffff),
                    revision = hexAttr("revision", 0xff);
    unsigned const cls16 = cls >= 0 ? static_cast<unsigned>(cls >> 8) : 0xffff;
    unsigned const prog = cls >= 0 ? static_cast<unsigned>(cls & 0xff) : 0;
    auto u = [](long long v) { return static_cast<unsigned>(v); };

    std::string vendorName, deviceName, subsystemName, className, progName;
    if (ctx.pci) {
      if (vendor >= 0)
        vendorName = ctx.pci->vendor(u(vendor));
      if (vendor >= 0 && device >= 0)
        deviceName = ctx.pci->device(u(vendor), u(device));
      if (vendor >= 0 && device >= 0 && subVendor > 0 && subVendor != 0xffff && subDevice >= 0)
        subsystemName = ctx.pci->subsystem(u(vendor), u(device), u(subVendor), u(subDevice));
      if (cls >= 0)
        className = ctx.pci->className(cls16);
      if (cls >= 0 && prog)
        progName = ctx.pci->progIf(cls16, prog);
    }
    if (vendorName.empty() && vendor >= 0)
      vendorName = "Vendor " + hex4(u(vendor));
    if (deviceName.empty() && device >= 0)
      deviceName = "Device " + hex4(u(device)); // as lspci shows it
    if (className.empty())
      className = cls >= 0 ? "Class " + hex4(cls16) : "Unknown class";

    bool const wifi = fs.isDir(dir + "ieee80211");
    std::pair<char const *, char const *> type = pciType(cls16, prog, wifi);
    std::string const guid = "pci:" + address;
    std::string name = deviceName.empty() ? className : deviceName;
    DevicePtr d = makeDevice(guid, name, type.first, ctx.parentFor(fn.second));
    addCapabilities(*d, "PCI");
    if (*type.second)
      addCapabilities(*d, type.second);
    if (fs.exists(dir + "current_link_speed"))
      addCapabilities(*d, "PCIExpress");
    char rev[32] = "";
    if (revision >= 0)
      std::snprintf(rev, sizeof rev, " (rev %02llx)", revision);
    d->setDescription(String(className + ": " + join({vendorName, deviceName}, " ") + rev));
    d->setHwLocator(String(address)).setOsLocator(String(base + address));
    setText(*d, lm::KEY_MANUFACTURER, vendorName, MANUFACTURER | SUMMARY);
    setText(*d, lm::KEY_MODEL, deviceName, MODEL | SUMMARY);
    if (vendor >= 0)
      setText(*d, "VendorID", hex4(u(vendor)), ID);
    if (device >= 0)
      setText(*d, "DeviceID", hex4(u(device)), ID);
    if (subVendor >= 0)
      setText(*d, "SubsystemVendorID", hex4(u(subVendor)), ID);
    if (subDevice >= 0)
      setText(*d, "SubsystemDeviceID", hex4(u(subDevice)), ID);
    setText(*d, "Subsystem", subsystemName);
    setText(*d, "Class", className, SUMMARY);
    setText(*d, "ProgrammingInterface", progName);
    if (cls >= 0) {
      char code[32];
      std::snprintf(code, sizeof code, "%06llx", cls);
      setText(*d, "ClassCode", std::string(code), ID);
    }
    if (revision >= 0) {
      char r[32];
      std::snprintf(r, sizeof r, "%02llx", revision);
      setText(*d, "Revision", std::string(r), FIRMWARE);
    }
    setText(*d, lm::KEY_DRIVER, fs.linkName(dir + "driver"));
    setText(*d, "LinkSpeed", fs.text(dir + "current_link_speed"));
    setU32(*d, "LinkWidth", fs.u64(dir + "current_link_width"));
    ctx.add(d);
  }
}

// --- usb
// ------------------------------------------------------------------------------------------

namespace {

bool isUsbDeviceName(std::string const &name) {
  if (startsWith(name, "usb"))
    return allDigits(name, 3);
  // bus-port[.port...]
  std::size_t dash = name.find('-');
  if (dash == std::string::npos || dash == 0 || dash + 1 == name.size())
    return false;
  for (std::size_t i = 0; i < name.size(); ++i) {
    char c = name[i];
    if (i == dash)
      continue;
    if (!((c >= '0' && c <= '9') || (c == '.' && i > dash + 1 && name[i - 1] != '.')))
      return false;
  }
  return name.back() != '.' && name.find('-', dash + 1) == std::string::npos;
}

/// The type a USB class (of the device or of an interface) stands for;
/// nullptr when it says nothing (per-interface, vendor-specific).
char const *usbClassType(unsigned cls, unsigned sub, unsigned proto) {
  switch (cls) {
  case 0x01:
    return "SoundCard";
  case 0x02:
  case 0x0a:
    return "CommunicationsController";
  case 0x03:
    if (sub == 1 && proto == 1)
      return "Keyboard";
    if (sub == 1 && proto == 2)
      return "Mouse";
    return "HID";
  case 0x06:
    return "Camera"; // still image
  case 0x07:
    return "Printer";
  case 0x08:
    return "USBMassStorage";
  case 0x09:
    return "HUB";
  case 0x0b:
    return "SmartCardReader";
  case 0x0e:
    return "Camera";
  case 0xe0:
    return sub == 1 && proto == 1 ? "BluetoothDevice" : nullptr;
  default:
    return nullptr;
  }
}

/// The rank of a type when interfaces disagree: what the device is for
/// comes before how it talks (a webcam's microphone, a keyboard's media
/// keys).
int usbTypeRank(char const *type) {
  static char const *const order[] = {"Camera",
                                      "Keyboard",
                                      "Mouse",
                                      "USBMassStorage",
                                      "Printer",
                                      "SmartCardReader",
                                      "BluetoothDevice",
                                      "SoundCard",
                                      "CommunicationsController",
                                      "HID",
                                      "HUB"};
  for (std::size_t i = 0; i < sizeof order / sizeof *order; ++i)
    if (std::strcmp(order[i], type) == 0)
      return static_cast<int>(i);
  return 100;
}

} // namespace

std::vector<std::string> usbNames(Fs const &fs) {
  std::vector<std::string> names;
  for (std::string &n : fs.list("/sys/bus/usb/devices"))
    if (isUsbDeviceName(n))
      names.push_back(std::move(n));
  return names;
}

void usbEntry(Context &ctx, std::string const &name) {
  Fs const &fs = ctx.fs;
  if (!isUsbDeviceName(name))
    return;
  std::string const dir = "/sys/bus/usb/devices/" + name;
  if (!fs.isDir(dir))
    return;
  std::string const real = realOr(fs, dir);
  bool const rootHub = startsWith(name, "usb");
  std::string const locator = rootHub ? "usb:" + name.substr(3) : "usb:" + name;
  std::string const guid = locator;
  ctx.paths[real] = guid;

  std::optional<unsigned long long> vid = fs.u64(dir + "/idVendor", 16),
                                    pid = fs.u64(dir + "/idProduct", 16),
                                    cls = fs.u64(dir + "/bDeviceClass", 16),
                                    sub = fs.u64(dir + "/bDeviceSubClass", 16),
                                    proto = fs.u64(dir + "/bDeviceProtocol", 16),
                                    busnum = fs.u64(dir + "/busnum"),
                                    devnum = fs.u64(dir + "/devnum");
  std::optional<std::string> maker = meaningful(fs.text(dir + "/manufacturer")),
                             product = meaningful(fs.text(dir + "/product")),
                             serial = meaningful(fs.text(dir + "/serial")),
                             version = fs.text(dir + "/version"), speed = fs.text(dir + "/speed");

  std::vector<char const *> types;
  if (cls && *cls <= 0xff)
    if (char const *t =
            usbClassType(static_cast<unsigned>(*cls), static_cast<unsigned>(sub.value_or(0)),
                         static_cast<unsigned>(proto.value_or(0))))
      types.push_back(t);
  std::vector<std::string> drivers;
  unsigned interfaces = 0;
  for (std::string const &entry : fs.list(dir)) {
    if (entry.size() <= name.size() + 1 || entry.compare(0, name.size(), name) != 0 ||
        entry[name.size()] != ':')
      continue;
    if (++interfaces > 64)
      break;
    std::string const ifDir = dir + "/" + entry + "/";
    std::optional<unsigned long long> ic = fs.u64(ifDir + "bInterfaceClass", 16),
                                      is = fs.u64(ifDir + "bInterfaceSubClass", 16),
                                      ip = fs.u64(ifDir + "bInterfaceProtocol", 16);
    if (ic && *ic <= 0xff)
      if (char const *t =
              usbClassType(static_cast<unsigned>(*ic), static_cast<unsigned>(is.value_or(0)),
                           static_cast<unsigned>(ip.value_or(0))))
        types.push_back(t);
    if (std::optional<std::string> drv = fs.linkName(ifDir + "driver"))
      if (std::find(drivers.begin(), drivers.end(), *drv) == drivers.end())
        drivers.push_back(*drv);
  }
  char const *type = "Other";
  for (char const *t : types)
    if (usbTypeRank(t) < usbTypeRank(type))
      type = t;
  if (rootHub)
    type = "HUB";

  std::string label = product      ? *product
                      : maker      ? *maker + " USB device"
                      : vid && pid ? "USB device " + hex4(static_cast<unsigned>(*vid)) + ":" +
                                         hex4(static_cast<unsigned>(*pid))
                                   : "USB device " + name;
  if (rootHub)
    label = "USB root hub " + name.substr(3);
  DevicePtr d = makeDevice(guid, label, type, ctx.parentFor(real));
  addCapabilities(*d, "USB");
  for (char const *t : types)
    addCapabilities(*d, t);
  if (rootHub)
    addCapabilities(*d, "InternalHub|UsbBus");
  double mbps = 0;
  if (speed) {
    bool ok = false;
    mbps = String::strToReal64(String(*speed), &ok);
    if (!ok || !(mbps > 0) || mbps > 1e6)
      mbps = 0;
  }
  if (mbps == 480) // a high-speed (USB 2.0) connection
    addCapabilities(*d, "USB2");
  d->setHwLocator(String(locator));
  if (busnum && devnum && *busnum < 1000 && *devnum < 1000) {
    char node[32];
    std::snprintf(node, sizeof node, "/dev/bus/usb/%03llu/%03llu", *busnum, *devnum);
    d->setOsLocator(node);
  } else {
    d->setOsLocator(String(dir));
  }
  d->setDescription(String(
      join({maker.value_or(""), product.value_or(rootHub ? "root hub" : "USB device")}, " ")));
  if (vid)
    setText(*d, "VendorID", hex4(static_cast<unsigned>(*vid)), ID);
  if (pid)
    setText(*d, "ProductID", hex4(static_cast<unsigned>(*pid)), ID);
  setText(*d, lm::KEY_MANUFACTURER, maker, MANUFACTURER | SUMMARY);
  setText(*d, lm::KEY_MODEL, product, MODEL | SUMMARY);
  if (!rootHub)
    setText(*d, lm::KEY_SERIAL, serial, SERIAL | KEY);
  setText(*d, "USBVersion", version);
  if (mbps > 0)
    setDouble(*d, "USBSpeed", mbps);
  setText(*d, lm::KEY_DRIVER, join(drivers, ","));
  ctx.add(d, Live::NONE, dir, "usb:" + name);
}

void usbSource(Context &ctx) {
  if (!ctx.fs.isDir("/sys/bus/usb/devices")) {
    ctx.problem("no USB buses (/sys/bus/usb/devices is absent)");
    return;
  }
  std::vector<std::string> const names = usbNames(ctx.fs);
  // Paths first, so that a device finds its hub whatever the order of names.
  for (std::string const &n : names)
    ctx.paths[realOr(ctx.fs, "/sys/bus/usb/devices/" + n)] =
        startsWith(n, "usb") ? "usb:" + n.substr(3) : "usb:" + n;
  for (std::string const &n : names) {
    if (ctx.isCancelled())
      return;
    usbEntry(ctx, n);
  }
}

// --- block devices: disks, partitions, optical drives
// -----------------------------------------------

namespace {

/// The serial of a SCSI device from its unit serial number page (0x80).
std::optional<std::string> vpdSerial(Fs const &fs, std::string const &rel) {
  std::string raw;
  if (!fs.read(rel, raw, 4096) || raw.size() < 4 || static_cast<unsigned char>(raw[1]) != 0x80)
    return std::nullopt;
  std::size_t const length = static_cast<std::size_t>(static_cast<unsigned char>(raw[2])) << 8 |
                             static_cast<unsigned char>(raw[3]);
  return meaningful(cleanText(std::string_view(raw).substr(4, std::min(length, raw.size() - 4))));
}

std::string transportOf(std::string const &name, std::string const &real) {
  if (startsWith(name, "nvme"))
    return "nvme";
  if (startsWith(name, "mmcblk"))
    return "mmc";
  if (real.find("/usb") != std::string::npos)
    return "usb";
  if (real.find("/virtio") != std::string::npos)
    return "virtio";
  if (real.find("/ata") != std::string::npos)
    return "sata";
  if (real.find("/host") != std::string::npos)
    return "scsi";
  return "";
}

/// Which optical capabilities /proc/sys/dev/cdrom/info gives a drive.
std::string opticalRows(Fs const &fs, std::string const &drive) {
  std::string raw;
  if (!fs.read("/proc/sys/dev/cdrom/info", raw, 65536))
    return "CDROM";
  std::size_t column = std::string::npos;
  std::size_t pos = 0;
  std::map<std::string, bool> can;
  std::vector<std::string> lines;
  while (pos < raw.size()) {
    std::size_t eol = raw.find('\n', pos);
    if (eol == std::string::npos)
      eol = raw.size();
    lines.push_back(raw.substr(pos, eol - pos));
    pos = eol + 1;
  }
  for (std::string const &line : lines) {
    std::size_t colon = line.find(':');
    if (colon == std::string::npos)
      continue;
    std::string key = cleanText(line.substr(0, colon));
    std::vector<std::string> values;
    std::string rest = line.substr(colon + 1);
    for (std::size_t p = 0; p < rest.size();) {
      while (p < rest.size() && (rest[p] == '\t' || rest[p] == ' '))
        ++p;
      std::size_t end = p;
      while (end < rest.size() && rest[end] != '\t' && rest[end] != ' ')
        ++end;
      if (end > p)
        values.push_back(rest.substr(p, end - p));
      p = end;
    }
    if (key == "drive name") {
      for (std::size_t i = 0; i < values.size(); ++i)
        if (values[i] == drive)
          column = i;
    } else if (column != std::string::npos && column < values.size()) {
      can[key] = values[column] == "1";
    }
  }
  std::string rows2 = "CDROM";
  static std::pair<char const *, char const *> const map[] = {
      {"Can play audio", "CDDA"},       {"Can write CD-R", "CDR"},
      {"Can write CD-RW", "CDRW"},      {"Can read DVD", "DVD"},
      {"Can write DVD-R", "DVDMINUSR"}, {"Can write DVD-RAM", "DVDRAM"}};
  for (auto const &m : map)
    if (can[m.first])
      rows2 += std::string("|") + m.second;
  return rows2;
}

} // namespace

std::vector<std::string> blockNames(Fs const &fs) { return fs.list("/sys/block"); }

bool isOptical(Fs const &fs, std::string const &name) {
  if (startsWith(name, "sr") && allDigits(name, 2))
    return true;
  std::optional<unsigned long long> type = fs.u64("/sys/block/" + name + "/device/type");
  return type && *type == 5 && fs.exists("/sys/block/" + name + "/device/scsi_level");
}

std::string blockSignature(Fs const &fs, std::string const &name) {
  std::string const dir = "/sys/block/" + name;
  std::string sig = "size=" + std::to_string(fs.u64(dir + "/size").value_or(0));
  for (std::string const &sub : fs.list(dir))
    if (startsWith(sub, name.c_str()) && fs.exists(dir + "/" + sub + "/partition"))
      sig += "," + sub;
  return sig;
}

void blockEntry(Context &ctx, std::string const &name, bool optical) {
  Fs const &fs = ctx.fs;
  std::string const dir = "/sys/block/" + name;
  if (name.empty() || name.find('/') != std::string::npos || !fs.isDir(dir))
    return;
  std::string const real = realOr(fs, dir);
  // No hardware under it (loop, ram, zram, dm, md, nbd), or a path the
  // kernel keeps out of sight (NVMe multipath): not a device to diagnose.
  if (isVirtual(real) || fs.u64(dir + "/hidden").value_or(0) == 1)
    return;
  if (isOptical(fs, name) != optical)
    return;
  std::string const devDir = dir + "/device";
  std::optional<std::string> devReal = fs.realRel(devDir);
  std::string const transport = transportOf(name, real);

  std::optional<std::string> model = meaningful(fs.text(devDir + "/model")),
                             vendor = meaningful(fs.text(devDir + "/vendor"));
  if (!model)
    model = meaningful(fs.text(devDir + "/name")); // MMC cards
  std::optional<std::string> serial = meaningful(fs.text(dir + "/serial"));
  if (!serial)
    serial = meaningful(fs.text(devDir + "/serial"));
  if (!serial)
    serial = vpdSerial(fs, devDir + "/vpd_pg80");
  std::optional<std::string> wwid = meaningful(fs.text(dir + "/wwid"));
  if (!wwid)
    wwid = meaningful(fs.text(devDir + "/wwid"));
  std::optional<std::string> firmware = meaningful(fs.text(devDir + "/firmware_rev"));
  if (!firmware)
    firmware = meaningful(fs.text(devDir + "/rev"));
  // "ATA" is the bus, not the maker; virtio gives a vendor number, not a name.
  if (vendor && (*vendor == "ATA" || parseUInt(*vendor, 16) ||
                 (model && startsWith(*model, vendor->c_str()))))
    vendor.reset();

  std::optional<unsigned long long> sectors = fs.u64(dir + "/size");
  std::optional<unsigned long long> bytes;
  unsigned long long b;
  if (sectors && !__builtin_mul_overflow(*sectors, 512ULL, &b))
    bytes = b;

  // Identity: a namespace's own world-wide id for NVMe (the serial belongs to
  // the controller), the model and serial elsewhere, the world-wide id when
  // there is no serial, and the hardware path when there is neither.
  std::string id;
  std::optional<unsigned long long> nsid = fs.u64(dir + "/nsid");
  if (transport == "nvme" && wwid)
    id = idPart(*wwid);
  else if (serial)
    id = (model ? idPart(*model) + ":" : std::string()) + idPart(*serial) +
         (transport == "nvme" ? ":n" + std::to_string(nsid.value_or(1)) : "");
  else if (wwid)
    id = idPart(*wwid);
  else
    id = "path:" + idPart(startsWith(real, "/sys/devices/") ? real.substr(13) : real, 192);
  std::string const guid = (optical ? "optical:" : "disk:") + id;

  std::string const parent = ctx.parentFor(real);
  std::string label = model ? join({vendor.value_or(""), *model}, " ")
                            : (optical ? "Optical drive " : "Disk ") + name;
  DevicePtr d = makeDevice(guid, label, optical ? lm::OPTICAL : lm::DISK, parent);
  std::optional<unsigned long long> rotational = fs.u64(dir + "/queue/rotational");
  std::optional<unsigned long long> removable = fs.u64(dir + "/removable");
  if (optical) {
    addCapabilities(*d, opticalRows(fs, name).c_str());
  } else {
    if (transport == "nvme")
      addCapabilities(*d, "NVME");
    if (transport == "sata")
      addCapabilities(*d, "SATA");
    if (transport == "mmc")
      addCapabilities(*d, "MMC");
    if (transport == "scsi")
      addCapabilities(*d, "SCSI");
    // A paravirtual disk's rotational flag says nothing about the medium.
    if (rotational && *rotational == 0 && transport != "virtio" && transport != "mmc" &&
        transport != "")
      addCapabilities(*d, "SSD");
  }
  if (transport == "usb")
    addCapabilities(*d, "USB|USBMassStorage");
  if (removable && *removable == 1)
    addCapabilities(*d, "RemovableStorage");
  d->setOsLocator(String("/dev/" + name));
  std::string kind = optical               ? "Optical drive"
                     : transport == "nvme" ? "NVMe disk"
                     : transport.empty()   ? "Disk"
                                           : transport + " disk";
  if (transport == "sata" || transport == "scsi" || transport == "usb" || transport == "mmc")
    kind = (transport == "sata"   ? "SATA"
            : transport == "scsi" ? "SCSI"
            : transport == "usb"  ? "USB"
                                  : "MMC") +
           std::string(" disk");
  if (optical)
    kind = "Optical drive";
  d->setDescription(String(kind + " " + name +
                           (bytes && *bytes > 0 ? ", " + humanBytes(*bytes) : std::string())));
  if (optical)
    setBool(*d, lm::KEY_MEDIA_PRESENT,
            bytes ? std::optional<unsigned long long>(*bytes > 0 ? 1 : 0) : std::nullopt, SUMMARY);
  if (!optical || (bytes && *bytes > 0))
    setU64(*d, lm::KEY_SIZE_BYTES, bytes, SUMMARY);
  std::optional<unsigned long long> lbs = fs.u64(dir + "/queue/logical_block_size");
  if (lbs && *lbs > 0 && *lbs <= 1u << 20)
    setU32(*d, lm::KEY_LOGICAL_BLOCK, lbs);
  if (!optical)
    setBool(*d, lm::KEY_ROTATIONAL, rotational);
  setBool(*d, lm::KEY_REMOVABLE, removable);
  setText(*d, lm::KEY_MODEL, model, MODEL | SUMMARY);
  setText(*d, lm::KEY_MANUFACTURER, vendor, MANUFACTURER);
  setText(*d, lm::KEY_SERIAL, serial, SERIAL | KEY);
  setText(*d, "Firmware", firmware, FIRMWARE);
  setText(*d, "WWID", wwid, ID);
  setText(*d, lm::KEY_TRANSPORT,
          transport.empty() ? std::nullopt : std::optional<std::string>(transport));
  setText(*d, lm::KEY_DRIVER, fs.linkName(devDir + "/driver"));
  std::string const diskGuid = ctx.add(d, Live::NONE, dir, "block:" + name).device->guid().str();
  ctx.paths[real] = diskGuid;
  if (devReal && !ctx.paths.count(*devReal) && !(ctx.knownPaths && ctx.knownPaths->count(*devReal)))
    ctx.paths[*devReal] = diskGuid; // sensors of the drive (drivetemp, nvme) hang under it

  unsigned parts = 0;
  for (std::string const &sub : fs.list(dir)) {
    if (!startsWith(sub, name.c_str()))
      continue;
    std::string const pdir = dir + "/" + sub;
    std::optional<unsigned long long> number = fs.u64(pdir + "/partition");
    if (!number || *number == 0 || *number > 1000000 || ++parts > 1024)
      continue;
    std::string const pguid = diskGuid + ":part" + std::to_string(*number);
    DevicePtr p = makeDevice(pguid, "Partition " + std::to_string(*number) + " (" + sub + ")",
                             lm::PARTITION, diskGuid);
    p->setOsLocator(String("/dev/" + sub));
    std::optional<unsigned long long> psize = fs.u64(pdir + "/size"),
                                      start = fs.u64(pdir + "/start");
    unsigned long long v;
    if (psize && !__builtin_mul_overflow(*psize, 512ULL, &v)) {
      setU64(*p, lm::KEY_SIZE_BYTES, v, SUMMARY);
      p->setDescription(String("Partition " + sub + ", " + humanBytes(v)));
    }
    if (start && !__builtin_mul_overflow(*start, 512ULL, &v))
      setU64(*p, "Offset", v);
    setU32(*p, "PartitionNumber", number);
    ctx.add(p, Live::NONE, pdir, "block:" + name);
  }
}

void storageSource(Context &ctx) {
  if (!ctx.fs.isDir("/sys/block")) {
    ctx.problem("no block devices (/sys/block is absent)");
    return;
  }
  for (std::string const &n : blockNames(ctx.fs)) {
    if (ctx.isCancelled())
      return;
    blockEntry(ctx, n, false);
  }
}

void opticalSource(Context &ctx) {
  if (!ctx.fs.isDir("/sys/block")) {
    ctx.problem("no block devices (/sys/block is absent)");
    return;
  }
  for (std::string const &n : blockNames(ctx.fs)) {
    if (ctx.isCancelled())
      return;
    blockEntry(ctx, n, true);
  }
}

// --- network
// -----------------------------------------------------------------------------------------

namespace {

bool isMac(std::string const &s) {
  if (s.size() != 17)
    return false;
  for (std::size_t i = 0; i < s.size(); ++i) {
    char c = s[i];
    if (i % 3 == 2 ? c != ':' : !((c >= '0' && c <= '9') || (c >= 'a' && c <= 'f')))
      return false;
  }
  return s != "00:00:00:00:00:00";
}

} // namespace

std::vector<std::string> netNames(Fs const &fs) { return fs.list("/sys/class/net"); }

void netEntry(Context &ctx, std::string const &name) {
  Fs const &fs = ctx.fs;
  if (name == "lo" || name.empty() || name.find('/') != std::string::npos)
    return;
  std::string const dir = "/sys/class/net/" + name;
  if (!fs.isDir(dir))
    return;
  std::string const real = realOr(fs, dir);
  if (isVirtual(real))
    return; // bridges, veth, tunnels: no hardware

  std::optional<std::string> macText = fs.text(dir + "/address");
  std::string const mac = macText ? lower(*macText) : std::string();
  std::optional<unsigned long long> assign = fs.u64(dir + "/addr_assign_type");
  std::optional<unsigned long long> arp = fs.u64(dir + "/type");
  bool const wireless = fs.isDir(dir + "/wireless") || fs.exists(dir + "/phy80211");
  // A permanent (0) or borrowed (2) address identifies the card; a random or
  // user-set one does not survive, so the interface name stands in.
  bool const stable = isMac(mac) && (!assign || *assign == 0 || *assign == 2);
  std::string const guid = stable ? "net:" + mac : "net:" + idPart(name);

  std::string const parent = ctx.parentFor(real);
  DevicePtr d = makeDevice(guid,
                           (wireless           ? "Wi-Fi "
                            : arp && *arp == 1 ? "Ethernet "
                                               : "Network interface ") +
                               name,
                           lm::NETWORK, parent);
  if (wireless)
    addCapabilities(*d, "Wireless");
  else if (arp && *arp == 1)
    addCapabilities(*d, "Ethernet");
  d->setOsLocator(String(name));
  // The interface's hardware address is that of the function it lives on.
  if (startsWith(parent, "pci:"))
    d->setHwLocator(String(parent.substr(4)));
  else if (startsWith(parent, "usb:"))
    d->setHwLocator(String(parent));
  d->setDescription(String((wireless ? "Wireless network interface " : "Network interface ") +
                           name + (isMac(mac) ? ", MAC " + mac : std::string())));
  if (isMac(mac))
    setText(*d, lm::KEY_MAC, mac, ID | SUMMARY);
  setText(*d, lm::KEY_DRIVER, fs.linkName(dir + "/device/driver"));
  setU32(*d, "MTU", fs.u64(dir + "/mtu"));
  Record &r = ctx.add(d, Live::NETWORK, dir, "net:" + name);
  addLive(fs, r);
}

void networkSource(Context &ctx) {
  if (!ctx.fs.isDir("/sys/class/net")) {
    ctx.problem("no network interfaces (/sys/class/net is absent)");
    return;
  }
  for (std::string const &n : netNames(ctx.fs)) {
    if (ctx.isCancelled())
      return;
    netEntry(ctx, n);
  }
}

// --- power: batteries and mains
// ----------------------------------------------------------------------

void powerSource(Context &ctx) {
  Fs const &fs = ctx.fs;
  std::string const base = "/sys/class/power_supply/";
  if (!fs.isDir(base)) {
    ctx.problem("no power supply class (/sys/class/power_supply is absent)");
    return;
  }
  for (std::string const &name : fs.list(base)) {
    if (ctx.isCancelled())
      return;
    std::string const dir = base + name;
    std::optional<std::string> type = fs.text(dir + "/type");
    if (!type)
      continue;
    std::string const real = realOr(fs, dir);
    if (*type == "Battery") {
      if (fs.u64(dir + "/present").value_or(1) == 0)
        continue; // an empty bay
      std::optional<std::string> maker = meaningful(fs.text(dir + "/manufacturer")),
                                 model = meaningful(fs.text(dir + "/model_name")),
                                 serial = meaningful(fs.text(dir + "/serial_number"));
      std::string const guid =
          serial ? "battery:" + idPart(join({maker.value_or(""), model.value_or(""), *serial}, ":"))
                 : "battery:" + idPart(name);
      DevicePtr d = makeDevice(guid, "Battery " + name, lm::BATTERY, ctx.parentFor(real));
      d->setOsLocator(String(dir));
      d->setDescription(String(join({maker.value_or(""), model.value_or(""), "battery"}, " ")));
      setText(*d, lm::KEY_MANUFACTURER, maker, MANUFACTURER | SUMMARY);
      setText(*d, lm::KEY_MODEL, model, MODEL | SUMMARY);
      setText(*d, lm::KEY_SERIAL, serial, SERIAL | KEY);
      setText(*d, "Technology", meaningful(fs.text(dir + "/technology")));
      bool const energy = fs.exists(dir + "/energy_full_design") || fs.exists(dir + "/energy_full");
      setU64(*d, lm::KEY_DESIGN_CAPACITY,
             fs.u64(dir + (energy ? "/energy_full_design" : "/charge_full_design")), SUMMARY);
      setText(*d, "CapacityUnit", std::string(energy ? "µWh" : "µAh"));
      if (std::optional<unsigned long long> uv = fs.u64(dir + "/voltage_min_design"))
        setDouble(*d, "DesignVoltage", static_cast<double>(*uv) / 1e6);
      setU32(*d, "CycleCount", fs.u64(dir + "/cycle_count"));
      Record &r = ctx.add(d, Live::BATTERY, dir);
      ctx.paths[real] = r.device->guid().str(); // its own sensors (voltage) hang under it
      addLive(fs, r);
    } else if (*type == "Mains" || *type == "UPS") {
      DevicePtr d = makeDevice("power:" + idPart(name),
                               *type == "Mains" ? "AC adapter " + name : "UPS " + name,
                               lm::POWER_SUPPLY, ctx.parentFor(real));
      d->setOsLocator(String(dir));
      d->setDescription(
          String(*type == "Mains" ? "Mains power adapter" : "Uninterruptible power supply"));
      Record &r = ctx.add(d, Live::MAINS, dir);
      addLive(fs, r);
    }
  }
}

// --- sensors: hwmon chips and thermal zones
// ------------------------------------------------------------

namespace {

struct SensorKind {
  char const *prefix;
  char const *type;
  char const *unit;
  double scale;
  double low, high; // what a reading can plausibly be
  char const *limits[3][2];
};

SensorKind const kSensorKinds[] = {
    {"temp",
     lm::TEMPERATURE_SENSOR,
     "°C",
     1000.0,
     -273.15,
     1000.0,
     {{"_min", lm::KEY_MIN}, {"_max", lm::KEY_MAX}, {"_crit", lm::KEY_CRITICAL}}},
    {"fan",
     lm::FAN,
     "RPM",
     1.0,
     0.0,
     1e6,
     {{"_min", lm::KEY_MIN}, {"_max", lm::KEY_MAX}, {nullptr, nullptr}}},
    {"in",
     lm::VOLTAGE_SENSOR,
     "V",
     1000.0,
     -1000.0,
     1000.0,
     {{"_min", lm::KEY_MIN}, {"_max", lm::KEY_MAX}, {"_crit", lm::KEY_CRITICAL}}}};

SensorKind const *sensorKindOf(std::string const &path) {
  std::size_t slash = path.find_last_of('/');
  std::string last = slash == std::string::npos ? path : path.substr(slash + 1);
  for (SensorKind const &k : kSensorKinds)
    if (startsWith(last, k.prefix) && allDigits(last, std::char_traits<char>::length(k.prefix)))
      return &k;
  return nullptr;
}

std::optional<double> scaled(Fs const &fs, std::string const &rel, SensorKind const &k) {
  std::optional<long long> raw = fs.i64(rel);
  if (!raw)
    return std::nullopt;
  double v = static_cast<double>(*raw) / k.scale;
  if (!(v >= k.low && v <= k.high))
    return std::nullopt;
  return v;
}

/// Natural order: hwmon2 before hwmon10.
bool naturalLess(std::string const &a, std::string const &b) {
  std::size_t i = 0, j = 0;
  while (i < a.size() && j < b.size()) {
    if (a[i] >= '0' && a[i] <= '9' && b[j] >= '0' && b[j] <= '9') {
      std::size_t ie = i, je = j;
      while (ie < a.size() && a[ie] >= '0' && a[ie] <= '9')
        ++ie;
      while (je < b.size() && b[je] >= '0' && b[je] <= '9')
        ++je;
      std::string na = a.substr(i, ie - i), nb = b.substr(j, je - j);
      while (na.size() > 1 && na[0] == '0')
        na.erase(0, 1);
      while (nb.size() > 1 && nb[0] == '0')
        nb.erase(0, 1);
      if (na.size() != nb.size())
        return na.size() < nb.size();
      if (na != nb)
        return na < nb;
      i = ie;
      j = je;
      continue;
    }
    if (a[i] != b[j])
      return a[i] < b[j];
    ++i;
    ++j;
  }
  return a.size() - i < b.size() - j;
}

void hwmonChip(Context &ctx, std::string const &hwmon, unsigned &sensors) {
  Fs const &fs = ctx.fs;
  std::string const dir = "/sys/class/hwmon/" + hwmon;
  std::string const real = realOr(fs, dir);
  std::string const chip = fs.text(dir + "/name").value_or(hwmon);
  // Older drivers keep their attributes on the device rather than the hwmon
  // folder.
  std::string attrDir = dir;
  std::vector<std::string> files = fs.list(dir);
  auto hasInput = [](std::vector<std::string> const &names) {
    return std::any_of(names.begin(), names.end(), [](std::string const &n) {
      return n.size() > 6 && n.compare(n.size() - 6, 6, "_input") == 0;
    });
  };
  if (!hasInput(files) && fs.isDir(dir + "/device")) {
    attrDir = dir + "/device";
    files = fs.list(attrDir);
  }
  // The chip's identity is its device, not hwmonN, whose number can change
  // from one boot to the next.
  std::string devPath = real; // <device>/hwmon/hwmonN or <device>/hwmonN
  devPath.resize(std::min(devPath.size(), devPath.find_last_of('/')));
  if (devPath.size() >= 6 && devPath.compare(devPath.size() - 6, 6, "/hwmon") == 0)
    devPath.resize(devPath.size() - 6);
  std::string const chipId =
      chip + "@" + (startsWith(devPath, "/sys/devices/") ? devPath.substr(13) : hwmon);
  std::string const parent = ctx.parentFor(real);

  std::vector<std::pair<SensorKind const *, std::string>> inputs;
  for (std::string const &f : files) {
    if (f.size() <= 6 || f.compare(f.size() - 6, 6, "_input") != 0)
      continue;
    std::string const stem = f.substr(0, f.size() - 6);
    if (SensorKind const *k = sensorKindOf(stem))
      inputs.emplace_back(k, stem);
  }
  std::sort(inputs.begin(), inputs.end(), [](auto const &a, auto const &b) {
    if (a.first != b.first)
      return a.first < b.first;
    return naturalLess(a.second, b.second);
  });
  unsigned perChip = 0;
  for (auto const &input : inputs) {
    if (++perChip > 256 || ++sensors > 4096)
      break;
    SensorKind const &k = *input.first;
    std::string const prefix = attrDir + "/" + input.second;
    std::optional<std::string> label = fs.text(prefix + "_label");
    std::string const guid = "sensor:" + idPart(chipId, 192) + ":" + input.second;
    DevicePtr d = makeDevice(guid, chip + " " + label.value_or(input.second), k.type, parent);
    addCapabilities(*d, "Sensor");
    d->setOsLocator(String(dir + "/" + input.second));
    d->setDescription(String(std::string(k.unit == std::string("°C")  ? "Temperature"
                                         : k.unit == std::string("V") ? "Voltage"
                                                                      : "Fan speed") +
                             " sensor " + input.second + " of " + chip));
    setText(*d, "Chip", chip, MODEL);
    setText(*d, "Label", label);
    setText(*d, lm::KEY_UNIT, std::string(k.unit));
    for (auto const &limit : k.limits)
      if (limit[0])
        setDouble(*d, limit[1], scaled(fs, prefix + limit[0], k));
    Record &r = ctx.add(d, Live::SENSOR, prefix);
    addLive(fs, r);
  }
}

} // namespace

void sensorsSource(Context &ctx) {
  Fs const &fs = ctx.fs;
  unsigned sensors = 0, zones = 0;
  bool const hwmon = fs.isDir("/sys/class/hwmon");
  bool const thermal = fs.isDir("/sys/class/thermal");
  if (!hwmon)
    ctx.problem("no hardware monitors (/sys/class/hwmon is absent)");
  else {
    std::vector<std::string> chips = fs.list("/sys/class/hwmon");
    std::sort(chips.begin(), chips.end(), naturalLess);
    for (std::string const &c : chips) {
      if (ctx.isCancelled())
        return;
      if (startsWith(c, "hwmon"))
        hwmonChip(ctx, c, sensors);
    }
  }
  if (!thermal)
    ctx.problem("no thermal zones (/sys/class/thermal is absent)");
  else {
    std::vector<std::string> names = fs.list("/sys/class/thermal");
    std::sort(names.begin(), names.end(), naturalLess);
    for (std::string const &zone : names) {
      if (!startsWith(zone, "thermal_zone") || !allDigits(zone, 12) || ++zones > 1024)
        continue;
      std::string const dir = "/sys/class/thermal/" + zone;
      std::string const type = fs.text(dir + "/type").value_or(zone);
      DevicePtr d = makeDevice("thermal:" + zone + ":" + idPart(type, 64), "Thermal zone " + type,
                               lm::THERMAL_ZONE, "system");
      addCapabilities(*d, "Sensor");
      d->setOsLocator(String(dir));
      d->setDescription(String("Thermal zone " + zone + " (" + type + ")"));
      setText(*d, "ZoneType", type, MODEL);
      setText(*d, lm::KEY_UNIT, std::string("°C"));
      SensorKind const &k = kSensorKinds[0];
      for (unsigned t = 0; t < 32; ++t) {
        std::string const trip = dir + "/trip_point_" + std::to_string(t);
        std::optional<std::string> tripType = fs.text(trip + "_type");
        if (!tripType)
          break;
        if (*tripType == "critical")
          setDouble(*d, lm::KEY_CRITICAL, scaled(fs, trip + "_temp", k));
        else if (*tripType == "hot")
          setDouble(*d, lm::KEY_MAX, scaled(fs, trip + "_temp", k));
      }
      Record &r = ctx.add(d, Live::THERMAL, dir);
      addLive(fs, r);
    }
  }
  if ((hwmon || thermal) && sensors == 0 && zones == 0)
    ctx.problem("no sensors found in /sys/class/hwmon or /sys/class/thermal");
}

// --- live values, alerts, indicators
// -------------------------------------------------------------------

std::vector<char const *> const &liveKeys(Live live) {
  static std::vector<char const *> const none;
  static std::vector<char const *> const sensor = {lm::KEY_READING};
  static std::vector<char const *> const network = {lm::KEY_LINK, lm::KEY_SPEED_MBPS, "OperState",
                                                    "Carrier", "Duplex"};
  static std::vector<char const *> const battery = {lm::KEY_CAPACITY_PERCENT, lm::KEY_STATUS,
                                                    lm::KEY_FULL_CAPACITY, lm::KEY_HEALTH_PERCENT,
                                                    "RemainingCapacity"};
  static std::vector<char const *> const mains = {lm::KEY_ONLINE};
  switch (live) {
  case Live::SENSOR:
  case Live::THERMAL:
    return sensor;
  case Live::NETWORK:
    return network;
  case Live::BATTERY:
    return battery;
  case Live::MAINS:
    return mains;
  default:
    return none;
  }
}

std::vector<PropertyPtr> liveProperties(Fs const &fs, Record const &record) {
  std::vector<PropertyPtr> out;
  std::string const &dir = record.path;
  auto add = [&](char const *key, ValueImp const &v, unsigned cat = VOLATILE) {
    out.push_back(property(key, v, cat | VOLATILE));
  };
  switch (record.live) {
  case Live::SENSOR: {
    SensorKind const *k = sensorKindOf(dir);
    if (!k)
      break;
    if (std::optional<double> v = scaled(fs, dir + "_input", *k))
      add(lm::KEY_READING, ValueImp(*v, zel::DataTypeImp::DOUBLE), SUMMARY);
    break;
  }
  case Live::THERMAL:
    if (std::optional<double> v = scaled(fs, dir + "/temp", kSensorKinds[0]))
      add(lm::KEY_READING, ValueImp(*v, zel::DataTypeImp::DOUBLE), SUMMARY);
    break;
  case Live::NETWORK: {
    std::optional<std::string> oper = fs.text(dir + "/operstate");
    std::optional<unsigned long long> carrier = fs.u64(dir + "/carrier");
    // Some drivers never set an operational state ("unknown"): the carrier
    // then tells whether the link is up.
    bool up = oper ? (*oper == "up" || (*oper == "unknown" && carrier && *carrier == 1))
                   : (carrier && *carrier == 1);
    add(lm::KEY_LINK, ValueImp(String(up ? "up" : "down")), SUMMARY);
    if (oper)
      add("OperState", ValueImp(String(*oper)));
    if (carrier && *carrier <= 1)
      add("Carrier", ValueImp(*carrier == 1));
    if (up) {
      std::optional<long long> speed = fs.i64(dir + "/speed");
      if (speed && *speed > 0 && *speed < 100000000)
        add(lm::KEY_SPEED_MBPS, ValueImp(static_cast<unsigned int>(*speed)), SUMMARY);
      std::optional<std::string> duplex = fs.text(dir + "/duplex");
      if (duplex && (*duplex == "full" || *duplex == "half"))
        add("Duplex", ValueImp(String(*duplex)));
    }
    break;
  }
  case Live::BATTERY: {
    bool const energy = fs.exists(dir + "/energy_full_design") || fs.exists(dir + "/energy_full");
    std::string const unit = energy ? "/energy" : "/charge";
    std::optional<unsigned long long> now = fs.u64(dir + unit + "_now"),
                                      full = fs.u64(dir + unit + "_full"),
                                      design = fs.u64(dir + unit + "_full_design"),
                                      capacity = fs.u64(dir + "/capacity");
    if (!capacity && now && full && *full > 0 && *now <= *full * 2)
      capacity = (*now * 100 + *full / 2) / *full;
    if (capacity && *capacity <= 100)
      add(lm::KEY_CAPACITY_PERCENT, ValueImp(static_cast<unsigned int>(*capacity)), SUMMARY);
    if (std::optional<std::string> status = fs.text(dir + "/status"))
      add(lm::KEY_STATUS, ValueImp(String(*status)), SUMMARY);
    if (now)
      add("RemainingCapacity", ValueImp(static_cast<unsigned long long>(*now)));
    if (full)
      add(lm::KEY_FULL_CAPACITY, ValueImp(static_cast<unsigned long long>(*full)));
    if (full && design && *design > 0 && *full <= *design * 10)
      add(lm::KEY_HEALTH_PERCENT,
          ValueImp(static_cast<unsigned int>((*full * 100 + *design / 2) / *design)), SUMMARY);
    break;
  }
  case Live::MAINS: {
    std::optional<unsigned long long> online = fs.u64(dir + "/online");
    if (online && *online <= 2) // 2: online on a USB-PD source that can also sink
      add(lm::KEY_ONLINE, ValueImp(*online != 0), SUMMARY);
    break;
  }
  default:
    break;
  }
  return out;
}

namespace {

std::optional<double> doubleProperty(zel::IDeviceImp const &d, char const *key) {
  PropertyPtr p = d.property(key);
  if (!p || p->value().type() != zel::DataTypeImp::DOUBLE)
    return std::nullopt;
  return p->value().valueDouble();
}

std::optional<unsigned long long> integerProperty(zel::IDeviceImp const &d, char const *key) {
  PropertyPtr p = d.property(key);
  if (!p || (p->value().type() != zel::DataTypeImp::UINT32 &&
             p->value().type() != zel::DataTypeImp::UINT64))
    return std::nullopt;
  return static_cast<unsigned long long>(p->value().value());
}

} // namespace

std::optional<zel::IAlertImp> alertFor(Record const &record, bool timeIsReal) {
  zel::IDeviceImp const &d = *record.device;
  std::string const name = d.name().str();
  std::string const guid = d.guid().str();
  zel::IAlertImp alert;
  if (record.live == Live::SENSOR || record.live == Live::THERMAL) {
    std::optional<double> reading = doubleProperty(d, lm::KEY_READING);
    std::optional<double> critical = doubleProperty(d, lm::KEY_CRITICAL);
    if (!reading || !critical || *reading < *critical)
      return std::nullopt;
    PropertyPtr unitProperty = d.property(lm::KEY_UNIT);
    std::string const unit =
        unitProperty && unitProperty->value().type() == zel::DataTypeImp::STRING
            ? unitProperty->value().valueString().str()
            : "";
    std::string const value = number(*reading) + (unit.empty() ? "" : " " + unit);
    std::string const limit = number(*critical) + (unit.empty() ? "" : " " + unit);
    alert = zel::IAlertImp(String("alert:overcritical:" + guid), "SensorOverCritical",
                           zel::AlertTypeImp::CRITICAL,
                           zel::LocalizedString("alert.SensorOverCritical.title",
                                                String(name + " is over its critical limit")),
                           zel::LocalizedString("alert.SensorOverCritical.message",
                                                String(name + " reads " + value +
                                                       "; its critical limit is " + limit + ".")));
    alert.addValue("Cause", String("reading " + value + ", critical limit " + limit));
  } else if (record.live == Live::BATTERY) {
    std::optional<unsigned long long> health = integerProperty(d, lm::KEY_HEALTH_PERCENT);
    if (!health || *health >= 50)
      return std::nullopt;
    std::string const pct = std::to_string(*health) + " %";
    alert = zel::IAlertImp(
        String("alert:batteryworn:" + guid), "BatteryWorn", zel::AlertTypeImp::HARDWARE_ISSUE,
        zel::LocalizedString("alert.BatteryWorn.title",
                             String(name + " holds less than half its design capacity")),
        zel::LocalizedString("alert.BatteryWorn.message",
                             String(name + " holds " + pct +
                                    " of the charge it was designed for; it is worn and may "
                                    "need replacing.")));
    alert.addValue("Cause", String("full capacity " + pct + " of design"));
  } else {
    return std::nullopt;
  }
  alert.setDeviceGuid(d.guid());
  alert.addValue("Device", d.name());
  alert.setTimeTriggered(static_cast<long long>(std::time(nullptr)));
  alert.setTimeIsReal(timeIsReal);
  return alert;
}

std::optional<zel::IndicatorImp> indicatorFor(Record const &record) {
  char const *key = nullptr;
  unsigned interval = 2;
  switch (record.live) {
  case Live::SENSOR: {
    SensorKind const *k = sensorKindOf(record.path);
    key = !k                      ? nullptr
          : k == &kSensorKinds[0] ? "Temperature"
          : k == &kSensorKinds[1] ? "FanSpeed"
                                  : "Voltage";
    break;
  }
  case Live::THERMAL:
    key = "Temperature";
    break;
  case Live::BATTERY:
    key = "BatteryCharge";
    interval = 10;
    break;
  default:
    break;
  }
  if (!key)
    return std::nullopt;
  zel::IDeviceImp const &d = *record.device;
  zel::IndicatorImp ind(String("indicator:" + d.guid().str()), LinuxDevices::INDICATOR_MODULE, key,
                        d.name(), d.guid());
  ind.setLocalizedDescription(String(std::string(key) + " of " + d.name().str()));
  ind.setInterval(interval);
  return ind;
}

} // namespace lxd
} // namespace morvain
