// The diagnostic modules of this computer: faults injected through the
// seams must be found and named, runs must keep to stops and time limits,
// and the real modules run once each on this machine with honest results.
// Devices are built here the way enumeration builds them (LinuxModel.h);
// what a fixture needs of /sys lives in a temporary root folder.

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <mutex>
#include <set>
#include <thread>

#include "linux/LinuxDiagnostics.h"
#include "linux/LinuxModel.h"
#include "linux/MemoryPatterns.h"
#include "linux/ProcessorChecks.h"
#include "linux/StorageAccess.h"
#include "zel/ParameterImp.h"
#include "zel/PropertyImp.h"
#include "zel/TestImp.h"
#include "zel/TestRunImp.h"

using namespace zel;
using morvain::LinuxDiagnostics;
using morvain::RunContext;
using morvain::TestOutcome;
namespace lm = morvain::linuxmodel;
namespace memtest = morvain::memtest;
namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

namespace {

// A run context that records what the module reports and can be stopped.
class FakeContext : public RunContext {
public:
  FakeContext(TestImp const &test, IDeviceImp const &device) : m_run(test, device) {}

  TestRunImp const &run() const override { return m_run; }
  TestRunImp &setup() { return m_run; }

  void progress(unsigned int percent, String const &text) override {
    std::lock_guard<std::mutex> lock(m_lock);
    m_percent = percent;
    ++m_progressReports;
    if (!text.isEmpty())
      m_text = text.str();
    m_cv.notify_all();
  }
  void event(TestRunEventImp const &event) override {
    std::lock_guard<std::mutex> lock(m_lock);
    m_events.push_back(event);
  }
  void measurement(String const &name, double value, String const &unit) override {
    std::lock_guard<std::mutex> lock(m_lock);
    m_measurements.push_back({name.str(), value, unit.str()});
  }
  bool stopRequested() const override { return m_stop.load(); }
  bool sleepFor(unsigned int ms, bool interruptible) override {
    std::unique_lock<std::mutex> lock(m_lock);
    if (!interruptible) {
      m_cv.wait_for(lock, std::chrono::milliseconds(ms), [] { return false; });
      return !m_stop.load();
    }
    return !m_cv.wait_for(lock, std::chrono::milliseconds(ms), [this] { return m_stop.load(); });
  }
  PromptOutcome prompt(MessageBox2Request const &, unsigned int, MessageBox2Result &) override {
    return PromptOutcome::REFUSED;
  }
  bool separateProcess() const override { return false; }

  void requestStop() {
    std::lock_guard<std::mutex> lock(m_lock);
    m_stop.store(true);
    m_cv.notify_all();
  }
  // Waits until the module reported some progress; false at the deadline.
  bool waitForProgress(std::chrono::milliseconds deadline) {
    std::unique_lock<std::mutex> lock(m_lock);
    return m_cv.wait_for(lock, deadline, [this] { return m_progressReports > 1; });
  }
  void setParameter(char const *key, ValueImp const &value) {
    auto p = m_run.parameter(key);
    ASSERT_TRUE(p) << key;
    p->setValue(value);
  }

  struct Measurement {
    std::string name;
    double value;
    std::string unit;
  };
  std::vector<TestRunEventImp> events() const {
    std::lock_guard<std::mutex> lock(m_lock);
    return m_events;
  }
  std::vector<Measurement> measurements() const {
    std::lock_guard<std::mutex> lock(m_lock);
    return m_measurements;
  }
  // The events of `type` (and `key`, when given).
  std::vector<TestRunEventImp> eventsOf(EventTypeImp type, char const *key = nullptr) const {
    std::vector<TestRunEventImp> out;
    for (auto const &e : events())
      if (e.type() == type && (!key || e.key() == key))
        out.push_back(e);
    return out;
  }
  // Every event's text, for failure messages.
  std::string dump() const {
    std::string out;
    for (auto const &e : events())
      out +=
          "  [" + e.type().toString().str() + " " + e.key().str() + "] " + e.message().str() + "\n";
    return out;
  }

private:
  TestRunImp m_run;
  mutable std::mutex m_lock;
  std::condition_variable m_cv;
  std::atomic<bool> m_stop{false};
  unsigned m_percent = 0;
  unsigned m_progressReports = 0;
  std::string m_text;
  std::vector<TestRunEventImp> m_events;
  std::vector<Measurement> m_measurements;
};

StateManager::DevicePtr makeDevice(char const *guid, char const *type, std::string const &os) {
  StateManager::DevicePtr d(new IDeviceImp(guid, guid, CapabilityImp(type), "system"));
  d->setOsLocator(os);
  return d;
}

void setProperty(StateManager::DevicePtr const &d, char const *key, ValueImp const &v) {
  d->setProperty(boost::shared_ptr<PropertyImp>(new PropertyImp(key, v)));
}

std::string cpuListText(std::vector<int> const &cpus) {
  std::string text;
  for (int c : cpus)
    text += (text.empty() ? "" : ",") + std::to_string(c);
  return text;
}

void writeFile(std::string const &path, std::string const &content) {
  fs::create_directories(fs::path(path).parent_path());
  std::ofstream(path) << content << "\n";
}

bool contains(std::string const &text, std::string const &part) {
  return text.find(part) != std::string::npos;
}

// Diagnostics over a root folder with the modules enumerated into a state
// that holds the devices a test case adds.
class DiagnosticsTest : public ::testing::Test {
protected:
  void SetUp() override {
    char pattern[] = "/tmp/morvain-diag-XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    fixture = pattern;
  }
  void TearDown() override { fs::remove_all(fixture); }

  StateManager::DevicePtr add(StateManager::DevicePtr d) {
    state.addDevice(d);
    return d;
  }
  // A context for test `key` of `module` on `device`, enumerated afresh.
  std::unique_ptr<FakeContext> context(char const *module, char const *key,
                                       StateManager::DevicePtr const &device) {
    StateManager fresh;
    fresh.addDevice(device);
    LinuxDiagnostics(root).enumerateTests(fresh);
    auto test = fresh.testByGuid(TestImp::guid(module, key));
    EXPECT_TRUE(test) << module << " " << key;
    return std::unique_ptr<FakeContext>(new FakeContext(*test, *device));
  }
  TestOutcome run(FakeContext &c) {
    LinuxDiagnostics diagnostics(root);
    diagnostics.setSeams(seams);
    return diagnostics.runTest(c);
  }
  // Runs `c`, stops it once it reports progress and returns how long the
  // module took to end after the stop.
  std::chrono::milliseconds stopWhenRunning(FakeContext &c, TestOutcome &outcome) {
    std::thread runner([&] { outcome = run(c); });
    bool const started = c.waitForProgress(std::chrono::seconds(5));
    auto const at = Clock::now();
    c.requestStop();
    runner.join();
    EXPECT_TRUE(started);
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - at);
  }

  String root = "/";
  std::string fixture;
  StateManager state;
  LinuxDiagnostics::Seams seams;
};

// ---- enumeration -------------------------------------------------------------

