// The storage module: verified sequential and random reads, health, and
// the sequential read benchmark. Nothing here writes to a disk except the
// temporary file of the fallback, which is this module's own.

#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <random>
#include <thread>
#include <vector>

#include "linux/DiagnosticModules.h"
#include "linux/StorageAccess.h"

namespace morvain {
namespace diag {

namespace {

using Result = zel::TestResultImp;
using storage::Access;

constexpr std::uint64_t MIB = 1 << 20;
// Faults reported before a read test gives up: a dying disk can take
// seconds per failed read, and the first faults say what there is to say.
constexpr unsigned MAX_FAULTS = 8;

class Clock {
public:
  double seconds() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - m_start).count();
  }
  // True at most every 100 ms: progress reports are not needed more often.
  bool tick() {
    double const now = seconds();
    if (now - m_last < 0.1)
      return false;
    m_last = now;
    return true;
  }

private:
  std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
  double m_last = -1.0;
};

// Opens the run's disk or partition for reading; without permission to open
// it, prepares a temporary file of at most `fallbackBytes` on its filesystem.
// Returns false with `outcome` set when neither is possible.
bool openTarget(DiagnosticRun &run, LinuxDiagnostics::Seams const &seams,
                std::uint64_t fallbackBytes, storage::Target &target, TestOutcome &outcome) {
  std::string const locator = run.device()->osLocator().str();
  if (locator.empty()) {
    run.info("NoLocator", "the device names no device node");
    outcome = run.outcome(Result::NODEVICE);
    return false;
  }
  std::string message;
  Access access = Access::NO_PERMISSION;
  if (seams.storageForceTemporaryFile)
    message = locator + ": not opened (a test file was asked for)";
  else
    access = storage::openForReading(run.path(locator), target, message);
  switch (access) {
  case Access::OK:
    if (!target.direct)
      run.info("Buffered", locator + " does not allow direct I/O: the page cache is dropped "
                                     "before each read so that reads reach the disk");
    return true;
  case Access::NO_DEVICE:
    run.info("NoDevice", message);
    outcome = run.outcome(Result::NODEVICE);
    return false;
  case Access::NO_MEDIA:
    run.info("NoMedia", message);
    outcome = run.outcome(Result::NOMEDIA);
    return false;
  case Access::FAILED:
    run.info("OpenFailed", message);
    outcome = run.outcome(Result::CANNOTRUN);
    return false;
  case Access::NO_PERMISSION:
    break;
  }
  std::string const block = storage::blockName(locator);
  if (block.empty()) {
    run.info("NoPermission", message);
    outcome = run.outcome(Result::INSUFFICIENTPRIVILEGE);
    return false;
  }
  run.progress(0.0, "writing a test file on a filesystem of " + block);
  std::string why;
  Access const fallback = storage::prepareTemporaryFile(
      run.root(), block, fallbackBytes, target, why, [&](double fraction) {
        run.progress(fraction * 0.2, "writing a test file on a filesystem of " + block);
        return !run.timeUp();
      });
  if (fallback == Access::OK) {
    run.info("TestFile",
             message + ": reading a " + std::to_string(target.size / MIB) +
                 " MiB test file of known content in " + target.path.substr(run.root().size()) +
                 ", on a filesystem of " + block + ", instead" +
                 (target.direct ? std::string(" (direct I/O)")
                                : std::string(" (the filesystem does not allow direct I/O: "
                                              "reads may be served from memory)")));
    return true;
  }
  if (run.timeUp()) {
    outcome = run.interrupted();
    return false;
  }
  run.info("NoPermission", message + "; no test file either: " + why);
  outcome = run.outcome(fallback == Access::NO_DEVICE ? Result::NODEVICE
                        : fallback == Access::FAILED  ? Result::CANNOTRUN
                                                      : Result::INSUFFICIENTPRIVILEGE);
  return false;
}

bool blockSize(DiagnosticRun &run, std::uint64_t fallbackKb, std::size_t &bytes) {
  std::uint64_t const kb = run.uintParameter("BlockKB", fallbackKb);
  if (kb < 4 || kb > 65536 || kb % 4 != 0) {
    run.info("BadParameter", "BlockKB must be a multiple of 4 from 4 to 65536");
    return false;
  }
  bytes = static_cast<std::size_t>(kb * 1024);
  return true;
}

bool reportFault(DiagnosticRun &run, storage::Fault const &fault, unsigned &faults) {
  if (fault.kind == storage::Fault::READ_ERROR)
    run.error("ReadError", "STORAGE_READ_ERROR", fault.message);
  else
    run.error("ReadMismatch", "STORAGE_MISMATCH", fault.message);
  if (++faults < MAX_FAULTS)
    return true;
  run.info("GaveUp", "stopped after " + std::to_string(MAX_FAULTS) + " faults");
  return false;
}

std::string rate(std::uint64_t bytes, double seconds) {
  return fixed(seconds > 0 ? double(bytes) / seconds / 1e6 : 0.0, 1) + " MB/s";
}

TestOutcome sequentialRead(DiagnosticRun &run, LinuxDiagnostics::Seams const &seams) {
  std::uint64_t const sizeMb = run.uintParameter("SizeMB", 1024);
  std::size_t block = 0;
  if (!blockSize(run, 1024, block))
    return run.outcome(Result::BADPARAMS);
  storage::Target target;
  TestOutcome outcome;
  std::uint64_t const fileBytes = (sizeMb == 0 ? 1024 : sizeMb) * MIB;
  if (!openTarget(run, seams, fileBytes, target, outcome))
    return outcome;
  std::uint64_t const total = sizeMb == 0 ? target.size : std::min(target.size, sizeMb * MIB);
  storage::Reader reader(target, block);
  reader.beforeVerifyRead = seams.storageBeforeVerifyRead;
  reader.failRead = seams.storageReadError;
  double const from = target.knownPattern ? 0.2 : 0.0;
  Clock clock;
  unsigned faults = 0;
  std::uint64_t offset = 0;
  for (; offset < total; offset += block) {
    if (run.timeUp())
      return run.interrupted();
    storage::Fault fault;
    if (!reader.readVerified(
            offset, static_cast<std::size_t>(std::min<std::uint64_t>(block, total - offset)),
            fault) &&
        !reportFault(run, fault, faults))
      break;
    if (clock.tick())
      run.progress(from + (1.0 - from) * double(offset) / double(total),
                   "read " + std::to_string(offset / MIB) + " of " + std::to_string(total / MIB) +
                       " MiB, " + rate(offset, clock.seconds()));
  }
  if (faults > 0)
    return run.outcome(Result::FAIL);
  run.progress(1.0);
  run.info("Summary", std::string(target.knownPattern ? "read and checked "
                                                      : "read twice and "
                                                        "compared ") +
                          std::to_string(total / MIB) + " MiB in " + fixed(clock.seconds(), 2) +
                          " s (" + rate(total * (target.knownPattern ? 1 : 2), clock.seconds()) +
                          ")");
  return run.outcome(Result::PASS);
}

TestOutcome randomRead(DiagnosticRun &run, LinuxDiagnostics::Seams const &seams) {
  std::uint64_t const reads = run.uintParameter("Reads", 1000);
  std::size_t block = 0;
  if (!blockSize(run, 4, block))
    return run.outcome(Result::BADPARAMS);
  if (reads == 0 || reads > 100000000) {
    run.info("BadParameter", "Reads must be at least 1");
    return run.outcome(Result::BADPARAMS);
  }
  storage::Target target;
  TestOutcome outcome;
  if (!openTarget(run, seams, 256 * MIB, target, outcome))
    return outcome;
  if (target.size < block) {
    run.info("TooSmall", "the device is smaller than one block");
    return run.outcome(Result::NOTAPPLICABLE);
  }
  storage::Reader reader(target, block);
  reader.beforeVerifyRead = seams.storageBeforeVerifyRead;
  reader.failRead = seams.storageReadError;
  std::uint64_t const seed =
      static_cast<std::uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count());
  std::mt19937_64 random(seed);
  std::uint64_t const slots = target.size / block;
  double const from = target.knownPattern ? 0.2 : 0.0;
  Clock clock;
  unsigned faults = 0;
  for (std::uint64_t i = 0; i < reads; ++i) {
    if (run.timeUp())
      return run.interrupted();
    std::uint64_t const offset = (random() % slots) * block;
    storage::Fault fault;
    if (!reader.readVerified(offset, block, fault) && !reportFault(run, fault, faults))
      break;
    if (clock.tick())
      run.progress(from + (1.0 - from) * double(i) / double(reads),
                   std::to_string(i) + " of " + std::to_string(reads) + " random reads");
  }
  if (faults > 0)
    return run.outcome(Result::FAIL);
  run.progress(1.0);
  double const seconds = clock.seconds();
  run.info("Summary", std::to_string(reads) + " random reads of " + std::to_string(block / 1024) +
                          " KiB verified in " + fixed(seconds, 2) + " s (" +
                          fixed(seconds > 0 ? double(reads) / seconds : 0.0, 0) +
                          " verified reads per second; offsets from seed " + std::to_string(seed) +
                          ")");
  return run.outcome(Result::PASS);
}

