// The engine core driven through a queue pair, as a client would drive it,
// over a small scripted machine.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <map>
#include <thread>

#include "EngineCore.h"
#include "zel/IAlertImp.h"
#include "zel/IndicatorRunImp.h"
#include "zel/ModuleImp.h"
#include "zel/ProcessLinkConfigurator.h"
#include "zel/PropertyImp.h"
#include "zel/TestImp.h"

using namespace zel;
using morvain::EngineCore;
using morvain::LiveUpdate;
using morvain::RunContext;
using morvain::SourceReport;
using morvain::TestOutcome;

namespace {

using Body = std::function<TestOutcome(RunContext &)>;

TestOutcome pass() { return TestOutcome{TestResultImp::PASS, String()}; }

// Two disks, a module with tests whose bodies the test case sets.
class ScriptedMachine : public morvain::MachineProvider {
public:
  String name() const override { return "scripted"; }

  std::vector<SourceReport> enumerateDevices(CapabilityImp const &, bool, StateManager &state,
                                             std::function<bool()> const &) override {
    ++deviceEnumerations;
    state.addDevice(
        StateManager::DevicePtr(new IDeviceImp("root", "Computer", CapabilityImp("Computer"))));
    for (char const *guid : {"disk0", "disk1"}) {
      StateManager::DevicePtr disk(
          new IDeviceImp(guid, String("Disk ") + guid, CapabilityImp("HardDrive"), "root"));
      disk->setProperty(boost::shared_ptr<PropertyImp>(new PropertyImp("Model", ValueImp("X1"))));
      state.addDevice(disk);
    }
    state.addAlert(
        boost::shared_ptr<IAlertImp>(new IAlertImp("alert0", "Hot", AlertTypeImp::HARDWARE_ISSUE,
                                                   {"", "hot"}, {"", "cool it"})),
        state.deviceByGuid("disk0").get());
    SourceReport ok{"disks", 0.01, false, 3, String()};
    SourceReport bad{"usb", 0.02, true, 0, "no bus"};
    return {ok, bad};
  }

  std::vector<SourceReport> enumerateTests(StateManager &state,
                                           std::function<bool()> const &) override {
    boost::shared_ptr<ModuleImp> module(new ModuleImp("storage"));
    state.addModule(module);
    for (auto const &entry : bodies) {
      boost::shared_ptr<TestImp> test(
          new TestImp("storage", entry.first, TestImp::TEST, entry.first, entry.first));
      test->setSupportsParallelTesting(parallel.count(entry.first) != 0);
      state.addTest(test);
      state.associate(module, test);
      for (auto const &device : state.getDevices(CapabilityImp("HardDrive"), false))
        state.associate(test, device);
    }
    return {SourceReport{"storage", 0.001, false, unsigned(bodies.size()), String()}};
  }

  bool deviceHeldBusy(String const &guid) const override { return guid == heldBusy; }

  TestOutcome runTest(RunContext &context) override {
    return bodies.at(context.run().test()->keyInModule())(context);
  }

  void pollLiveUpdates(std::uint64_t, std::vector<LiveUpdate> &out) override {
    if (liveSent.exchange(true))
      return;
    LiveUpdate update;
    update.state.addDevice(StateManager::DevicePtr(
        new IDeviceImp("usb0", "Stick", CapabilityImp("USBDevice"), "root")));
    update.alertGuidsToRemove.append("alert0");
    out.push_back(update);
  }

  bool readIndicator(IndicatorImp const &indicator, LiveUpdate &out) override {
    StateManager::DevicePtr disk(
        new IDeviceImp("disk0", "Disk disk0", CapabilityImp("HardDrive"), "root"));
    disk->setProperty(boost::shared_ptr<PropertyImp>(
        new PropertyImp("Temperature", ValueImp(int(40 + readings++)))));
    out.state.addDevice(disk);
    return indicator.key() == "temp";
  }

  bool refresh(String const &deviceGuid, String const &, LiveUpdate &out) override {
    if (deviceGuid != "disk1")
      return false;
    out.state.addDevice(StateManager::DevicePtr(
        new IDeviceImp("disk1", "Disk disk1 (renamed)", CapabilityImp("HardDrive"), "root")));
    return true;
  }