TEST_F(DiagnosticsTest, EnumerationOffersEveryModuleAndAssociatesDevicesByType) {
  auto cpu = add(makeDevice("cpu:0", lm::PROCESSOR, ""));
  auto memory = add(makeDevice("memory", lm::MEMORY, ""));
  auto disk = add(makeDevice("disk:a", lm::DISK, "/dev/sda"));
  auto part = add(makeDevice("disk:a:part1", lm::PARTITION, "/dev/sda1"));
  auto net = add(makeDevice("net:x", lm::NETWORK, "eth0"));
  auto reports = LinuxDiagnostics(root).enumerateTests(state);
  ASSERT_EQ(reports.size(), 7u);
  for (auto const &r : reports) {
    EXPECT_FALSE(r.failed) << r.sourceName;
    EXPECT_GT(r.count, 0u) << r.sourceName;
  }
  EXPECT_EQ(state.getModules().size(), 7u);

  auto names = [&](StateManager::DevicePtr const &d) {
    std::set<std::string> keys;
    for (auto const &t : state.getTestsByDevice(*d))
      keys.insert(t->keyInModule().str());
    return keys;
  };
  EXPECT_EQ(names(cpu),
            (std::set<std::string>{"IntegerCheck", "FloatingPointCheck", "SimdCheck", "Stress",
                                   "IntegerThroughput", "FloatingPointThroughput"}));
  EXPECT_EQ(names(memory), (std::set<std::string>{"PatternTest", "Bandwidth"}));
  EXPECT_EQ(names(disk), (std::set<std::string>{"SequentialRead", "RandomRead", "Health",
                                                "SequentialReadSpeed"}));
  EXPECT_EQ(names(part),
            (std::set<std::string>{"SequentialRead", "RandomRead", "SequentialReadSpeed"}));
  EXPECT_EQ(names(net), (std::set<std::string>{"LinkState", "Loopback"}));

  for (auto const &t : state.getTests()) {
    EXPECT_FALSE(t->isDestructive()) << t->keyInModule();
    EXPECT_FALSE(t->isInteractive()) << t->keyInModule();
    bool const bench = t->keyInModule() == "IntegerThroughput" ||
                       t->keyInModule() == "FloatingPointThroughput" ||
                       t->keyInModule() == "Bandwidth" || t->keyInModule() == "SequentialReadSpeed";
    EXPECT_EQ(t->type(), bench ? TestImp::BENCHMARK : TestImp::TEST) << t->keyInModule();
    if (bench) {
      EXPECT_FALSE(t->supportsParallelTesting()) << t->keyInModule();
    }
  }
  auto stress = state.testByGuid(TestImp::guid(LinuxDiagnostics::PROCESSOR_MODULE, "Stress"));
  ASSERT_TRUE(stress);
  EXPECT_TRUE(stress->supportsParallelTesting());
  EXPECT_EQ(stress->parameter("Duration")->value().value(), 60);
  auto pattern = state.testByGuid(TestImp::guid(LinuxDiagnostics::MEMORY_MODULE, "PatternTest"));
  ASSERT_TRUE(pattern);
  EXPECT_EQ(pattern->parameter("BufferSizeMB")->value().value(), 256);
  EXPECT_EQ(pattern->parameter("Patterns")->value().toString(), "all");
  EXPECT_FALSE(pattern->supportsParallelTesting());
  EXPECT_GT(pattern->tipCount(), 0u);
}

// ---- memory --------------------------------------------------------------------

TEST(MemoryPatterns, EveryPatternFindsAnInjectedBitFlipAtItsOffset) {
  memtest::TestBuffer buffer(2 << 20);
  ASSERT_NE(buffer.data(), nullptr);
  for (memtest::Pattern pattern : memtest::allPatterns()) {
    unsigned const phase = memtest::phaseCount(pattern) - 1;
    std::size_t const target = 0x12340 + 8 * static_cast<std::size_t>(pattern) * 1024 + (1 << 20);
    int const bit = 5 + static_cast<int>(pattern) * 9;
    std::atomic<int> flips{0};
    std::uint64_t written = 0;
    memtest::Options options;
    options.threads = 2;
    options.afterWrite = [&](memtest::Pattern p, unsigned k, std::uint64_t *words,
                             std::size_t count, std::size_t offset) {
      if (p != pattern || k != phase || target < offset || target >= offset + count * 8)
        return;
      std::uint64_t &word = words[(target - offset) / 8];
      written = word;
      word ^= std::uint64_t(1) << bit;
      ++flips;
    };
    memtest::PatternEngine engine(buffer.data(), buffer.size(), options);
    engine.run({pattern}, 1);
    SCOPED_TRACE(memtest::patternName(pattern));
    ASSERT_EQ(flips.load(), 1);
    ASSERT_EQ(engine.mismatchCount(), 1u);
    memtest::Mismatch const m = engine.mismatches().front();
    EXPECT_EQ(m.offset, target);
    EXPECT_EQ(m.pattern, pattern);
    EXPECT_EQ(m.phase, phase);
    EXPECT_FALSE(m.transient);
    EXPECT_EQ(m.expected, written);
    EXPECT_EQ(m.expected,
              memtest::expectedWord(pattern, phase, options.seed,
                                    static_cast<std::uint64_t *>(buffer.data()), target / 8));
    EXPECT_EQ(m.actual ^ m.expected, std::uint64_t(1) << bit);
    EXPECT_FALSE(engine.stopped());
  }
}

TEST(MemoryPatterns, PatternsGiveNeighbouringWordsDifferentValuesAndParseByKey) {
  std::uint64_t const *base = reinterpret_cast<std::uint64_t const *>(std::uintptr_t(1) << 20);
  for (memtest::Pattern p : memtest::allPatterns()) {
    for (unsigned k = 0; k < memtest::phaseCount(p); ++k) {
      std::uint64_t const a = memtest::expectedWord(p, k, 7, base, 100);
      // A phase and the next must differ in every word, or a stuck cell
      // could pass the sweep that checks it.
      if (k + 1 < memtest::phaseCount(p)) {
        EXPECT_NE(a, memtest::expectedWord(p, k + 1, 7, base, 100)) << memtest::patternName(p);
      }
      EXPECT_NE(a, memtest::expectedWord(p, k, 7, base, 101)) << memtest::patternName(p);
    }
  }
  EXPECT_EQ(memtest::expectedWord(memtest::Pattern::OWN_ADDRESS, 0, 0, base, 600),
            std::uint64_t(base + 600));
  std::vector<memtest::Pattern> parsed;
  std::string unknown;
  ASSERT_TRUE(memtest::parsePatterns(" walkingones, OwnAddress ", parsed, unknown));
  EXPECT_EQ(parsed, (std::vector<memtest::Pattern>{memtest::Pattern::WALKING_ONES,
                                                   memtest::Pattern::OWN_ADDRESS}));
  EXPECT_FALSE(memtest::parsePatterns("WalkingOnes,Zebra", parsed, unknown));
  EXPECT_EQ(unknown, "Zebra");
}

