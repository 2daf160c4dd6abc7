// The client library over the in-process engine on simulated machines:
//  - openConnection, enumerateDevices and closeConnection on laptop.xml, each
//    timed apart (enumerateDevices waits in polls of 100 ms by design);
//  - the delay from sending the enumeration request to the observer's
//    handleEnumerationComplete (goal: under 5 ms), the polls not counted;
//  - getDevices(ALL) on server.xml, against the mirror's own getDevices.

#include <benchmark/benchmark.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>

#include "BenchRatios.h"
#include "ostrel/EnumerationObserver.h"
#include "ostrel/ostrelMain.h"
#include "zel/Resource.h"
#include "zel/StateManager.h"

using namespace ostrel5;
using Clock = std::chrono::steady_clock;

namespace {

std::string machine(char const *file) {
  return std::string(OSTREL_EXAMPLES_DIR) + "/machines/" + file;
}

void useMachine(char const *file) {
  zel::Resource::setString("Engine.Machine", machine(file).c_str());
}

// laptop.xml with its scripted source delays taken out (its USB bus takes
// 60 ms on purpose): what is left is the system's own delay.
void useLaptopWithoutDelays() {
  std::ifstream in(machine("laptop.xml"));
  std::stringstream text;
  text << in.rdbuf();
  std::string const path = "/tmp/ostrel-bench-laptop-nodelay.xml";
  std::ofstream(path) << std::regex_replace(text.str(), std::regex(" delayMs=\"[0-9]+\""), "");
  zel::Resource::setString("Engine.Machine", path.c_str());
}

class CompletionClock : public EnumerationObserver {
public:
  void handleEnumerationComplete(bool) override {
    completedAt.store(Clock::now().time_since_epoch().count());
  }
  std::atomic<Clock::rep> completedAt{0};
};

void BM_OpenConnection(benchmark::State &state) {
  useMachine("laptop.xml");
  for (auto _ : state) {
    openConnection(".", false);
    state.PauseTiming();
    closeConnection(true);
    state.ResumeTiming();
  }
}
BENCHMARK(BM_OpenConnection)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_EnumerateDevicesWithPolls(benchmark::State &state) {
  useMachine("laptop.xml");
  openConnection(".", false);
  for (auto _ : state)
    if (!enumerateDevices(DeviceCapability::ALL(), true, false, false))
      state.SkipWithError("enumeration failed");
  closeConnection(true);
}
BENCHMARK(BM_EnumerateDevicesWithPolls)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_CloseConnection(benchmark::State &state) {
  useMachine("laptop.xml");
  for (auto _ : state) {
    state.PauseTiming();
    openConnection(".", false);
    enumerateDevices(DeviceCapability::ALL(), false, false, false);
    state.ResumeTiming();
    closeConnection(true);
  }
}
BENCHMARK(BM_CloseConnection)->Unit(benchmark::kMillisecond)->UseRealTime();

// Request to handleEnumerationComplete on the pull thread: what a user
// interface waits for when it reacts to the observer instead of polling.
void BM_EnumerationRequestToComplete(benchmark::State &state) {
  if (state.range(0))
    useMachine("laptop.xml");
  else
    useLaptopWithoutDelays();
  CompletionClock observer;
  registerEnumerationObserver(&observer);
  openConnection(".", false);
  for (auto _ : state) {
    observer.completedAt.store(0);
    Clock::time_point const sent = Clock::now();
    if (!enumerateDevices(DeviceCapability::ALL(), true, false, false)) {
      state.SkipWithError("enumeration failed");
      break;
    }
    Clock::rep const done = observer.completedAt.load();
    if (done == 0) {
      state.SkipWithError("no completion notice");
      break;
    }
    state.SetIterationTime(
        std::chrono::duration<double>(Clock::duration(done) - sent.time_since_epoch()).count());
  }
  closeConnection(true);
  unregisterEnumerationObserver(&observer);
}
// Arg 1: laptop.xml as it is; arg 0: without its scripted delays.
BENCHMARK(BM_EnumerationRequestToComplete)
    ->Arg(1)
    ->Arg(0)
    ->Unit(benchmark::kMicrosecond)
    ->UseManualTime()
    // Each iteration costs a 100 ms poll of wall time whatever it measures.
    ->Iterations(20);

void BM_GetDevicesAllOnServer(benchmark::State &state) {
  useMachine("server.xml");
  openConnection(".", false);
  enumerateDevices(DeviceCapability::ALL(), false, false, false);
  enumerateDevices(DeviceCapability::ALL(), true, false, false); // its IPMI source fails once
  for (auto _ : state)
    benchmark::DoNotOptimize(getDevices(DeviceCapability::ALL()));
  state.counters["devices"] = double(getDevices(DeviceCapability::ALL()).size());
  closeConnection(true);
}
BENCHMARK(BM_GetDevicesAllOnServer)->Unit(benchmark::kMicrosecond)->UseRealTime();

// The same devices straight from the mirror (shared pointers, no handles).
void BM_MirrorGetDevicesOnServer(benchmark::State &state) {
  useMachine("server.xml");
  openConnection(".", false);
  enumerateDevices(DeviceCapability::ALL(), false, false, false);
  enumerateDevices(DeviceCapability::ALL(), true, false, false);
  for (auto _ : state)
    benchmark::DoNotOptimize(zel::StateManager::instance().getDevices());
  closeConnection(true);
}
BENCHMARK(BM_MirrorGetDevicesOnServer)->Unit(benchmark::kMicrosecond)->UseRealTime();

} // namespace

int main(int argc, char **argv) {
  return ostrel_bench::runWithRatios(
      argc, argv,
      {{"BM_GetDevicesAllOnServer/real_time", "BM_MirrorGetDevicesOnServer/real_time", 0}});
}
