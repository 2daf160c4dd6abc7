// The client core against a scripted engine in this process: connection
// lifecycle, enumeration waits, the message handler's observer registries and
// firing rules, live updates, and the cache.
//
// The scripted engine replaces the engine library's two entry points. Its
// thread reads the client-to-engine queue and answers on the engine-to-client
// queue; like the real in-process engine it writes enumeration results
// straight into the shared mirror before it answers.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <functional>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <boost/make_shared.hpp>

#include "ostrel/Alert.h"
#include "ostrel/ClientMessageHandler.h"
#include "ostrel/DeviceObserver.h"
#include "ostrel/EnumerationObserver.h"
#include "ostrel/PropertyObserver.h"
#include "ostrel/Value.h"
#include "ostrel/internal/ClientGlobals.h"
#include "ostrel/internal/ClientToEngineLink.h"
#include "ostrel/internal/EngineLibrary.h"
#include "ostrel/ostrelMain.h"
#include "zel/Exception.h"
#include "zel/IAlertImp.h"
#include "zel/IDeviceImp.h"
#include "zel/Logger.h"
#include "zel/Messages.h"
#include "zel/ModuleImp.h"
#include "zel/ProcessLinkConfigurator.h"
#include "zel/PropertyImp.h"
#include "zel/Resource.h"
#include "zel/StateManager.h"
#include "zel/TestImp.h"
#include "zel/TestRunImp.h"
#include "zel/TestRunManager.h"
#include "zel/ZELLocale.h"

using namespace ostrel5;
using Clock = std::chrono::steady_clock;
using Row = zel::CapabilityImp::Row;
using DevicePtr = boost::shared_ptr<zel::IDeviceImp>;

namespace {

zel::StateManager &mirror() { return zel::StateManager::instance(); }
ClientMessageHandler &handler() { return ClientMessageHandler::instance(); }

template <class Predicate> bool waitUntil(Predicate predicate, int milliseconds = 5000) {
  auto const deadline = Clock::now() + std::chrono::milliseconds(milliseconds);
  while (!predicate()) {
    if (Clock::now() > deadline)
      return false;
    std::this_thread::yield();
  }
  return true;
}

DevicePtr makeDevice(char const *guid, Row type, char const *parent) {
  return boost::make_shared<zel::IDeviceImp>(zel::String(guid), zel::String(guid),
                                             zel::CapabilityImp(type), zel::String(parent));
}

boost::shared_ptr<zel::PropertyImp> makeProperty(char const *key, zel::ValueImp const &value) {
  return boost::make_shared<zel::PropertyImp>(zel::String(key), value);
}

boost::shared_ptr<zel::IAlertImp> makeAlert(char const *guid) {
  auto alert = boost::make_shared<zel::IAlertImp>();
  alert->setGuid(guid).setKey(zel::String(guid) + ".key");
  return alert;
}

// sys (System) with cpu0 and cpu1 (CPU); cpu0 has Temperature 40; one alert.
void fillMachine() {
  DevicePtr sys = makeDevice("sys", Row::System, "");
  DevicePtr cpu0 = makeDevice("cpu0", Row::CPU, "sys");
  cpu0->setProperty(makeProperty("Temperature", zel::ValueImp(40u)));
  cpu0->setProperty(makeProperty("Stale", zel::ValueImp("old")));
  DevicePtr cpu1 = makeDevice("cpu1", Row::CPU, "sys");
  cpu1->setProperty(makeProperty("Temperature", zel::ValueImp(41u)));
  for (DevicePtr const &device : {sys, cpu0, cpu1})
    mirror().addDevice(device);
  mirror().addAlert(makeAlert("alert.boot"), nullptr);
}

void fillTests() {
  auto module = boost::make_shared<zel::ModuleImp>(zel::String("mod.cpu"));
  mirror().addModule(module);
  auto quick = boost::make_shared<zel::TestImp>(zel::String("mod.cpu"), zel::String("quick"), 0u,
                                                zel::String("Quick"), zel::String());
  auto bench = boost::make_shared<zel::TestImp>(zel::String("mod.cpu"), zel::String("speed"), 1u,
                                                zel::String("Speed"), zel::String());
  for (auto const &test : {quick, bench}) {
    mirror().addTest(test);
    mirror().associate(module, test);
  }
}

// ------------------------------------------------------------ scripted engine

class ScriptedEngine {
public:
  bool startResult = true;
  std::atomic<bool> answerEnumerations{true};

