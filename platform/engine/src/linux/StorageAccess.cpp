#include "linux/StorageAccess.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <linux/nvme_ioctl.h>
#include <scsi/sg.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <set>
#include <sstream>

namespace morvain {
namespace storage {

namespace {

constexpr std::size_t ALIGN = 4096;

std::string hexOffset(std::uint64_t v) {
  char buf[24];
  std::snprintf(buf, sizeof buf, "0x%" PRIx64, v);
  return buf;
}

std::string readFirstLine(std::string const &path) {
  std::ifstream in(path);
  std::string line;
  if (in)
    std::getline(in, line);
  while (!line.empty() && (line.back() == '\n' || line.back() == ' ' || line.back() == '\r'))
    line.pop_back();
  return line;
}

bool fileExists(std::string const &path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0;
}

std::string errorText(int error) { return std::strerror(error); }

Access accessOf(int error) {
  switch (error) {
  case EACCES:
  case EPERM:
  case EROFS:
    return Access::NO_PERMISSION;
  case ENOENT:
  case ENXIO:
  case ENODEV:
  case ENOTDIR:
    return Access::NO_DEVICE;
  case ENOMEDIUM:
    return Access::NO_MEDIA;
  default:
    return Access::FAILED;
  }
}

std::uint64_t mix(std::uint64_t x) {
  x += 0x9e3779b97f4a7c15ull;
  x = (x ^ (x >> 30)) * 0xbf58476d1ce4e5b9ull;
  x = (x ^ (x >> 27)) * 0x94d049bb133111ebull;
  return x ^ (x >> 31);
}

unsigned char *alignedBuffer(std::size_t bytes) {
  void *p = nullptr;
  if (posix_memalign(&p, ALIGN, bytes) != 0)
    return nullptr;
  std::memset(p, 0, bytes);
  return static_cast<unsigned char *>(p);
}

// "major:minor" of the block device `name` and of its partitions.
std::set<std::string> deviceNumbers(std::string const &root, std::string const &name) {
  std::set<std::string> out;
  std::string const base = root + "/sys/class/block/" + name;
  std::string const own = readFirstLine(base + "/dev");
  if (!own.empty())
    out.insert(own);
  if (DIR *dir = opendir(base.c_str())) {
    while (dirent *e = readdir(dir)) {
      std::string const child = e->d_name;
      if (child.compare(0, name.size(), name) != 0 || child == name)
        continue;
      if (!fileExists(base + "/" + child + "/partition"))
        continue;
      std::string const dev = readFirstLine(base + "/" + child + "/dev");
      if (!dev.empty())
        out.insert(dev);
    }
    closedir(dir);
  }
  return out;
}

std::string unescapeMountPath(std::string const &s) {
  std::string out;
  for (std::size_t i = 0; i < s.size(); ++i) {
    if (s[i] == '\\' && i + 3 < s.size()) {
      int v = 0;
      bool ok = true;
      for (int k = 1; k <= 3; ++k) {
        char const c = s[i + k];
        if (c < '0' || c > '7') {
          ok = false;
          break;
        }
        v = v * 8 + (c - '0');
      }
      if (ok) {
        out += static_cast<char>(v);
        i += 3;
        continue;
      }
    }
    out += s[i];
  }
  return out;
}

// Folders where a temporary file would land on one of `numbers`: the usual
// places for temporary files first, then the writable mount points.
std::vector<std::string> candidateFolders(std::string const &root,
                                          std::set<std::string> const &numbers) {
  std::vector<std::string> out;
  auto onDisk = [&](std::string const &dir) {
    struct stat st;
    if (::stat(dir.c_str(), &st) != 0 || !S_ISDIR(st.st_mode))
      return false;
    std::string const number =
        std::to_string(major(st.st_dev)) + ":" + std::to_string(minor(st.st_dev));
    return numbers.count(number) != 0;
  };
  std::vector<std::string> usual;
  if (char const *tmp = std::getenv("TMPDIR"))
    usual.push_back(tmp);
  usual.push_back("/var/tmp");
  usual.push_back("/tmp");
  for (auto const &dir : usual)
    if (onDisk(root + dir) && std::find(out.begin(), out.end(), root + dir) == out.end())
      out.push_back(root + dir);
  std::ifstream in(root + "/proc/self/mountinfo");
  std::string line;
  while (std::getline(in, line)) {
    std::istringstream fields(line);
    std::string id, parent, number, mountRoot, point, options;
    if (!(fields >> id >> parent >> number >> mountRoot >> point >> options))
      continue;
    if (numbers.count(number) == 0)
      continue;
    std::istringstream opts(options);
    std::string opt;
    bool rw = false;
    while (std::getline(opts, opt, ','))
      rw = rw || opt == "rw";
    std::string const dir = root + unescapeMountPath(point);
    if (rw && std::find(out.begin(), out.end(), dir) == out.end())
      out.push_back(dir);
  }
  return out;
}

int openTemporary(std::string const &dir, int &error) {
#ifdef O_TMPFILE
  int fd = ::open(dir.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
  if (fd >= 0)
    return fd;
  error = errno;
  if (error == EACCES || error == EPERM || error == EROFS)
    return -1;
#endif
  std::string name = dir + "/.morvain-read-test-XXXXXX";
  std::vector<char> buf(name.begin(), name.end());
  buf.push_back('\0');
  int const fd2 = mkostemp(buf.data(), O_CLOEXEC);
  if (fd2 < 0) {
    error = errno;
    return -1;
  }
  ::unlink(buf.data());
  return fd2;
}

} // namespace

Target::~Target() {
  if (fd >= 0)
    ::close(fd);
}

std::string blockName(std::string const &path) {
  auto const slash = path.rfind("/dev/");
  if (slash == std::string::npos)
    return std::string();
  return path.substr(slash + 5);
}

Access openForReading(std::string const &path, Target &target, std::string &message) {
  struct stat st;
  if (::stat(path.c_str(), &st) != 0) {
    int const e = errno;
    message = path + ": " + errorText(e);
    return accessOf(e);
  }
  if (!S_ISBLK(st.st_mode) && !S_ISREG(st.st_mode)) {
    message = path + " is neither a block device nor a file";
    return Access::FAILED;
  }
  int fd = ::open(path.c_str(), O_RDONLY | O_DIRECT | O_CLOEXEC);
  bool direct = fd >= 0;
  if (fd < 0 && errno == EINVAL) {
    // The filesystem or driver does not do direct I/O: read through the
    // page cache and drop it before each read instead.
    fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  }
  if (fd < 0) {
    int const e = errno;
    message = path + ": " + errorText(e);
    return accessOf(e);
  }
  if (target.fd >= 0)
    ::close(target.fd);
  target.fd = fd;
  target.direct = direct;
  target.path = path;
  target.knownPattern = false;
  target.isDevice = S_ISBLK(st.st_mode);
  if (target.isDevice) {
    std::uint64_t bytes = 0;
    int sector = 512;
    if (ioctl(fd, BLKGETSIZE64, &bytes) != 0) {
      int const e = errno;
      message = path + ": size unknown: " + errorText(e);
      return accessOf(e) == Access::NO_MEDIA ? Access::NO_MEDIA : Access::FAILED;
    }
    if (ioctl(fd, BLKSSZGET, &sector) != 0 || sector <= 0)
      sector = 512;
    target.size = bytes;
    target.sectorSize = static_cast<std::uint32_t>(sector);
    if (bytes == 0) {
      message = path + " has no medium (size 0)";
      return Access::NO_MEDIA;
    }
  } else {
    target.size = static_cast<std::uint64_t>(st.st_size);
    target.sectorSize = 512;
  }
  return Access::OK;
}

std::uint64_t patternWord(std::uint64_t offset) { return mix(offset ^ 0x6d6f727661696eull); }

Access prepareTemporaryFile(std::string const &root, std::string const &block, std::uint64_t bytes,
                            Target &target, std::string &message,
                            std::function<bool(double)> const &progress) {
  std::set<std::string> const numbers = deviceNumbers(root, block);
  if (numbers.empty()) {
    message = "/sys/class/block/" + block + " is not there";
    return Access::NO_DEVICE;
  }
  std::vector<std::string> const folders = candidateFolders(root, numbers);
  if (folders.empty()) {
    message = "no filesystem of " + block + " is mounted for writing";
    return Access::NO_PERMISSION;
  }
  int fd = -1;
  std::string folder;
  std::string refusals;
  for (auto const &dir : folders) {
    int error = 0;
    fd = openTemporary(dir, error);
    if (fd >= 0) {
      folder = dir;
      break;
    }
    refusals += (refusals.empty() ? "" : "; ") + dir + ": " + errorText(error);
  }
  if (fd < 0) {
    message = "no writable folder on a filesystem of " + block + " (" + refusals + ")";
    return Access::NO_PERMISSION;
  }
  struct statvfs vfs;
  std::uint64_t freeBytes = 0;
  if (fstatvfs(fd, &vfs) == 0)
    freeBytes = std::uint64_t(vfs.f_bavail) * vfs.f_frsize;
  // Never take more than half of the free space: the test must not be the
  // reason a filesystem fills up.
  std::uint64_t const mib = 1 << 20;
  std::uint64_t const size = std::min(bytes, freeBytes / 2) / mib * mib;
  if (size < mib) {
    ::close(fd);
    message = folder + " has too little free space for a test file (" +
              std::to_string(freeBytes / mib) + " MiB free)";
    return Access::FAILED;
  }
  unsigned char *buffer = alignedBuffer(mib);
  if (!buffer) {
    ::close(fd);
    message = "out of memory";
    return Access::FAILED;
  }
  for (std::uint64_t at = 0; at < size; at += mib) {
    auto *words = reinterpret_cast<std::uint64_t *>(buffer);
    for (std::size_t i = 0; i < mib / 8; ++i)
      words[i] = patternWord(at + i * 8);
    std::size_t done = 0;
    while (done < mib) {
      ssize_t const n = ::pwrite(fd, buffer + done, mib - done, static_cast<off_t>(at + done));
      if (n < 0 && errno == EINTR)
        continue;
      if (n <= 0) {
        int const e = n < 0 ? errno : EIO;
        std::free(buffer);
        ::close(fd);
        message = "writing the test file in " + folder + " failed: " + errorText(e);
        return Access::FAILED;
      }
      done += static_cast<std::size_t>(n);
    }
    if (progress && !progress(double(at + mib) / double(size))) {
      std::free(buffer);
      ::close(fd);
      message = "stopped while writing the test file";
      return Access::FAILED;
    }
  }
  std::free(buffer);
  // On disk, out of the page cache, and read from now on with O_DIRECT
  // where the filesystem allows: the reads then come from the disk.
  fdatasync(fd);
  posix_fadvise(fd, 0, 0, POSIX_FADV_DONTNEED);
  int const flags = fcntl(fd, F_GETFL);
  bool const direct = flags >= 0 && fcntl(fd, F_SETFL, flags | O_DIRECT) == 0;
  if (target.fd >= 0)
    ::close(target.fd);
  target.fd = fd;
  target.size = size;
  target.sectorSize = 512;
  target.isDevice = false;
  target.direct = direct;
  target.knownPattern = true;
  target.path = folder;
  return Access::OK;
}

Reader::Reader(Target &target, std::size_t chunkBytes) : m_target(target) {
  m_chunk = std::max<std::size_t>(ALIGN, (chunkBytes + ALIGN - 1) / ALIGN * ALIGN);
  // One spare page: a read rounded up to whole sectors may pass the chunk.
  m_first = alignedBuffer(m_chunk + ALIGN);
  m_second = alignedBuffer(m_chunk + ALIGN);
}

Reader::~Reader() {
  std::free(m_first);
  std::free(m_second);
}

std::string Reader::where(std::uint64_t offset) const {
  std::string text = "offset " + hexOffset(offset);
  if (m_target.isDevice)
    text += " (sector " + std::to_string(offset / m_target.sectorSize) + ")";
  else if (m_target.knownPattern)
    text += " of the test file";
  return text;
}

ssize_t Reader::readAt(unsigned char *into, std::uint64_t offset, std::size_t length) {
  std::size_t request = length;
  if (m_target.direct) {
    std::size_t const unit = std::max<std::size_t>(512, m_target.sectorSize);
    request = (length + unit - 1) / unit * unit;
  } else {
    posix_fadvise(m_target.fd, static_cast<off_t>(offset), static_cast<off_t>(length),
                  POSIX_FADV_DONTNEED);
  }
  if (failRead) {
    if (int const e = failRead(offset, request)) {
      errno = e;
      return -1;
    }
  }
  std::size_t done = 0;
  while (done < request) {
    ssize_t const n =
        ::pread(m_target.fd, into + done, request - done, static_cast<off_t>(offset + done));
    if (n < 0 && errno == EINTR)
      continue;
    if (n < 0)
      return -1;
    if (n == 0)
      break;
    done += static_cast<std::size_t>(n);
  }
  return static_cast<ssize_t>(std::min(done, length));
}

ssize_t Reader::readOnce(std::uint64_t offset, std::size_t length) {
  if (!m_first)
    return -1;
  length = std::min<std::size_t>(length, m_chunk);
  return readAt(m_first, offset, length);
}

bool Reader::locateReadError(std::uint64_t offset, std::size_t length, int error, Fault &fault) {
  // Narrow a failed read down to the first sector that fails alone.
  std::size_t const unit =
      m_target.isDevice ? std::max<std::size_t>(512, m_target.sectorSize) : ALIGN;
  fault.kind = Fault::READ_ERROR;
  for (std::size_t at = 0; at < length; at += unit) {
    ssize_t const n = readAt(m_second, offset + at, std::min(unit, length - at));
    if (n < 0) {
      fault.offset = offset + at;
      fault.error = errno;
      fault.message = "read error at " + where(fault.offset) + ": " + errorText(fault.error);
      return false;
    }
    if (static_cast<std::size_t>(n) < std::min(unit, length - at)) {
      fault.offset = offset + at + static_cast<std::size_t>(n);
      fault.error = EIO;
      fault.message = "short read at " + where(fault.offset) + ": the data ends early";
      return false;
    }
  }
  fault.offset = offset;
  fault.error = error;
  fault.message = "read error in the " + std::to_string(length / 1024) + " KiB at " +
                  where(offset) + ": " + errorText(error) +
                  " (read again sector by sector, every sector read)";
  return false;
}

bool Reader::readVerified(std::uint64_t offset, std::size_t length, Fault &fault) {
  if (!m_first || !m_second) {
    fault = Fault{Fault::READ_ERROR, offset, ENOMEM, "out of memory for the read buffers"};
    return false;
  }
  if (offset >= m_target.size)
    return true;
  length = static_cast<std::size_t>(
      std::min<std::uint64_t>(std::min(length, m_chunk), m_target.size - offset));
  if (m_target.knownPattern) {
    if (beforeVerifyRead)
      beforeVerifyRead(m_target.fd, offset, length);
    ssize_t const n = readAt(m_first, offset, length);
    if (n < 0 || static_cast<std::size_t>(n) < length)
      return locateReadError(offset, length, n < 0 ? errno : EIO, fault);
    auto const *words = reinterpret_cast<std::uint64_t const *>(m_first);
    for (std::size_t i = 0; i < length / 8; ++i) {
      std::uint64_t const expected = patternWord(offset + i * 8);
      if (words[i] != expected) {
        std::size_t bad = 0;
        for (std::size_t j = i; j < length / 8; ++j)
          bad += words[j] != patternWord(offset + j * 8);
        fault.kind = Fault::MISMATCH;
        fault.offset = offset + i * 8;
        fault.error = 0;
        fault.message = "data read at " + where(fault.offset) + " is " + hexOffset(words[i]) +
                        ", written was " + hexOffset(expected) + " (" + std::to_string(bad) +
                        " words of the " + std::to_string(length / 1024) + " KiB read differ)";
        return false;
      }
    }
    return true;
  }
  ssize_t n = readAt(m_first, offset, length);
  if (n < 0 || static_cast<std::size_t>(n) < length)
    return locateReadError(offset, length, n < 0 ? errno : EIO, fault);
  if (beforeVerifyRead)
    beforeVerifyRead(m_target.fd, offset, length);
  n = readAt(m_second, offset, length);
  if (n < 0 || static_cast<std::size_t>(n) < length)
    return locateReadError(offset, length, n < 0 ? errno : EIO, fault);
  if (std::memcmp(m_first, m_second, length) == 0)
    return true;
  std::size_t i = 0;
  while (m_first[i] == m_second[i])
    ++i;
  std::size_t const unit = m_target.isDevice ? m_target.sectorSize : 512;
  std::size_t sectors = 0;
  for (std::size_t s = i / unit * unit; s < length; s += unit)
    sectors += std::memcmp(m_first + s, m_second + s, std::min(unit, length - s)) != 0;
  fault.kind = Fault::MISMATCH;
  fault.offset = offset + i;
  fault.error = 0;
  char bytes[64];
  std::snprintf(bytes, sizeof bytes, "0x%02x then 0x%02x", m_first[i], m_second[i]);
  fault.message = "two reads of " + where(fault.offset) + " returned different data (byte " +
                  bytes + "; " + std::to_string(sectors) + " blocks of " + std::to_string(unit) +
                  " bytes differ in the " + std::to_string(length / 1024) + " KiB read)";
  return false;
}

// ---- health ----------------------------------------------------------------

namespace {

std::uint64_t le(unsigned char const *p, int bytes) {
  std::uint64_t v = 0;
  for (int i = bytes - 1; i >= 0; --i)
    v = (v << 8) | p[i];
  return v;
}

// The low 64 bits of a 128-bit little-endian counter; saturated when the
// high half is set (no disk gets there, but a broken log might say so).
double counter128(unsigned char const *p) {
  if (le(p + 8, 8) != 0)
    return 1.8446744073709552e19;
  return double(le(p, 8));
}

void nvmeHealth(std::string const &root, std::string const &block, HealthReport &report) {
  std::string controller;
  char link[4096];
  std::string const devLink = root + "/sys/class/block/" + block + "/device";
  ssize_t const n = ::readlink(devLink.c_str(), link, sizeof link - 1);
  if (n > 0) {
    link[n] = '\0';
    std::string const target = link;
    controller = target.substr(target.rfind('/') + 1);
  }
  if (controller.compare(0, 4, "nvme") != 0) {
    // nvme<c>n<ns>: the controller is the part before the namespace.
    auto const pos = block.find('n', 4);
    controller = block.substr(0, pos);
  }
  std::string const sys = root + "/sys/class/nvme/" + controller;
  std::string const state = readFirstLine(sys + "/state");
  if (!state.empty()) {
    report.readable = true;
    report.interface = "NVMe controller state";
    if (state == "dead")
      report.findings.push_back({HealthFinding::FAILURE, "the NVMe controller " + controller +
                                                             " is dead (state \"dead\")"});
    else if (state != "live")
      report.findings.push_back(
          {HealthFinding::WARNING,
           "the NVMe controller " + controller + " is in state \"" + state + "\", not \"live\""});
  }
  std::string const node = root + "/dev/" + controller;
  int const fd = ::open(node.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    int const e = errno;
    if (accessOf(e) == Access::NO_PERMISSION)
      report.unreadable = HealthReport::NO_PERMISSION;
    report.notes.push_back("the NVMe SMART / health log is not readable: " + node + ": " +
                           errorText(e));
    return;
  }
  unsigned char log[512];
  std::memset(log, 0, sizeof log);
  nvme_admin_cmd cmd;
  std::memset(&cmd, 0, sizeof cmd);
  cmd.opcode = 0x02;      // Get Log Page
  cmd.nsid = 0xffffffffu; // the controller as a whole
  cmd.addr = reinterpret_cast<std::uintptr_t>(log);
  cmd.data_len = sizeof log;
  cmd.cdw10 = ((sizeof log / 4 - 1) << 16) | 0x02; // dwords - 1, log 02h: SMART / health
  int const rc = ioctl(fd, NVME_IOCTL_ADMIN_CMD, &cmd);
  int const e = errno;
  ::close(fd);
  if (rc != 0) {
    if (rc < 0 && accessOf(e) == Access::NO_PERMISSION)
      report.unreadable = HealthReport::NO_PERMISSION;
    report.notes.push_back(
        "the NVMe SMART / health log is not readable: " +
        (rc < 0 ? errorText(e) : "the controller answered status " + std::to_string(rc)));
    return;
  }
  parseNvmeHealthLog(log, report);
}

void ataHealth(std::string const &root, std::string const &block, HealthReport &report) {
  std::string const node = root + "/dev/" + block;
  int const fd = ::open(node.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) {
    int const e = errno;
    if (accessOf(e) == Access::NO_PERMISSION)
      report.unreadable = HealthReport::NO_PERMISSION;
    report.notes.push_back("the ATA SMART status is not readable: " + node + ": " + errorText(e));
    return;
  }
  // SMART RETURN STATUS through ATA PASS-THROUGH (16): a non-data command
  // whose answer is in the returned LBA mid/high registers, delivered in
  // the ATA status return descriptor of the sense data (CK_COND set).
  unsigned char cdb[16] = {0x85, 3 << 1, 0x20, 0, 0xda, 0, 0, 0, 0, 0, 0x4f, 0, 0xc2, 0, 0xb0, 0};
  unsigned char sense[32];
  std::memset(sense, 0, sizeof sense);
  sg_io_hdr_t io;
  std::memset(&io, 0, sizeof io);
  io.interface_id = 'S';
  io.dxfer_direction = SG_DXFER_NONE;
  io.cmd_len = sizeof cdb;
  io.cmdp = cdb;
  io.mx_sb_len = sizeof sense;
  io.sbp = sense;
  io.timeout = 10000;
  int const rc = ioctl(fd, SG_IO, &io);
  int const e = errno;
  ::close(fd);
  if (rc != 0) {
    if (accessOf(e) == Access::NO_PERMISSION)
      report.unreadable = HealthReport::NO_PERMISSION;
    report.notes.push_back("the ATA SMART status is not readable: " + errorText(e));
    return;
  }
  int const status = ataSmartStatus(sense, sizeof sense);
  if (status < 0) {
    report.notes.push_back("the ATA SMART status is not readable: the drive's answer carries no "
                           "SMART status (SMART may be disabled)");
    return;
  }
  report.readable = true;
  report.interface = "ATA SMART status";
  if (status == 0)
    report.findings.push_back(
        {HealthFinding::FAILURE, "SMART status: a failure prediction threshold has been exceeded"});
}

void emmcHealth(std::string const &root, std::string const &block, HealthReport &report) {
  std::string const dev = root + "/sys/class/block/" + block + "/device/";
  std::string const life = readFirstLine(dev + "life_time");
  std::string const eol = readFirstLine(dev + "pre_eol_info");
  if (life.empty() && eol.empty()) {
    report.notes.push_back("the eMMC device reports no life-time estimate");
    return;
  }
  report.readable = true;
  report.interface = "eMMC life-time estimate";
  std::istringstream in(life);
  std::string a, b;
  in >> a >> b;
  int index = 0;
  for (auto const &text : {a, b}) {
    char const *name = index++ == 0 ? "Life time used (type A)" : "Life time used (type B)";
    unsigned long const v = std::strtoul(text.c_str(), nullptr, 16);
    if (v == 0 || v > 0x0b)
      continue; // 0: not defined by the device
    report.measurements.push_back({name, std::min(100.0, double(v) * 10.0), "%"});
    if (v == 0x0b)
      report.findings.push_back(
          {HealthFinding::FAILURE, std::string(name) + ": the estimated life time is exceeded"});
    else if (v >= 0x0a)
      report.findings.push_back(
          {HealthFinding::WARNING, std::string(name) + ": 90 to 100 % of the life time is used"});
  }
  unsigned long const pre = std::strtoul(eol.c_str(), nullptr, 16);
  if (pre == 0x02)
    report.findings.push_back(
        {HealthFinding::WARNING, "80 % of the reserved blocks are consumed (pre-EOL warning)"});
  else if (pre == 0x03)
    report.findings.push_back(
        {HealthFinding::FAILURE, "reserved blocks are nearly used up (pre-EOL urgent)"});
}

} // namespace

void parseNvmeHealthLog(unsigned char const *log, HealthReport &report) {
  report.readable = true;
  report.interface = "NVMe SMART / health log";
  unsigned const critical = log[0];
  struct Bit {
    unsigned mask;
    HealthFinding::Severity severity;
    char const *text;
  };
  Bit const bits[] = {
      {0x01, HealthFinding::FAILURE, "available spare space has fallen below the threshold"},
      {0x02, HealthFinding::WARNING, "a temperature is outside its threshold"},
      {0x04, HealthFinding::FAILURE, "reliability is degraded by media errors or internal errors"},
      {0x08, HealthFinding::FAILURE, "the media has been placed in read-only mode"},
      {0x10, HealthFinding::FAILURE, "the volatile memory backup device has failed"},
      {0x20, HealthFinding::FAILURE, "the persistent memory region has become read-only"},
  };
  for (auto const &b : bits)
    if (critical & b.mask)
      report.findings.push_back({b.severity, std::string("critical warning: ") + b.text});
  unsigned const kelvin = static_cast<unsigned>(le(log + 1, 2));
  if (kelvin != 0)
    report.measurements.push_back({"Temperature", double(kelvin) - 273.0, "C"});
  unsigned const spare = log[3], spareThreshold = log[4], used = log[5];
  report.measurements.push_back({"Available spare", double(spare), "%"});
  report.measurements.push_back({"Endurance used", double(used), "%"});
  if (used >= 100)
    report.findings.push_back(
        {HealthFinding::WARNING,
         "the drive has used " + std::to_string(used) + " % of its rated endurance"});
  if (spare < spareThreshold && !(critical & 0x01))
    report.findings.push_back({HealthFinding::FAILURE, "available spare " + std::to_string(spare) +
                                                           " % is below its threshold of " +
                                                           std::to_string(spareThreshold) + " %"});
  report.measurements.push_back({"Power-on hours", counter128(log + 128), "h"});
  report.measurements.push_back({"Unsafe shutdowns", counter128(log + 144), ""});
  double const mediaErrors = counter128(log + 160);
  report.measurements.push_back({"Media and data integrity errors", mediaErrors, ""});
  if (mediaErrors > 0)
    report.findings.push_back(
        {HealthFinding::WARNING, "the drive reports " + std::to_string(std::uint64_t(mediaErrors)) +
                                     " media and data integrity errors"});
  report.measurements.push_back({"Data read", counter128(log + 32) * 512000.0 / 1e12, "TB"});
  report.measurements.push_back({"Data written", counter128(log + 48) * 512000.0 / 1e12, "TB"});
}

int ataSmartStatus(unsigned char const *sense, std::size_t length) {
  // Descriptor-format sense data (72h) holding the ATA Status Return
  // descriptor (09h); the answer is in its LBA mid (byte 9) and LBA high
  // (byte 11) registers.
  if (length < 8 || (sense[0] & 0x7f) != 0x72)
    return -1;
  std::size_t const total = std::min<std::size_t>(8 + sense[7], length);
  for (std::size_t at = 8; at + 1 < total; at += 2 + sense[at + 1]) {
    if (sense[at] != 0x09 || at + 14 > total)
      continue;
    unsigned const mid = sense[at + 9], high = sense[at + 11];
    if (mid == 0x4f && high == 0xc2)
      return 1;
    if (mid == 0xf4 && high == 0x2c)
      return 0;
    return -1;
  }
  return -1;
}

HealthReport readHealth(std::string const &root, std::string const &block) {
  HealthReport report;
  std::string const sys = root + "/sys/class/block/" + block;
  if (!fileExists(sys)) {
    report.notes.push_back(sys.substr(root.size()) + " is not there");
    return report;
  }
  // The kernel's own view of a SCSI-attached disk, readable by anyone.
  std::string const state = readFirstLine(sys + "/device/state");
  if (state == "offline")
    report.findings.push_back({HealthFinding::FAILURE, "the kernel has taken the disk offline"});
  std::string const ioerr = readFirstLine(sys + "/device/ioerr_cnt");
  if (!ioerr.empty()) {
    unsigned long long const errors = std::strtoull(ioerr.c_str(), nullptr, 0);
    report.measurements.push_back({"I/O errors since boot", double(errors), ""});
    if (errors > 0)
      report.findings.push_back(
          {HealthFinding::WARNING, "the kernel counted " + std::to_string(errors) +
                                       " failed I/O commands on the disk since boot"});
  }
  if (block.compare(0, 4, "nvme") == 0) {
    nvmeHealth(root, block, report);
  } else if (block.compare(0, 6, "mmcblk") == 0) {
    emmcHealth(root, block, report);
  } else if (readFirstLine(sys + "/device/vendor") == "ATA") {
    ataHealth(root, block, report);
  } else {
    std::string kind = "its interface";
    if (block.compare(0, 2, "vd") == 0)
      kind = "a virtio disk";
    else if (block.compare(0, 2, "sd") == 0)
      kind = "a SCSI or USB disk without ATA pass-through";
    report.notes.push_back(block + " reports no health data (" + kind +
                           " has no SMART or health log this test can read)");
  }
  return report;
}

} // namespace storage
} // namespace morvain