  std::map<String, Body> bodies;
  std::set<String> parallel;
  String heldBusy;
  std::atomic<int> deviceEnumerations{0};
  std::atomic<bool> liveSent{false};
  std::atomic<int> readings{0};
};

class EngineCoreTest : public ::testing::Test {
protected:
  void SetUp() override {
    StateManager::instance().clear();
    machine = new ScriptedMachine();
    machine->bodies["quick"] = [](RunContext &c) {
      c.progress(50, "half way");
      TestRunEventImp event("storage", "note");
      event.setType(EventTypeImp::WARNING).setMessage("slow sector");
      c.event(event);
      return TestOutcome{TestResultImp::FAIL, "E42"};
    };
    machine->bodies["hang"] = [](RunContext &c) {
      while (c.sleepFor(10)) {
      }
      return pass();
    };
    machine->bodies["stubborn"] = [](RunContext &c) {
      while (c.sleepFor(10)) {
      }
      c.sleepFor(150, false); // slow to notice
      return pass();
    };
    machine->bodies["ask"] = [](RunContext &c) {
      MessageBox2Request request("Press a key", "Keyboard", 1);
      MessageBox2Result answer;
      switch (c.prompt(request, 0, answer)) {
      case RunContext::PromptOutcome::ANSWERED:
        return TestOutcome{answer.value() == 1 ? TestResultImp::PASS : TestResultImp::FAIL,
                           String()};
      case RunContext::PromptOutcome::REFUSED:
        return TestOutcome{TestResultImp::NOTAPPLICABLE, String()};
      default:
        return TestOutcome{TestResultImp::TIMEDOUT, String()};
      }
    };
    machine->bodies["throws"] = [](RunContext &) -> TestOutcome {
      throw std::runtime_error("sensor vanished");
    };
    machine->bodies["hangShared"] = machine->bodies["hang"];
    machine->parallel = {"hangShared", "quickShared"};
    machine->bodies["quickShared"] = [](RunContext &) { return pass(); };

    EngineCore::Options options;
    core.reset(new EngineCore(
        std::unique_ptr<morvain::MachineProvider>(machine),
        [this](unsigned int ms) { return toEngine.pop(ms); },
        [this](MessageHandle m) { toClient.push(std::move(m)); }, options));
    core->start();
  }

  void TearDown() override {
    EXPECT_TRUE(core->shutdown(5000));
    core.reset();
    StateManager::instance().clear();
  }

  void send(Message *message) { toEngine.push(MessageHandle(message)); }

  // The next message of type T; everything before it goes to `skipped`.
  template <class T> T const *next(unsigned int timeoutMs = 5000) {
    auto const deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (std::chrono::steady_clock::now() < deadline) {
      MessageHandle m = toClient.pop(50);
      if (!m.isValid())
        continue;
      held.push_back(m);
      if (auto const *typed = dynamic_cast<T const *>(&*m))
        return typed;
      skipped.push_back(m);
    }
    return nullptr;
  }

  // Reports on one run up to and including its EXITED report.
  std::vector<TestRunImp> reportsUntilExited(String const &guid, unsigned int timeoutMs = 5000) {
    std::vector<TestRunImp> reports;
    for (;;) {
      auto const *report = next<TestProgressEngineToClient>(timeoutMs);
      if (!report)
        return reports;
      if (report->getTestRun().guid() != guid)
        continue;
      reports.push_back(report->getTestRun());
      if (report->getTestRun().state() == TestStateImp::EXITED)
        return reports;
    }
  }

  void enumerateEverything() {
    send(new EnumerateDevicesClientToEngine(CapabilityImp::ALL(), false, false, false));
    ASSERT_NE(next<EnumerationReturnedFromEngine>(), nullptr);
    send(new EnumerateTestsClientToEngine("db"));
    ASSERT_NE(next<EnumerationReturnedFromEngine>(), nullptr);
  }