  // Records the arguments as "base|language|capability|startFlag|wait".
  bool start(zel::String const &base, zel::String const &language, zel::String const &,
             zel::String const &capability, bool startFlag, bool wait) {
    {
      std::lock_guard<std::mutex> lock(m_mutex);
      m_starts.push_back(std::string(base.c_str()) + "|" + language.c_str() + "|" +
                         capability.c_str() + "|" + (startFlag ? "1" : "0") + (wait ? "1" : "0"));
    }
    if (!startResult)
      return false;
    if (m_thread.joinable())
      return true;
    zel::ProcessLinkConfigurator::instance().resetQueues();
    m_stop = false;
    m_thread = std::thread([this] { loop(); });
    return true;
  }

  // Like the real engine, reads the shutdown that the client has just sent
  // before it ends (the loop ends on it); the deadline only guards the test.
  bool done() {
    if (m_thread.joinable())
      waitUntil([this] { return m_sawShutdown.load(); });
    m_stop = true;
    if (m_thread.joinable())
      m_thread.join();
    m_sawShutdown = false;
    ++m_doneCalls;
    return true;
  }

  int doneCalls() const { return m_doneCalls; }
  std::vector<std::string> starts() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_starts;
  }
  std::size_t count(zel::MsgTypeId type) {
    std::lock_guard<std::mutex> lock(m_mutex);
    return std::count_if(m_received.begin(), m_received.end(),
                         [type](zel::MessageHandle const &m) { return m->getType() == type; });
  }
  zel::MessageHandle last(zel::MsgTypeId type) {
    std::lock_guard<std::mutex> lock(m_mutex);
    for (auto it = m_received.rbegin(); it != m_received.rend(); ++it)
      if ((*it)->getType() == type)
        return *it;
    return zel::MessageHandle();
  }

  static void post(zel::Message *message) {
    zel::ProcessLinkConfigurator::instance().sendMessageEngineToClient(zel::MessageHandle(message));
  }

private:
  void loop() {
    while (!m_stop) {
      zel::MessageHandle message =
          zel::ProcessLinkConfigurator::instance().receiveMessageEngineFromClient(20);
      if (!message.isValid())
        continue;
      {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_received.push_back(message);
      }
      if (message->getType() == zel::MsgTypeId::ShutdownClientToEngine) {
        m_sawShutdown = true;
        return;
      }
      react(*message);
    }
  }

  void react(zel::Message const &message) {
    if (!answerEnumerations)
      return;
    switch (message.getType()) {
    case zel::MsgTypeId::EnumerateDevicesClientToEngine:
      fillMachine();
      post(new zel::DeviceEnumerationCompleted("fake.pci", 0.25, 3));
      post(new zel::EnumerationReturnedFromEngine(zel::StateManager()));
      break;
    case zel::MsgTypeId::EnumerateTestsClientToEngine:
      fillTests();
      post(new zel::TestEnumerationFailed("fake.db", 0.5, "no database"));
      post(new zel::EnumerationReturnedFromEngine(zel::StateManager()));
      break;
    case zel::MsgTypeId::EnumerateTestRunsClientToEngine: {
      auto *runs = new zel::TestRunManager();
      auto run = boost::make_shared<zel::TestRunImp>();
      run->setGuid("run.engine");
      run->setState(zel::TestStateImp::RUNNING);
      runs->addTestRun(run);
      post(new zel::TestRunsReturnedEngineToClient(runs));
      break;
    }
    default:
      break;
    }
  }

  std::mutex m_mutex;
  std::vector<std::string> m_starts;
  std::vector<zel::MessageHandle> m_received;
  std::thread m_thread;
  std::atomic<bool> m_stop{false};
  std::atomic<bool> m_sawShutdown{false};
  std::atomic<int> m_doneCalls{0};
};

ScriptedEngine *engine = nullptr;

bool scriptedStart(zel::String const &base, zel::String const &language,
                   zel::String const &customer, zel::String const &capability, bool startFlag,
                   bool wait) {
  return engine->start(base, language, customer, capability, startFlag, wait);
}
bool scriptedIsDone(bool) { return engine->done(); }

// ------------------------------------------------------------ recording observer

// Lines of notices, in the order they arrive, from one or more recorders.
class EventLog {
public:
  void add(std::string line) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_lines.push_back(std::move(line));
  }
  std::vector<std::string> lines() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_lines;
  }
  void clear() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_lines.clear();
  }

private:
  std::mutex m_mutex;
  std::vector<std::string> m_lines;
};

// One object for all three observer kinds; every notice appends one line,
// prefixed with the recorder's name, to its log (its own unless shared).
class Recorder : public EnumerationObserver, public DeviceObserver, public PropertyObserver {
public:
  explicit Recorder(std::string name, std::shared_ptr<EventLog> log = std::make_shared<EventLog>())
      : m_name(std::move(name)), m_log(std::move(log)) {}