TEST_F(DiagnosticsTest, MemoryTestNamesPatternOffsetAndValuesOfAFlippedBit) {
  auto memory = makeDevice("memory", lm::MEMORY, "");
  auto c = context(LinuxDiagnostics::MEMORY_MODULE, "PatternTest", memory);
  c->setParameter("BufferSizeMB", ValueImp(2u));
  c->setParameter("Patterns", ValueImp("WalkingZeros,OwnAddress"));
  std::atomic<bool> done{false};
  seams.memoryAfterWrite = [&](memtest::Pattern p, unsigned phase, std::uint64_t *words,
                               std::size_t count, std::size_t offset) {
    std::size_t const target = 0x1238;
    if (p == memtest::Pattern::OWN_ADDRESS && phase == 1 && target >= offset &&
        target < offset + count * 8 && !done.exchange(true))
      words[(target - offset) / 8] ^= std::uint64_t(1) << 40;
  };
  TestOutcome const outcome = run(*c);
  EXPECT_EQ(outcome.result, TestResultImp::FAIL) << c->dump();
  EXPECT_EQ(outcome.errorCode, "MEMORY_MISMATCH");
  auto errors = c->eventsOf(EventTypeImp::ERR, "PatternMismatch");
  ASSERT_EQ(errors.size(), 1u) << c->dump();
  std::string const text = errors[0].message().str();
  EXPECT_TRUE(contains(text, "own address (phase 2 of 2)")) << text;
  EXPECT_TRUE(contains(text, "offset 0x0000000000001238")) << text;
  EXPECT_TRUE(contains(text, "bit 40 differ")) << text;
  EXPECT_EQ(errors[0].device(), "memory");
}

TEST_F(DiagnosticsTest, ManyMismatchesAreReportedOneByOneUpToACapAndCountedInAll) {
  auto memory = makeDevice("memory", lm::MEMORY, "");
  auto c = context(LinuxDiagnostics::MEMORY_MODULE, "PatternTest", memory);
  c->setParameter("BufferSizeMB", ValueImp(1u));
  c->setParameter("Patterns", ValueImp("Checkerboard"));
  // Forty words spread over the buffer, whichever worker holds them.
  seams.memoryAfterWrite = [](memtest::Pattern, unsigned phase, std::uint64_t *words,
                              std::size_t count, std::size_t offset) {
    for (std::size_t i = 0; i < 40 && phase == 0; ++i) {
      std::size_t const at = i * 8000;
      if (at >= offset && at < offset + count * 8)
        words[(at - offset) / 8] = ~words[(at - offset) / 8];
    }
  };
  EXPECT_EQ(run(*c).result, TestResultImp::FAIL);
  EXPECT_EQ(c->eventsOf(EventTypeImp::ERR, "PatternMismatch").size(), 16u);
  auto total = c->eventsOf(EventTypeImp::ERR, "PatternMismatchCount");
  ASSERT_EQ(total.size(), 1u) << c->dump();
  EXPECT_TRUE(contains(total[0].message().str(), "40 words")) << total[0].message();
}

TEST(MemoryPatterns, EngineEndsCleanlyWithMoreThreadsThanCpusOrBlocks) {
  memtest::TestBuffer buffer(8 << 20);
  ASSERT_NE(buffer.data(), nullptr);
  {
    memtest::Options options;
    options.threads = 8;
    memtest::PatternEngine engine(buffer.data(), buffer.size(), options);
    engine.start(memtest::allPatterns(), 1000);
    auto const deadline = Clock::now() + std::chrono::seconds(5);
    while (engine.progress() == 0.0 && Clock::now() < deadline)
      engine.waitFor(5);
    ASSERT_GT(engine.progress(), 0.0);
    engine.requestStop();
    EXPECT_TRUE(engine.waitFor(1000)); // every worker left the barrier
    EXPECT_TRUE(engine.stopped());
    EXPECT_EQ(engine.mismatchCount(), 0u);
  }
  // One block for four threads: one thread works, the test completes.
  memtest::Options options;
  options.threads = 4;
  memtest::PatternEngine tiny(buffer.data(), memtest::BLOCK_BYTES, options);
  EXPECT_EQ(tiny.threadCount(), 1u);
  tiny.run(memtest::allPatterns(), 2);
  EXPECT_FALSE(tiny.stopped());
  EXPECT_DOUBLE_EQ(tiny.progress(), 1.0);
  EXPECT_EQ(tiny.mismatchCount(), 0u);
}

TEST_F(DiagnosticsTest, MemoryTestPassesHereAndReadsItsParameters) {
  auto memory = makeDevice("memory", lm::MEMORY, "");
  auto c = context(LinuxDiagnostics::MEMORY_MODULE, "PatternTest", memory);
  c->setParameter("BufferSizeMB", ValueImp(3u));
  c->setParameter("Passes", ValueImp(2u));
  EXPECT_EQ(run(*c).result, TestResultImp::PASS) << c->dump();
  auto summary = c->eventsOf(EventTypeImp::INFORMATIVE, "Summary");
  ASSERT_EQ(summary.size(), 1u);
  EXPECT_TRUE(contains(summary[0].message().str(), "3 MiB")) << summary[0].message();
  EXPECT_TRUE(contains(summary[0].message().str(), "2 pass")) << summary[0].message();
  EXPECT_TRUE(contains(summary[0].message().str(), "walking zeros")) << summary[0].message();

  auto bad = context(LinuxDiagnostics::MEMORY_MODULE, "PatternTest", memory);
  bad->setParameter("Patterns", ValueImp("WalkingOnes,Stripes"));
  EXPECT_EQ(run(*bad).result, TestResultImp::BADPARAMS);
  EXPECT_TRUE(contains(bad->dump(), "Stripes"));
  auto zero = context(LinuxDiagnostics::MEMORY_MODULE, "PatternTest", memory);
  zero->setParameter("BufferSizeMB", ValueImp(0u));
  EXPECT_EQ(run(*zero).result, TestResultImp::BADPARAMS);
}

TEST_F(DiagnosticsTest, MemoryTestSizesItsBufferToTheMemoryAvailable) {
  root = fixture;
  writeFile(fixture + "/proc/meminfo", "MemTotal: 1000000 kB\nMemAvailable: 143360 kB");
  auto c =
      context(LinuxDiagnostics::MEMORY_MODULE, "PatternTest", makeDevice("memory", lm::MEMORY, ""));
  c->setParameter("Patterns", ValueImp("RandomValue"));
  EXPECT_EQ(run(*c).result, TestResultImp::PASS) << c->dump();
  // 140 MiB available, 128 MiB left to the system: 12 MiB tested.
  auto reduced = c->eventsOf(EventTypeImp::INFORMATIVE, "BufferReduced");
  ASSERT_EQ(reduced.size(), 1u) << c->dump();
  EXPECT_TRUE(contains(reduced[0].message().str(), "testing 12 MiB instead of 256 MiB"))
      << reduced[0].message();
  EXPECT_TRUE(contains(c->dump(), "12 MiB (locked) kept every pattern") ||
              contains(c->dump(), "12 MiB kept every pattern"))
      << c->dump();
}

TEST_F(DiagnosticsTest, MemoryTestStopsPromptlyAndKeepsToItsMaximumTime) {
  auto memory = makeDevice("memory", lm::MEMORY, "");
  auto c = context(LinuxDiagnostics::MEMORY_MODULE, "PatternTest", memory);
  c->setParameter("BufferSizeMB", ValueImp(16u));
  c->setParameter("Passes", ValueImp(10000u));
  TestOutcome outcome;
  EXPECT_LT(stopWhenRunning(*c, outcome), std::chrono::milliseconds(500));
  EXPECT_EQ(outcome.result, TestResultImp::USERABORTED);

  auto timed = context(LinuxDiagnostics::MEMORY_MODULE, "PatternTest", memory);
  timed->setParameter("BufferSizeMB", ValueImp(16u));
  timed->setParameter("Passes", ValueImp(10000u));
  timed->setup().setMaxTime(1);
  auto const start = Clock::now();
  EXPECT_EQ(run(*timed).result, TestResultImp::MAXTIMEEXCEEDED);
  EXPECT_LT(Clock::now() - start, std::chrono::milliseconds(1600));
}

