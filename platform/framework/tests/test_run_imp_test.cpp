// Test runs: construction, state observers, the notices of engine reports,
// events, the run registry and concurrent use.

#include <gtest/gtest.h>

#include <boost/make_shared.hpp>

#include <atomic>
#include <chrono>
#include <future>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "zel/IDeviceImp.h"
#include "zel/ParameterImp.h"
#include "zel/TestImp.h"
#include "zel/TestRunImp.h"
#include "zel/TestRunImpObserver.h"
#include "zel/TestRunImpStateObserver.h"
#include "zel/TestRunManager.h"

using zel::String;
using zel::TestResultImp;
using zel::TestRunEventImp;
using zel::TestRunImp;
using zel::TestStateImp;

namespace {

zel::TestImp makeTest() {
  zel::TestImp t("mod-guid", "MemTest", zel::TestImp::TEST, "Memory test", "walks memory");
  t.addParameter(zel::ParameterImp("Passes", zel::DataTypeImp::UINT32, zel::ValueImp(2u)));
  t.addParameter(zel::ParameterImp("Pattern", zel::DataTypeImp::STRING, zel::ValueImp("0xAA")));
  return t;
}

zel::IDeviceImp makeDevice() {
  return zel::IDeviceImp("dev-guid", "DIMM 0", zel::CapabilityImp::ALL());
}

TestRunEventImp *event(char const *key) { return new TestRunEventImp("mod-guid", key); }

// Records every notice as one word; events as "Event:<key of lastEvent()>".
class Recorder : public zel::TestRunImpObserver, public zel::TestRunImpStateObserver {
public:
  std::vector<std::string> log;
  std::string throwOn; // notice that throws once recorded

  void handleTestInitializing(TestRunImp &) override { note("Initializing"); }
  void handleTestStart(TestRunImp &) override { note("Start"); }
  void handleTestAborting(TestRunImp &) override { note("Aborting"); }
  void handleTestAborted(TestRunImp &) override { note("Aborted"); }
  void handleTestFinished(TestRunImp &) override { note("Finished"); }
  void handleTestNotStarted(TestRunImp &) override { note("NotStarted"); }
  void handleTestEvent(TestRunImp &run) override {
    TestRunEventImp *e = run.lastEvent();
    note("Event:" + std::string(e ? e->key().c_str() : "<null>"));
  }
  void handleTestPercentComplete(TestRunImp &run) override {
    note("Percent:" + std::to_string(run.percentComplete()));
  }
  void handleTestProgressMessage(TestRunImp &run) override {
    note("Progress:" + std::string(run.progressInformation().c_str()));
  }
  void handleStateChange(TestRunImp &, TestStateImp const &o, TestStateImp const &n) override {
    note(std::string(o.name()) + ">" + n.name());
  }

  std::vector<std::string> take() {
    std::vector<std::string> out;
    out.swap(log);
    return out;
  }

private:
  void note(std::string const &what) {
    log.push_back(what);
    if (!throwOn.empty() && what.rfind(throwOn, 0) == 0)
      throw std::runtime_error("observer failed on " + what);
  }
};

using Log = std::vector<std::string>;

// A client run watched by a recorder, plus the engine's own copy of it that
// the test mutates and reports back, as the engine does.
struct Conversation {
  TestRunImp client{makeTest(), makeDevice()};
  Recorder rec;
  TestRunImp engine{client};

  Conversation() {
    client.registerTestRunImpObserver(&rec);
    client.addStateObserver(&rec);
  }
  // What TestRun::run does before sending.
  void start() {
    client.triggerTestInitializing();
    client.setFinalResult(TestResultImp::TESTNOTSTARTED);
    client.setState(TestStateImp::INITIALIZING);
    engine = client;
  }
  bool report() { return client.update(engine); }
};

} // namespace