TestOutcome health(DiagnosticRun &run) {
  std::string const block = storage::blockName(run.device()->osLocator().str());
  if (block.empty()) {
    run.info("NoBlockDevice", "the device names no block device, so it has no health data");
    return run.outcome(Result::NOTAPPLICABLE);
  }
  struct stat st;
  if (::stat(run.path("/sys/class/block/" + block).c_str(), &st) != 0) {
    run.info("NoDevice", "/sys/class/block/" + block + " is not there");
    return run.outcome(Result::NODEVICE);
  }
  storage::HealthReport const report = storage::readHealth(run.root(), block);
  bool failed = false, warned = false;
  for (auto const &f : report.findings) {
    switch (f.severity) {
    case storage::HealthFinding::FAILURE:
      run.error("HealthFailure", "DISK_HEALTH_FAILURE", f.text);
      failed = true;
      break;
    case storage::HealthFinding::WARNING:
      run.warning("HealthWarning", f.text);
      warned = true;
      break;
    default:
      run.info("Health", f.text);
    }
  }
  for (auto const &m : report.measurements)
    run.measurement(m.name, m.value, m.unit.c_str());
  for (auto const &note : report.notes)
    run.info("HealthNotReadable", note);
  if (failed)
    return run.outcome(Result::FAIL);
  if (warned)
    return run.outcome(Result::WARN);
  if (report.readable) {
    run.info("Summary", report.interface + ": no problem reported");
    return run.outcome(Result::PASS);
  }
  return run.outcome(report.unreadable == storage::HealthReport::NO_PERMISSION
                         ? Result::INSUFFICIENTPRIVILEGE
                         : Result::NOTAPPLICABLE);
}