TEST_F(DiagnosticsTest, MemoryBandwidthMeasuresReadWriteAndCopy) {
  auto memory = makeDevice("memory", lm::MEMORY, "");
  auto c = context(LinuxDiagnostics::MEMORY_MODULE, "Bandwidth", memory);
  c->setParameter("BufferSizeMB", ValueImp(8u));
  c->setup().setMaxTime(2); // three figures in the time left: about half a second each
  EXPECT_EQ(run(*c).result, TestResultImp::PASS) << c->dump();
  auto m = c->measurements();
  ASSERT_EQ(m.size(), 3u);
  EXPECT_TRUE(contains(m[0].name, "Read") && contains(m[1].name, "Write") &&
              contains(m[2].name, "Copy"));
  for (auto const &x : m) {
    EXPECT_EQ(x.unit, "GB/s");
    EXPECT_GT(x.value, 0.1) << x.name;
  }
}

// ---- processor -----------------------------------------------------------------

class ProcessorTest : public DiagnosticsTest {
protected:
  StateManager::DevicePtr package(std::string const &cpuList) {
    auto cpu = makeDevice("cpu:0", lm::PROCESSOR, "");
    setProperty(cpu, lm::KEY_CPU_LIST, ValueImp(String(cpuList)));
    return cpu;
  }
  std::string allowed = cpuListText(morvain::cpucheck::allowedCpus());
};

TEST(ProcessorChecks, CpuListsAreReadAsTheKernelWritesThem) {
  std::vector<int> cpus;
  ASSERT_TRUE(morvain::cpucheck::parseCpuList("0-3,8-9,12\n", cpus));
  EXPECT_EQ(cpus, (std::vector<int>{0, 1, 2, 3, 8, 9, 12}));
  for (char const *bad : {"", "3-1", "a", "1-", "2,x", "-1"})
    EXPECT_FALSE(morvain::cpucheck::parseCpuList(bad, cpus)) << bad;
}

TEST(ProcessorChecks, TeamRunsEachBodyOnItsOwnCpuAndNamesThoseItCannotReach) {
  std::vector<int> cpus = morvain::cpucheck::allowedCpus();
  ASSERT_FALSE(cpus.empty());
  cpus.push_back(5000); // beyond any CPU set
  std::mutex lock;
  std::vector<std::pair<int, int>> ranOn; // asked, actual
  morvain::cpucheck::CpuTeam team(cpus, [&](std::size_t, int cpu, std::atomic<bool> const &) {
    std::lock_guard<std::mutex> guard(lock);
    ranOn.emplace_back(cpu, sched_getcpu());
  });
  ASSERT_TRUE(team.waitFor(5000));
  EXPECT_EQ(team.unpinned(), std::vector<int>{5000});
  ASSERT_EQ(ranOn.size(), cpus.size() - 1);
  for (auto const &r : ranOn)
    EXPECT_EQ(r.first, r.second);
}

TEST_F(ProcessorTest, KnownAnswerChecksPassOnEveryLogicalCpuHere) {
  for (char const *key : {"IntegerCheck", "FloatingPointCheck", "SimdCheck"}) {
    auto c = context(LinuxDiagnostics::PROCESSOR_MODULE, key, package(allowed));
    c->setParameter("Rounds", ValueImp(3u));
    EXPECT_EQ(run(*c).result, TestResultImp::PASS) << key << "\n" << c->dump();
    auto summary = c->eventsOf(EventTypeImp::INFORMATIVE, "Summary");
    ASSERT_EQ(summary.size(), 1u) << key;
    EXPECT_TRUE(contains(summary[0].message().str(), "3 rounds")) << summary[0].message();
  }
}

TEST_F(ProcessorTest, CpusOutsideReachAreNamedAndLeaveTheResultOpen) {
  auto c = context(LinuxDiagnostics::PROCESSOR_MODULE, "IntegerCheck", package(allowed + ",4000"));
  c->setParameter("Rounds", ValueImp(1u));
  EXPECT_EQ(run(*c).result, TestResultImp::INDETERMINATE) << c->dump();
  auto warnings = c->eventsOf(EventTypeImp::WARNING, "CpuUnreachable");
  ASSERT_EQ(warnings.size(), 1u);
  EXPECT_TRUE(contains(warnings[0].message().str(), "logical CPU 4000"));
}

TEST_F(ProcessorTest, StressKeepsToDurationMaximumTimeAndStop) {
  auto c = context(LinuxDiagnostics::PROCESSOR_MODULE, "Stress", package(allowed));
  c->setParameter("Duration", ValueImp(1u));
  auto start = Clock::now();
  EXPECT_EQ(run(*c).result, TestResultImp::PASS) << c->dump();
  EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(1000));
  EXPECT_LT(Clock::now() - start, std::chrono::milliseconds(2000));

  auto timed = context(LinuxDiagnostics::PROCESSOR_MODULE, "Stress", package(allowed));
  timed->setup().setMaxTime(1);
  start = Clock::now();
  EXPECT_EQ(run(*timed).result, TestResultImp::PASS) << timed->dump();
  EXPECT_LT(Clock::now() - start, std::chrono::milliseconds(1000));
  EXPECT_EQ(timed->eventsOf(EventTypeImp::INFORMATIVE, "Shortened").size(), 1u);

  auto stopped = context(LinuxDiagnostics::PROCESSOR_MODULE, "Stress", package(allowed));
  TestOutcome outcome;
  EXPECT_LT(stopWhenRunning(*stopped, outcome), std::chrono::milliseconds(500));
  EXPECT_EQ(outcome.result, TestResultImp::USERABORTED);
}

TEST_F(ProcessorTest, ThroughputBenchmarkMeasuresOneAndAllCores) {
  auto c = context(LinuxDiagnostics::PROCESSOR_MODULE, "IntegerThroughput", package(allowed));
  c->setup().setMaxTime(1); // two figures of about a quarter second
  EXPECT_EQ(run(*c).result, TestResultImp::PASS) << c->dump();
  auto m = c->measurements();
  ASSERT_EQ(m.size(), 2u);
  EXPECT_TRUE(contains(m[0].name, "one core"));
  EXPECT_TRUE(contains(m[1].name, "all"));
  EXPECT_GT(m[0].value, 1e8);
  EXPECT_GE(m[1].value, m[0].value * 0.5);
  EXPECT_EQ(m[0].unit, "ops/s");
}

// ---- storage -------------------------------------------------------------------

// Flips one byte of the 4 KiB block holding `offset`, through the module's
// own descriptor, with aligned I/O so that it works with O_DIRECT too.
void corrupt(int fd, std::uint64_t offset) {
  void *block = nullptr;
  ASSERT_EQ(posix_memalign(&block, 4096, 4096), 0);
  off_t const at = static_cast<off_t>(offset / 4096 * 4096);
  ASSERT_EQ(pread(fd, block, 4096, at), 4096);
  static_cast<unsigned char *>(block)[offset % 4096] ^= 0x5a;
  int const writer = open(("/proc/self/fd/" + std::to_string(fd)).c_str(), O_WRONLY);
  ASSERT_GE(writer, 0);
  ASSERT_EQ(pwrite(writer, block, 4096, at), 4096);
  close(writer);
  std::free(block);
}