TEST(TestRunImp, ConstructionCopiesTheTestAndStartsClean) {
  zel::TestImp test = makeTest();
  TestRunImp a(test, makeDevice());
  TestRunImp b(test, makeDevice());

  EXPECT_FALSE(a.guid().isEmpty());
  EXPECT_NE(a.guid(), b.guid());
  EXPECT_EQ(a.state(), TestStateImp::NOTSTARTED);
  EXPECT_EQ(a.result(), TestResultImp::TESTNOTSTARTED);
  EXPECT_EQ(a.percentComplete(), 0u);
  EXPECT_EQ(a.eventCount(), 0u);
  EXPECT_FALSE(a.hasForcedResult());
  EXPECT_EQ(a.maxTime(), TestRunImp::NO_MAX_TIME);
  EXPECT_TRUE(a.promptingEnabled());
  ASSERT_TRUE(a.test() && a.device());
  EXPECT_EQ(*a.test(), test);
  EXPECT_EQ(a.device()->guid(), "dev-guid");

  // Parameters are the run's own deep copies, found without regard to case.
  ASSERT_EQ(a.parameterCount(), 2u);
  auto passes = a.parameter("PASSES");
  ASSERT_TRUE(passes);
  passes->setValue(zel::ValueImp(7u));
  EXPECT_EQ(a.parameter("passes")->value(), zel::ValueImp(7u));
  EXPECT_EQ(b.parameter("passes")->value(), zel::ValueImp(2u));
  EXPECT_EQ(test.parameter("passes")->value(), zel::ValueImp(2u));
  EXPECT_FALSE(a.parameter("nope"));

  // A copy carries the data (deeply) but no observers.
  Recorder rec;
  a.registerTestRunImpObserver(&rec);
  a.addStateObserver(&rec);
  TestRunImp copy(a);
  EXPECT_EQ(copy.guid(), a.guid());
  copy.parameter("passes")->setValue(zel::ValueImp(9u));
  EXPECT_EQ(a.parameter("passes")->value(), zel::ValueImp(7u));
  copy.setState(TestStateImp::RUNNING);
  copy.triggerPercentComplete();
  EXPECT_TRUE(rec.log.empty());
}

TEST(TestRunImp, StateObserversHearEachRealChangeOnce) {
  TestRunImp run(makeTest(), makeDevice());
  Recorder rec;
  run.addStateObserver(&rec);
  run.addStateObserver(&rec); // no duplicates

  run.setState(TestStateImp::INITIALIZING);
  run.setState(TestStateImp::INITIALIZING);
  run.setState(TestStateImp::RUNNING);
  EXPECT_EQ(rec.take(), (Log{"NOTSTARTED>INITIALIZING", "INITIALIZING>RUNNING"}));

  run.removeStateObserver(&rec);
  run.setState(TestStateImp::EXITED);
  EXPECT_TRUE(rec.log.empty());
  EXPECT_EQ(run.state(), TestStateImp::EXITED);
}

TEST(TestRunImp, ReportsOfANormalRunFireTheMatchingNoticesInOrder) {
  Conversation c;
  c.start();
  EXPECT_EQ(c.rec.take(), (Log{"Initializing", "NOTSTARTED>INITIALIZING"}));

  EXPECT_TRUE(c.report()); // INITIALIZING again: nothing to tell
  EXPECT_TRUE(c.rec.log.empty());

  c.engine.setState(TestStateImp::RUNNING);
  c.engine.setFinalResult(TestResultImp::TESTINGINPROGRESS);
  c.report();
  EXPECT_EQ(c.rec.take(), (Log{"INITIALIZING>RUNNING", "Start"}));
  EXPECT_EQ(c.client.result(), TestResultImp::TESTINGINPROGRESS);

  c.engine.setPercentComplete(40);
  c.engine.setProgressInformation("phase 1");
  c.engine.addEvent(event("A"));
  c.engine.setEstimatedTimeLeft(30);
  c.report();
  EXPECT_EQ(c.rec.take(), (Log{"Event:A", "Percent:40", "Progress:phase 1"}));
  EXPECT_EQ(c.client.estimatedTimeLeft(), 30u);

  // The whole run comes again: only what is new is told.
  c.engine.addEvent(event("B"));
  c.engine.addEvent(event("C"));
  c.report();
  c.report();
  EXPECT_EQ(c.rec.take(), (Log{"Event:B", "Event:C"}));
  EXPECT_EQ(c.client.eventCount(), 3u);

  c.engine.setPercentComplete(100);
  c.engine.setState(TestStateImp::EXITED);
  c.engine.setFinalResult(TestResultImp::PASS);
  c.engine.setErrorCode("E0");
  c.engine.setElapsedTime(12);
  c.report();
  EXPECT_EQ(c.rec.take(), (Log{"RUNNING>EXITED", "Percent:100", "Finished"}));
  EXPECT_EQ(c.client.result(), TestResultImp::PASS);
  EXPECT_EQ(c.client.getErrorCode(), "E0");
  EXPECT_EQ(c.client.elapsedTime(), 12u);

  // A late report cannot bring a finished run back.
  c.engine.setState(TestStateImp::RUNNING);
  c.engine.addEvent(event("late"));
  EXPECT_FALSE(c.report());
  EXPECT_TRUE(c.rec.log.empty());
  EXPECT_EQ(c.client.state(), TestStateImp::EXITED);
  EXPECT_EQ(c.client.eventCount(), 3u);
}