TestOutcome readSpeed(DiagnosticRun &run, LinuxDiagnostics::Seams const &seams) {
  std::uint64_t const sizeMb = run.uintParameter("SizeMB", 1024);
  std::uint64_t const depth = run.uintParameter("QueueDepth", 2);
  std::size_t block = 0;
  if (!blockSize(run, 1024, block))
    return run.outcome(Result::BADPARAMS);
  if (depth == 0 || depth > 64) {
    run.info("BadParameter", "QueueDepth must be from 1 to 64");
    return run.outcome(Result::BADPARAMS);
  }
  storage::Target target;
  TestOutcome outcome;
  if (!openTarget(run, seams, (sizeMb == 0 ? 1024 : sizeMb) * MIB, target, outcome))
    return outcome;
  std::uint64_t const total = sizeMb == 0 ? target.size : std::min(target.size, sizeMb * MIB);
  std::uint64_t const chunks = (total + block - 1) / block;

  // `depth` readers claim the blocks in order, so that many reads are in
  // flight at once and the disk always has the next one queued.
  std::atomic<std::uint64_t> next{0};
  std::atomic<std::uint64_t> bytes{0};
  std::atomic<bool> stop{false};
  std::atomic<std::uint64_t> failedAt{~std::uint64_t(0)};
  std::vector<std::unique_ptr<storage::Reader>> readers;
  std::vector<std::thread> threads;
  std::atomic<unsigned> running{static_cast<unsigned>(depth)};
  std::atomic<double> finished{0.0};
  Clock clock;
  // Every reader exists before the first thread looks at the list.
  for (std::uint64_t i = 0; i < depth; ++i) {
    readers.emplace_back(new storage::Reader(target, block));
    readers.back()->failRead = seams.storageReadError;
  }
  for (std::uint64_t i = 0; i < depth; ++i) {
    threads.emplace_back([&, i] {
      storage::Reader &reader = *readers[i];
      for (;;) {
        std::uint64_t const chunk = next.fetch_add(1);
        if (chunk >= chunks || stop.load())
          break;
        std::uint64_t const offset = chunk * block;
        std::size_t const length =
            static_cast<std::size_t>(std::min<std::uint64_t>(block, total - offset));
        if (reader.readOnce(offset, length) != static_cast<ssize_t>(length)) {
          std::uint64_t expected = ~std::uint64_t(0);
          while (offset < expected && !failedAt.compare_exchange_weak(expected, offset)) {
          }
          stop.store(true);
          break;
        }
        bytes.fetch_add(length);
      }
      // The figure ends when the last read does, not when this thread is
      // next looked at.
      double const now = clock.seconds();
      double seen = finished.load();
      while (now > seen && !finished.compare_exchange_weak(seen, now)) {
      }
      running.fetch_sub(1);
    });
  }
  double const from = target.knownPattern ? 0.2 : 0.0;
  bool cut = false;
  while (running.load() > 0) {
    if (!cut && run.timeUp()) {
      cut = true;
      stop.store(true);
    }
    std::uint64_t const done = bytes.load();
    run.progress(from + (1.0 - from) * double(done) / double(total),
                 std::to_string(done / MIB) + " of " + std::to_string(total / MIB) + " MiB, " +
                     rate(done, clock.seconds()));
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  for (auto &t : threads)
    t.join();
  double const seconds = finished.load();
  std::uint64_t const offset = failedAt.load();
  if (offset != ~std::uint64_t(0)) {
    std::size_t const length =
        static_cast<std::size_t>(std::min<std::uint64_t>(block, total - offset));
    storage::Fault fault;
    unsigned faults = 0;
    if (!readers[0]->readVerified(offset, length, fault))
      reportFault(run, fault, faults);
    else
      run.error("ReadError", "STORAGE_READ_ERROR",
                "read error at " + readers[0]->where(offset) + " (it read right the second time)");
    return run.outcome(Result::FAIL);
  }
  std::uint64_t const done = bytes.load();
  if (done > 0 && seconds > 0)
    run.measurement(std::string("Sequential read") +
                        (target.direct ? "" : " (page cache dropped)") +
                        (target.knownPattern ? " of a test file" : "") + ", " +
                        std::to_string(block / 1024) + " KiB blocks, " + std::to_string(depth) +
                        " in flight, " + std::to_string(done / MIB) + " MiB",
                    double(done) / seconds / 1e6, "MB/s");
  if (cut)
    return run.interrupted();
  return run.outcome(Result::PASS);
}

} // namespace

TestOutcome runStorageTest(DiagnosticRun &run, std::string const &key,
                           LinuxDiagnostics::Seams const &seams) {
  if (key == "SequentialRead")
    return sequentialRead(run, seams);
  if (key == "RandomRead")
    return randomRead(run, seams);
  if (key == "Health")
    return health(run);
  if (key == "SequentialReadSpeed")
    return readSpeed(run, seams);
  return run.outcome(Result::NOTEST);
}

} // namespace diag
} // namespace morvain