  std::vector<std::string> events() { return m_log->lines(); }
  void clear() { m_log->clear(); }
  /// Called with each notice's line before it is recorded; may throw.
  std::function<void(std::string const &)> hook;

  void handleDeviceEnumerationCompleted(zel::String const &source, unsigned int count,
                                        double elapsed) override {
    add("deviceEnumerationCompleted " + std::string(source.c_str()) + " " + std::to_string(count) +
        " " + std::to_string(elapsed).substr(0, 4));
  }
  void handleTestEnumerationFailed(zel::String const &source, zel::String const &reason,
                                   double) override {
    add("testEnumerationFailed " + std::string(source.c_str()) + " " + reason.c_str());
  }
  void handleAlert(Alert const &alert) override { add("alert " + str(alert.guid())); }
  void handleEnumerationComplete(bool ok) override {
    add(std::string("enumerationComplete ") + (ok ? "true" : "false"));
  }
  void handleNewDevice(Device const &device) override { add("newDevice " + str(device.guid())); }
  void handleDeviceAboutToBeRemoved(Device const &device) override {
    add("deviceAboutToBeRemoved " + str(device.guid()));
  }
  // The handle must stay usable after the removal.
  void handleDeviceRemoved(Device const &device) override {
    add("deviceRemoved " + str(device.name()));
  }
  void handleNewProperty(Device const &device, DeviceProperty const &property) override {
    add("newProperty " + str(device.guid()) + "/" + str(property.key()));
  }
  void handlePropertyAboutToBeRemoved(Device const &device,
                                      DeviceProperty const &property) override {
    add("propertyAboutToBeRemoved " + str(device.guid()) + "/" + str(property.key()));
  }
  // The mirror's value at the time of the notice shows whether it came
  // before or after the merge.
  void handlePropertyAboutToBeChanged(Device const &device, DeviceProperty const &oldProperty,
                                      DeviceProperty const &newProperty) override {
    add("aboutToChange " + str(device.guid()) + "/" + str(oldProperty.key()) + " " +
        valueInMirror(device, oldProperty) + "->" + str(newProperty.value().toString()));
  }
  void handlePropertyChanged(Device const &device, DeviceProperty const &newProperty) override {
    add("changed " + str(device.guid()) + "/" + str(newProperty.key()) + " " +
        valueInMirror(device, newProperty));
  }
  void handleAlertAboutToBeRemoved(Alert const &alert) override {
    add("alertAboutToBeRemoved " + str(alert.guid()));
  }
  void handleAlertRemoved(Alert const &alert) override { add("alertRemoved " + str(alert.guid())); }

private:
  static std::string str(zel::String const &text) { return text.c_str(); }
  static std::string valueInMirror(Device const &device, DeviceProperty const &property) {
    DevicePtr stored = mirror().deviceByGuid(device.guid());
    auto current = stored ? stored->property(property.key()) : nullptr;
    return current ? current->value().toString().c_str() : "none";
  }
  void add(std::string const &line) {
    if (hook)
      hook(line);
    m_log->add(m_name + ": " + line);
  }
  std::string m_name;
  std::shared_ptr<EventLog> m_log;
};

// ------------------------------------------------------------ fixture

class ClientSpine : public ::testing::Test {
protected:
  void SetUp() override {
    engine = &m_engine;
    internal::replaceEngineEntryPoints(&scriptedStart, &scriptedIsDone);
    zel::Resource::reset();
    setSeparateProcess(false);
    mirror().clear();
    internal::processTestRunManager().clear();
    handler().setEnumerationReceived(false);
    m_log = std::make_shared<zel::CaptureAppender>();
    zel::LogFactory::addAppender(m_log);
    zel::LogFactory::setDefaultThreshold(1);
  }

  void TearDown() override {
    closeConnection(false);
    stopEngine(".");
    for (Recorder *recorder : m_registered) {
      unregisterEnumerationObserver(recorder);
      handler().unRegisterDeviceObserver(recorder);
      for (int i = 0; i < 4; ++i)
        handler().unRegisterPropertyObserver(recorder);
    }
    zel::LogFactory::reset();
    internal::replaceEngineEntryPoints(nullptr, nullptr);
    zel::Resource::reset();
    setSeparateProcess(false);
    engine = nullptr;
  }