class StorageTest : public DiagnosticsTest {
protected:
  void SetUp() override {
    DiagnosticsTest::SetUp();
    image = fixture + "/disk.img";
    std::vector<unsigned char> data(4 << 20);
    std::uint64_t x = 88172645463325252ull;
    for (auto &b : data) {
      x ^= x << 13, x ^= x >> 7, x ^= x << 17;
      b = static_cast<unsigned char>(x);
    }
    std::ofstream(image, std::ios::binary)
        .write(reinterpret_cast<char const *>(data.data()), data.size());
  }
  // The block device of the filesystem holding the fixture ("/dev/vda1"),
  // or empty when it is not a plain block device (tmpfs, overlay).
  std::string fixtureDisk() {
    struct stat st;
    if (stat(fixture.c_str(), &st) != 0)
      return std::string();
    std::string const link = "/sys/dev/block/" + std::to_string(major(st.st_dev)) + ":" +
                             std::to_string(minor(st.st_dev));
    std::error_code ec;
    fs::path const target = fs::read_symlink(link, ec);
    return ec ? std::string() : "/dev/" + target.filename().string();
  }
  std::string image;
};

TEST_F(StorageTest, SequentialReadOfAFileNamesTheOffsetThatChangedBetweenReads) {
  auto disk = makeDevice("disk:img", lm::DISK, image);
  auto c = context(LinuxDiagnostics::STORAGE_MODULE, "SequentialRead", disk);
  c->setParameter("BlockKB", ValueImp(256u));
  seams.storageBeforeVerifyRead = [](int fd, std::uint64_t offset, std::size_t length) {
    std::uint64_t const target = 0x2a123;
    if (target >= offset && target < offset + length)
      corrupt(fd, target);
  };
  TestOutcome const outcome = run(*c);
  EXPECT_EQ(outcome.result, TestResultImp::FAIL) << c->dump();
  EXPECT_EQ(outcome.errorCode, "STORAGE_MISMATCH");
  auto errors = c->eventsOf(EventTypeImp::ERR, "ReadMismatch");
  ASSERT_EQ(errors.size(), 1u) << c->dump();
  EXPECT_TRUE(contains(errors[0].message().str(), "offset 0x2a123")) << errors[0].message();

  auto clean = context(LinuxDiagnostics::STORAGE_MODULE, "SequentialRead", disk);
  seams.storageBeforeVerifyRead = nullptr;
  EXPECT_EQ(run(*clean).result, TestResultImp::PASS) << clean->dump();
  EXPECT_TRUE(contains(clean->dump(), "read twice and compared 4 MiB")) << clean->dump();
}

TEST_F(StorageTest, RandomReadFindsChangedBlocksAndPassesOtherwise) {
  auto disk = makeDevice("disk:img", lm::DISK, image);
  auto c = context(LinuxDiagnostics::STORAGE_MODULE, "RandomRead", disk);
  c->setParameter("Reads", ValueImp(200u));
  EXPECT_EQ(run(*c).result, TestResultImp::PASS) << c->dump();
  EXPECT_TRUE(contains(c->dump(), "200 random reads of 4 KiB")) << c->dump();

  auto bad = context(LinuxDiagnostics::STORAGE_MODULE, "RandomRead", disk);
  bad->setParameter("Reads", ValueImp(20u));
  seams.storageBeforeVerifyRead = [](int fd, std::uint64_t offset, std::size_t) {
    corrupt(fd, offset + 100);
  };
  EXPECT_EQ(run(*bad).result, TestResultImp::FAIL);
  auto errors = bad->eventsOf(EventTypeImp::ERR, "ReadMismatch");
  ASSERT_FALSE(errors.empty());
  EXPECT_LE(errors.size(), 8u); // gives up after a few faults
}

TEST_F(StorageTest, TestFileOnTheDisksFilesystemIsCheckedAgainstItsKnownContent) {
  std::string const disk = fixtureDisk();
  if (disk.empty())
    GTEST_SKIP() << "the temporary folder is not on a block device";
  auto device = makeDevice("disk:here", lm::DISK, disk);
  auto c = context(LinuxDiagnostics::STORAGE_MODULE, "SequentialRead", device);
  c->setParameter("SizeMB", ValueImp(4u));
  seams.storageForceTemporaryFile = true;
  seams.storageBeforeVerifyRead = [](int fd, std::uint64_t offset, std::size_t length) {
    if (0x10008 >= offset && 0x10008 < offset + length)
      corrupt(fd, 0x10008);
  };
  TestOutcome const outcome = run(*c);
  if (outcome.result == TestResultImp::INSUFFICIENTPRIVILEGE)
    GTEST_SKIP() << "no writable folder on " << disk << "\n" << c->dump();
  EXPECT_EQ(outcome.result, TestResultImp::FAIL) << c->dump();
  EXPECT_EQ(c->eventsOf(EventTypeImp::INFORMATIVE, "TestFile").size(), 1u) << c->dump();
  auto errors = c->eventsOf(EventTypeImp::ERR, "ReadMismatch");
  ASSERT_EQ(errors.size(), 1u) << c->dump();
  EXPECT_TRUE(contains(errors[0].message().str(), "offset 0x10008 of the test file"))
      << errors[0].message();

  auto speed = context(LinuxDiagnostics::STORAGE_MODULE, "SequentialReadSpeed", device);
  speed->setParameter("SizeMB", ValueImp(4u));
  seams.storageBeforeVerifyRead = nullptr;
  EXPECT_EQ(run(*speed).result, TestResultImp::PASS) << speed->dump();
  ASSERT_EQ(speed->measurements().size(), 1u);
  EXPECT_EQ(speed->measurements()[0].unit, "MB/s");
  EXPECT_GT(speed->measurements()[0].value, 0.0);
}

TEST_F(StorageTest, ReadErrorsAreNarrowedToTheFailingBlockAndFail) {
  auto disk = makeDevice("disk:img", lm::DISK, image);
  std::uint64_t const bad = 0x30200;
  std::atomic<int> failures{0};
  bool transient = false;
  seams.storageReadError = [&](std::uint64_t offset, std::size_t length) {
    if (bad < offset || bad >= offset + length)
      return 0;
    if (transient && failures.load() > 0)
      return 0;
    ++failures;
    return EIO;
  };
  for (char const *key : {"SequentialRead", "SequentialReadSpeed"}) {
    auto c = context(LinuxDiagnostics::STORAGE_MODULE, key, disk);
    TestOutcome const outcome = run(*c);
    EXPECT_EQ(outcome.result, TestResultImp::FAIL) << key << "\n" << c->dump();
    EXPECT_EQ(outcome.errorCode, "STORAGE_READ_ERROR");
    auto errors = c->eventsOf(EventTypeImp::ERR, "ReadError");
    ASSERT_EQ(errors.size(), 1u) << key << "\n" << c->dump();
    // A file is narrowed to its 4 KiB page; a device to its sector.
    EXPECT_TRUE(contains(errors[0].message().str(), "read error at offset 0x30000: "))
        << errors[0].message();
    EXPECT_TRUE(contains(errors[0].message().str(), std::strerror(EIO))) << errors[0].message();
  }
  transient = true;
  failures = 0;
  auto c = context(LinuxDiagnostics::STORAGE_MODULE, "SequentialReadSpeed", disk);
  EXPECT_EQ(run(*c).result, TestResultImp::FAIL);
  EXPECT_TRUE(contains(c->dump(), "it read right the second time")) << c->dump();
}