TEST(TestRunImp, StoppedRunsEndAborted) {
  {
    Conversation c;
    c.start();
    c.engine.setState(TestStateImp::RUNNING);
    c.report();
    c.rec.take();
    c.engine.setState(TestStateImp::ABORTING);
    c.report();
    // Any result after ABORTING counts as aborted, even one that would
    // otherwise be a completion.
    c.engine.setState(TestStateImp::EXITED);
    c.engine.setFinalResult(TestResultImp::FAIL);
    c.report();
    EXPECT_EQ(c.rec.take(), (Log{"RUNNING>ABORTING", "Aborting", "ABORTING>EXITED", "Aborted"}));
  }
  for (TestResultImp stop :
       {TestResultImp(TestResultImp::USERABORTED), TestResultImp(TestResultImp::MAXTIMEEXCEEDED)}) {
    Conversation c; // stopped without an ABORTING report
    c.start();
    c.engine.setState(TestStateImp::RUNNING);
    c.report();
    c.rec.take();
    c.engine.setState(TestStateImp::EXITED);
    c.engine.setFinalResult(stop);
    c.report();
    EXPECT_EQ(c.rec.take(), (Log{"RUNNING>EXITED", "Aborted"})) << stop.toString().c_str();
  }
}

TEST(TestRunImp, ABlockedRunIsNotStartedAndTheSameObjectRunsAgain) {
  Conversation c;
  c.start();
  String guid = c.client.guid();
  c.rec.take();

  c.engine.setState(TestStateImp::EXITED);
  c.engine.setFinalResult(TestResultImp::DEVICETESTINGBLOCKED);
  c.report();
  EXPECT_EQ(c.rec.take(), (Log{"INITIALIZING>EXITED", "NotStarted"}));

  c.start(); // TestRun::run on the same object
  EXPECT_EQ(c.rec.take(), (Log{"Initializing", "EXITED>INITIALIZING"}));
  c.engine.setState(TestStateImp::RUNNING);
  c.engine.setFinalResult(TestResultImp::TESTINGINPROGRESS);
  c.report();
  c.engine.setState(TestStateImp::EXITED);
  c.engine.setFinalResult(TestResultImp::PASS);
  c.report();
  EXPECT_EQ(c.rec.take(), (Log{"INITIALIZING>RUNNING", "Start", "RUNNING>EXITED", "Finished"}));
  EXPECT_EQ(c.client.guid(), guid);

  // A forced result reported at once ends as not started only for
  // TESTNOTSTARTED; SKIPPED is a completion.
  Conversation f;
  f.client.setForcedResult(TestResultImp::SKIPPED);
  f.start();
  f.rec.take();
  EXPECT_EQ(f.engine.forcedResult(), TestResultImp::SKIPPED);
  f.engine.setState(TestStateImp::EXITED);
  f.engine.setFinalResult(f.engine.forcedResult());
  f.report();
  EXPECT_EQ(f.rec.take(), (Log{"INITIALIZING>EXITED", "Finished"}));
}

TEST(TestRunImp, AThrowingObserverPropagatesAndLeavesTheRunConsistent) {
  Conversation c;
  c.start();
  c.rec.take();
  c.rec.throwOn = "Start";
  c.engine.setState(TestStateImp::RUNNING);
  c.engine.setPercentComplete(10);
  c.engine.addEvent(event("A"));
  EXPECT_THROW(c.report(), std::runtime_error);
  // The pending notices of that report were dropped, but the data is in.
  EXPECT_EQ(c.rec.take(), (Log{"INITIALIZING>RUNNING", "Start"}));
  EXPECT_EQ(c.client.state(), TestStateImp::RUNNING);
  EXPECT_EQ(c.client.percentComplete(), 10u);
  EXPECT_EQ(c.client.eventCount(), 1u);

  // The run still works, and the event already taken in is not told again.
  c.rec.throwOn.clear();
  c.engine.addEvent(event("B"));
  c.engine.setPercentComplete(20);
  c.report();
  EXPECT_EQ(c.rec.take(), (Log{"Event:B", "Percent:20"}));

  // A throwing state observer stops the other notices too.
  c.rec.throwOn = "RUNNING>EXITED";
  c.engine.setState(TestStateImp::EXITED);
  c.engine.setFinalResult(TestResultImp::PASS);
  EXPECT_THROW(c.report(), std::runtime_error);
  EXPECT_EQ(c.client.state(), TestStateImp::EXITED);
  EXPECT_EQ(c.client.result(), TestResultImp::PASS);
}

