#include "linux/LinuxDiagnostics.h"

#include <chrono>

#include "linux/DiagnosticModules.h"
#include "linux/LinuxModel.h"
#include "zel/ModuleImp.h"
#include "zel/TestImp.h"
#include "zel/TipImp.h"

namespace morvain {

namespace {

namespace lm = linuxmodel;

struct ParameterDef {
  char const *key;
  zel::ValueImp value; // the default, of the parameter's type
  char const *name;
  char const *description;
};

struct TestDef {
  char const *key;
  zel::TestImp::TestType type;
  char const *name;
  char const *description;
  std::vector<char const *> deviceTypes;
  bool parallel;
  std::vector<ParameterDef> parameters;
  char const *tip; // advice on failure, or null
};

struct ModuleDef {
  char const *guid;
  char const *name;
  char const *description;
  std::vector<TestDef> tests;
};

zel::ValueImp u32(unsigned int v) { return zel::ValueImp(v); }
zel::ValueImp dbl(double v) { return zel::ValueImp(v, zel::DataTypeImp::DOUBLE); }

std::vector<ModuleDef> catalogue() {
  auto const TEST = zel::TestImp::TEST;
  auto const BENCH = zel::TestImp::BENCHMARK;
  char const *const cpuTip = "A processor that gives wrong answers is faulty or runs outside its "
                             "specified conditions: check cooling, clock and voltage settings "
                             "(overclocking), then replace the processor.";
  ParameterDef const rounds{"Rounds", u32(200), "Rounds",
                            "How many times each logical CPU runs the check"};
  std::vector<char const *> const disks = {lm::DISK, lm::PARTITION};
  std::vector<char const *> const sensors = {lm::TEMPERATURE_SENSOR, lm::FAN, lm::VOLTAGE_SENSOR,
                                             lm::THERMAL_ZONE};
  return {
      {LinuxDiagnostics::PROCESSOR_MODULE,
       "Processor",
       "Known-answer checks, stress and throughput of the processor's logical CPUs",
       {
           {"IntegerCheck",
            TEST,
            "Integer arithmetic",
            "Integer known-answer checks (sums, division, multiplication, CRC, bit operations) "
            "on every logical CPU of the processor",
            {lm::PROCESSOR},
            true,
            {rounds},
            cpuTip},
           {"FloatingPointCheck",
            TEST,
            "Floating-point arithmetic",
            "IEEE 754 known-answer checks (exact sums, square roots, divisions, fused "
            "multiply-add, rounding, subnormal numbers) on every logical CPU",
            {lm::PROCESSOR},
            true,
            {rounds},
            cpuTip},
           {"SimdCheck",
            TEST,
            "Vector (SIMD) arithmetic",
            "Vector lanes against scalar reference results for every vector instruction set "
            "the processor has, on every logical CPU",
            {lm::PROCESSOR},
            true,
            {rounds},
            cpuTip},
           {"Stress",
            TEST,
            "Processor stress",
            "All known-answer checks, round after round, on every logical CPU at once",
            {lm::PROCESSOR},
            true,
            {{"Duration", u32(60), "Duration (s)", "How long the stress runs, in seconds"}},
            cpuTip},
           {"IntegerThroughput",
            BENCH,
            "Integer throughput",
            "64-bit integer multiply-add operations per second, on one core and on all",
            {lm::PROCESSOR},
            false,
            {{"Duration", u32(2), "Duration (s)", "Seconds per figure"}},
            nullptr},
           {"FloatingPointThroughput",
            BENCH,
            "Floating-point throughput",
            "Double-precision multiply and add operations per second, on one core and on all",
            {lm::PROCESSOR},
            false,
            {{"Duration", u32(2), "Duration (s)", "Seconds per figure"}},
            nullptr},
       }},
      {LinuxDiagnostics::MEMORY_MODULE,
       "Memory",
       "Pattern tests and bandwidth of the main memory",
       {
           {"PatternTest",
            TEST,
            "Memory pattern test",
            "Writes and verifies walking ones, walking zeros, checkerboard, solid bits, random "
            "values and each word's own address in a locked buffer, on all cores",
            {lm::MEMORY},
            false,
            {{"BufferSizeMB", u32(256), "Buffer size (MB)", "Memory tested, in MiB"},
             {"Passes", u32(1), "Passes", "How many times the patterns run"},
             {"Patterns", zel::ValueImp("all"), "Patterns",
              "Comma-separated: WalkingOnes, WalkingZeros, Checkerboard, SolidBits, "
              "RandomValue, OwnAddress, or all"}},
            "Memory that does not keep what was written to it is faulty: test the modules one "
            "at a time to find the bad one, reseat it, and replace it if the error stays."},
           {"Bandwidth",
            BENCH,
            "Memory bandwidth",
            "Read, write and copy bandwidth of the main memory, all cores",
            {lm::MEMORY},
            false,
            {{"BufferSizeMB", u32(256), "Buffer size (MB)", "Memory used, in MiB"},
             {"Duration", u32(1), "Duration (s)", "Seconds per figure"}},
            nullptr},
       }},
      {LinuxDiagnostics::STORAGE_MODULE,
       "Storage",
       "Verified reads, health and read speed of disks (nothing on them is written)",
       {
           {"SequentialRead",
            TEST,
            "Sequential read",
            "Reads the disk from the start, each stretch twice and compared (or against the "
            "known content of a test file on it when the disk itself may not be opened)",
            disks,
            true,
            {{"SizeMB", u32(1024), "Size (MB)", "MiB to read from the start; 0 reads it all"},
             {"BlockKB", u32(1024), "Block (KB)", "KiB per read"}},
            "Back up the data on this disk now, then replace the disk; check its cable and "
            "connector first if it is external."},
           {"RandomRead",
            TEST,
            "Random read",
            "Reads blocks at random offsets over the whole disk, each twice and compared",
            disks,
            true,
            {{"Reads", u32(1000), "Reads", "How many blocks to read"},
             {"BlockKB", u32(4), "Block (KB)", "KiB per read"}},
            "Back up the data on this disk now, then replace the disk."},
           {"Health",
            TEST,
            "Disk health",
            "The health the disk reports of itself (NVMe health log, ATA SMART status, eMMC "
            "life time) and the kernel's error count",
            {lm::DISK},
            true,
            {},
            "A disk that predicts its own failure should be backed up and replaced."},
           {"SequentialReadSpeed",
            BENCH,
            "Sequential read speed",
            "Sequential read throughput with direct I/O, bypassing the page cache",
            disks,
            false,
            {{"SizeMB", u32(1024), "Size (MB)", "MiB to read; 0 reads it all"},
             {"BlockKB", u32(1024), "Block (KB)", "KiB per read"},
             {"QueueDepth", u32(2), "Queue depth", "Reads in flight at once"}},
            nullptr},
       }},
      {LinuxDiagnostics::NETWORK_MODULE,
       "Network",
       "Link state and a verified transfer over the network interfaces",
       {
           {"LinkState",
            TEST,
            "Link state",
            "Whether the interface has a link, and its speed",
            {lm::NETWORK},
            true,
            {},
            "Check the cable, the port on the other side, or the "
            "wireless connection."},
           {"Loopback",
            TEST,
            "Loopback transfer",
            "A TCP transfer to the interface's own address, verified byte for byte",
            {lm::NETWORK},
            false,
            {{"SizeMB", u32(64), "Size (MB)", "MiB to send"}},
            nullptr},
       }},
      {LinuxDiagnostics::SENSORS_MODULE,
       "Sensors",
       "Temperature, fan and voltage readings against their limits",
       {
           {"Limits",
            TEST,
            "Readings within limits",
            "Reads the sensor several times and compares with the limits the chip gives",
            sensors,
            true,
            {{"Readings", u32(3), "Readings", "How many readings to take"},
             {"IntervalMs", u32(500), "Interval (ms)", "Time between readings"},
             {"WarnTemperature", dbl(90.0), "Warning temperature (C)",
              "Temperature that warns when the chip gives no limit of its own"}},
            "Check that fans turn and air can flow; clean dust from heat sinks."},
       }},
      {LinuxDiagnostics::BATTERY_MODULE,
       "Battery",
       "Charge and wear of batteries",
       {
           {"Health",
            TEST,
            "Battery health",
            "Full capacity against design capacity, charge and the state the battery reports",
            {lm::BATTERY},
            true,
            {{"WarnHealthPercent", u32(70), "Warning health (%)",
              "Full capacity under this share of the design capacity warns"},
             {"FailHealthPercent", u32(40), "Failing health (%)",
              "Full capacity under this share of the design capacity fails"},
             {"WarnChargePercent", u32(10), "Warning charge (%)", "Charge under this warns"}},
            "A worn battery holds less charge; replace it when the running time is too short."},
       }},
      {LinuxDiagnostics::OPTICAL_MODULE,
       "Optical",
       "Optical drives and their media",
       {
           {"MediaPresent",
            TEST,
            "Medium present",
            "Whether the drive holds a readable disc",
            {lm::OPTICAL},
            true,
            {{"WaitSeconds", u32(5), "Wait (s)",
              "How long a drive that is still spinning up is given"}},
            "Insert a disc and close the tray."},
       }},
  };
}

} // namespace

LinuxDiagnostics::LinuxDiagnostics(zel::String const &root) : m_root(root) {}

std::vector<SourceReport> LinuxDiagnostics::enumerateTests(zel::StateManager &state) {
  std::vector<SourceReport> reports;
  for (ModuleDef const &m : catalogue()) {
    auto const started = std::chrono::steady_clock::now();
    boost::shared_ptr<zel::ModuleImp> module(new zel::ModuleImp(m.guid));
    module->setLocalizedName(m.name)
        .setLocalizedDescription(m.description)
        .setVersion(zel::VersionImp(5, 0, "0", 0))
        .setCompany("Zelmont")
        .setType(zel::ModuleTypeImp::DIAG)
        .setState(zel::ModuleState::ENUMERATED);
    zel::CapabilityImp moduleCaps;
    for (TestDef const &t : m.tests)
      for (char const *type : t.deviceTypes)
        moduleCaps |= zel::CapabilityImp(type);
    module->setSupportedCapabilities(moduleCaps);
    state.addModule(module);

    for (TestDef const &t : m.tests) {
      boost::shared_ptr<zel::TestImp> test(
          new zel::TestImp(m.guid, t.key, t.type, t.name, t.description));
      zel::CapabilityImp caps;
      for (char const *type : t.deviceTypes)
        caps |= zel::CapabilityImp(type);
      test->setDeviceCapabilitiesSupported(caps)
          .setSupportsParallelTesting(t.parallel)
          .setDestructive(false)
          .setInteractive(false)
          .setEnabled(true);
      unsigned priority = 0;
      for (ParameterDef const &p : t.parameters)
        test->addParameter(
            zel::ParameterImp(p.key, p.value.type(), p.value, p.name, p.description, priority++));
      if (t.tip)
        test->addTip(zel::TipImp(std::string(m.guid) + "." + t.key, zel::TipTypeImp::TEXT_TIP,
                                 zel::LocalizedString("", t.name),
                                 zel::LocalizedString("", t.tip)));
      state.addTest(test);
      state.associate(*module, *test);
      for (char const *type : t.deviceTypes) {
        for (auto const &device : state.getDevices(zel::CapabilityImp(type), true)) {
          state.associate(*test, *device);
          state.associate(*module, *device);
        }
      }
    }
    SourceReport report;
    report.sourceName = m.name;
    report.count = static_cast<unsigned>(m.tests.size());
    report.elapsedSeconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    reports.push_back(report);
  }
  return reports;
}

TestOutcome LinuxDiagnostics::runTest(RunContext &context) {
  auto test = context.run().test();
  if (!test)
    return TestOutcome{zel::TestResultImp::NOTEST, zel::String()};
  diag::DiagnosticRun run(context, m_root);
  if (!run.device()) {
    run.info("NoDevice", "the run names no device");
    return run.outcome(zel::TestResultImp::NODEVICE);
  }
  std::string const key = test->keyInModule().str();
  zel::String const &module = test->moduleGuid();
  if (module == PROCESSOR_MODULE)
    return diag::runProcessorTest(run, key);
  if (module == MEMORY_MODULE)
    return diag::runMemoryTest(run, key, m_seams);
  if (module == STORAGE_MODULE)
    return diag::runStorageTest(run, key, m_seams);
  if (module == NETWORK_MODULE)
    return diag::runNetworkTest(run, key);
  if (module == SENSORS_MODULE)
    return diag::runSensorTest(run, key);
  if (module == BATTERY_MODULE)
    return diag::runBatteryTest(run, key);
  if (module == OPTICAL_MODULE)
    return diag::runOpticalTest(run, key);
  return TestOutcome{zel::TestResultImp::NOMODULE, zel::String()};
}

} // namespace morvain
