// Reading /sys and /proc under a root folder without trusting what is there,
// the text helpers, PCI names from libpci, and the snapshot bookkeeping.

// libpci's header has no C++ linkage block of its own.
extern "C" {
#include <pci/pci.h>
}

#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <dirent.h>

#include <algorithm>
#include <cerrno>
#include <csetjmp>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "LinuxDevicesDetail.h"
#include "zel/Logger.h"
#include "zel/String.h"

namespace morvain {
namespace lxd {

namespace {

zel::Logger &logger() { return zel::LogFactory::getLogger("Morvain.Linux"); }

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\0'; }

std::string_view trimmed(std::string_view s) {
  while (!s.empty() && isBlank(s.front()))
    s.remove_prefix(1);
  while (!s.empty() && isBlank(s.back()))
    s.remove_suffix(1);
  return s;
}

int digitValue(char c) {
  if (c >= '0' && c <= '9')
    return c - '0';
  if (c >= 'a' && c <= 'z')
    return c - 'a' + 10;
  if (c >= 'A' && c <= 'Z')
    return c - 'A' + 10;
  return 99;
}

/// Digits only, no sign; nullopt on anything else or overflow.
std::optional<unsigned long long> parseDigits(std::string_view s, int base) {
  if (base == 16 && s.size() > 2 && s[0] == '0' && (s[1] == 'x' || s[1] == 'X'))
    s.remove_prefix(2);
  if (s.empty())
    return std::nullopt;
  unsigned long long value = 0;
  for (char c : s) {
    int d = digitValue(c);
    if (d >= base)
      return std::nullopt;
    if (__builtin_mul_overflow(value, static_cast<unsigned long long>(base), &value) ||
        __builtin_add_overflow(value, static_cast<unsigned long long>(d), &value))
      return std::nullopt;
  }
  return value;
}

} // namespace

// --- text ---------------------------------------------------------------------------

std::string cleanText(std::string_view raw, std::size_t max) {
  std::size_t eol = raw.find('\n');
  if (eol != std::string_view::npos)
    raw = raw.substr(0, eol);
  if (raw.size() > 4 * max)
    raw = raw.substr(0, 4 * max);
  std::string bytes;
  bytes.reserve(raw.size());
  for (char c : raw) {
    unsigned char u = static_cast<unsigned char>(c);
    bytes += (u < 0x20 || u == 0x7f) ? ' ' : c;
  }
  // Bad UTF-8 sequences become U+FFFD, so every text we hand out is valid.
  std::string valid = zel::String::isValidUTF8(zel::String(bytes))
                          ? bytes
                          : zel::String::UTF8Decode(zel::String(bytes)).str();
  std::string out;
  out.reserve(valid.size());
  bool blank = false;
  for (char c : valid) {
    if (c == ' ') {
      blank = !out.empty();
      continue;
    }
    if (blank)
      out += ' ';
    blank = false;
    out += c;
  }
  if (out.size() > max) {
    std::size_t cut = max;
    while (cut > 0 && (static_cast<unsigned char>(out[cut]) & 0xC0) == 0x80)
      --cut;
    out.resize(cut);
    while (!out.empty() && out.back() == ' ')
      out.pop_back();
  }
  return out;
}

std::optional<long long> parseInt(std::string_view text, int base) {
  std::string_view s = trimmed(text);
  bool negative = false;
  if (!s.empty() && (s[0] == '-' || s[0] == '+')) {
    negative = s[0] == '-';
    s.remove_prefix(1);
  }
  std::optional<unsigned long long> v = parseDigits(s, base);
  if (!v)
    return std::nullopt;
  if (negative) {
    if (*v > static_cast<unsigned long long>(LLONG_MAX) + 1ULL)
      return std::nullopt;
    return *v == static_cast<unsigned long long>(LLONG_MAX) + 1ULL ? LLONG_MIN
                                                                   : -static_cast<long long>(*v);
  }
  if (*v > static_cast<unsigned long long>(LLONG_MAX))
    return std::nullopt;
  return static_cast<long long>(*v);
}

std::optional<unsigned long long> parseUInt(std::string_view text, int base) {
  std::string_view s = trimmed(text);
  if (!s.empty() && s[0] == '+')
    s.remove_prefix(1);
  return parseDigits(s, base);
}

std::optional<std::vector<unsigned>> parseCpuList(std::string_view text, unsigned limit) {
  std::vector<unsigned> out;
  std::string_view s = trimmed(text);
  while (!s.empty()) {
    std::size_t comma = s.find(',');
    std::string_view part = trimmed(s.substr(0, comma));
    s = comma == std::string_view::npos ? std::string_view() : s.substr(comma + 1);
    if (part.empty())
      return std::nullopt;
    std::size_t dash = part.find('-');
    std::optional<unsigned long long> a = parseUInt(part.substr(0, dash));
    std::optional<unsigned long long> b =
        dash == std::string_view::npos ? a : parseUInt(part.substr(dash + 1));
    if (!a || !b || *a > *b || *b - *a >= limit || out.size() + (*b - *a) >= limit ||
        *b >= limit * 16ULL)
      return std::nullopt;
    for (unsigned long long i = *a; i <= *b; ++i)
      out.push_back(static_cast<unsigned>(i));
  }
  std::sort(out.begin(), out.end());
  out.erase(std::unique(out.begin(), out.end()), out.end());
  return out;
}

std::string formatCpuList(std::vector<unsigned> const &cpus) {
  std::string out;
  for (std::size_t i = 0; i < cpus.size();) {
    std::size_t j = i;
    while (j + 1 < cpus.size() && cpus[j + 1] == cpus[j] + 1)
      ++j;
    if (!out.empty())
      out += ',';
    out += std::to_string(cpus[i]);
    if (j > i)
      out += '-' + std::to_string(cpus[j]);
    i = j + 1;
  }
  return out;
}

std::string idPart(std::string_view text, std::size_t max) {
  std::string out;
  for (char c : trimmed(text)) {
    if (out.size() >= max)
      break;
    unsigned char u = static_cast<unsigned char>(c);
    out += (u > 0x20 && u < 0x7f) ? c : '_';
  }
  return out;
}

std::string humanBytes(unsigned long long bytes) {
  static char const *const units[] = {"bytes", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
  double v = static_cast<double>(bytes);
  unsigned u = 0;
  while (v >= 1024.0 && u + 1 < sizeof units / sizeof *units) {
    v /= 1024.0;
    ++u;
  }
  char buf[48];
  if (u == 0)
    std::snprintf(buf, sizeof buf, "%llu bytes", bytes);
  else
    std::snprintf(buf, sizeof buf, "%.1f %s", v, units[u]);
  return buf;
}

// --- Fs -------------------------------------------------------------------------------

namespace {

std::string withoutTrailingSlash(std::string s) {
  while (!s.empty() && s.back() == '/')
    s.pop_back();
  return s;
}

} // namespace

Fs::Fs(std::string const &root) : m_root(withoutTrailingSlash(root)) {
  char buf[PATH_MAX];
  std::string const base = m_root.empty() ? "/" : m_root;
  m_realRoot = ::realpath(base.c_str(), buf) ? withoutTrailingSlash(buf) : m_root;
}

bool Fs::read(std::string const &rel, std::string &out, std::size_t max) const {
  out.clear();
  std::string const path = abs(rel);
  // Only regular files are opened at all: in a damaged tree a link may lead
  // to a device node, and opening some (a watchdog) already does something.
  struct stat st;
  if (::stat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode))
    return false;
  int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  if (fd < 0)
    return false;
  if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
    ::close(fd);
    return false;
  }
  // sysfs files report a size of 4096 whatever they hold and /proc files 0:
  // read until end of file, in steps, up to the cap.
  std::size_t const step = 4096;
  bool ok = true;
  while (out.size() < max) {
    std::size_t const at = out.size();
    std::size_t const want = std::min(step, max - at);
    out.resize(at + want);
    ssize_t n = ::read(fd, &out[at], want);
    if (n < 0 && errno == EINTR) {
      out.resize(at);
      continue;
    }
    if (n <= 0) {
      out.resize(at);
      // A failing attribute (EIO, ENODATA, EINVAL) is unreadable; an empty one
      // is empty.
      ok = n == 0;
      break;
    }
    out.resize(at + static_cast<std::size_t>(n));
  }
  ::close(fd);
  return ok;
}

std::optional<std::string> Fs::text(std::string const &rel) const {
  std::string raw;
  if (!read(rel, raw, 4096))
    return std::nullopt;
  std::string t = cleanText(raw);
  if (t.empty())
    return std::nullopt;
  return t;
}

std::optional<unsigned long long> Fs::u64(std::string const &rel, int base) const {
  std::string raw;
  if (!read(rel, raw, 256))
    return std::nullopt;
  return parseUInt(raw, base);
}

std::optional<long long> Fs::i64(std::string const &rel, int base) const {
  std::string raw;
  if (!read(rel, raw, 256))
    return std::nullopt;
  return parseInt(raw, base);
}

std::string Fs::whyUnreadable(std::string const &rel) const {
  std::string const path = abs(rel);
  if (::access(path.c_str(), F_OK) != 0)
    return "absent";
  int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  if (fd < 0)
    return errno == EACCES || errno == EPERM ? "not readable (needs root)" : "unreadable";
  ::close(fd);
  return "unreadable";
}

bool Fs::exists(std::string const &rel) const {
  struct stat st;
  return ::stat(abs(rel).c_str(), &st) == 0;
}

bool Fs::isDir(std::string const &rel) const {
  struct stat st;
  return ::stat(abs(rel).c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

std::vector<std::string> Fs::list(std::string const &rel) const {
  std::vector<std::string> names;
  DIR *dir = ::opendir(abs(rel).c_str());
  if (!dir)
    return names;
  while (dirent *e = ::readdir(dir)) {
    if (e->d_name[0] == '.' && (e->d_name[1] == 0 || (e->d_name[1] == '.' && e->d_name[2] == 0)))
      continue;
    names.emplace_back(e->d_name);
    if (names.size() >= 10000)
      break;
  }
  ::closedir(dir);
  std::sort(names.begin(), names.end());
  return names;
}

std::optional<std::string> Fs::realRel(std::string const &rel) const {
  char buf[PATH_MAX];
  if (!::realpath(abs(rel).c_str(), buf))
    return std::nullopt;
  std::string real(buf);
  if (m_realRoot.empty())
    return real;
  if (real.size() <= m_realRoot.size() || real.compare(0, m_realRoot.size(), m_realRoot) != 0 ||
      real[m_realRoot.size()] != '/')
    return std::nullopt;
  return real.substr(m_realRoot.size());
}

std::optional<std::string> Fs::linkName(std::string const &rel) const {
  char buf[PATH_MAX];
  ssize_t n = ::readlink(abs(rel).c_str(), buf, sizeof buf - 1);
  if (n <= 0)
    return std::nullopt;
  std::string target(buf, static_cast<std::size_t>(n));
  while (!target.empty() && target.back() == '/')
    target.pop_back();
  std::size_t slash = target.find_last_of('/');
  std::string name = cleanText(slash == std::string::npos ? target : target.substr(slash + 1), 64);
  if (name.empty())
    return std::nullopt;
  return name;
}

// --- PCI names ------------------------------------------------------------------------

namespace {

// libpci reports fatal trouble through an error callback that must not
// return. We leave the library through longjmp to the look-up that called it
// and never use that pci_access again: a failing name database costs the
// names, not the process.
thread_local std::jmp_buf *t_pciJump = nullptr;

void pciMessage(int priority, char const *format, va_list args) {
  char buf[512];
  std::vsnprintf(buf, sizeof buf, format, args);
  logger().log(priority, zel::String("libpci: ") + buf);
}

[[noreturn]] void pciError(char *format, ...) {
  va_list args;
  va_start(args, format);
  pciMessage(4, format, args);
  va_end(args);
  if (t_pciJump)
    std::longjmp(*t_pciJump, 1);
  std::abort(); // not reached: every call into libpci sets the jump first
}

void pciWarning(char *format, ...) {
  va_list args;
  va_start(args, format);
  pciMessage(2, format, args);
  va_end(args);
}

void pciDebug(char *, ...) {}

// Only plain data lives in the frames between setjmp and a longjmp.
char *guardedLookup(pci_access *access, char *buf, int size, int flags, int a, int b, int c, int d,
                    bool *failed) {
  std::jmp_buf jump;
  std::jmp_buf *previous = t_pciJump;
  if (setjmp(jump) != 0) {
    t_pciJump = previous;
    *failed = true;
    return nullptr;
  }
  t_pciJump = &jump;
  char *result = pci_lookup_name(access, buf, size, flags, a, b, c, d);
  t_pciJump = previous;
  return result;
}

} // namespace

PciNames::~PciNames() {
  if (m_access && !m_failed)
    pci_cleanup(m_access);
}

std::string PciNames::lookup(int flags, unsigned a, unsigned b, unsigned c, unsigned d) {
  std::lock_guard<std::mutex> lock(m_mutex);
  if (m_failed)
    return {};
  if (!m_access) {
    m_access = pci_alloc();
    if (!m_access) {
      m_failed = true;
      return {};
    }
    m_access->error = pciError;
    m_access->warning = pciWarning;
    m_access->debug = pciDebug;
  }
  char buf[256];
  bool failed = false;
  // Names come from pci.ids only (no udev hwdb): the same names for this
  // computer and for fixture trees, and a quicker first look-up.
  char *name = guardedLookup(
      m_access, buf, sizeof buf, flags | PCI_LOOKUP_NO_NUMBERS | PCI_LOOKUP_NO_HWDB,
      static_cast<int>(a), static_cast<int>(b), static_cast<int>(c), static_cast<int>(d), &failed);
  if (failed) {
    m_failed = true;
    return {};
  }
  return name ? cleanText(name) : std::string();
}

std::string PciNames::vendor(unsigned vendor) { return lookup(PCI_LOOKUP_VENDOR, vendor); }

std::string PciNames::device(unsigned vendor, unsigned device) {
  return lookup(PCI_LOOKUP_DEVICE, vendor, device);
}

std::string PciNames::subsystem(unsigned vendor, unsigned device, unsigned subVendor,
                                unsigned subDevice) {
  return lookup(PCI_LOOKUP_SUBSYSTEM | PCI_LOOKUP_DEVICE, vendor, device, subVendor, subDevice);
}

std::string PciNames::className(unsigned cls) { return lookup(PCI_LOOKUP_CLASS, cls); }

std::string PciNames::progIf(unsigned cls, unsigned progIf) {
  return lookup(PCI_LOOKUP_PROGIF, cls, progIf);
}

// --- snapshot and context ----------------------------------------------------------------

Record *Snapshot::find(std::string const &guid) {
  auto it = index.find(guid);
  return it == index.end() ? nullptr : &records[it->second];
}

void Snapshot::add(Record record) {
  std::string const guid = record.device->guid().str();
  auto it = index.find(guid);
  if (it != index.end()) {
    records[it->second] = std::move(record);
    return;
  }
  index.emplace(guid, records.size());
  records.push_back(std::move(record));
}

void Snapshot::remove(std::set<std::string> const &guids) {
  if (guids.empty())
    return;
  records.erase(
      std::remove_if(records.begin(), records.end(),
                     [&](Record const &r) { return guids.count(r.device->guid().str()) != 0; }),
      records.end());
  index.clear();
  for (std::size_t i = 0; i < records.size(); ++i)
    index.emplace(records[i].device->guid().str(), i);
  for (auto it = paths.begin(); it != paths.end();)
    it = guids.count(it->second) ? paths.erase(it) : std::next(it);
  for (auto it = alerts.begin(); it != alerts.end();)
    it = guids.count(it->second.deviceGuid().str()) ? alerts.erase(it) : std::next(it);
  for (IndicatorEntry &e : indicators)
    e.deviceGuids.erase(std::remove_if(e.deviceGuids.begin(), e.deviceGuids.end(),
                                       [&](std::string const &g) { return guids.count(g) != 0; }),
                        e.deviceGuids.end());
}

std::string Context::parentFor(std::string const &realPath) const {
  std::string path = realPath;
  while (true) {
    std::size_t slash = path.find_last_of('/');
    if (slash == std::string::npos || slash == 0)
      break;
    path.resize(slash);
    auto it = paths.find(path);
    if (it != paths.end())
      return it->second;
    if (knownPaths) {
      auto k = knownPaths->find(path);
      if (k != knownPaths->end())
        return k->second;
    }
  }
  return "system";
}

Record &Context::add(DevicePtr const &device, Live live, std::string const &path,
                     std::string const &entry) {
  std::string const guid = device->guid().str();
  if (taken.count(guid)) {
    for (unsigned n = 2;; ++n) {
      std::string const alt = guid + "#" + std::to_string(n);
      if (!taken.count(alt)) {
        device->setGuid(zel::String(alt));
        break;
      }
    }
  }
  taken.insert(device->guid().str());
  Record r;
  r.device = device;
  r.live = live;
  r.path = path;
  r.entry = entry;
  added.push_back(std::move(r));
  return added.back();
}

void Context::problem(std::string text) {
  if (std::find(problems.begin(), problems.end(), text) == problems.end())
    problems.push_back(std::move(text));
}

} // namespace lxd
} // namespace morvain