TEST(TestRunImp, ObserversRunWithoutTheRunsLock) {
  // Another thread must be able to read and change the run while an
  // observer is being told (the observer waits for it, with a deadline).
  struct Waiter : Recorder {
    bool otherThreadGotThrough = false;
    void handleTestStart(TestRunImp &run) override {
      auto f = std::async(std::launch::async, [&run] {
        run.setErrorCount(3);
        return run.state();
      });
      otherThreadGotThrough = f.wait_for(std::chrono::seconds(10)) == std::future_status::ready &&
                              f.get() == TestStateImp::RUNNING;
    }
  } waiter;
  TestRunImp run(makeTest(), makeDevice());
  run.registerTestRunImpObserver(&waiter);
  TestRunImp report(run);
  report.setState(TestStateImp::RUNNING);
  run.update(report);
  EXPECT_TRUE(waiter.otherThreadGotThrough);
  EXPECT_EQ(run.errorCount(), 3u);
}

TEST(TestRunImp, EventsAreTakenOnceAndReadInOrder) {
  TestRunImp run(makeTest(), makeDevice());
  Recorder rec;
  run.registerTestRunImpObserver(&rec);

  TestRunEventImp *a = event("A");
  String aGuid = a->guid();
  EXPECT_TRUE(run.addEvent(a));
  EXPECT_EQ(run.lastEvent(), a);
  TestRunEventImp *again = new TestRunEventImp(*a); // same guid: dropped and deleted
  EXPECT_FALSE(run.addEvent(again));
  EXPECT_TRUE(run.addEvent(event("B")));
  EXPECT_FALSE(run.addEvent(nullptr));
  EXPECT_EQ(rec.take(), (Log{"Event:A", "Event:B"}));

  // The cursor gives copies in order, then default events, and stays put.
  EXPECT_TRUE(run.hasNextEvent());
  TestRunEventImp first = run.nextEvent();
  EXPECT_EQ(first.key(), "A");
  EXPECT_EQ(first.guid(), aGuid);
  EXPECT_EQ(run.nextEvent().key(), "B");
  EXPECT_FALSE(run.hasNextEvent());
  TestRunEventImp none = run.nextEvent();
  EXPECT_TRUE(none.key().isEmpty());
  EXPECT_EQ(none.type(), zel::EventTypeImp::UNINITIALIZED);
  run.addEvent(event("C"));
  EXPECT_EQ(run.nextEvent().key(), "C");

  // Copies keep the cursor and the known guids.
  TestRunImp copy(run);
  EXPECT_FALSE(copy.hasNextEvent());
  EXPECT_FALSE(copy.addEvent(new TestRunEventImp(first)));
  EXPECT_EQ(copy.eventCount(), 3u);
}

TEST(TestRunManager, RegistryKeepsOrderAndFindsByGuid) {
  zel::TestRunManager m;
  auto a = boost::make_shared<TestRunImp>(makeTest(), makeDevice());
  auto b = boost::make_shared<TestRunImp>(makeTest(), makeDevice());
  auto c = boost::make_shared<TestRunImp>(makeTest(), makeDevice());
  EXPECT_TRUE(m.addTestRun(a));
  EXPECT_TRUE(m.addTestRun(b));
  EXPECT_TRUE(m.addTestRun(c));
  EXPECT_FALSE(m.addTestRun(boost::shared_ptr<TestRunImp>()));
  b->setState(TestStateImp::RUNNING);

  EXPECT_EQ(m.testRunByGuid(b->guid()), b);
  EXPECT_FALSE(m.testRunByGuid("unknown"));
  EXPECT_EQ(m.testRuns(TestStateImp::RUNNING).size(), 1u);
  EXPECT_EQ(m.testRuns(TestStateImp::ALL).size(), 3u);

  // Same guid: the new object takes the old one's place.
  auto b2 = boost::make_shared<TestRunImp>(*b);
  EXPECT_FALSE(m.addTestRun(b2));
  EXPECT_TRUE(m.removeTestRun(a->guid()));
  EXPECT_FALSE(m.removeTestRun(a->guid()));
  auto runs = m.getTestRuns();
  ASSERT_EQ(runs.size(), 2u);
  EXPECT_EQ(runs[0], b2);
  EXPECT_EQ(runs[1], c);

  // A copy holds copies.
  zel::TestRunManager copy(m);
  ASSERT_EQ(copy.testRunCount(), 2u);
  EXPECT_NE(copy.testRunByGuid(c->guid()), c);
  EXPECT_EQ(copy.testRunByGuid(c->guid())->guid(), c->guid());
}