  // Recorders live until the fixture goes, after TearDown has unregistered
  // them.
  Recorder &makeRecorder(std::string const &name,
                         std::shared_ptr<EventLog> log = std::make_shared<EventLog>()) {
    m_recorders.push_back(std::make_unique<Recorder>(name, log));
    m_registered.push_back(m_recorders.back().get());
    return *m_recorders.back();
  }
  Recorder &enumerationRecorder(std::string const &name,
                                std::shared_ptr<EventLog> log = std::make_shared<EventLog>()) {
    Recorder &recorder = makeRecorder(name, log);
    registerEnumerationObserver(&recorder);
    return recorder;
  }

  bool logged(char const *text) { return m_log->contains(zel::String(text)); }

  ScriptedEngine m_engine;
  std::shared_ptr<zel::CaptureAppender> m_log;
  std::vector<std::unique_ptr<Recorder>> m_recorders;
  std::vector<Recorder *> m_registered;
};

// ============================================================ lifecycle

TEST_F(ClientSpine, NothingIsSentOrClearedBeforeAConnectionIsOpen) {
  handler().setEnumerationReceived(true);
  EXPECT_FALSE(enumerateDevices(DeviceCapability::ALL(), false, false, false));
  EXPECT_FALSE(enumerateTests("db"));
  EXPECT_FALSE(getTestRuns(TestState::ALL()));
  EXPECT_TRUE(m_engine.starts().empty());
  EXPECT_EQ(0u, zel::ProcessLinkConfigurator::instance().pendingClientToEngine());
  EXPECT_TRUE(isEnumerationComplete()); // the flag is untouched
  EXPECT_FALSE(isEnumerating());        // and no enumeration counts as started
  EXPECT_TRUE(logged("enumerateTests: connection not open"));

  // closeConnection without a connection does nothing and keeps the link.
  boost::shared_ptr<ClientToEngineLink> link = internal::currentLink();
  ASSERT_TRUE(link);
  closeConnection(true);
  EXPECT_EQ(link, internal::currentLink());
  EXPECT_EQ(0, m_engine.doneCalls());
}

TEST_F(ClientSpine, OpenEnumerateAndCloseAgainstTheEngine) {
  Recorder &recorder = enumerationRecorder("enum");
  openConnection("home", true);
  ASSERT_TRUE(isConnectionActive());
  EXPECT_TRUE(engineRunning());
  // Base directory ".", "<language>_<variant>", nothing enumerated at start,
  // startFlag false, waiting for the start.
  zel::ZELLocale const locale = zel::ZELLocale::getGlobalLocale();
  EXPECT_EQ(std::vector<std::string>{std::string(".|") + locale.getLanguage().toString().c_str() +
                                     "_" + locale.getVariant().c_str() + "||01"},
            m_engine.starts());
  EXPECT_FALSE(isEnumerating());

  ASSERT_TRUE(enumerateDevices(DeviceCapability::CPU(), true, true, false));
  EXPECT_TRUE(isEnumerationComplete());
  EXPECT_FALSE(isEnumerating());
  EXPECT_TRUE(logged("client received enumeration info"));
  zel::MessageHandle request = m_engine.last(zel::MsgTypeId::EnumerateDevicesClientToEngine);
  ASSERT_TRUE(request.isValid());
  EXPECT_EQ(255u, request->clientID());
  EXPECT_STREQ("none", request->clientName().c_str());
  auto const &devicesRequest = static_cast<zel::EnumerateDevicesClientToEngine const &>(*request);
  EXPECT_TRUE(devicesRequest.capability() == zel::CapabilityImp(Row::CPU));
  EXPECT_TRUE(devicesRequest.forceReEnum());
  EXPECT_TRUE(devicesRequest.detailed());
  EXPECT_FALSE(devicesRequest.internetAccessAllowed());

  // Progress first, then the alerts, then completion, which is told once.
  EXPECT_EQ((std::vector<std::string>{"enum: deviceEnumerationCompleted fake.pci 3 0.25",
                                      "enum: alert alert.boot", "enum: enumerationComplete true"}),
            recorder.events());

  EXPECT_EQ(3u, getDevices(DeviceCapability::ALL()).size());
  EXPECT_EQ("cpu0", std::string(firstDevice(DeviceCapability::CPU()).guid().c_str()));
  EXPECT_EQ(1u, alerts().size());

  recorder.clear();
  ASSERT_TRUE(enumerateTests("/tmp/ostrel-db"));
  EXPECT_STREQ("/tmp/ostrel-db", zel::Resource::getDefaultDatabaseDirectory().c_str());
  EXPECT_EQ((std::vector<std::string>{"enum: testEnumerationFailed fake.db no database",
                                      "enum: alert alert.boot", "enum: enumerationComplete true"}),
            recorder.events());
  EXPECT_EQ(1u, getTests("").size());
  EXPECT_EQ(1u, getBenchmarks("").size());

  ASSERT_TRUE(getTestRuns(TestState::RUNNING()));
  EXPECT_TRUE(logged("client received getTestRuns info"));
  ASSERT_EQ(1u, internal::testRunsInState(zel::TestStateImp::RUNNING).size());
  EXPECT_EQ(0u, internal::testRunsInState(zel::TestStateImp::ALL).size());
  auto const &runsRequest = static_cast<zel::EnumerateTestRunsClientToEngine const &>(
      *m_engine.last(zel::MsgTypeId::EnumerateTestRunsClientToEngine));
  EXPECT_TRUE(runsRequest.testState() == zel::TestStateImp(zel::TestStateImp::RUNNING));

  // The in-process engine goes down even when asked not to shut it down.
  closeConnection(false);
  EXPECT_EQ(1u, m_engine.count(zel::MsgTypeId::ShutdownClientToEngine));
  EXPECT_EQ(1, m_engine.doneCalls());
  EXPECT_FALSE(isConnectionActive());
  EXPECT_FALSE(isEnumerationComplete());
  EXPECT_FALSE(isEnumerating());
  // The mirror survives closing.
  EXPECT_EQ(3u, deviceCount());
  EXPECT_TRUE(deviceByGuid("cpu1").isValid());

  // The observers survive it too, and a second registration is ignored.
  registerEnumerationObserver(&recorder);
  recorder.clear();
  openConnection("", false);
  ASSERT_TRUE(enumerateDevices(DeviceCapability::ALL(), false, false, false));
  EXPECT_EQ((std::vector<std::string>{"enum: deviceEnumerationCompleted fake.pci 3 0.25",
                                      "enum: alert alert.boot", "enum: enumerationComplete true"}),
            recorder.events());
}

