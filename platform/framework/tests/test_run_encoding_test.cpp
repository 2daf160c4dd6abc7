// Encoding of test runs, their events and the run registry: every field
// survives, and damaged input ends in zel::BadInput.

#include <gtest/gtest.h>

#include <boost/make_shared.hpp>

#include <algorithm>
#include <memory>
#include <string>

#include "TestRunEncoding.h"
#include "zel/TestRunImpObserver.h"

using zel::String;
using zel::TestResultImp;
using zel::TestRunEventImp;
using zel::TestRunImp;
using zel::TestStateImp;
namespace enc = zel::encoding;

namespace {

TestRunEventImp *richEvent(char const *key, zel::EventTypeImp type) {
  auto *e = new TestRunEventImp("mod-guid", key);
  e->setMessage("bad cell at 0x1000")
      .setEventCode(17)
      .setEventCodeString("MEM-17")
      .setCustomerEventCode("C17")
      .setType(type)
      .setDevice("dev-guid")
      .setSource("memtest.cpp", 88)
      .setTimeTriggered(1700000000);
  e->addTip(zel::TipImp("reseat", zel::TipTypeImp::TEXT_TIP,
                        zel::LocalizedString("tip.reseat.title", "Reseat"),
                        zel::LocalizedString("tip.reseat", "Reseat the module")));
  return e;
}

// A run with every field away from its default.
TestRunImp fullRun() {
  zel::TestImp test("mod-guid", "MemTest", zel::TestImp::TEST, "Memory test", "walks memory");
  test.addParameter(zel::ParameterImp("Passes", zel::DataTypeImp::UINT32, zel::ValueImp(2u)));
  test.addParameter(zel::ParameterImp("Pattern", zel::DataTypeImp::STRING, zel::ValueImp("AA")));
  test.setInteractive(true);
  zel::IDeviceImp device("dev-guid", "DIMM 0", zel::CapabilityImp::ALL());
  device.setDescription("4 GiB").setOsLocator("/sys/dimm0");

  TestRunImp run(test, device);
  run.parameter("passes")->setValue(zel::ValueImp(5u));
  run.setMinTime(60);
  run.setMaxTime(3600);
  run.setMsgBoxSupported(true);
  run.setPromptingEnabled(false);
  run.setIndex(3);
  run.setCurrentPass(2);
  run.setIdentityForAllPasses(99);
  run.setErrorLimit(4);
  run.setBeginningTime(1700000000123LL);
  run.setForcedResult(TestResultImp::SKIPPED);
  run.setState(TestStateImp::ABORTING);
  run.setFinalResult(TestResultImp::WARN);
  run.setPercentComplete(42);
  run.setEstimatedTimeLeft(77);
  run.setProgressInformation("pass 2 of 5");
  run.setElapsedTime(1234);
  run.setErrorCode("E-3");
  run.setErrorCount(2);
  run.setClientPID(4242);
  TestRunEventImp *withOverride = richEvent("B", zel::EventTypeImp::WARNING);
  withOverride->setMessageOverride("");
  run.addEvent(richEvent("A", zel::EventTypeImp::ERR));
  run.addEvent(withOverride);
  run.nextEvent(); // cursor at 1
  return run;
}

void expectSameRun(TestRunImp const &a, TestRunImp const &b) {
  EXPECT_EQ(a.guid(), b.guid());
  ASSERT_TRUE(a.test() && b.test() && a.device() && b.device());
  EXPECT_EQ(*a.test(), *b.test());
  EXPECT_TRUE(a.device()->sameContent(*b.device()));
  ASSERT_EQ(a.parameterCount(), b.parameterCount());
  for (unsigned i = 0; i < a.parameterCount(); ++i)
    EXPECT_EQ(*a.parameters()[i], *b.parameters()[i]);
  EXPECT_EQ(a.minTime(), b.minTime());
  EXPECT_EQ(a.maxTime(), b.maxTime());
  EXPECT_EQ(a.msgBoxSupported(), b.msgBoxSupported());
  EXPECT_EQ(a.promptingEnabled(), b.promptingEnabled());
  EXPECT_EQ(a.index(), b.index());
  EXPECT_EQ(a.currentPass(), b.currentPass());
  EXPECT_EQ(a.identityForAllPasses(), b.identityForAllPasses());
  EXPECT_EQ(a.errorLimit(), b.errorLimit());
  EXPECT_EQ(a.beginningTime(), b.beginningTime());
  EXPECT_EQ(a.forcedResult(), b.forcedResult());
  EXPECT_EQ(a.state(), b.state());
  EXPECT_EQ(a.result(), b.result());
  EXPECT_EQ(a.percentComplete(), b.percentComplete());
  EXPECT_EQ(a.estimatedTimeLeft(), b.estimatedTimeLeft());
  EXPECT_EQ(a.progressInformation(), b.progressInformation());
  EXPECT_EQ(a.elapsedTime(), b.elapsedTime());
  EXPECT_EQ(a.getErrorCode(), b.getErrorCode());
  EXPECT_EQ(a.errorCount(), b.errorCount());
  EXPECT_EQ(a.clientPID(), b.clientPID());
  EXPECT_EQ(a.events(), b.events());
  EXPECT_EQ(a.hasNextEvent(), b.hasNextEvent());
}

} // namespace