TEST_F(StorageTest, TestFileGoesToAWritableMountOfTheDiskOrOfItsPartitions) {
  root = fixture;
  writeFile(fixture + "/sys/class/block/sdq/dev", "8:16");
  writeFile(fixture + "/sys/class/block/sdq/sdq1/partition", "1");
  writeFile(fixture + "/sys/class/block/sdq/sdq1/dev", "8:17");
  fs::create_directories(fixture + "/mnt/my disk");
  fs::create_directories(fixture + "/mnt/read only");
  std::string const readOnly = "21 1 8:17 / /mnt/read\\040only ro,relatime - ext4 /dev/sdq1 ro";
  std::string const writable = "22 1 8:17 / /mnt/my\\040disk rw,relatime - ext4 /dev/sdq1 rw";
  writeFile(fixture + "/proc/self/mountinfo", readOnly + "\n" + writable);
  seams.storageForceTemporaryFile = true;
  auto disk = makeDevice("disk:q", lm::DISK, "/dev/sdq");
  auto c = context(LinuxDiagnostics::STORAGE_MODULE, "RandomRead", disk);
  c->setParameter("Reads", ValueImp(50u));
  EXPECT_EQ(run(*c).result, TestResultImp::PASS) << c->dump();
  auto file = c->eventsOf(EventTypeImp::INFORMATIVE, "TestFile");
  ASSERT_EQ(file.size(), 1u) << c->dump();
  EXPECT_TRUE(contains(file[0].message().str(), "in /mnt/my disk")) << file[0].message();
  EXPECT_TRUE(fs::is_empty(fixture + "/mnt/my disk")); // the file had no name

  writeFile(fixture + "/proc/self/mountinfo", readOnly);
  auto none = context(LinuxDiagnostics::STORAGE_MODULE, "SequentialRead", disk);
  EXPECT_EQ(run(*none).result, TestResultImp::INSUFFICIENTPRIVILEGE);
  EXPECT_TRUE(contains(none->dump(), "no filesystem of sdq is mounted for writing"))
      << none->dump();
}

TEST(StorageHealth, NvmeHealthLogAndAtaStatusAreReadAtTheirOffsets) {
  unsigned char log[512] = {};
  log[0] = 0x04;                // reliability degraded
  log[1] = 0x36, log[2] = 0x01; // 310 K
  log[3] = 50, log[4] = 10, log[5] = 103;
  log[32] = 0x80, log[33] = 0x84, log[34] = 0x1e; // 2,000,000 units of 512,000 bytes
  log[128] = 0xd2, log[129] = 0x04;               // 1234 hours
  log[160] = 5;                                   // media errors
  morvain::storage::HealthReport report;
  morvain::storage::parseNvmeHealthLog(log, report);
  EXPECT_TRUE(report.readable);
  std::map<std::string, double> values;
  for (auto const &m : report.measurements)
    values[m.name] = m.value;
  EXPECT_EQ(values["Temperature"], 37.0);
  EXPECT_EQ(values["Available spare"], 50.0);
  EXPECT_EQ(values["Endurance used"], 103.0);
  EXPECT_EQ(values["Power-on hours"], 1234.0);
  EXPECT_EQ(values["Media and data integrity errors"], 5.0);
  EXPECT_DOUBLE_EQ(values["Data read"], 1.024);
  int failures = 0, warnings = 0;
  for (auto const &f : report.findings)
    (f.severity == morvain::storage::HealthFinding::FAILURE ? failures : warnings)++;
  EXPECT_EQ(failures, 1); // degraded reliability
  EXPECT_EQ(warnings, 2); // endurance used up, media errors

  unsigned char sense[32] = {0x72, 0, 0, 0, 0, 0, 0, 14, 0x09, 0x0c};
  sense[8 + 9] = 0x4f, sense[8 + 11] = 0xc2;
  EXPECT_EQ(morvain::storage::ataSmartStatus(sense, sizeof sense), 1);
  sense[8 + 9] = 0xf4, sense[8 + 11] = 0x2c;
  EXPECT_EQ(morvain::storage::ataSmartStatus(sense, sizeof sense), 0);
  sense[8] = 0x0a; // another descriptor
  EXPECT_EQ(morvain::storage::ataSmartStatus(sense, sizeof sense), -1);
  sense[0] = 0x70; // fixed format: no descriptor to read
  EXPECT_EQ(morvain::storage::ataSmartStatus(sense, sizeof sense), -1);
}

TEST_F(StorageTest, AbsentDisksAndUnreadableHealthAreSaidAsTheyAre) {
  root = fixture;
  auto gone = makeDevice("disk:gone", lm::DISK, "/dev/sdz");
  auto c = context(LinuxDiagnostics::STORAGE_MODULE, "SequentialRead", gone);
  EXPECT_EQ(run(*c).result, TestResultImp::NODEVICE) << c->dump();
  auto h = context(LinuxDiagnostics::STORAGE_MODULE, "Health", gone);
  EXPECT_EQ(run(*h).result, TestResultImp::NODEVICE) << h->dump();

  // A virtio disk reports no health at all; an eMMC past its life time fails.
  writeFile(fixture + "/sys/class/block/vdb/dev", "254:16");
  auto virtio = context(LinuxDiagnostics::STORAGE_MODULE, "Health",
                        makeDevice("disk:v", lm::DISK, "/dev/vdb"));
  EXPECT_EQ(run(*virtio).result, TestResultImp::NOTAPPLICABLE);
  EXPECT_EQ(virtio->eventsOf(EventTypeImp::INFORMATIVE, "HealthNotReadable").size(), 1u);
  EXPECT_TRUE(virtio->measurements().empty());

  writeFile(fixture + "/sys/class/block/mmcblk0/device/life_time", "0x0b 0x02");
  writeFile(fixture + "/sys/class/block/mmcblk0/device/pre_eol_info", "0x01");
  auto emmc = context(LinuxDiagnostics::STORAGE_MODULE, "Health",
                      makeDevice("disk:m", lm::DISK, "/dev/mmcblk0"));
  EXPECT_EQ(run(*emmc).result, TestResultImp::FAIL) << emmc->dump();
  EXPECT_EQ(emmc->eventsOf(EventTypeImp::ERR, "HealthFailure").size(), 1u);
  ASSERT_EQ(emmc->measurements().size(), 2u);
  EXPECT_EQ(emmc->measurements()[1].value, 20.0);

  // A SATA disk: the kernel's error count is read by anyone, the SMART
  // status needs the device node (there is none in the fixture).
  writeFile(fixture + "/sys/class/block/sdk/device/vendor", "ATA     ");
  writeFile(fixture + "/sys/class/block/sdk/device/ioerr_cnt", "0x5");
  writeFile(fixture + "/sys/class/block/sdk/device/state", "running");
  auto sata = context(LinuxDiagnostics::STORAGE_MODULE, "Health",
                      makeDevice("disk:k", lm::DISK, "/dev/sdk"));
  EXPECT_EQ(run(*sata).result, TestResultImp::WARN) << sata->dump();
  EXPECT_TRUE(contains(sata->dump(), "counted 5 failed I/O commands")) << sata->dump();
  EXPECT_TRUE(contains(sata->dump(), "ATA SMART status is not readable")) << sata->dump();
  writeFile(fixture + "/sys/class/block/sdk/device/state", "offline");
  auto offline = context(LinuxDiagnostics::STORAGE_MODULE, "Health",
                         makeDevice("disk:k", lm::DISK, "/dev/sdk"));
  EXPECT_EQ(run(*offline).result, TestResultImp::FAIL);
  EXPECT_TRUE(contains(offline->dump(), "taken the disk offline"));

  // An NVMe controller the kernel gave up on fails even when its log
  // cannot be read (there is no /dev node in the fixture).
  writeFile(fixture + "/sys/class/nvme/nvme3/state", "dead");
  fs::create_directories(fixture + "/sys/class/block/nvme3n1");
  fs::create_symlink("../../nvme/nvme3", fixture + "/sys/class/block/nvme3n1/device");
  auto nvme = context(LinuxDiagnostics::STORAGE_MODULE, "Health",
                      makeDevice("disk:n", lm::DISK, "/dev/nvme3n1"));
  EXPECT_EQ(run(*nvme).result, TestResultImp::FAIL) << nvme->dump();
  EXPECT_TRUE(contains(nvme->dump(), "SMART / health log is not readable")) << nvme->dump();
}

