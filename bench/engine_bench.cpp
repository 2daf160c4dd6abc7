// The in-process engine on simulated machines:
//  - a zero-length test, from RunTestClientToEngine to its EXITED report
//    (goal: under 200 µs), against a bare round trip through the same queue
//    pair with an echoing thread (the floor any engine answer pays);
//  - enumeration of a 10,000-device description (goal: under 300 ms), warm
//    (engine running, description read) and cold (engine start, reading the
//    file, first enumeration), against one deep copy of the same mirror.

#include <benchmark/benchmark.h>

#include <atomic>
#include <cstdio>
#include <fstream>
#include <string>
#include <thread>

#include "BenchRatios.h"
#include "morvain/Engine.h"
#include "zel/FileSystem.h"
#include "zel/Messages.h"
#include "zel/ProcessLinkConfigurator.h"
#include "zel/Resource.h"
#include "zel/StateManager.h"
#include "zel/TestImp.h"
#include "zel/TestRunImp.h"

using namespace zel;

namespace {

ProcessLinkConfigurator &link() { return ProcessLinkConfigurator::instance(); }

std::string writeFile(char const *name, std::string const &text) {
  std::string const path = std::string(FileSystem::getTempDirectory().c_str()) + "/" + name;
  std::ofstream(path) << text;
  return path;
}

std::string zeroLengthMachine() {
  return writeFile("ostrel-bench-zero.xml", R"(<Machine name="bench">
  <Devices><Device id="pc" type="System"/></Devices>
  <Modules><Module id="m"><Test key="Zero" devices="pc"><Script/></Test></Module></Modules>
</Machine>
)");
}

// 100 controllers of 99 disks under one root: 10,000 devices, 5 properties each.
std::string tenThousandMachine() {
  return writeFile("ostrel-bench-10k.xml", R"(<Machine name="bench-10k">
  <Devices>
    <Device id="root" type="System" name="Rack">
      <Property key="Manufacturer" category="Manufacturer" value="Bench"/>
      <Property key="Model" category="Model" value="B-1"/>
      <Property key="Serial" category="Serial|Key" value="S0"/>
      <Property key="Slots" type="UINT32" value="100"/>
      <Property key="Managed" type="BOOLEAN" value="true"/>
      <Device id="hba{c}" type="MassStorageController" capabilities="PCI" count="100" countVar="c">
        <Property key="Manufacturer" category="Manufacturer" value="Bench"/>
        <Property key="Model" category="Model" value="HBA-9"/>
        <Property key="Serial" category="Serial|Key" value="H{c:04}"/>
        <Property key="Ports" type="UINT32" value="99"/>
        <Property key="Firmware" category="Firmware" value="1.2.{c}"/>
        <Device id="hba{c}-disk{n}" type="HardDrive" capabilities="SAS" count="99">
          <Property key="Model" category="Model" value="DISK-4T"/>
          <Property key="Serial" category="Serial|Key" value="D{c:03}{n:03}"/>
          <Property key="Size" type="UINT64" value="4000787030016"/>
          <Property key="Rotational" type="BOOLEAN" value="true"/>
          <Property key="Temperature" type="DISCRETEMEASUREMENT" value="34 C"/>
        </Device>
      </Device>
    </Device>
  </Devices>
</Machine>
)");
}

MessageHandle receiveUntil(std::function<bool(Message const &)> const &wanted) {
  for (;;) {
    MessageHandle m = link().receiveMessageClientFromEngine(5000);
    if (!m.isValid())
      return m;
    if (wanted(*m))
      return m;
  }
}

void openEngine(std::string const &machine) {
  Resource::setString("Engine.Machine", machine.c_str());
  StateManager::instance().clear();
  startEngine(".", "en_US", "bench", "", false, true);
}

void closeEngine() {
  link().sendMessageClientToEngine(MessageHandle(new ShutdownClientToEngine()));
  engineIsDone(true);
  StateManager::instance().clear();
}

void enumerateAll() {
  link().sendMessageClientToEngine(
      MessageHandle(new EnumerateDevicesClientToEngine(CapabilityImp::ALL(), false, false, false)));
  receiveUntil([](Message const &m) {
    return dynamic_cast<EnumerationReturnedFromEngine const *>(&m) != nullptr;
  });
}

void BM_ZeroLengthTestRun(benchmark::State &state) {
  openEngine(zeroLengthMachine());
  enumerateAll();
  link().sendMessageClientToEngine(MessageHandle(new EnumerateTestsClientToEngine(".")));
  receiveUntil([](Message const &m) {
    return dynamic_cast<EnumerationReturnedFromEngine const *>(&m) != nullptr;
  });
  auto const test = StateManager::instance().getTests()[0];
  auto const device = StateManager::instance().rootDevice();
  for (auto _ : state) {
    TestRunImp run(*test, *device);
    run.setState(TestStateImp::INITIALIZING);
    String const guid = run.guid();
    link().sendMessageClientToEngine(MessageHandle(new RunTestClientToEngine(&run)));
    MessageHandle end = receiveUntil([&guid](Message const &m) {
      auto const *report = dynamic_cast<TestProgressEngineToClient const *>(&m);
      return report && report->getTestRun().guid() == guid &&
             report->getTestRun().state() == TestStateImp::EXITED;
    });
    if (!end.isValid()) {
      state.SkipWithError("no EXITED report");
      break;
    }
  }
  closeEngine();
}
BENCHMARK(BM_ZeroLengthTestRun)->Unit(benchmark::kMicrosecond)->UseRealTime();

// The floor: one message to the engine side and one back, through the same
// queues, answered by a thread that only echoes.
void BM_QueueRoundTrip(benchmark::State &state) {
  link().resetQueues();
  std::atomic<bool> done{false};
  std::thread echo([&done] {
    while (!done.load()) {
      MessageHandle m = link().receiveMessageEngineFromClient(20);
      if (m.isValid())
        link().sendMessageEngineToClient(m);
    }
  });
  for (auto _ : state) {
    link().sendMessageClientToEngine(MessageHandle(new ShutdownClientToEngine()));
    benchmark::DoNotOptimize(link().receiveMessageClientFromEngine(5000));
  }
  done.store(true);
  echo.join();
  link().resetQueues();
}
BENCHMARK(BM_QueueRoundTrip)->Unit(benchmark::kMicrosecond)->UseRealTime();

void BM_Enumerate10000Devices(benchmark::State &state) {
  openEngine(tenThousandMachine());
  for (auto _ : state)
    enumerateAll();
  state.counters["devices"] = double(StateManager::instance().deviceCount());
  closeEngine();
}
BENCHMARK(BM_Enumerate10000Devices)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(5);

void BM_StartAndEnumerate10000Devices(benchmark::State &state) {
  std::string const machine = tenThousandMachine();
  for (auto _ : state) {
    openEngine(machine);
    enumerateAll();
    state.PauseTiming();
    closeEngine();
    state.ResumeTiming();
  }
}
BENCHMARK(BM_StartAndEnumerate10000Devices)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(3);

// The floor of any answer that carries the whole mirror: one deep copy of
// the enumerated 10,000-device mirror.
void BM_CopyMirror10000Devices(benchmark::State &state) {
  openEngine(tenThousandMachine());
  enumerateAll();
  for (auto _ : state) {
    StateManager copy(StateManager::instance());
    benchmark::DoNotOptimize(copy.deviceCount());
  }
  closeEngine();
}
BENCHMARK(BM_CopyMirror10000Devices)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace

int main(int argc, char **argv) {
  return ostrel_bench::runWithRatios(
      argc, argv,
      {{"BM_ZeroLengthTestRun/real_time", "BM_QueueRoundTrip/real_time", 0},
       {"BM_Enumerate10000Devices/iterations:5/real_time", "BM_CopyMirror10000Devices/real_time",
        0}});
}