  TestRunImp runOf(char const *test, char const *device = "disk0") {
    auto const mirror = StateManager::instance().testByGuid(TestImp::guid("storage", test));
    EXPECT_TRUE(mirror) << test;
    return TestRunImp(*mirror, *StateManager::instance().deviceByGuid(device));
  }

  String start(TestRunImp &run) {
    run.setState(TestStateImp::INITIALIZING);
    send(new RunTestClientToEngine(&run));
    return run.guid();
  }

  ProcessLinkConfigurator::Queue toEngine, toClient;
  ScriptedMachine *machine = nullptr;
  std::unique_ptr<EngineCore> core;
  std::vector<MessageHandle> held, skipped;
};

TEST_F(EngineCoreTest, EnumerationReportsEachSourceThenOneWholeMirror) {
  send(new EnumerateDevicesClientToEngine(CapabilityImp::ALL(), false, false, false));
  auto const *returned = next<EnumerationReturnedFromEngine>();
  ASSERT_NE(returned, nullptr);
  unsigned completed = 0, failed = 0;
  for (auto const &m : skipped) {
    if (auto const *c = dynamic_cast<DeviceEnumerationCompleted const *>(&*m)) {
      ++completed;
      EXPECT_EQ(c->sourceName(), "disks");
      EXPECT_EQ(c->count(), 3u);
    }
    if (auto const *f = dynamic_cast<DeviceEnumerationFailed const *>(&*m)) {
      ++failed;
      EXPECT_EQ(f->reason(), "no bus");
    }
  }
  EXPECT_EQ(completed, 1u);
  EXPECT_EQ(failed, 1u);
  EXPECT_EQ(returned->getState().deviceCount(), 3u);
  EXPECT_EQ(returned->getState().alertCount(), 1u);
  // In this process the client's mirror is the engine's, written before the answer.
  EXPECT_EQ(StateManager::instance().deviceCount(), 3u);
  ASSERT_TRUE(StateManager::instance().rootDevice());
  EXPECT_EQ(StateManager::instance().rootDevice()->guid(), "root");

  // Tests come with their devices, and a later device enumeration keeps them.
  send(new EnumerateTestsClientToEngine("db"));
  auto const *withTests = next<EnumerationReturnedFromEngine>();
  ASSERT_NE(withTests, nullptr);
  EXPECT_EQ(withTests->getState().deviceCount(), 3u);
  EXPECT_EQ(withTests->getState().testCount(), machine->bodies.size());
  auto const disk = StateManager::instance().deviceByGuid("disk1");
  ASSERT_TRUE(disk);
  EXPECT_EQ(StateManager::instance().getTestsByDevice(*disk).size(), machine->bodies.size());

  send(new EnumerateDevicesClientToEngine(CapabilityImp::ALL(), true, false, false));
  auto const *again = next<EnumerationReturnedFromEngine>();
  ASSERT_NE(again, nullptr);
  EXPECT_EQ(again->getState().testCount(), machine->bodies.size());
  EXPECT_EQ(StateManager::instance().testCount(), machine->bodies.size());
  // The same device objects stay in the shared mirror.
  EXPECT_EQ(StateManager::instance().deviceByGuid("disk1"), disk);
}

TEST_F(EngineCoreTest, RunReportsStatesProgressEventsAndFinalResultInOrder) {
  enumerateEverything();
  TestRunImp run = runOf("quick");
  auto const reports = reportsUntilExited(start(run));
  ASSERT_GE(reports.size(), 4u);
  EXPECT_EQ(reports[0].state(), TestStateImp::INITIALIZING);
  EXPECT_EQ(reports[1].state(), TestStateImp::RUNNING);
  EXPECT_EQ(reports[1].result(), TestResultImp::TESTINGINPROGRESS);
  TestRunImp const &last = reports.back();
  EXPECT_EQ(last.state(), TestStateImp::EXITED);
  EXPECT_EQ(last.result(), TestResultImp::FAIL);
  EXPECT_EQ(last.getErrorCode(), "E42");
  EXPECT_EQ(last.progressInformation(), "half way");
  ASSERT_EQ(last.eventCount(), 1u);
  EXPECT_EQ(last.events()[0].message(), "slow sector");
  EXPECT_EQ(last.events()[0].device(), "disk0");

  // Only intermediate progress may be dropped; the final report may not.
  for (auto const &m : held) {
    auto const *report = dynamic_cast<TestProgressEngineToClient const *>(&*m);
    if (!report)
      continue;
    bool const progressOnly = report->getTestRun().state() == TestStateImp::RUNNING &&
                              report->getTestRun().percentComplete() == 50 &&
                              report->getTestRun().eventCount() == 0;
    EXPECT_EQ(report->priority(), progressOnly ? Message::PROGRESS_PRIORITY : 0);
  }

  // The engine lists the run it ran.
  auto *list = new EnumerateTestRunsClientToEngine();
  list->setTestState(TestStateImp::EXITED);
  send(list);
  auto const *runs = next<TestRunsReturnedEngineToClient>();
  ASSERT_NE(runs, nullptr);
  ASSERT_NE(runs->testRunManager(), nullptr);
  ASSERT_TRUE(runs->testRunManager()->testRunByGuid(run.guid()));
  EXPECT_EQ(runs->testRunManager()->testRunByGuid(run.guid())->result(), TestResultImp::FAIL);
}

TEST_F(EngineCoreTest, StopsEndEveryListedRunWithExitedKnownOrNot) {
  enumerateEverything();
  TestRunImp hang = runOf("hang"), stubborn = runOf("stubborn", "disk1");
  start(hang);
  start(stubborn);
  ASSERT_EQ(reportsUntilExited(hang.guid(), 300).size(), 2u); // INITIALIZING, RUNNING

  auto *stop = new StopTestsClientToEngine(TestResultImp::TESTINGHALTED);
  stop->addTestRunGuid(hang.guid());
  stop->addTestRunGuid(stubborn.guid());
  stop->addTestRunGuid("never-started");
  stop->addTestRunGuid(hang.guid()); // duplicates are harmless
  send(stop);

  std::map<String, TestRunImp> exited;
  std::vector<String> aborting;
  while (exited.size() < 3) {
    auto const *report = next<TestProgressEngineToClient>();
    ASSERT_NE(report, nullptr) << exited.size() << " runs ended";
    TestRunImp const &r = report->getTestRun();
    if (r.state() == TestStateImp::ABORTING)
      aborting.push_back(r.guid());
    if (r.state() == TestStateImp::EXITED)
      exited.emplace(r.guid(), r);
  }
  EXPECT_EQ(exited.at(hang.guid()).result(), TestResultImp::TESTINGHALTED);
  EXPECT_EQ(exited.at(stubborn.guid()).result(), TestResultImp::TESTINGHALTED);
  EXPECT_EQ(exited.at("never-started").result(), TestResultImp::TESTINGHALTED);
  EXPECT_EQ(aborting.size(), 2u);
  EXPECT_EQ(core->activeRunCount(), 0u);

  // A stop without a result ends an unknown run as aborted by the user.
  auto *plain = new StopTestsClientToEngine(TestResultImp::sentinel());
  plain->addTestRunGuid("other");
  send(plain);
  auto const reports = reportsUntilExited("other");
  ASSERT_EQ(reports.size(), 1u);
  EXPECT_EQ(reports[0].result(), TestResultImp::USERABORTED);
}

TEST_F(EngineCoreTest, BusyDevicesBlockRunsThatCannotShareThem) {
  enumerateEverything();
  TestRunImp first = runOf("hang");
  start(first);
  ASSERT_EQ(reportsUntilExited(first.guid(), 300).size(), 2u);

  // Not parallel: blocked, and the same run may be sent again later.
  TestRunImp second = runOf("quick");
  auto blocked = reportsUntilExited(start(second));
  ASSERT_EQ(blocked.size(), 1u);
  EXPECT_EQ(blocked[0].result(), TestResultImp::DEVICETESTINGBLOCKED);

  // Another device is free.
  TestRunImp elsewhere = runOf("quick", "disk1");
  EXPECT_EQ(reportsUntilExited(start(elsewhere)).back().result(), TestResultImp::FAIL);

  auto *stop = new StopTestsClientToEngine(TestResultImp::USERABORTED);
  stop->addTestRunGuid(first.guid());
  send(stop);
  EXPECT_EQ(reportsUntilExited(first.guid()).back().result(), TestResultImp::USERABORTED);

  second.setState(TestStateImp::INITIALIZING);
  send(new RunTestClientToEngine(&second));
  EXPECT_EQ(reportsUntilExited(second.guid()).back().result(), TestResultImp::FAIL);

  // Two tests that both allow parallel testing share the device.
  TestRunImp shared = runOf("hangShared"), beside = runOf("quickShared");
  start(shared);
  ASSERT_EQ(reportsUntilExited(shared.guid(), 300).size(), 2u);
  EXPECT_EQ(reportsUntilExited(start(beside)).back().result(), TestResultImp::PASS);

  // A device the machine itself holds is busy for everyone.
  machine->heldBusy = "disk1";
  TestRunImp held = runOf("quickShared", "disk1");
  EXPECT_EQ(reportsUntilExited(start(held)).back().result(), TestResultImp::DEVICETESTINGBLOCKED);
}

TEST_F(EngineCoreTest, LimitsForcedResultsAndFailingBodies) {
  enumerateEverything();
  TestRunImp forced = runOf("hang");
  forced.setForcedResult(TestResultImp::SKIPPED);
  auto reports = reportsUntilExited(start(forced));
  ASSERT_EQ(reports.size(), 1u);
  EXPECT_EQ(reports[0].result(), TestResultImp::SKIPPED);

  TestRunImp limited = runOf("hang");
  limited.setMaxTime(1);
  reports = reportsUntilExited(start(limited), 5000);
  ASSERT_FALSE(reports.empty());
  EXPECT_EQ(reports.back().result(), TestResultImp::MAXTIMEEXCEEDED);
  for (auto const &r : reports)
    EXPECT_NE(r.state(), TestStateImp::ABORTING);

  TestRunImp broken = runOf("throws");
  reports = reportsUntilExited(start(broken));
  ASSERT_FALSE(reports.empty());
  EXPECT_EQ(reports.back().result(), TestResultImp::INTERNALERROR);
  ASSERT_EQ(reports.back().eventCount(), 1u);
  EXPECT_NE(reports.back().events()[0].message().find("sensor vanished"), String::npos);

  // "Not set" minimum and maximum times (the 32-bit sentinel) are no limits.
  TestRunImp unlimited = runOf("quickShared");
  unlimited.setMinTime(0xFFFFFFFFu);
  unlimited.setMaxTime(0xFFFFFFFFu);
  EXPECT_EQ(reportsUntilExited(start(unlimited)).back().result(), TestResultImp::PASS);
}

TEST_F(EngineCoreTest, PromptsAreAnsweredRefusedOrCancelled) {
  enumerateEverything();
  TestRunImp answered = runOf("ask");
  answered.setMsgBoxSupported(true);
  start(answered);
  auto const *request = next<MessageBox2RequestMessage>();
  ASSERT_NE(request, nullptr);
  EXPECT_EQ(request->testRunGuid(), answered.guid());
  EXPECT_EQ(request->request().getMessage(), "Press a key");
  send(new MessageBox2ResultMessage(MessageBox2Result(1), answered.guid(), request->getUniqueId()));
  EXPECT_EQ(reportsUntilExited(answered.guid()).back().result(), TestResultImp::PASS);

  TestRunImp refused = runOf("ask");
  refused.setMsgBoxSupported(true);
  start(refused);
  request = next<MessageBox2RequestMessage>();
  ASSERT_NE(request, nullptr);
  send(new MessageBox2AckMessage(*request, false));
  EXPECT_EQ(reportsUntilExited(refused.guid()).back().result(), TestResultImp::NOTAPPLICABLE);

  // Without message-box support nobody is asked.
  TestRunImp silent = runOf("ask");
  skipped.clear();
  EXPECT_EQ(reportsUntilExited(start(silent)).back().result(), TestResultImp::NOTAPPLICABLE);
  for (auto const &m : skipped)
    EXPECT_EQ(dynamic_cast<MessageBox2RequestMessage const *>(&*m), nullptr);

  // A stop while the box is up cancels the box.
  TestRunImp stopped = runOf("ask");
  stopped.setMsgBoxSupported(true);
  start(stopped);
  request = next<MessageBox2RequestMessage>();
  ASSERT_NE(request, nullptr);
  unsigned int const id = request->getUniqueId();
  auto *stop = new StopTestsClientToEngine(TestResultImp::USERABORTED);
  stop->addTestRunGuid(stopped.guid());
  send(stop);
  auto const *cancel = next<MessageBox2CancelMessage>();
  ASSERT_NE(cancel, nullptr);
  EXPECT_EQ(cancel->getUniqueId(), id);
  EXPECT_EQ(reportsUntilExited(stopped.guid()).back().result(), TestResultImp::USERABORTED);
}

TEST_F(EngineCoreTest, LiveChangesIndicatorsAndRefreshesArriveAsPartialStates) {
  enumerateEverything();
  auto const *live = next<UpdatesProviderToEngineToUI>();
  ASSERT_NE(live, nullptr);
  EXPECT_TRUE(live->state().deviceByGuid("usb0"));
  ASSERT_EQ(live->alertGuidsToRemove().size(), 1u);
  // The engine leaves the shared mirror to the client.
  EXPECT_FALSE(StateManager::instance().deviceByGuid("usb0"));

  IndicatorImp indicator("ind-temp", "storage", "temp", "Disk temperature", "disk0");
  indicator.setInterval(1);
  IndicatorRunImp *run = new IndicatorRunImp(indicator);
  run->setGuid("run-1");
  send(new RunIndicatorClientToEngine(run));
  auto const *announced = next<UpdatesProviderToEngineToUI>();
  ASSERT_NE(announced, nullptr);
  ASSERT_TRUE(announced->state().indicatorRunByGuid("run-1"));
  auto const *reading = next<UpdatesProviderToEngineToUI>();
  ASSERT_NE(reading, nullptr);
  auto const disk = reading->state().deviceByGuid("disk0");
  ASSERT_TRUE(disk);
  EXPECT_TRUE(disk->property("Temperature"));

  IndicatorRunImp pausedRun(indicator);
  pausedRun.setGuid("run-1");
  send(new PauseIndicatorClientToEngineToProvider(&pausedRun, 0));
  auto const *paused = next<UpdatesProviderToEngineToUI>();
  ASSERT_NE(paused, nullptr);
  ASSERT_TRUE(paused->state().indicatorRunByGuid("run-1"));
  EXPECT_TRUE(paused->state().indicatorRunByGuid("run-1")->isPaused());
  int const readingsWhenPaused = machine->readings.load();

  send(new RequestUpdateClientToEngineToIndicator("disk1", ""));
  auto const *refreshed = next<UpdatesProviderToEngineToUI>();
  ASSERT_NE(refreshed, nullptr);
  ASSERT_TRUE(refreshed->state().deviceByGuid("disk1"));
  EXPECT_EQ(refreshed->state().deviceByGuid("disk1")->name(), "Disk disk1 (renamed)");
  EXPECT_EQ(machine->readings.load(), readingsWhenPaused);
}

TEST_F(EngineCoreTest, ShutdownEndsEveryRunWithItsExitedReport) {
  enumerateEverything();
  TestRunImp a = runOf("hang"), b = runOf("stubborn", "disk1");
  start(a);
  start(b);
  ASSERT_EQ(reportsUntilExited(a.guid(), 300).size(), 2u);
  send(new ShutdownClientToEngine());
  ASSERT_TRUE(core->waitForShutdownRequest(2000));
  EXPECT_TRUE(core->shutdown(5000));
  EXPECT_EQ(core->activeRunCount(), 0u);
  EXPECT_EQ(reportsUntilExited(a.guid()).back().result(), TestResultImp::USERABORTED);
  EXPECT_EQ(reportsUntilExited(b.guid()).back().result(), TestResultImp::USERABORTED);

  // After shutdown nothing is read any more.
  send(new EnumerateTestsClientToEngine("db"));
  EXPECT_EQ(next<EnumerationReturnedFromEngine>(300), nullptr);
}

} // namespace