TEST_F(StorageTest, HealthOfThisMachinesDiskIsReportedHonestly) {
  std::string disk = fixtureDisk();
  if (disk.empty())
    GTEST_SKIP() << "the temporary folder is not on a block device";
  // The partition's disk, where there is one.
  std::error_code ec;
  std::string const name = disk.substr(5);
  for (auto const &entry : fs::directory_iterator("/sys/block", ec))
    if (fs::exists(entry.path() / name / "partition"))
      disk = "/dev/" + entry.path().filename().string();
  auto c =
      context(LinuxDiagnostics::STORAGE_MODULE, "Health", makeDevice("disk:h", lm::DISK, disk));
  TestOutcome const outcome = run(*c);
  auto const r = outcome.result;
  EXPECT_TRUE(r == TestResultImp::PASS || r == TestResultImp::WARN ||
              r == TestResultImp::NOTAPPLICABLE || r == TestResultImp::INSUFFICIENTPRIVILEGE)
      << r.toString() << "\n"
      << c->dump();
  EXPECT_FALSE(c->events().empty()); // what was read, or why nothing could be
  if (r == TestResultImp::NOTAPPLICABLE) {
    EXPECT_TRUE(c->measurements().empty());
  }
}

// ---- network -------------------------------------------------------------------

TEST_F(DiagnosticsTest, LoopbackInterfaceCarriesAVerifiedTransfer) {
  auto lo = makeDevice("net:lo", lm::NETWORK, "lo");
  auto link = context(LinuxDiagnostics::NETWORK_MODULE, "LinkState", lo);
  EXPECT_EQ(run(*link).result, TestResultImp::PASS) << link->dump();

  auto c = context(LinuxDiagnostics::NETWORK_MODULE, "Loopback", lo);
  c->setParameter("SizeMB", ValueImp(8u));
  EXPECT_EQ(run(*c).result, TestResultImp::PASS) << c->dump();
  auto m = c->measurements();
  ASSERT_EQ(m.size(), 1u);
  EXPECT_TRUE(contains(m[0].name, "127.0.0.1")) << m[0].name;
  EXPECT_GT(m[0].value, 1.0);
}

TEST_F(DiagnosticsTest, LoopbackTransferStopsPromptly) {
  auto c = context(LinuxDiagnostics::NETWORK_MODULE, "Loopback",
                   makeDevice("net:lo", lm::NETWORK, "lo"));
  c->setParameter("SizeMB", ValueImp(100000u));
  TestOutcome outcome;
  EXPECT_LT(stopWhenRunning(*c, outcome), std::chrono::milliseconds(500));
  EXPECT_EQ(outcome.result, TestResultImp::USERABORTED) << c->dump();
}

TEST_F(DiagnosticsTest, NetworkLinkDownIsNoCableAndAMissingInterfaceNoDevice) {
  root = fixture;
  writeFile(fixture + "/sys/class/net/eth9/operstate", "down");
  writeFile(fixture + "/sys/class/net/eth9/carrier", "0");
  writeFile(fixture + "/sys/class/net/eth9/flags", "0x1003");
  auto down = makeDevice("net:eth9", lm::NETWORK, "eth9");
  for (char const *key : {"LinkState", "Loopback"}) {
    auto c = context(LinuxDiagnostics::NETWORK_MODULE, key, down);
    EXPECT_EQ(run(*c).result, TestResultImp::NOCABLE) << key;
    EXPECT_TRUE(contains(c->dump(), "no carrier")) << c->dump();
  }
  auto c = context(LinuxDiagnostics::NETWORK_MODULE, "LinkState",
                   makeDevice("net:gone", lm::NETWORK, "eth7"));
  EXPECT_EQ(run(*c).result, TestResultImp::NODEVICE);

  struct Case {
    char const *operstate, *carrier, *flags;
    bool wireless;
    TestResultImp expected;
    char const *says;
  };
  Case const cases[] = {
      {"dormant", "1", "0x1003", true, TestResultImp::NOCONNECTION, "not connected to a wireless"},
      {"down", "", "0x1002", false, TestResultImp::NOCABLE, "switched off"},
      {"unknown", "1", "0x1003", false, TestResultImp::PASS, "has a link"},
  };
  for (Case const &k : cases) {
    std::string const base = fixture + "/sys/class/net/if0/";
    fs::remove_all(base);
    writeFile(base + "operstate", k.operstate);
    writeFile(base + "carrier", k.carrier);
    writeFile(base + "flags", k.flags);
    if (k.wireless)
      fs::create_directories(base + "wireless");
    auto one = context(LinuxDiagnostics::NETWORK_MODULE, "LinkState",
                       makeDevice("net:if0", lm::NETWORK, "if0"));
    EXPECT_EQ(run(*one).result, k.expected) << k.operstate;
    EXPECT_TRUE(contains(one->dump(), k.says)) << one->dump();
  }
}

// ---- sensors, battery, optical ----------------------------------------------------