TEST_F(ClientSpine, AnEngineThatDoesNotStartLeavesTheConnectionClosed) {
  m_engine.startResult = false;
  openConnection("", false);
  EXPECT_FALSE(isConnectionActive());
  EXPECT_FALSE(engineRunning());
  EXPECT_FALSE(enumerateDevices(DeviceCapability::ALL(), false, false, false));
}

TEST_F(ClientSpine, StopEngineClosesAnInProcessEngineAndForgetsTheLink) {
  openConnection("", false);
  ASSERT_TRUE(isConnectionActive());
  boost::shared_ptr<ClientToEngineLink> link = internal::currentLink();
  EXPECT_TRUE(stopEngine("."));
  EXPECT_EQ(1u, m_engine.count(zel::MsgTypeId::ShutdownClientToEngine));
  EXPECT_FALSE(internal::currentLink());
  link.reset();

  // Without a running engine it connects first (the in-process engine
  // starts again) and then shuts it down.
  EXPECT_TRUE(stopEngine("."));
  EXPECT_EQ(2u, m_engine.starts().size());
  EXPECT_EQ(2, m_engine.doneCalls());
}

TEST_F(ClientSpine, SeparateProcessChoiceTakesEffectWithTheNextLink) {
  openConnection("", false);
  closeConnection(false);
  setSeparateProcess(true);
  EXPECT_TRUE(isSeparateProcess());
  try {
    openConnection("home", false);
    ADD_FAILURE() << "a separate engine cannot be reached in this build";
  } catch (zel::LoginFailed const &e) {
    EXPECT_STREQ("ostrel::openConnection() -- Failed to connect to engine", e.getMessage().c_str());
  }
  EXPECT_FALSE(isConnectionActive());
  EXPECT_FALSE(engineRunning());
  EXPECT_EQ(1u, m_engine.starts().size()); // the in-process engine was not asked

  // stopEngine turns the login failure into false and forgets the link.
  EXPECT_FALSE(stopEngine("home"));
  EXPECT_TRUE(logged("stopEngine(...) Error: ostrel::openConnection() -- Failed to connect to "
                     "existing engine"));
  setSeparateProcess(false);
  openConnection("", false);
  EXPECT_TRUE(isConnectionActive());
}

// ============================================================ waits

