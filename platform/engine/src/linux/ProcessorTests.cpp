// The processor module: known-answer checks, stress and throughput, each
// run on the logical CPUs of one package by threads pinned one per CPU.

#include <algorithm>
#include <chrono>
#include <memory>
#include <mutex>

#include "linux/DiagnosticModules.h"
#include "linux/LinuxModel.h"
#include "linux/ProcessorChecks.h"
#include "zel/PropertyImp.h"

namespace morvain {
namespace diag {

namespace {

using cpucheck::Check;
using cpucheck::CpuTeam;
using Result = zel::TestResultImp;

std::string cpuLabel(DiagnosticRun const &run, int cpu) {
  std::string const n = std::to_string(cpu);
  long long core = 0;
  if (readNumber(run.path("/sys/devices/system/cpu/cpu" + n + "/topology/core_id"), core))
    return "logical CPU " + n + " (core " + std::to_string(core) + ")";
  return "logical CPU " + n;
}

std::string listText(std::vector<int> const &cpus) {
  std::string text;
  for (std::size_t i = 0; i < cpus.size();) {
    std::size_t j = i;
    while (j + 1 < cpus.size() && cpus[j + 1] == cpus[j] + 1)
      ++j;
    text += (text.empty() ? "" : ",") + std::to_string(cpus[i]);
    if (j > i)
      text += "-" + std::to_string(cpus[j]);
    i = j + 1;
  }
  return text;
}

// The package's logical CPUs this process can run on. CPUs of the package
// outside this process's CPU set are named in a warning: they go untested.
std::vector<int> packageCpus(DiagnosticRun &run, std::vector<int> &unreachable) {
  std::vector<int> listed;
  auto property = run.device()->property(linuxmodel::KEY_CPU_LIST);
  bool known = false;
  if (property && property->value().type() == zel::DataTypeImp::STRING)
    known = cpucheck::parseCpuList(property->value().valueString().str(), listed);
  std::vector<int> const allowed = cpucheck::allowedCpus();
  if (!known) {
    run.info("CpuListUnknown", "the processor's list of logical CPUs is unknown; checking every "
                               "CPU this process may run on (" +
                                   listText(allowed) + ")");
    return allowed;
  }
  std::vector<int> cpus;
  for (int c : listed) {
    if (std::find(allowed.begin(), allowed.end(), c) != allowed.end())
      cpus.push_back(c);
    else
      unreachable.push_back(c);
  }
  return cpus;
}

// Counters shared between the workers and the reporting thread.
struct Tally {
  explicit Tally(std::size_t n) : count(n), done(new std::atomic<std::uint64_t>[n]) {
    for (std::size_t i = 0; i < n; ++i)
      done[i].store(0);
  }
  std::uint64_t total() const {
    std::uint64_t sum = 0;
    for (std::size_t i = 0; i < count; ++i)
      sum += done[i].load(std::memory_order_relaxed);
    return sum;
  }
  std::size_t count;
  std::unique_ptr<std::atomic<std::uint64_t>[]> done;
  std::mutex lock;
  std::vector<std::pair<int, std::string>> failures; // cpu, what
};

void reportUnreachable(DiagnosticRun &run, std::vector<int> const &cpus, char const *why) {
  for (int c : cpus)
    run.warning("CpuUnreachable", cpuLabel(run, c) + " was not tested: " + why);
}

TestOutcome endOfChecks(DiagnosticRun &run, Tally &tally, std::vector<int> const &unreachable,
                        std::string const &summary) {
  for (auto const &f : tally.failures)
    run.error("CheckFailed", "CPU_CHECK_FAILED", cpuLabel(run, f.first) + ": " + f.second);
  if (!tally.failures.empty())
    return run.outcome(Result::FAIL);
  if (run.timeUp())
    return run.interrupted();
  if (!unreachable.empty()) {
    run.info("Summary", summary + "; " + std::to_string(unreachable.size()) +
                            " logical CPUs could not be tested");
    return run.outcome(Result::INDETERMINATE);
  }
  run.info("Summary", summary);
  return run.outcome(Result::PASS);
}

TestOutcome knownAnswer(DiagnosticRun &run, Check check) {
  std::uint64_t const rounds = run.uintParameter("Rounds", 200);
  if (rounds == 0 || rounds > 1000000) {
    run.info("BadParameter", "Rounds must be between 1 and 1000000");
    return run.outcome(Result::BADPARAMS);
  }
  std::vector<int> unreachable;
  std::vector<int> const cpus = packageCpus(run, unreachable);
  reportUnreachable(run, unreachable, "this process may not run on it");
  if (cpus.empty())
    return run.outcome(Result::CANNOTRUN);
  if (check == Check::SIMD)
    run.info("VectorSets", "vector instruction sets checked: " + cpucheck::simdLevels());

  Tally tally(cpus.size());
  std::string const name = cpucheck::checkName(check);
  CpuTeam team(cpus, [&](std::size_t index, int cpu, std::atomic<bool> const &stop) {
    for (std::uint64_t r = 0; r < rounds && !stop.load(); ++r) {
      std::string const wrongAnswer = cpucheck::runCheck(check, static_cast<unsigned>(r));
      if (!wrongAnswer.empty()) {
        std::lock_guard<std::mutex> lock(tally.lock);
        tally.failures.emplace_back(cpu, name + " check, round " + std::to_string(r + 1) + ": " +
                                             wrongAnswer);
        return;
      }
      tally.done[index].fetch_add(1, std::memory_order_relaxed);
    }
  });
  std::string const text = name + " check on logical CPUs " + listText(cpus);
  while (!team.waitFor(50)) {
    run.progress(double(tally.total()) / double(rounds * cpus.size()), text);
    if (run.timeUp())
      team.requestStop();
  }
  auto const unpinned = team.unpinned();
  reportUnreachable(run, unpinned, "a thread could not be pinned to it");
  std::vector<int> untested = unreachable;
  untested.insert(untested.end(), unpinned.begin(), unpinned.end());
  run.progress(1.0, text);
  return endOfChecks(run, tally, untested,
                     name + " check: " + std::to_string(rounds) +
                         " rounds right on each of logical CPUs " + listText(cpus));
}

// How long a timed test may take: its parameter, cut to end before the
// maximum time (with a margin for setting up and reporting).
double fitDuration(DiagnosticRun &run, double wanted, unsigned parts) {
  double const left = run.secondsLeft();
  double const room = (left - 0.5) / parts;
  if (wanted > room) {
    double const cut = std::max(0.1, room);
    run.info("Shortened", "duration shortened from " + fixed(wanted, 1) + " s to " + fixed(cut, 1) +
                              " s to end within the maximum time");
    return cut;
  }
  return wanted;
}

TestOutcome stress(DiagnosticRun &run) {
  std::uint64_t const seconds = run.uintParameter("Duration", 60);
  if (seconds == 0 || seconds > 7 * 24 * 3600) {
    run.info("BadParameter", "Duration must be between 1 s and a week");
    return run.outcome(Result::BADPARAMS);
  }
  double const duration = fitDuration(run, double(seconds), 1);
  std::vector<int> unreachable;
  std::vector<int> const cpus = packageCpus(run, unreachable);
  reportUnreachable(run, unreachable, "this process may not run on it");
  if (cpus.empty())
    return run.outcome(Result::CANNOTRUN);

  Tally tally(cpus.size());
  Check const checks[] = {Check::INTEGER, Check::FLOATING_POINT, Check::SIMD};
  CpuTeam team(cpus, [&](std::size_t index, int cpu, std::atomic<bool> const &stop) {
    for (unsigned r = 0; !stop.load(); ++r) {
      Check const check = checks[r % 3];
      std::string const wrongAnswer = cpucheck::runCheck(check, r / 3);
      if (!wrongAnswer.empty()) {
        std::lock_guard<std::mutex> lock(tally.lock);
        tally.failures.emplace_back(cpu, std::string(cpucheck::checkName(check)) +
                                             " check under stress, round " +
                                             std::to_string(r / 3 + 1) + ": " + wrongAnswer);
        return;
      }
      tally.done[index].fetch_add(1, std::memory_order_relaxed);
    }
  });
  auto const start = std::chrono::steady_clock::now();
  auto elapsed = [&] {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  };
  while (!team.waitFor(100)) {
    double const e = elapsed();
    run.progress(e / duration, "stress on logical CPUs " + listText(cpus) + ": " +
                                   std::to_string(tally.total()) + " rounds");
    if (e >= duration || run.timeUp())
      team.requestStop();
  }
  auto const unpinned = team.unpinned();
  reportUnreachable(run, unpinned, "a thread could not be pinned to it");
  std::vector<int> untested = unreachable;
  untested.insert(untested.end(), unpinned.begin(), unpinned.end());
  run.progress(1.0);
  return endOfChecks(run, tally, untested,
                     std::to_string(tally.total()) +
                         " rounds of integer, floating-point and SIMD checks right on logical "
                         "CPUs " +
                         listText(cpus) + " in " + fixed(elapsed(), 1) + " s");
}

// Operations per second of `kernel` on `cpus` together, run for `seconds`.
template <class Kernel>
double throughput(DiagnosticRun &run, std::vector<int> const &cpus, double seconds, Kernel kernel,
                  std::string const &text, double progressFrom, double progressTo) {
  std::vector<double> rates(cpus.size(), 0.0);
  CpuTeam team(cpus, [&](std::size_t index, int, std::atomic<bool> const &stop) {
    auto const start = std::chrono::steady_clock::now();
    std::uint64_t ops = 0;
    while (!stop.load())
      ops += kernel();
    double const took =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    rates[index] = took > 0 ? double(ops) / took : 0.0;
  });
  auto const start = std::chrono::steady_clock::now();
  while (!team.waitFor(50)) {
    double const e =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    run.progress(progressFrom + (progressTo - progressFrom) * std::min(1.0, e / seconds), text);
    if (e >= seconds || run.timeUp())
      team.requestStop();
  }
  double sum = 0;
  for (double r : rates)
    sum += r;
  return sum;
}

TestOutcome throughputBenchmark(DiagnosticRun &run, bool integer) {
  std::uint64_t const seconds = run.uintParameter("Duration", 2);
  if (seconds == 0 || seconds > 3600) {
    run.info("BadParameter", "Duration must be between 1 s and an hour");
    return run.outcome(Result::BADPARAMS);
  }
  double const per = fitDuration(run, double(seconds), 2);
  std::vector<int> unreachable;
  std::vector<int> const cpus = packageCpus(run, unreachable);
  reportUnreachable(run, unreachable, "this process may not run on it");
  if (cpus.empty())
    return run.outcome(Result::CANNOTRUN);
  // About 10 ms of work between looks at the stop flag.
  auto kernel = [integer]() -> std::uint64_t {
    if (integer) {
      std::uint64_t sink = 0;
      return cpucheck::integerKernel(1u << 20, sink) + (sink == 42 ? 1 : 0);
    }
    double sink = 0;
    return cpucheck::floatKernel(1u << 19, sink) + (sink == 42.0 ? 1 : 0);
  };
  char const *what = integer ? "Integer operations" : "Floating-point operations";
  char const *unit = integer ? "ops/s" : "FLOP/s";
  double const one =
      throughput(run, {cpus.front()}, per, kernel, std::string(what) + ", one core", 0.0, 0.5);
  if (run.timeUp())
    return run.interrupted();
  double const all =
      throughput(run, cpus, per, kernel,
                 std::string(what) + ", " + std::to_string(cpus.size()) + " cores", 0.5, 1.0);
  if (run.timeUp())
    return run.interrupted();
  run.measurement(std::string(what) + " per second, one core (" + cpuLabel(run, cpus.front()) + ")",
                  one, unit);
  run.measurement(std::string(what) + " per second, all " + std::to_string(cpus.size()) +
                      " logical CPUs",
                  all, unit);
  return run.outcome(Result::PASS);
}

} // namespace

TestOutcome runProcessorTest(DiagnosticRun &run, std::string const &key) {
  if (key == "IntegerCheck")
    return knownAnswer(run, Check::INTEGER);
  if (key == "FloatingPointCheck")
    return knownAnswer(run, Check::FLOATING_POINT);
  if (key == "SimdCheck")
    return knownAnswer(run, Check::SIMD);
  if (key == "Stress")
    return stress(run);
  if (key == "IntegerThroughput")
    return throughputBenchmark(run, true);
  if (key == "FloatingPointThroughput")
    return throughputBenchmark(run, false);
  return run.outcome(Result::NOTEST);
}

} // namespace diag
} // namespace morvain
