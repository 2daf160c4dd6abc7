#pragma once
// morvain::LinuxDiagnostics: the diagnostic modules of this computer. Each
// module offers tests and benchmarks that exercise the real hardware behind
// the devices enumeration found (LinuxModel.h: device types, locators and
// property keys), and reports what it finds as it is.
//
// Modules (GUID: tests and benchmarks, parameters with defaults):
//   morvain.linux.processor   devices CPU (one per package)
//     IntegerCheck, FloatingPointCheck, SimdCheck   Rounds=200
//         known-answer checks on every logical CPU of the package at once,
//         one worker thread pinned to each
//     Stress                  Duration=60 s: all three checks, round after
//         round, on every logical CPU
//     IntegerThroughput, FloatingPointThroughput (benchmarks) Duration=2 s
//         per figure: one core, then all cores of the package
//   morvain.linux.memory      device Memory
//     PatternTest             BufferSizeMB=256, Passes=1, Patterns=all
//     Bandwidth (benchmark)   BufferSizeMB=256, Duration=1 s per figure
//   morvain.linux.storage     devices HardDrive, DrivePartition (Health:
//                             HardDrive only)
//     SequentialRead          SizeMB=1024 (0: all), BlockKB=1024
//     RandomRead              Reads=1000, BlockKB=4
//     Health                  SMART / NVMe health log where readable
//     SequentialReadSpeed (benchmark) SizeMB=1024, BlockKB=1024, QueueDepth=2
//   morvain.linux.network     devices NetworkCard
//     LinkState; Loopback     SizeMB=64 over the interface's own address
//   morvain.linux.sensors     devices TempSensor, Fan, VoltSensor, ThermalZone
//     Limits                  Readings=3, IntervalMs=500, WarnTemperature=90
//   morvain.linux.battery     devices Battery
//     Health                  WarnHealthPercent=70, FailHealthPercent=40,
//                             WarnChargePercent=10
//   morvain.linux.optical     devices Optical
//     MediaPresent            WaitSeconds=5
// No test writes to a device: the storage tests only read (a temporary
// file they may write is their own), so none is destructive.
//
// Results: PASS, FAIL (with an error event naming where: core and check,
// memory offset and pattern, disk offset and sector), WARN for values past
// a warning limit, NODEVICE when the device is gone, NOTAPPLICABLE when it
// offers nothing to test, INSUFFICIENTPRIVILEGE when the process may not
// reach it, NOMEDIA / NOCABLE / NOCONNECTION where those say it best,
// BADPARAMS for parameters out of range.
//
// Threads: runTest may run on several threads at once; the object holds
// nothing that runs change. Set the seams before the first run.

#include <cstdint>
#include <functional>
#include <vector>

#include "linux/MemoryPatterns.h"
#include "morvain/MachineProvider.h"
#include "zel/StateManager.h"
#include "zel/String.h"

namespace morvain {

class LinuxDiagnostics {
public:
  static constexpr char const *PROCESSOR_MODULE = "morvain.linux.processor";
  static constexpr char const *MEMORY_MODULE = "morvain.linux.memory";
  static constexpr char const *STORAGE_MODULE = "morvain.linux.storage";
  static constexpr char const *NETWORK_MODULE = "morvain.linux.network";
  static constexpr char const *SENSORS_MODULE = "morvain.linux.sensors";
  static constexpr char const *BATTERY_MODULE = "morvain.linux.battery";
  static constexpr char const *OPTICAL_MODULE = "morvain.linux.optical";

  /// Places where a test can change what a module is about to verify, to
  /// prove that the verification finds it. Empty in production.
  struct Seams {
    /// Memory: after a phase is written, before it is verified.
    memtest::WriteHook memoryAfterWrite;
    /// Storage: before the read that is compared (see storage::Reader).
    std::function<void(int fd, std::uint64_t offset, std::size_t length)> storageBeforeVerifyRead;
    /// Storage: an errno to fail the read of a range with (0: read it).
    std::function<int(std::uint64_t offset, std::size_t length)> storageReadError;
    /// Storage: test through a temporary file even when the device opens.
    bool storageForceTemporaryFile = false;
  };

  /// `root` is "/" for this computer, a fixture tree in tests: every path
  /// read is root + the path.
  explicit LinuxDiagnostics(zel::String const &root = "/");

  /// Adds the modules with their tests and benchmarks to `state` and
  /// associates each test with the devices of its types that `state`
  /// holds. One report per module.
  std::vector<SourceReport> enumerateTests(zel::StateManager &state);

  /// Runs the test of context.run() on its device.
  TestOutcome runTest(RunContext &context);

  void setSeams(Seams seams) { m_seams = std::move(seams); }

private:
  zel::String m_root;
  Seams m_seams;
};

} // namespace morvain