TEST_F(ClientSpine, ATimeOutUnderOnePollFailsAtOnceEvenWithAHealthyEngine) {
  openConnection("", false);
  ASSERT_TRUE(enumerateDevices(DeviceCapability::ALL(), false, false, false));
  Recorder &recorder = enumerationRecorder("enum");

  zel::Resource::setString("Ostrel.EnumerationTimeout", "99");
  EXPECT_FALSE(enumerateDevices(DeviceCapability::ALL(), false, false, false));
  EXPECT_TRUE(isConnectionActive()); // the engine is healthy: the wait itself gave up
  EXPECT_TRUE(logged("Getting enumeration info TIMED OUT!"));
  // The alert observers are told on this thread, of the alerts the mirror
  // holds. (No enumeration-failure alert is added while the enumerator
  // library is absent.)
  ASSERT_FALSE(recorder.events().empty());
  EXPECT_EQ("enum: alert alert.boot", recorder.events()[0]);

  // The test enumeration fails the same way, without alerts.
  recorder.clear();
  EXPECT_FALSE(enumerateTests("db"));
  EXPECT_TRUE(logged("Getting test enumeration info TIMED OUT!"));
}

TEST_F(ClientSpine, AnUnansweredRequestTimesOutAfterItsPolls) {
  openConnection("", false);
  m_engine.answerEnumerations = false;
  zel::Resource::setString("Ostrel.EnumerationTimeout", "399"); // 3 polls
  auto const begin = Clock::now();
  EXPECT_FALSE(enumerateDevices(DeviceCapability::ALL(), false, false, false));
  auto const elapsed = Clock::now() - begin;
  EXPECT_GE(elapsed, std::chrono::milliseconds(300));
  EXPECT_LT(elapsed, std::chrono::milliseconds(2000));
  EXPECT_TRUE(isEnumerating()); // a failed wait leaves the request pending
  EXPECT_FALSE(isEnumerationComplete());
}

// ============================================================ observer exceptions

TEST_F(ClientSpine, AnObserverExceptionIsLoggedRethrownAndTheNextMessageStillArrives) {
  Recorder &thrower = enumerationRecorder("thrower");
  Recorder &second = enumerationRecorder("second");
  thrower.hook = [](std::string const &line) {
    if (line.rfind("deviceEnumerationCompleted", 0) == 0)
      throw zel::IllegalState("boom");
  };
  openConnection("", false);
  // The completion notice is lost for both observers; the answer that
  // follows is still dispatched, so the wait succeeds.
  ASSERT_TRUE(enumerateDevices(DeviceCapability::ALL(), false, false, false));
  EXPECT_EQ(
      (std::vector<std::string>{"second: alert alert.boot", "second: enumerationComplete true"}),
      second.events());
  zel::String const address =
      zel::String::fromPointer(static_cast<EnumerationObserver *>(&thrower));
  EXPECT_TRUE(logged(("handleDeviceEnumerationCompleted observer: " + address +
                      " threw zel exception: zel::IllegalState: boom")
                         .c_str()));
  EXPECT_TRUE(m_log->containsFragment("pullMessageRunner() caught: zel::IllegalState: boom"));
}

TEST_F(ClientSpine, EachKindOfObserverExceptionIsNamedAndThrownOn) {
  Recorder &recorder = enumerationRecorder("thrower");
  zel::String const address =
      zel::String::fromPointer(static_cast<EnumerationObserver *>(&recorder));
  zel::TestEnumerationFailed const message("db", 1.0, "why");

  recorder.hook = [](std::string const &) { throw std::runtime_error("std boom"); };
  EXPECT_THROW(handler().handleMessage(message), std::runtime_error);
  EXPECT_TRUE(
      logged(("handleTestEnumerationFailed observer: " + address + " threw std exception: std boom")
                 .c_str()));

  recorder.hook = [](std::string const &) { throw zel::StructuredException(7, "fault"); };
  EXPECT_THROW(handler().handleMessage(message), zel::StructuredException);
  EXPECT_TRUE(logged(
      ("handleTestEnumerationFailed observer: " + address + " threw structured exception: fault")
          .c_str()));

  recorder.hook = [](std::string const &) { throw 42; };
  EXPECT_THROW(handler().handleMessage(message), int);
  EXPECT_TRUE(logged(
      ("handleTestEnumerationFailed observer: " + address + " threw unknown exception").c_str()));
}

// ============================================================ handler rules

