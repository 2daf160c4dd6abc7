// The memory pattern test of the Linux diagnostics against two baselines
// measured in the same run.
//
// 1. memtester (run as a separate process, if installed). The comparison
//    is kept fair this way:
//    - same size: a 64 MiB buffer on both sides ("memtester 64M 1"), locked
//      with mlock on both sides (memtester locks when it may; so do we);
//    - same patterns, one loop: MEMTESTER_TEST_MASK selects memtester's
//      Random Value, Solid Bits, Checkerboard, Walking Ones and Walking
//      Zeroes tests; its Stuck Address test always runs and matches our own
//      address pattern, so both run the same six named patterns once;
//    - the same setup costs on both sides: memtester's time is the whole
//      process (start, allocation, locking, tests, exit, output to
//      /dev/null), ours includes allocating and locking the buffer;
//    - ours runs before and after memtester and the two are averaged, so
//      that load changing during the run does not favour either side.
//    Counters: ratio (memtester wall time / ours, all cores as the test
//    runs), ratio_1thread (ours on one thread, as memtester runs) and
//    cpu_ratio (processor time of memtester / ours, the work each does
//    whatever the core count). Goal: ratio >= 3.
// 2. memcpy on the same buffer. Bandwidth counts bytes read plus bytes
//    written per second on both sides: one pattern sweep reads and writes
//    the buffer once; memcpy of one half onto the other reads one half and
//    writes the other. Both on one thread. Goal: ratio >= 0.5.

#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <string>
#include <vector>

#include "linux/MemoryPatterns.h"

extern char **environ;

namespace {

namespace memtest = morvain::memtest;
using Clock = std::chrono::steady_clock;

constexpr std::size_t kBytes = 64u << 20;
constexpr char const *kMemtesterSize = "64M";
// Bits of memtester's test list: Random Value 0, Solid Bits 8, Checkerboard
// 10, Walking Ones 13, Walking Zeroes 14 (as memtester prints them).
constexpr unsigned kMemtesterMask = (1u << 0) | (1u << 8) | (1u << 10) | (1u << 13) | (1u << 14);

struct Timed {
  double wall = 0;
  double cpu = 0;
  bool ok = false;
};

double seconds(timeval const &t) { return double(t.tv_sec) + double(t.tv_usec) / 1e6; }

Timed memtester() {
  Timed t;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
  std::vector<std::string> env;
  for (char **e = environ; *e; ++e)
    if (std::strncmp(*e, "MEMTESTER_TEST_MASK=", 20) != 0)
      env.push_back(*e);
  env.push_back("MEMTESTER_TEST_MASK=" + std::to_string(kMemtesterMask));
  std::vector<char *> envp;
  for (auto &e : env)
    envp.push_back(&e[0]);
  envp.push_back(nullptr);
  char const *argv[] = {"memtester", kMemtesterSize, "1", nullptr};
  pid_t pid = 0;
  auto const start = Clock::now();
  int const rc =
      posix_spawnp(&pid, "memtester", &actions, nullptr, const_cast<char **>(argv), envp.data());
  posix_spawn_file_actions_destroy(&actions);
  if (rc != 0)
    return t;
  int status = 0;
  rusage usage{};
  wait4(pid, &status, 0, &usage);
  t.wall = std::chrono::duration<double>(Clock::now() - start).count();
  t.cpu = seconds(usage.ru_utime) + seconds(usage.ru_stime);
  t.ok = WIFEXITED(status) && WEXITSTATUS(status) == 0;
  return t;
}

double processCpu() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

Timed ours(unsigned threads) {
  Timed t;
  double const cpu = processCpu();
  auto const start = Clock::now();
  {
    memtest::TestBuffer buffer(kBytes);
    if (!buffer.data())
      return t;
    memtest::Options options;
    options.threads = threads;
    memtest::PatternEngine engine(buffer.data(), buffer.size(), options);
    engine.run(memtest::allPatterns(), 1);
    t.ok = engine.mismatchCount() == 0;
  }
  t.wall = std::chrono::duration<double>(Clock::now() - start).count();
  t.cpu = processCpu() - cpu;
  return t;
}

void BM_PatternTest_vs_Memtester(benchmark::State &state) {
  for (auto _ : state) {
    Timed const before = ours(0);
    Timed const baseline = memtester();
    Timed const after = ours(0);
    Timed const single = ours(1);
    if (!baseline.ok) {
      state.SkipWithError("memtester is not installed or failed");
      return;
    }
    if (!before.ok || !after.ok || !single.ok) {
      state.SkipWithError("the pattern engine found mismatches");
      return;
    }
    double const wall = (before.wall + after.wall) / 2;
    double const cpu = (before.cpu + after.cpu) / 2;
    state.SetIterationTime(wall);
    state.counters["ours_s"] = wall;
    state.counters["ours_1thread_s"] = single.wall;
    state.counters["memtester_s"] = baseline.wall;
    state.counters["ratio"] = baseline.wall / wall;
    state.counters["ratio_1thread"] = baseline.wall / single.wall;
    state.counters["cpu_ratio"] = cpu > 0 ? baseline.cpu / cpu : 0;
    state.counters["goal_ratio"] = 3.0;
  }
}
BENCHMARK(BM_PatternTest_vs_Memtester)
    ->UseManualTime()
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);

void BM_PatternSweep_vs_Memcpy(benchmark::State &state) {
  memtest::TestBuffer buffer(kBytes);
  if (!buffer.data()) {
    state.SkipWithError("no memory");
    return;
  }
  auto *bytes = static_cast<unsigned char *>(buffer.data());
  for (auto _ : state) {
    // Walking ones: 65 sweeps of the whole buffer on one thread.
    memtest::Options options;
    options.threads = 1;
    auto start = Clock::now();
    std::uint64_t traffic = 0;
    {
      memtest::PatternEngine engine(buffer.data(), buffer.size(), options);
      engine.run({memtest::Pattern::WALKING_ONES}, 1);
      traffic = engine.bytesTouched();
    }
    double const sweepSeconds = std::chrono::duration<double>(Clock::now() - start).count();
    // memcpy of one half onto the other, about as much traffic.
    std::size_t const half = kBytes / 2;
    std::uint64_t const copies = std::max<std::uint64_t>(1, traffic / (2 * half));
    start = Clock::now();
    for (std::uint64_t i = 0; i < copies; ++i) {
      std::memcpy(bytes + (i & 1 ? 0 : half), bytes + (i & 1 ? half : 0), half);
      benchmark::ClobberMemory();
    }
    double const copySeconds = std::chrono::duration<double>(Clock::now() - start).count();
    double const sweepRate = double(traffic) / sweepSeconds;
    double const copyRate = double(copies * 2 * half) / copySeconds;
    state.SetIterationTime(sweepSeconds);
    state.counters["ours_GBps"] = sweepRate / 1e9;
    state.counters["memcpy_GBps"] = copyRate / 1e9;
    state.counters["ratio"] = sweepRate / copyRate;
    state.counters["goal_ratio"] = 0.5;
  }
}
BENCHMARK(BM_PatternSweep_vs_Memcpy)->UseManualTime()->Iterations(3)->Unit(benchmark::kMillisecond);

} // namespace
