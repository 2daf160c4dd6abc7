// The memory module: the pattern test and the bandwidth benchmark.

#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cstring>

#include "linux/DiagnosticModules.h"
#include "linux/MemoryPatterns.h"
#include "linux/ProcessorChecks.h"

namespace morvain {
namespace diag {

namespace {

using Result = zel::TestResultImp;
using memtest::Mismatch;

constexpr std::uint64_t MIB = 1 << 20;
// Mismatches reported one by one; the rest are counted in the summary.
constexpr std::size_t REPORTED_MISMATCHES = 16;
// Memory left to the rest of the system when the buffer is sized down.
constexpr std::uint64_t RESERVE = 128 * MIB;

std::string differingBits(std::uint64_t x) {
  std::string text;
  int count = 0;
  for (int b = 0; b < 64; ++b) {
    if (x >> b & 1) {
      if (++count > 8) {
        text += ", ...";
        break;
      }
      text += (text.empty() ? "" : ", ") + std::to_string(b);
    }
  }
  return (count == 1 ? "bit " : "bits ") + text;
}

std::string describe(Mismatch const &m, void const *base) {
  std::string const pattern = std::string(memtest::patternName(m.pattern)) + " (phase " +
                              std::to_string(m.phase + 1) + " of " +
                              std::to_string(memtest::phaseCount(m.pattern)) + ")";
  auto const address = reinterpret_cast<std::uintptr_t>(base) + m.offset;
  if (m.transient)
    return pattern + ": the 4 KiB block at offset " + hex64(m.offset) + " (address " +
           hex64(address) + ") read wrong once and right when read again";
  return pattern + ": word at offset " + hex64(m.offset) + " (address " + hex64(address) +
         ") read " + hex64(m.actual) + ", expected " + hex64(m.expected) + " (" +
         differingBits(m.actual ^ m.expected) + " differ)";
}

bool choosePatterns(DiagnosticRun &run, std::vector<memtest::Pattern> &patterns) {
  std::string unknown;
  if (!memtest::parsePatterns(run.stringParameter("Patterns", "all"), patterns, unknown)) {
    run.info("BadParameter", "Patterns: \"" + unknown + "\" is not a pattern");
    return false;
  }
  return true;
}

// The buffer size asked for, cut to what the system can spare.
bool bufferSize(DiagnosticRun &run, std::uint64_t &bytes) {
  std::uint64_t const mb = run.uintParameter("BufferSizeMB", 256);
  if (mb == 0 || mb > (std::uint64_t(1) << 30)) {
    run.info("BadParameter", "BufferSizeMB must be from 1 to 1073741824");
    return false;
  }
  bytes = mb * MIB;
  std::uint64_t const available = memtest::availableMemory(run.root());
  if (available != 0 && bytes + RESERVE > available) {
    std::uint64_t const fit = available > RESERVE + MIB ? (available - RESERVE) / MIB * MIB : 0;
    run.info("BufferReduced",
             "only " + std::to_string(available / MIB) + " MiB of memory are available: testing " +
                 std::to_string(fit / MIB) + " MiB instead of " + std::to_string(mb) + " MiB");
    bytes = fit;
  }
  return true;
}

void reportLock(DiagnosticRun &run, memtest::TestBuffer const &buffer) {
  if (buffer.locked())
    return;
  rlimit limit{};
  getrlimit(RLIMIT_MEMLOCK, &limit);
  std::string const cap = limit.rlim_cur == RLIM_INFINITY
                              ? std::string("unlimited")
                              : std::to_string(limit.rlim_cur / 1024) + " KiB";
  run.info("NotLocked", "the test buffer could not be locked in memory (mlock: " +
                            std::string(std::strerror(buffer.error())) +
                            "; the locked-memory limit is " + cap +
                            "): the kernel may move its pages while it is tested");
}

TestOutcome patternTest(DiagnosticRun &run, LinuxDiagnostics::Seams const &seams) {
  std::vector<memtest::Pattern> patterns;
  std::uint64_t bytes = 0;
  if (!choosePatterns(run, patterns) || !bufferSize(run, bytes))
    return run.outcome(Result::BADPARAMS);
  std::uint64_t const passes = run.uintParameter("Passes", 1);
  if (passes == 0 || passes > 100000) {
    run.info("BadParameter", "Passes must be at least 1");
    return run.outcome(Result::BADPARAMS);
  }
  if (bytes == 0)
    return run.outcome(Result::CANNOTRUN);

  run.progress(0.0, "allocating and locking " + std::to_string(bytes / MIB) + " MiB");
  memtest::TestBuffer buffer(bytes);
  if (!buffer.data()) {
    run.info("NoMemory", "could not allocate " + std::to_string(bytes / MIB) +
                             " MiB: " + std::strerror(buffer.error()));
    return run.outcome(Result::CANNOTRUN);
  }
  reportLock(run, buffer);
  if (run.timeUp())
    return run.interrupted();

  memtest::Options options;
  options.cpus = cpucheck::allowedCpus();
  options.afterWrite = seams.memoryAfterWrite;
  options.seed =
      static_cast<std::uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count());
  memtest::PatternEngine engine(buffer.data(), buffer.size(), options);
  auto const start = std::chrono::steady_clock::now();
  engine.start(patterns, static_cast<unsigned>(passes));
  std::size_t reported = 0;
  auto report = [&] {
    for (Mismatch const &m : engine.mismatchesFrom(reported)) {
      if (reported++ < REPORTED_MISMATCHES)
        run.error("PatternMismatch", "MEMORY_MISMATCH", describe(m, buffer.data()));
    }
  };
  bool finished = false;
  while (!finished) {
    finished = engine.waitFor(50);
    report();
    run.progress(engine.progress(), engine.currentStep() + ", " +
                                        std::to_string(buffer.size() / MIB) + " MiB on " +
                                        std::to_string(engine.threadCount()) + " threads");
    if (!finished && run.timeUp())
      engine.requestStop();
  }
  double const seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  std::uint64_t const count = engine.mismatchCount();
  if (count > REPORTED_MISMATCHES)
    run.error("PatternMismatchCount", "MEMORY_MISMATCH",
              std::to_string(count) + " words in all read back wrong (the first " +
                  std::to_string(REPORTED_MISMATCHES) + " are reported one by one)");
  if (engine.stopped())
    return run.interrupted();
  if (count > 0)
    return run.outcome(Result::FAIL);
  std::string names;
  for (auto p : patterns)
    names += (names.empty() ? "" : ", ") + std::string(memtest::patternName(p));
  run.info("Summary", std::to_string(buffer.size() / MIB) + " MiB" +
                          (buffer.locked() ? " (locked)" : "") + " kept every pattern (" + names +
                          "), " + std::to_string(passes) + " pass(es) in " + fixed(seconds, 2) +
                          " s at " + fixed(double(engine.bytesTouched()) / seconds / 1e9, 1) +
                          " GB/s");
  return run.outcome(Result::PASS);
}

TestOutcome bandwidth(DiagnosticRun &run) {
  std::uint64_t bytes = 0;
  if (!bufferSize(run, bytes))
    return run.outcome(Result::BADPARAMS);
  std::uint64_t const seconds = run.uintParameter("Duration", 1);
  if (seconds == 0 || seconds > 3600) {
    run.info("BadParameter", "Duration must be between 1 s and an hour");
    return run.outcome(Result::BADPARAMS);
  }
  std::vector<int> const cpus = cpucheck::allowedCpus();
  // Every worker owns a stretch of whole megabytes, split in halves for copying.
  std::size_t const workers = std::max<std::size_t>(1, cpus.size());
  std::uint64_t const share =
      std::max<std::uint64_t>(2 * MIB, bytes / workers / (2 * MIB) * 2 * MIB);
  memtest::TestBuffer buffer(share * workers);
  if (!buffer.data()) {
    run.info("NoMemory", "could not allocate " + std::to_string(share * workers / MIB) +
                             " MiB: " + std::strerror(buffer.error()));
    return run.outcome(Result::CANNOTRUN);
  }
  reportLock(run, buffer);
  double const left = run.secondsLeft();
  double per = double(seconds);
  if (per * 3 > left - 0.5) {
    per = std::max(0.1, (left - 0.5) / 3);
    run.info("Shortened",
             "each figure measured for " + fixed(per, 1) + " s to end within the maximum time");
  }

  struct Kind {
    char const *name;
    int op; // 0 read, 1 write, 2 copy
  };
  Kind const kinds[] = {{"Read", 0}, {"Write", 1}, {"Copy", 2}};
  int index = 0;
  for (Kind const &kind : kinds) {
    std::vector<double> rates(workers, 0.0);
    std::vector<std::uint64_t> sinks(workers, 0);
    cpucheck::CpuTeam team(cpus, [&](std::size_t i, int, std::atomic<bool> const &stop) {
      auto *mine = static_cast<unsigned char *>(buffer.data()) + i * share;
      auto const begin = std::chrono::steady_clock::now();
      std::uint64_t moved = 0;
      std::uint64_t value = 0;
      // Pieces of at most 16 MiB, so that a stop is seen within milliseconds
      // whatever the buffer size.
      std::uint64_t const piece = std::min<std::uint64_t>(share / 2, 16 * MIB);
      while (!stop.load()) {
        for (std::uint64_t at = 0; at < share / 2 && !stop.load(); at += piece) {
          std::uint64_t const n = std::min(piece, share / 2 - at);
          switch (kind.op) {
          case 0:
            sinks[i] ^= memtest::foldWords(mine + at, n);
            sinks[i] ^= memtest::foldWords(mine + share / 2 + at, n);
            moved += 2 * n;
            break;
          case 1:
            memtest::fillWords(mine + at, n, ++value);
            memtest::fillWords(mine + share / 2 + at, n, value);
            moved += 2 * n;
            break;
          default:
            std::memcpy(mine + share / 2 + at, mine + at, n);
            moved += n;
            break;
          }
        }
      }
      double const took =
          std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
      rates[i] = took > 0 ? double(moved) / took : 0.0;
    });
    auto const begin = std::chrono::steady_clock::now();
    while (!team.waitFor(50)) {
      double const e =
          std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
      run.progress((index + std::min(1.0, e / per)) / 3.0,
                   std::string(kind.name) + " bandwidth, " + std::to_string(workers) + " threads");
      if (e >= per || run.timeUp())
        team.requestStop();
    }
    if (run.timeUp())
      return run.interrupted();
    double sum = 0;
    for (double r : rates)
      sum += r;
    run.measurement(std::string(kind.name) + " bandwidth (" + std::to_string(workers) +
                        " threads, " + std::to_string(share * workers / MIB) + " MiB)",
                    sum / 1e9, "GB/s");
    ++index;
  }
  return run.outcome(Result::PASS);
}

} // namespace

TestOutcome runMemoryTest(DiagnosticRun &run, std::string const &key,
                          LinuxDiagnostics::Seams const &seams) {
  if (key == "PatternTest")
    return patternTest(run, seams);
  if (key == "Bandwidth")
    return bandwidth(run);
  return run.outcome(Result::NOTEST);
}

} // namespace diag
} // namespace morvain