TEST(TestRunManager, MergeAddsCopiesAndUpdatesAllButExitedRuns) {
  zel::TestRunManager local;
  auto running = boost::make_shared<TestRunImp>(makeTest(), makeDevice());
  auto exited = boost::make_shared<TestRunImp>(makeTest(), makeDevice());
  running->setState(TestStateImp::RUNNING);
  exited->setState(TestStateImp::EXITED);
  exited->setFinalResult(TestResultImp::FAIL);
  local.addTestRun(running);
  local.addTestRun(exited);
  Recorder rec;
  running->registerTestRunImpObserver(&rec);
  exited->registerTestRunImpObserver(&rec);

  zel::TestRunManager fromEngine;
  auto r1 = boost::make_shared<TestRunImp>(*running);
  r1->setState(TestStateImp::EXITED);
  r1->setFinalResult(TestResultImp::PASS);
  auto r2 = boost::make_shared<TestRunImp>(*exited);
  r2->setFinalResult(TestResultImp::PASS);
  r2->setPercentComplete(50);
  auto fresh = boost::make_shared<TestRunImp>(makeTest(), makeDevice());
  fromEngine.addTestRun(r1);
  fromEngine.addTestRun(r2);
  fromEngine.addTestRun(fresh);

  local.merge(fromEngine);
  EXPECT_EQ(rec.take(), (Log{"Finished"}));
  EXPECT_EQ(running->result(), TestResultImp::PASS);
  EXPECT_EQ(exited->result(), TestResultImp::FAIL);
  EXPECT_EQ(exited->percentComplete(), 0u);
  ASSERT_EQ(local.testRunCount(), 3u);
  auto added = local.testRunByGuid(fresh->guid());
  ASSERT_TRUE(added);
  EXPECT_NE(added, fresh);
  EXPECT_EQ(local.getTestRuns()[2], added);

  local.merge(local);
  EXPECT_EQ(local.testRunCount(), 3u);
}

TEST(TestRunImp, ConcurrentReportsAndReaders) {
  constexpr int kReports = 300;
  TestRunImp client(makeTest(), makeDevice());
  struct Counter : zel::TestRunImpObserver {
    std::atomic<int> events{0}, finished{0};
    void handleTestInitializing(TestRunImp &) override {}
    void handleTestStart(TestRunImp &) override {}
    void handleTestAborting(TestRunImp &) override {}
    void handleTestAborted(TestRunImp &) override {}
    void handleTestFinished(TestRunImp &) override { ++finished; }
    void handleTestNotStarted(TestRunImp &) override {}
    void handleTestEvent(TestRunImp &run) override {
      if (run.lastEvent())
        ++events;
    }
    void handleTestPercentComplete(TestRunImp &run) override { (void)run.percentComplete(); }
    void handleTestProgressMessage(TestRunImp &run) override { (void)run.progressInformation(); }
  } counter;
  client.registerTestRunImpObserver(&counter);
  client.setState(TestStateImp::INITIALIZING);

  std::atomic<bool> done{false};
  std::thread writer([&] {
    TestRunImp engine(client);
    engine.setState(TestStateImp::RUNNING);
    for (int i = 0; i < kReports; ++i) {
      engine.setPercentComplete(static_cast<unsigned>(i * 100 / kReports));
      engine.setProgressInformation(String::fromInt(i));
      engine.addEvent(event("E"));
      client.update(engine);
      client.update(engine); // duplicates
    }
    engine.setState(TestStateImp::EXITED);
    engine.setFinalResult(TestResultImp::PASS);
    client.update(engine);
    done = true;
  });
  auto reader = [&] {
    while (!done) {
      TestRunImp copy(client);
      (void)copy.events();
      (void)client.toString(0, true);
      (void)client.nextEvent();
      EXPECT_LE(client.percentComplete(), 100u);
    }
  };
  std::thread r1(reader), r2(reader);
  writer.join();
  r1.join();
  r2.join();
  EXPECT_EQ(counter.events.load(), kReports);
  EXPECT_EQ(counter.finished.load(), 1);
  EXPECT_EQ(client.eventCount(), static_cast<unsigned>(kReports));
  EXPECT_EQ(client.state(), TestStateImp::EXITED);
}
