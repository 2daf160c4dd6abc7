// Enumerating this computer (LinuxDevices on "/") against the tools that list
// the same hardware, each run as a child process with its output thrown away:
//   lspci -vmm   the PCI functions with their names (pci.ids);
//   lshw -xml    everything lshw knows.
// BM_EnumerateCold makes a new LinuxDevices each time, so that pci.ids is
// loaded again as every lspci run loads it; BM_EnumerateWarm enumerates again
// with the same object (the engine's forced re-enumeration).
// BM_EnumerationVsLspci and BM_EnumerationVsLshw run a cold enumeration and
// the tool alternately in one loop, so that machine noise hits both alike;
// counter ratio = tool time / enumeration time. Goals: ratio > 1 against
// lspci (faster than it), ratio >= 5 against lshw.

#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <vector>

#include "linux/LinuxDevices.h"

extern char **environ;

namespace {

using Clock = std::chrono::steady_clock;

/// Runs a tool to its end with its output sent to /dev/null; false when it
/// cannot be started or fails.
bool runTool(std::vector<std::string> const &argv) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
  std::vector<char *> args;
  for (std::string const &a : argv)
    args.push_back(const_cast<char *>(a.c_str()));
  args.push_back(nullptr);
  pid_t pid = 0;
  int rc = posix_spawnp(&pid, args[0], &actions, nullptr, args.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (rc != 0)
    return false;
  int status = 0;
  while (waitpid(pid, &status, 0) < 0)
    ;
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

std::vector<std::string> const kLspci = {"lspci", "-vmm"};
std::vector<std::string> const kLshw = {"lshw", "-xml"};

std::size_t enumerateOnce(morvain::LinuxDevices &devices) {
  zel::StateManager state;
  devices.enumerate(state, [] { return false; });
  return state.deviceCount();
}

std::size_t enumerateCold() {
  morvain::LinuxDevices devices("/");
  return enumerateOnce(devices);
}

void BM_EnumerateCold(benchmark::State &state) {
  std::size_t devices = 0;
  for (auto _ : state)
    benchmark::DoNotOptimize(devices = enumerateCold());
  state.counters["devices"] = static_cast<double>(devices);
}
BENCHMARK(BM_EnumerateCold)->Unit(benchmark::kMillisecond);

void BM_EnumerateWarm(benchmark::State &state) {
  morvain::LinuxDevices devices("/");
  enumerateOnce(devices);
  for (auto _ : state)
    benchmark::DoNotOptimize(enumerateOnce(devices));
}
BENCHMARK(BM_EnumerateWarm)->Unit(benchmark::kMillisecond);

void runToolBenchmark(benchmark::State &state, std::vector<std::string> const &tool) {
  for (auto _ : state)
    if (!runTool(tool)) {
      state.SkipWithError((tool[0] + " could not be run").c_str());
      break;
    }
}

void BM_Lspci(benchmark::State &state) { runToolBenchmark(state, kLspci); }
BENCHMARK(BM_Lspci)->Unit(benchmark::kMillisecond);

void BM_Lshw(benchmark::State &state) { runToolBenchmark(state, kLshw); }
BENCHMARK(BM_Lshw)->Unit(benchmark::kMillisecond)->Iterations(10);

void ratioAgainst(benchmark::State &state, std::vector<std::string> const &tool, double goal) {
  Clock::duration ours{}, theirs{};
  for (auto _ : state) {
    Clock::time_point const start = Clock::now();
    benchmark::DoNotOptimize(enumerateCold());
    Clock::time_point const middle = Clock::now();
    if (!runTool(tool)) {
      state.SkipWithError((tool[0] + " could not be run").c_str());
      return;
    }
    Clock::time_point const end = Clock::now();
    ours += middle - start;
    theirs += end - middle;
  }
  state.counters["ratio"] =
      ours.count() > 0 ? static_cast<double>(theirs.count()) / static_cast<double>(ours.count())
                       : 0.0;
  state.counters["goal"] = goal;
}

void BM_EnumerationVsLspci(benchmark::State &state) { ratioAgainst(state, kLspci, 1.0); }
BENCHMARK(BM_EnumerationVsLspci)->Unit(benchmark::kMillisecond)->Iterations(30);

void BM_EnumerationVsLshw(benchmark::State &state) { ratioAgainst(state, kLshw, 5.0); }
BENCHMARK(BM_EnumerationVsLshw)->Unit(benchmark::kMillisecond)->Iterations(10);

} // namespace
