// The in-process engine (startEngine / engineIsDone) on the example machines,
// driven through the framework's queue pair as the client library drives it.

#include <gtest/gtest.h>

#include <chrono>
#include <map>

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

void send(Message *message) {
  message->setClientID(255);
  message->setClientName("none");
  link().sendMessageClientToEngine(MessageHandle(message));
}

class EngineMachinesTest : public ::testing::Test {
protected:
  void open(String const &machine) {
    Resource::setString("Engine.Machine", machine);
    StateManager::instance().clear();
    ASSERT_TRUE(startEngine(".", "en_US", "tests", "", false, true));
  }

  void TearDown() override {
    send(new ShutdownClientToEngine());
    EXPECT_TRUE(engineIsDone(true));
    Resource::clearString("Engine.Machine");
    StateManager::instance().clear();
  }

  // The next message of type T from the engine (others are kept in `seen`).
  template <class T> T const *next(unsigned int timeoutMs = 10000) {
    auto const deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (std::chrono::steady_clock::now() < deadline) {
      MessageHandle m = link().receiveMessageClientFromEngine(50);
      if (!m.isValid())
        continue;
      seen.push_back(m);
      if (auto const *typed = dynamic_cast<T const *>(&*m))
        return typed;
    }
    return nullptr;
  }

  void enumerate() {
    send(new EnumerateDevicesClientToEngine(CapabilityImp::ALL(), false, false, false));
    ASSERT_NE(next<EnumerationReturnedFromEngine>(), nullptr);
    send(new EnumerateTestsClientToEngine("."));
    ASSERT_NE(next<EnumerationReturnedFromEngine>(), nullptr);
  }

  // Runs `test` on `device` to its end, answering prompts with their default
  // answer and stopping tests that wait for a stop. The final report.
  TestRunImp runToEnd(TestImp const &test, IDeviceImp const &device) {
    TestRunImp run(test, device);
    run.setMsgBoxSupported(true);
    run.setState(TestStateImp::INITIALIZING);
    send(new RunTestClientToEngine(&run));
    bool stopped = false;
    auto const deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (std::chrono::steady_clock::now() < deadline) {
      MessageHandle m = link().receiveMessageClientFromEngine(1000);
      if (!m.isValid()) {
        // Nothing for a second: a test that waits until it is stopped.
        if (!stopped) {
          auto *stop = new StopTestsClientToEngine(TestResultImp::USERABORTED);
          stop->addTestRunGuid(run.guid());
          send(stop);
          stopped = true;
        }
        continue;
      }
      seen.push_back(m);
      if (auto const *box = dynamic_cast<MessageBox2RequestMessage const *>(&*m)) {
        if (box->testRunGuid() == run.guid())
          send(new MessageBox2ResultMessage(MessageBox2Result(box->request().value(2)), run.guid(),
                                            box->getUniqueId()));
      }
      if (auto const *report = dynamic_cast<TestProgressEngineToClient const *>(&*m)) {
        if (report->getTestRun().guid() == run.guid() &&
            report->getTestRun().state() == TestStateImp::EXITED)
          return report->getTestRun();
      }
    }
    ADD_FAILURE() << "no EXITED report for " << test.guid().c_str();
    return run;
  }

  std::vector<MessageHandle> seen;
};

std::string examples(char const *file) {
  return std::string(OSTREL_EXAMPLES_DIR) + "/machines/" + file;
}

class EveryExample : public EngineMachinesTest,
                     public ::testing::WithParamInterface<char const *> {};