TEST_F(ClientSpine, CompletionIsToldOnlyOnTheRisingEdge) {
  Recorder &recorder = enumerationRecorder("enum");
  handler().setEnumerationReceived(false);
  handler().setEnumerationReceived(true);
  handler().setEnumerationReceived(true);
  handler().setEnumerationReceived(false);
  EXPECT_EQ(std::vector<std::string>{"enum: enumerationComplete true"}, recorder.events());

  // An exited run is never changed again; an unknown run is only logged.
  auto run = boost::make_shared<zel::TestRunImp>();
  run->setGuid("run.1");
  run->setState(zel::TestStateImp::EXITED);
  internal::processTestRunManager().addTestRun(run);
  zel::TestRunImp late(*run);
  late.setState(zel::TestStateImp::RUNNING);
  EXPECT_EQ(1, handler().handleMessage(zel::TestProgressEngineToClient(late)));
  EXPECT_TRUE(run->state() == zel::TestStateImp(zel::TestStateImp::EXITED));
  late.setGuid("run.unknown");
  EXPECT_EQ(1, handler().handleMessage(zel::TestProgressEngineToClient(late)));
  EXPECT_TRUE(logged("Unable to find 'run.unknown'"));

  // A run list without a manager leaves the flag down.
  handler().setEnumerationReceived(false);
  EXPECT_EQ(0, handler().handleMessage(zel::TestRunsReturnedEngineToClient(nullptr)));
  EXPECT_TRUE(logged("client received null state manager"));
  EXPECT_FALSE(isEnumerationComplete());

  EXPECT_FALSE(handler().engineCrashed());
  handler().handleMessage(zel::ClientCrashed());
  EXPECT_TRUE(handler().engineCrashed());
}

TEST_F(ClientSpine, AnUnshownMessageBoxIsRefusedToTheEngine) {
  openConnection("", false);
  zel::MessageBox2RequestMessage const request(zel::MessageBox2Request(), "run.7", 7u);
  EXPECT_EQ(1, handler().handleMessage(request));
  EXPECT_TRUE(logged("The current UI does not support the requested message box"));
  ASSERT_TRUE(
      waitUntil([&] { return m_engine.count(zel::MsgTypeId::MessageBox2AckMessage) == 1; }));
  auto const &ack = static_cast<zel::MessageBox2AckMessage const &>(
      *m_engine.last(zel::MsgTypeId::MessageBox2AckMessage));
  EXPECT_FALSE(ack.handled());
  EXPECT_STREQ("run.7", ack.testRunGuid().c_str());
  EXPECT_EQ(7u, ack.getUniqueId());
}

// ============================================================ cache

TEST_F(ClientSpine, ACachedMirrorAnswersEveryLookUpWithoutAnEngine) {
  fillMachine();
  fillTests();
  std::string const path = ::testing::TempDir() + "ostrel-spine-cache.bin";
  ASSERT_TRUE(cacheEnumerationData(path.c_str()));
  mirror().clear();

  m_engine.startResult = false; // no engine at all
  EXPECT_FALSE(openConnectionAndLoadCache((path + ".missing").c_str(), false, "", false));
  EXPECT_TRUE(m_engine.starts().empty()); // no connection was attempted

  Recorder &recorder = enumerationRecorder("enum");
  std::thread::id notified;
  recorder.hook = [&notified](std::string const &) { notified = std::this_thread::get_id(); };
  ASSERT_TRUE(openConnectionAndLoadCache(path.c_str(), true, "", false));
  EXPECT_EQ(std::vector<std::string>{"enum: enumerationComplete true"}, recorder.events());
  EXPECT_EQ(std::this_thread::get_id(), notified);
  EXPECT_TRUE(isEnumerationComplete());
  EXPECT_FALSE(isConnectionActive());

  EXPECT_STREQ("sys", rootDevice().guid().c_str());
  EXPECT_TRUE(deviceByGuid("cpu1").isValid());
  EXPECT_EQ(2u, getDevices(DeviceCapability::CPU()).size());
  EXPECT_EQ(3u, deviceCount());
  EXPECT_STREQ(
      "40", findDeviceProperty(DeviceCapability::CPU(), "Temperature").value().toString().c_str());
  EXPECT_FALSE(findDeviceProperty(DeviceCapability::CPU(), "Nothing").isValid());
  EXPECT_STREQ("quick", firstTest("").keyInModule().c_str());
  EXPECT_FALSE(firstTest("speed").isValid()); // a benchmark is no test
  EXPECT_STREQ("speed", firstBenchmark().keyInModule().c_str());
  EXPECT_TRUE(testByModuleGuidAndTestKey("mod.cpu", "quick").isValid());
  EXPECT_TRUE(benchmarkByModuleGuidAndBenchmarkKey("mod.cpu", "speed").isValid());
  EXPECT_EQ(1u, getModules().size());
  EXPECT_STREQ("mod.cpu", firstModule().guid().c_str());
  ASSERT_EQ(1u, alerts().size());
  EXPECT_STREQ("alert.boot", alerts()[0].guid().c_str());
  std::remove(path.c_str());
}

// ============================================================ live updates

