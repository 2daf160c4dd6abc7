#pragma once
// Reading disks for the storage module: opening a device node or a file for
// reads that reach the medium, a temporary file of known content on the
// disk's filesystem when the device itself may not be opened, verified reads
// that name the offset of what went wrong, and the health data disks report.
//
// Verification. A read of the device is verified by reading the same range
// a second time and comparing: with O_DIRECT both reads come from the disk,
// so a medium, cable or controller that returns unstable data shows up as a
// difference. A temporary file of ours holds a known pattern instead (each
// 8-byte word a function of its offset), so a read of it is checked against
// what was written.

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace morvain {
namespace storage {

enum class Access {
  OK,
  NO_DEVICE,     ///< no such device or file
  NO_PERMISSION, ///< the device exists but may not be opened
  NO_MEDIA,      ///< removable device without a medium
  FAILED         ///< anything else; the message says what
};

/// An open device or file and how to read it.
class Target {
public:
  Target() = default;
  ~Target();
  Target(Target const &) = delete;
  Target &operator=(Target const &) = delete;

  int fd = -1;
  std::uint64_t size = 0;         ///< bytes that can be read
  std::uint32_t sectorSize = 512; ///< logical block size of a device
  bool isDevice = false;          ///< a block device (offsets are named as sectors too)
  bool direct = false;            ///< O_DIRECT: reads bypass the page cache
  bool knownPattern = false;      ///< our temporary file: content is patternWord()
  std::string path;               ///< what was opened (or the folder of the temporary file)
};

/// Opens the device node or regular file `path` for reading, with O_DIRECT
/// where the kernel allows it.
Access openForReading(std::string const &path, Target &target, std::string &message);

/// The block device name of `path` ("/dev/sda1" gives "sda1"); empty when
/// `path` is not under /dev.
std::string blockName(std::string const &path);

/// Makes a temporary file of at most `bytes` (less when the filesystem is
/// short of space) on a filesystem that lives on block device `block`
/// (a disk: any of its partitions) and fills it with the known pattern. The
/// file has no name (it vanishes when closed). `progress` gets the fraction
/// written and returns false to give up.
Access prepareTemporaryFile(std::string const &root, std::string const &block, std::uint64_t bytes,
                            Target &target, std::string &message,
                            std::function<bool(double)> const &progress);

/// The word of the known pattern at byte offset `offset` (a multiple of 8).
std::uint64_t patternWord(std::uint64_t offset);

/// What went wrong with one read.
struct Fault {
  enum Kind { READ_ERROR, MISMATCH } kind = READ_ERROR;
  std::uint64_t offset = 0; ///< byte offset of the first bad sector or byte
  int error = 0;            ///< errno of a read error
  std::string message;      ///< says what and where, offset and sector included
};

/// Reads of one target through aligned buffers. Not thread-safe.
class Reader {
public:
  /// `chunkBytes`, the largest read, is rounded up to 4 KiB.
  Reader(Target &target, std::size_t chunkBytes);
  ~Reader();
  Reader(Reader const &) = delete;
  Reader &operator=(Reader const &) = delete;

  /// Reads [offset, offset + length) (length at most the chunk; the range
  /// is cut at the end of the target) and verifies it. False with `fault`
  /// set on a read error or a difference.
  bool readVerified(std::uint64_t offset, std::size_t length, Fault &fault);
  /// Reads once, unverified (benchmarks). Bytes read, or -1 with errno.
  ssize_t readOnce(std::uint64_t offset, std::size_t length);

  /// Called before the read that is compared: between the two reads of a
  /// device, before the read of a file of known content. Tests change the
  /// data here to prove that verification finds it.
  std::function<void(int fd, std::uint64_t offset, std::size_t length)> beforeVerifyRead;
  /// Called before every read; a non-zero errno makes that read fail as a
  /// failing disk's would. Tests prove with it that read errors are found
  /// and placed.
  std::function<int(std::uint64_t offset, std::size_t length)> failRead;

  std::size_t chunkBytes() const { return m_chunk; }
  /// Where `offset` is, for messages: "offset 0x... (sector N)".
  std::string where(std::uint64_t offset) const;

private:
  ssize_t readAt(unsigned char *into, std::uint64_t offset, std::size_t length);
  bool locateReadError(std::uint64_t offset, std::size_t length, int error, Fault &fault);

  Target &m_target;
  std::size_t m_chunk;
  unsigned char *m_first = nullptr;
  unsigned char *m_second = nullptr;
};

/// One finding of a health check.
struct HealthFinding {
  enum Severity { INFO, WARNING, FAILURE } severity = INFO;
  std::string text;
};

struct HealthMeasurement {
  std::string name;
  double value = 0;
  std::string unit;
};

struct HealthReport {
  enum Source {
    NONE,         ///< the device reports no health data this code can read
    NO_PERMISSION ///< it does, but reading needs privileges this process lacks
  };
  /// True when health data was read (findings and measurements hold it).
  bool readable = false;
  Source unreadable = NONE;
  std::string interface; ///< "NVMe SMART log", "ATA SMART status", ...
  std::vector<HealthFinding> findings;
  std::vector<HealthMeasurement> measurements;
  /// Why nothing (or not everything) could be read.
  std::vector<std::string> notes;
};

/// Adds what an NVMe SMART / health log page (log 02h, 512 bytes) says to
/// `report`: critical warnings, spare, endurance, errors and counters.
void parseNvmeHealthLog(unsigned char const *log, HealthReport &report);
/// The SMART status in the sense data of an ATA PASS-THROUGH SMART RETURN
/// STATUS: 1 healthy, 0 a threshold exceeded, -1 not in the answer.
int ataSmartStatus(unsigned char const *sense, std::size_t length);

/// Reads the health data of disk `block` ("nvme0n1", "sda", "mmcblk0"):
/// NVMe controller state and SMART / health log, the ATA SMART status,
/// the eMMC life-time estimates, and the kernel's I/O error count. Values
/// the device does not report are left out, never guessed.
HealthReport readHealth(std::string const &root, std::string const &block);

} // namespace storage
} // namespace morvain