TEST_F(DiagnosticsTest, SensorReadingsAreJudgedByTheChipsLimits) {
  root = fixture;
  std::string const hw = fixture + "/sys/class/hwmon/hwmon0/";
  writeFile(hw + "temp1_input", "105000");
  writeFile(hw + "temp1_max", "80000");
  writeFile(hw + "temp1_crit", "100000");
  writeFile(hw + "temp2_input", "85000");
  writeFile(hw + "temp2_max", "80000");
  writeFile(hw + "temp3_input", "45000");
  writeFile(hw + "in0_input", "1210");
  writeFile(hw + "in0_min", "1000");
  writeFile(hw + "in0_max", "1300");
  writeFile(hw + "fan1_input", "300");
  writeFile(hw + "fan1_min", "600");
  writeFile(hw + "fan2_input", "1500");
  writeFile(hw + "fan2_fault", "1");
  writeFile(hw + "in1_input", "950");
  writeFile(hw + "in1_min", "1000");
  writeFile(hw + "temp4_input", "40000");
  writeFile(hw + "temp4_crit_alarm", "1");
  writeFile(fixture + "/sys/class/hwmon/hwmon1/device/temp1_input", "30000");
  std::string const tz = fixture + "/sys/class/thermal/thermal_zone0/";
  writeFile(tz + "temp", "50000");
  writeFile(tz + "trip_point_0_type", "critical");
  writeFile(tz + "trip_point_0_temp", "100000");

  struct Case {
    char const *type;
    char const *locator;
    TestResultImp expected;
    char const *says;
  };
  Case const cases[] = {
      {lm::TEMPERATURE_SENSOR, "/sys/class/hwmon/hwmon0/temp1", TestResultImp::FAIL,
       "105.0 C is at or over its critical limit of 100.0 C"},
      {lm::TEMPERATURE_SENSOR, "/sys/class/hwmon/hwmon0/temp2", TestResultImp::WARN,
       "over its maximum of 80.0 C"},
      {lm::TEMPERATURE_SENSOR, "/sys/class/hwmon/hwmon0/temp3", TestResultImp::PASS,
       "warning at 90.0 C"},
      {lm::VOLTAGE_SENSOR, "/sys/class/hwmon/hwmon0/in0", TestResultImp::PASS, "Average voltage"},
      {lm::FAN, "/sys/class/hwmon/hwmon0/fan1", TestResultImp::FAIL, "under its minimum of 600"},
      {lm::THERMAL_ZONE, "/sys/class/thermal/thermal_zone0", TestResultImp::PASS, ""},
      {lm::FAN, "/sys/class/hwmon/hwmon0/fan2", TestResultImp::FAIL, "reports a fault"},
      {lm::VOLTAGE_SENSOR, "/sys/class/hwmon/hwmon0/in1", TestResultImp::FAIL,
       "0.950 V is under its minimum of 1.000 V"},
      {lm::TEMPERATURE_SENSOR, "/sys/class/hwmon/hwmon0/temp4", TestResultImp::FAIL,
       "critical alarm"},
      {lm::TEMPERATURE_SENSOR, "/sys/class/hwmon/hwmon1/temp1", TestResultImp::PASS,
       "Average temperature"},
      {lm::TEMPERATURE_SENSOR, "/sys/class/hwmon/hwmon0/temp9", TestResultImp::NODEVICE,
       "is not there"},
  };
  for (Case const &k : cases) {
    auto c =
        context(LinuxDiagnostics::SENSORS_MODULE, "Limits", makeDevice("s", k.type, k.locator));
    c->setParameter("Readings", ValueImp(2u));
    c->setParameter("IntervalMs", ValueImp(10u));
    EXPECT_EQ(run(*c).result, k.expected) << k.locator << "\n" << c->dump();
    std::string all = c->dump();
    for (auto const &m : c->measurements())
      all += m.name + "\n";
    EXPECT_TRUE(contains(all, k.says)) << k.locator << "\n" << all;
  }
}

TEST_F(DiagnosticsTest, SensorReadingsEndAtAStopOrAtTheMaximumTime) {
  root = fixture;
  writeFile(fixture + "/sys/class/hwmon/hwmon0/temp1_input", "40000");
  auto sensor = makeDevice("s", lm::TEMPERATURE_SENSOR, "/sys/class/hwmon/hwmon0/temp1");
  auto c = context(LinuxDiagnostics::SENSORS_MODULE, "Limits", sensor);
  c->setParameter("Readings", ValueImp(1000u));
  c->setParameter("IntervalMs", ValueImp(200u));
  TestOutcome outcome;
  EXPECT_LT(stopWhenRunning(*c, outcome), std::chrono::milliseconds(300));
  EXPECT_EQ(outcome.result, TestResultImp::USERABORTED);

  auto timed = context(LinuxDiagnostics::SENSORS_MODULE, "Limits", sensor);
  timed->setParameter("Readings", ValueImp(1000u));
  timed->setParameter("IntervalMs", ValueImp(200u));
  timed->setup().setMaxTime(1);
  auto const start = Clock::now();
  EXPECT_EQ(run(*timed).result, TestResultImp::MAXTIMEEXCEEDED);
  EXPECT_LT(Clock::now() - start, std::chrono::milliseconds(1300));
}

TEST_F(DiagnosticsTest, BatteryWearIsJudgedByTheThresholdParameters) {
  root = fixture;
  std::string const bat = fixture + "/sys/class/power_supply/BAT0/";
  writeFile(bat + "present", "1");
  writeFile(bat + "energy_full", "30000000");
  writeFile(bat + "energy_full_design", "50000000");
  writeFile(bat + "capacity", "80");
  writeFile(bat + "status", "Discharging");
  auto battery = makeDevice("battery:0", lm::BATTERY, "/sys/class/power_supply/BAT0");

  auto c = context(LinuxDiagnostics::BATTERY_MODULE, "Health", battery);
  EXPECT_EQ(run(*c).result, TestResultImp::WARN) << c->dump();
  EXPECT_TRUE(contains(c->dump(), "60.0 % of its design capacity")) << c->dump();

  auto strict = context(LinuxDiagnostics::BATTERY_MODULE, "Health", battery);
  strict->setParameter("FailHealthPercent", ValueImp(65u));
  EXPECT_EQ(run(*strict).result, TestResultImp::FAIL);
  EXPECT_EQ(strict->eventsOf(EventTypeImp::ERR, "Worn").size(), 1u);

  auto lenient = context(LinuxDiagnostics::BATTERY_MODULE, "Health", battery);
  lenient->setParameter("WarnHealthPercent", ValueImp(50u));
  lenient->setParameter("FailHealthPercent", ValueImp(30u));
  lenient->setParameter("WarnChargePercent", ValueImp(90u));
  EXPECT_EQ(run(*lenient).result, TestResultImp::WARN); // now for the charge
  EXPECT_EQ(lenient->eventsOf(EventTypeImp::WARNING, "LowCharge").size(), 1u);

  // Batteries that count charge instead of energy, and report their state.
  std::string const bat1 = fixture + "/sys/class/power_supply/BAT1/";
  writeFile(bat1 + "charge_full", "4000000");
  writeFile(bat1 + "charge_full_design", "4400000");
  writeFile(bat1 + "health", "Dead");
  auto dead = context(LinuxDiagnostics::BATTERY_MODULE, "Health",
                      makeDevice("battery:1", lm::BATTERY, "/sys/class/power_supply/BAT1"));
  EXPECT_EQ(run(*dead).result, TestResultImp::FAIL);
  EXPECT_TRUE(contains(dead->dump(), "90.9 % of its design capacity")) << dead->dump();
  EXPECT_TRUE(contains(dead->dump(), "health as \"Dead\"")) << dead->dump();

  writeFile(bat + "present", "0");
  auto empty = context(LinuxDiagnostics::BATTERY_MODULE, "Health", battery);
  EXPECT_EQ(run(*empty).result, TestResultImp::NODEVICE);
}

TEST_F(DiagnosticsTest, OpticalDriveThatIsNotThereIsNoDevice) {
  root = fixture;
  auto c = context(LinuxDiagnostics::OPTICAL_MODULE, "MediaPresent",
                   makeDevice("optical:0", lm::OPTICAL, "/dev/sr0"));
  EXPECT_EQ(run(*c).result, TestResultImp::NODEVICE) << c->dump();
}

} // namespace