TEST_F(ClientSpine, LiveUpdatesFireEveryObserverInTheDocumentedOrder) {
  fillMachine();
  auto log = std::make_shared<EventLog>();
  enumerationRecorder("enum", log);
  Recorder &cpu0 = makeRecorder("dev", log);
  Recorder &cpu1 = makeRecorder("dev1", log);
  Recorder &watcher = makeRecorder("prop", log);
  deviceByGuid("cpu0").registerObserver(&cpu0);
  deviceByGuid("cpu1").registerObserver(&cpu1);
  Device const cpu = deviceByGuid("cpu0");
  // The key on every CPU, registered through either road.
  cpu.property("Temperature").registerObserver(cpu, &watcher);
  registerPropertyObserver(cpu, "mod.cpu", "Fan", &watcher);

  zel::StateManager incoming;
  DevicePtr changed = makeDevice("cpu0", Row::CPU, "sys");
  changed->setProperty(makeProperty("Temperature", zel::ValueImp(50u)));
  changed->setProperty(makeProperty("Fan", zel::ValueImp(1200u)));
  incoming.addDevice(changed);
  incoming.addDevice(makeDevice("gpu0", Row::System, "sys"));
  incoming.addAlert(makeAlert("alert.hot"), nullptr);
  // The keys' array rules the length of the parallel pair: "x" is ignored.
  zel::UpdatesProviderToEngineToUI const update(incoming, {"cpu1", "ghost"}, {"cpu0", "cpu0", "x"},
                                                {"Stale", "Missing"}, {"alert.boot", "alert.none"});
  EXPECT_EQ(1, handler().handleMessage(update));

  // Before-change notices see the old value in the mirror, changed notices
  // the new one; nothing is told changed before it is new.
  EXPECT_EQ((std::vector<std::string>{
                "prop: aboutToChange cpu0/Temperature 40->50",
                "dev: aboutToChange cpu0/Temperature 40->50",
                "enum: aboutToChange cpu0/Temperature 40->50",
                "enum: newDevice gpu0",
                "prop: newProperty cpu0/Fan",
                "dev: newProperty cpu0/Fan",
                "enum: newProperty cpu0/Fan",
                "enum: alert alert.hot",
                "prop: changed cpu0/Temperature 50",
                "dev: changed cpu0/Temperature 50",
                "enum: changed cpu0/Temperature 50",
                "dev1: deviceAboutToBeRemoved cpu1",
                "enum: deviceAboutToBeRemoved cpu1",
                "dev1: deviceRemoved cpu1",
                "enum: deviceRemoved cpu1",
                "dev: propertyAboutToBeRemoved cpu0/Stale",
                "enum: propertyAboutToBeRemoved cpu0/Stale",
                "enum: alertAboutToBeRemoved alert.boot",
                "enum: alertRemoved alert.boot",
            }),
            log->lines());

  EXPECT_FALSE(deviceByGuid("cpu1").isValid());
  EXPECT_TRUE(deviceByGuid("gpu0").isValid());
  EXPECT_FALSE(deviceByGuid("cpu0").property("Stale").isValid());
  EXPECT_STREQ("50", deviceByGuid("cpu0").property("Temperature").value().toString().c_str());
  ASSERT_EQ(1u, alerts().size());
  EXPECT_STREQ("alert.hot", alerts()[0].guid().c_str());
  EXPECT_TRUE(logged("UpdatesProviderToEngineToUI - trying to remove device: ghost but it does "
                     "not exist in state"));
  EXPECT_TRUE(logged("UpdatesProviderToEngineToUI - trying to remove property: Missing on "
                     "device: cpu0 but property does not exist on this device"));
  EXPECT_TRUE(logged("UpdatesProviderToEngineToUI - trying to remove alert: alert.none but it "
                     "does not exist in state"));

  // One registration is removed per call.
  handler().unRegisterPropertyObserver(&watcher);
  log->clear();
  zel::StateManager hotter;
  DevicePtr again = makeDevice("cpu0", Row::CPU, "sys");
  again->setProperty(makeProperty("Temperature", zel::ValueImp(60u)));
  again->setProperty(makeProperty("Fan", zel::ValueImp(1500u)));
  hotter.addDevice(again);
  handler().handleMessage(zel::UpdatesProviderToEngineToUI(hotter, {}, {}, {}, {}));
  std::vector<std::string> lines = log->lines();
  EXPECT_EQ(0,
            std::count(lines.begin(), lines.end(), "prop: aboutToChange cpu0/Temperature 50->60"));
  EXPECT_EQ(1, std::count(lines.begin(), lines.end(), "prop: aboutToChange cpu0/Fan 1200->1500"));
}

} // namespace