TEST(TestRunEncoding, EveryFieldOfARunSurvives) {
  TestRunImp run = fullRun();
  TestRunImp back;
  enc::decode(enc::encode(run), back);
  expectSameRun(run, back);
  EXPECT_EQ(back.parameter("passes")->value(), zel::ValueImp(5u));
  EXPECT_TRUE(back.test()->isInteractive());
  ASSERT_EQ(back.eventCount(), 2u);
  TestRunEventImp b = back.events()[1];
  EXPECT_TRUE(b.hasMessageOverride());
  EXPECT_EQ(b.message(), "");
  EXPECT_EQ(b.tipCount(), 1u);
  EXPECT_EQ(b.tip(0)->content().text(), "Reseat the module");
  EXPECT_EQ(back.nextEvent().key(), "B");

  // The decoded run still knows its events' guids: a report carrying them
  // again adds nothing.
  EXPECT_FALSE(back.addEvent(new TestRunEventImp(run.events()[0])));

  // A run without test or device (the engine's answer about an unknown
  // guid) travels too.
  TestRunImp bare;
  bare.setState(TestStateImp::EXITED);
  bare.setFinalResult(TestResultImp::USERABORTED);
  TestRunImp bareBack;
  enc::decode(enc::encode(bare), bareBack);
  EXPECT_FALSE(bareBack.test());
  EXPECT_FALSE(bareBack.device());
  EXPECT_EQ(bareBack.guid(), bare.guid());
  EXPECT_EQ(bareBack.result(), TestResultImp::USERABORTED);
}

TEST(TestRunEncoding, DecodingReplacesDataButKeepsTheTargetsObservers) {
  struct Count : zel::TestRunImpObserver {
    int calls = 0;
    void handleTestInitializing(TestRunImp &) override { ++calls; }
    void handleTestStart(TestRunImp &) override { ++calls; }
    void handleTestAborting(TestRunImp &) override { ++calls; }
    void handleTestAborted(TestRunImp &) override { ++calls; }
    void handleTestFinished(TestRunImp &) override { ++calls; }
    void handleTestNotStarted(TestRunImp &) override { ++calls; }
    void handleTestEvent(TestRunImp &) override { ++calls; }
    void handleTestPercentComplete(TestRunImp &) override { ++calls; }
    void handleTestProgressMessage(TestRunImp &) override { ++calls; }
  } count;
  TestRunImp target;
  target.registerTestRunImpObserver(&count);
  enc::decode(enc::encode(fullRun()), target);
  EXPECT_EQ(count.calls, 0); // decoding tells nobody
  target.triggerPercentComplete();
  EXPECT_EQ(count.calls, 1);
}