TEST_P(EveryExample, EnumeratesAndRunsEveryTestToItsScriptedEnd) {
  open(examples(GetParam()).c_str());
  enumerate();
  StateManager &mirror = StateManager::instance();
  ASSERT_GT(mirror.deviceCount(), 0u);
  ASSERT_TRUE(mirror.rootDevice());
  ASSERT_GT(mirror.testCount(), 0u);
  // Sources report one by one (some examples declare a source that fails
  // on purpose); at least one of each kind completed.
  unsigned deviceSources = 0, testSources = 0;
  for (auto const &m : seen) {
    deviceSources += dynamic_cast<DeviceEnumerationCompleted const *>(&*m) != nullptr;
    testSources += dynamic_cast<TestEnumerationCompleted const *>(&*m) != nullptr;
  }
  EXPECT_GT(deviceSources, 0u);
  EXPECT_GT(testSources, 0u);

  std::map<std::string, unsigned> results;
  for (auto const &test : mirror.getTests()) {
    auto const devices = mirror.getDevicesByTest(*test);
    if (devices.size() == 0)
      continue; // serves a device the timeline brings later
    TestRunImp const end = runToEnd(*test, *devices[0]);
    EXPECT_EQ(end.state(), TestStateImp::EXITED);
    EXPECT_NE(end.result(), TestResultImp::TESTNOTSTARTED) << test->guid().c_str();
    // Only the tests written to throw or crash end in an internal error.
    if (end.result() == TestResultImp::INTERNALERROR) {
      std::string const key = test->keyInModule().c_str();
      EXPECT_TRUE(key == "Throws" || key == "Crash") << key;
    }
    ++results[end.result().toString().c_str()];
  }
  EXPECT_GT(results["PASS"], 0u);
}

INSTANTIATE_TEST_SUITE_P(Machines, EveryExample,
                         ::testing::Values("laptop.xml", "desktop.xml", "server.xml"));

TEST_F(EngineMachinesTest, ServerDescriptionHoldsHundredsOfDevices) {
  open(examples("server.xml").c_str());
  // Its IPMI source fails the first time; the devices behind it come with
  // the second enumeration.
  send(new EnumerateDevicesClientToEngine(CapabilityImp::ALL(), false, false, false));
  auto const *first = next<EnumerationReturnedFromEngine>();
  ASSERT_NE(first, nullptr);
  unsigned int const withoutIpmi = first->getState().deviceCount();
  send(new EnumerateDevicesClientToEngine(CapabilityImp::ALL(), true, false, false));
  auto const *returned = next<EnumerationReturnedFromEngine>();
  ASSERT_NE(returned, nullptr);
  EXPECT_GT(returned->getState().deviceCount(), withoutIpmi);
  EXPECT_GE(returned->getState().deviceCount(), 200u);
  EXPECT_TRUE(returned->getState().sameContent(StateManager::instance()));
}

TEST_F(EngineMachinesTest, ABrokenDescriptionFailsTheSourcesAndNamesTheLine) {
  String const path = FileSystem::getTempDirectory() + "/ostrel-broken-machine.xml";
  ASSERT_TRUE(FileSystem::saveFile(
      path, "<Machine>\n  <Devices>\n    <Device id=\"x\" type=\"NoSuchType\"/>\n"
            "  </Devices>\n</Machine>\n"));
  open(path);
  send(new EnumerateDevicesClientToEngine(CapabilityImp::ALL(), false, false, false));
  auto const *failed = next<DeviceEnumerationFailed>();
  ASSERT_NE(failed, nullptr);
  EXPECT_NE(failed->reason().find("ostrel-broken-machine.xml:3"), String::npos)
      << failed->reason().c_str();
  auto const *returned = next<EnumerationReturnedFromEngine>();
  ASSERT_NE(returned, nullptr);
  EXPECT_EQ(returned->getState().deviceCount(), 0u);
  FileSystem::removeFile(path);
}

TEST_F(EngineMachinesTest, EngineStartsAgainAfterShutdownWithEmptyQueues) {
  open(examples("laptop.xml").c_str());
  send(new EnumerateDevicesClientToEngine(CapabilityImp::ALL(), false, false, false));
  send(new ShutdownClientToEngine());
  ASSERT_TRUE(engineIsDone(true));
  // Whatever the first engine still said is gone for the second connection.
  open(examples("laptop.xml").c_str());
  EXPECT_EQ(link().pendingEngineToClient(), 0u);
  send(new EnumerateTestsClientToEngine("."));
  auto const *returned = next<EnumerationReturnedFromEngine>();
  ASSERT_NE(returned, nullptr);
  EXPECT_GT(returned->getState().testCount(), 0u);
}

} // namespace