TEST(TestRunEncoding, EventsAndManagersRoundTrip) {
  std::unique_ptr<TestRunEventImp> e(richEvent("A", zel::EventTypeImp::PROGRESS));
  TestRunEventImp eBack;
  enc::decode(enc::encode(*e), eBack);
  EXPECT_EQ(eBack, *e);
  EXPECT_EQ(eBack.guid(), e->guid());

  zel::TestRunManager m;
  auto first = boost::make_shared<TestRunImp>(fullRun());
  auto second = boost::make_shared<TestRunImp>();
  m.addTestRun(first);
  m.addTestRun(second);
  zel::TestRunManager mBack;
  mBack.addTestRun(boost::make_shared<TestRunImp>()); // replaced by the decoded list
  enc::decode(enc::encode(m), mBack);
  auto runs = mBack.getTestRuns();
  ASSERT_EQ(runs.size(), 2u);
  expectSameRun(*runs[0], *first);
  EXPECT_EQ(runs[1]->guid(), second->guid());
  EXPECT_EQ(mBack.testRunByGuid(first->guid()), runs[0]);
}

TEST(TestRunEncoding, DamagedInputIsRejectedAndLeavesTheTargetAlone) {
  TestRunImp run = fullRun();
  String bytes = enc::encode(run);
  TestRunImp target;
  String targetGuid = target.guid();
  for (std::size_t cut = 0; cut < bytes.size(); ++cut)
    EXPECT_THROW(enc::decode(bytes.data(), cut, target), zel::BadInput) << "cut at " << cut;
  EXPECT_EQ(target.guid(), targetGuid);
  EXPECT_EQ(target.eventCount(), 0u);
  EXPECT_THROW(enc::decode(bytes + "x", target), zel::BadInput);

  zel::TestRunManager m;
  m.addTestRun(boost::make_shared<TestRunImp>(run));
  String mBytes = enc::encode(m);
  for (std::size_t cut = 0; cut < mBytes.size(); ++cut) {
    zel::TestRunManager out;
    EXPECT_THROW(enc::decode(mBytes.data(), cut, out), zel::BadInput) << "cut at " << cut;
  }

  // Values that no encoder writes: a percentage above 100, an event twice,
  // a manager listing one guid twice.
  TestRunImp over;
  over.setPercentComplete(100);
  std::string raw = enc::encode(over).str();
  over.setPercentComplete(99);
  std::string ninetyNine = enc::encode(over).str();
  ASSERT_EQ(raw.size(), ninetyNine.size());
  std::size_t at = std::mismatch(raw.begin(), raw.end(), ninetyNine.begin()).first - raw.begin();
  ASSERT_LT(at, raw.size());
  raw[at] = 101;
  EXPECT_THROW(enc::decode(String(raw), target), zel::BadInput);

  TestRunImp twice;
  TestRunEventImp *once = new TestRunEventImp("m", "k");
  twice.addEvent(once);
  String twiceBytes = enc::encode(twice);
  // Rewrite as two events of the same guid: the count, then the event twice.
  TestRunEventImp same(*once);
  String oneEvent = enc::encode(same).substring(1);
  std::string t = twiceBytes.str();
  std::size_t ev = t.find(oneEvent.str());
  ASSERT_NE(ev, std::string::npos);
  t.insert(ev + oneEvent.size(), oneEvent.str());
  t[ev - 4] = 2; // the u32 event count just before the first event
  EXPECT_THROW(enc::decode(String(t), target), zel::BadInput);

  zel::TestRunManager dup;
  auto r = boost::make_shared<TestRunImp>();
  dup.addTestRun(r);
  String dupBytes = enc::encode(dup);
  std::string d = dupBytes.str();
  String runBytes = enc::encode(*r).substring(1);
  d += runBytes.str();
  d[1] = 2; // the u32 run count after the endianness byte
  zel::TestRunManager dupOut;
  EXPECT_THROW(enc::decode(String(d), dupOut), zel::BadInput);
}
