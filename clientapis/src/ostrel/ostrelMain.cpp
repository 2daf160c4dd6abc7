#include "ostrel/ostrelMain.h"

#include <atomic>

#include "ostrel/ClientMessageHandler.h"
#include "ostrel/internal/ClientGlobals.h"
#include "ostrel/internal/ClientToEngineLink.h"
#include "ostrel/internal/PendingServices.h"
#include "zel/AssertionFailure.h"
#include "zel/Exception.h"
#include "zel/FileSystem.h"
#include "zel/GlobalParameters.h"
#include "zel/IAlertImp.h"
#include "zel/IDeviceImp.h"
#include "zel/Logger.h"
#include "zel/Messages.h"
#include "zel/Mutex.h"
#include "zel/ProcessLinkConfigurator.h"
#include "zel/PropertyImp.h"
#include "zel/Resource.h"
#include "zel/StateManager.h"
#include "zel/Stopwatch.h"
#include "zel/System.h"
#include "zel/TestImp.h"
#include "zel/ZELLocale.h"

extern "C" unsigned int RNIGetCompatibleVersion() { return 0x20000; }

namespace ostrel5 {

namespace {

using LinkPtr = boost::shared_ptr<ClientToEngineLink>;
using TestPtr = boost::shared_ptr<zel::TestImp>;

zel::Logger &logger() {
  static zel::Logger &log = zel::LogFactory::getLogger("OSTREL-Global");
  return log;
}

// Serialises openConnection, openConnectionAndLoadCache, closeConnection
// and stopEngine; nothing else takes it.
zel::mutex connectionMutex;

// Set when a request for enumeration goes out or a cache is loaded; cleared
// by closeConnection only.
std::atomic<bool> enumerationStarted{false};

// Set once by enableLogging.
std::atomic<bool> loggingEnabled{false};
zel::mutex loggingMutex;

unsigned int const POLL_INTERVAL_MS = 100;
unsigned int const DEFAULT_ENUMERATION_TIMEOUT_MS = 180000;
unsigned int const TEST_RUNS_POLLS = 1800;

// The framework kinds of a test that the look-ups tell apart.
unsigned int const KIND_TEST = 0;
unsigned int const KIND_BENCHMARK = 1;

ClientMessageHandler &handler() { return ClientMessageHandler::instance(); }

zel::StateManager &mirror() { return zel::StateManager::instance(); }

zel::String boolText(bool value) { return zel::String::fromBoolean(value); }

// The number of polls of an enumeration wait. The setting is read as
// milliseconds whatever its accessor's name says, and divided by the poll
// interval in integer arithmetic: under 100 ms that is no poll at all.
unsigned int enumerationPolls() {
  unsigned int timeout = 0;
  if (!zel::GlobalParameters::ostrelEnumerationTimeoutSeconds(timeout,
                                                              zel::ZELLocale::getGlobalLocale()))
    timeout = DEFAULT_ENUMERATION_TIMEOUT_MS;
  return timeout / POLL_INTERVAL_MS;
}

// Waits for the handler's flag, which the pull thread sets. Each poll
// counts itself, fails when the link is gone, succeeds when the flag is up,
// sleeps, and fails when the count is reached; with no poll at all the wait
// fails without looking at the flag. No lock is held, so that the pull
// thread can set the flag.
bool waitForAnswer(ClientToEngineLink &link, unsigned int polls) {
  unsigned int count = 0;
  while (count < polls) {
    ++count;
    if (!link.isConnected())
      return false;
    if (handler().enumerationReceived())
      return true;
    zel::System::mssleep(POLL_INTERVAL_MS);
  }
  return false;
}

// Runs on every way out of closeConnection and stopEngine once the link has
// been used: first the diagnostic log's stop, then the link is forgotten, so
// that the next use makes a new one.
class ConnectionEndGuards {
public:
  ConnectionEndGuards() = default;
  ConnectionEndGuards(ConnectionEndGuards const &) = delete;
  ConnectionEndGuards &operator=(ConnectionEndGuards const &) = delete;
  ~ConnectionEndGuards() {
    internal::diagLogHandleAppStop();
    internal::destroyLink();
  }
};

bool stopEngineLocked(zel::String const &homePath) {
  zel::MutexGuard guard(connectionMutex);
  ConnectionEndGuards guards;
  LinkPtr link = internal::linkInstance();
  if (!link->isEngineRunning())
    link->openConnectionInternal(false, DeviceCapability::ALL(), false, homePath, true, true);
  if (internal::scriptIsActive())
    internal::abortActiveScript();
  link->closeConnection(true);
  return true;
}

// The tests of the mirror of one framework kind, all of them or those whose
// key in their module is `key`, in the mirror's order.
zel::Array<TestPtr> testsOfKind(zel::String const &key, unsigned int kind) {
  zel::Array<TestPtr> const source =
      key.isEmpty() ? mirror().getTests() : mirror().getTestsByKeyInModule(key);
  zel::Array<TestPtr> kept;
  for (TestPtr const &test : source)
    if (test && static_cast<unsigned int>(test->type()) == kind)
      kept.append(test);
  return kept;
}

Test firstOfKind(zel::String const &key, unsigned int kind) {
  zel::Array<TestPtr> const source =
      key.isEmpty() ? mirror().getTests() : mirror().getTestsByKeyInModule(key);
  for (TestPtr const &test : source)
    if (test && static_cast<unsigned int>(test->type()) == kind)
      return Test(test);
  return Test();
}

} // namespace

// ================================================================ connection

void openConnection(zel::String const &homePath, bool isFleeting) {
  zel::MutexGuard guard(connectionMutex);
  internal::ensureClientObjects();
  internal::diagLogHandleAppStart();
  internal::linkInstance()->openConnectionInternal(false, DeviceCapability::ALL(), false, homePath,
                                                   isFleeting, false);
}

bool openConnectionAndLoadCache(zel::String const &cacheFilePath, bool internetAccessAllowed,
                                zel::String const &homePath, bool isFleeting) {
  internal::setLanguageIfNeeded();
  logger().log(2, "openConnectionAndLoadCache() cacheFilePath = " + cacheFilePath +
                      " internetAccessAllowed = " + boolText(internetAccessAllowed) +
                      " homePath = " + homePath + " isFleeting = " + boolText(isFleeting));
  zel::MutexGuard guard(connectionMutex);
  internal::ensureClientObjects();
  zel::Stopwatch stopwatch;
  stopwatch.start();
  enumerationStarted = true;
  internal::diagLogHandleAppStart();
  if (!mirror().loadCache(cacheFilePath))
    return false;
  internal::linkInstance()->openConnectionInternal(false, DeviceCapability::ALL(), false, homePath,
                                                   isFleeting, false);
  handler().setEnumerationReceived(true);
  internal::diagLogSystemInfo(mirror());
  logger().log(2, "openConnectionAndLoadCache() took " +
                      zel::String::fromReal64(stopwatch.elapsedSeconds()) + " seconds.");
  return true;
}

void closeConnection(bool shutdownEngine) {
  zel::MutexGuard guard(connectionMutex);
  LinkPtr link = internal::linkInstance();
  if (!link->isConnected())
    return;
  ConnectionEndGuards guards;
  if (link->isEngineRunning()) {
    // A running script is aborted while the link still stands.
    if (internal::scriptIsActive())
      internal::abortActiveScript();
    link->closeConnection(shutdownEngine);
    enumerationStarted = false;
    handler().setEnumerationReceived(false);
  }
}

// The work runs under the connection mutex in stopEngineLocked; failures are
// reported here, after its guards have run and the mutex is free.
bool stopEngine(zel::String const &homePath) {
  try {
    return stopEngineLocked(homePath);
  } catch (zel::LoginFailed const &e) {
    logger().log(4, "stopEngine(...) Error: " + e.getMessage());
  } catch (zel::Exception const &e) {
    logger().log(4, "stopEngine(...) Error: " + e.getMessage());
  } catch (...) {
    logger().log(4, "stopEngine(...) Unknown Error");
  }
  return false;
}

bool engineRunning() {
  LinkPtr link = internal::currentLink();
  if (link && link->isEngineRunning())
    return true;
  return internal::separateEngineAnswersLogin();
}

bool isConnectionActive() { return internal::linkInstance()->isConnected(); }

void setSeparateProcess(bool separate) {
  zel::ProcessLinkConfigurator::instance().setSeparateProcess(separate);
}

bool isSeparateProcess() { return zel::ProcessLinkConfigurator::instance().separateProcess(); }

void setInternetAccessAllowed(bool allowed) {
  internal::sendMessage(new zel::SetInternetAccessAllowed(allowed));
}

// ================================================================ enumeration

bool enumerateDevices(DeviceCapability const &capability, bool forceReEnum, bool detailed,
                      bool internetAccessAllowed) {
  internal::setLanguageIfNeeded();
  logger().log(2, "enumerateDevices Cap = " + capability.toString() + " forceReEnum = " +
                      boolText(forceReEnum) + " Detailed = " + boolText(detailed) +
                      " internetAccessAllowed = " + boolText(internetAccessAllowed));
  LinkPtr link = internal::linkInstance();
  if (!link->isEngineRunning())
    return false;
  if (forceReEnum)
    internal::dropScript();
  enumerationStarted = true;
  handler().setEnumerationReceived(false);
  internal::sendMessage(new zel::EnumerateDevicesClientToEngine(*capability.getImp(), forceReEnum,
                                                                detailed, internetAccessAllowed));
  if (waitForAnswer(*link, enumerationPolls())) {
    logger().log(2, "client received enumeration info");
    internal::diagLogSystemInfo(mirror());
    return true;
  }
  boost::shared_ptr<zel::IAlertImp> const alert = internal::enumerationFailureAlert();
  if (alert)
    mirror().addAlert(alert, nullptr);
  handler().fireAlertObservers(mirror());
  logger().log(5, link->isConnected() ? "Getting enumeration info TIMED OUT!"
                                      : "Engine has shut down!");
  return false;
}

bool enumerateTests(zel::String const &databaseDirectory) {
  logger().log(2, "enumerateTests databaseDirectory = " + databaseDirectory);
  LinkPtr link = internal::linkInstance();
  if (!link->isEngineRunning()) {
    logger().log(4, "enumerateTests: connection not open");
    return false;
  }
  enumerationStarted = true;
  handler().setEnumerationReceived(false);
  zel::Resource::changeDefaultDatabaseDirectory(databaseDirectory);
  internal::sendMessage(new zel::EnumerateTestsClientToEngine(databaseDirectory));
  if (waitForAnswer(*link, enumerationPolls())) {
    logger().log(2, "client received enumeration info");
    internal::diagLogSystemInfo(mirror());
    return true;
  }
  logger().log(5, link->isConnected() ? "Getting test enumeration info TIMED OUT!"
                                      : "Engine has shut down!");
  return false;
}

bool getTestRuns(TestState const &state) {
  internal::setLanguageIfNeeded();
  logger().log(2, "getTestRuns state = " + state.toString());
  LinkPtr link = internal::linkInstance();
  if (!link->isEngineRunning())
    return false;
  enumerationStarted = true;
  handler().setEnumerationReceived(false);
  auto *message = new zel::EnumerateTestRunsClientToEngine();
  message->setTestState(state.imp());
  internal::sendMessage(message);
  if (waitForAnswer(*link, TEST_RUNS_POLLS)) {
    logger().log(2, "client received getTestRuns info");
    return true;
  }
  logger().log(5,
               link->isConnected() ? "Getting all TestRuns TIMED OUT!" : "Engine has shut down!");
  return false;
}

bool isEnumerating() {
  if (!enumerationStarted)
    return false;
  return !handler().enumerationReceived();
}

bool isEnumerationComplete() { return handler().enumerationReceived(); }

bool cacheEnumerationData(zel::String const &cacheFilePath) {
  zel::Stopwatch stopwatch;
  stopwatch.start();
  bool const saved = mirror().saveCache(cacheFilePath);
  logger().log(2, "cacheEnumerationData() took " +
                      zel::String::fromReal64(stopwatch.elapsedSeconds()) + " seconds.");
  return saved;
}

// ================================================================ look-ups

Device rootDevice() {
  internal::setLanguageIfNeeded();
  return Device(mirror().rootDevice());
}

Device deviceByGuid(zel::String const &guid) {
  internal::setLanguageIfNeeded();
  return Device(mirror().deviceByGuid(guid));
}

Device firstDevice(DeviceCapability const &capability) {
  zel::Array<boost::shared_ptr<zel::IDeviceImp>> const devices =
      mirror().getDevices(*capability.getImp(), false);
  return devices.isEmpty() ? Device() : Device(devices[0]);
}

DeviceList getDevices(DeviceCapability const &capability) {
  internal::setLanguageIfNeeded();
  return DeviceList(mirror().getDevices(*capability.getImp(), false));
}

unsigned int deviceCount() { return mirror().deviceCount(); }

DeviceProperty findDeviceProperty(DeviceCapability const &capability, zel::String const &key) {
  for (boost::shared_ptr<zel::IDeviceImp> const &device :
       mirror().getDevices(*capability.getImp(), false)) {
    boost::shared_ptr<zel::PropertyImp> const property = device->property(key);
    if (property)
      return DeviceProperty(property);
  }
  return DeviceProperty();
}

Test firstTest(zel::String const &key) {
  internal::setLanguageIfNeeded();
  return firstOfKind(key, KIND_TEST);
}

TestList getTests(zel::String const &key) {
  internal::setLanguageIfNeeded();
  return TestList(testsOfKind(key, KIND_TEST));
}

Test firstBenchmark() {
  internal::setLanguageIfNeeded();
  return firstOfKind(zel::String(), KIND_BENCHMARK);
}

TestList getBenchmarks(zel::String const &key) {
  internal::setLanguageIfNeeded();
  return TestList(testsOfKind(key, KIND_BENCHMARK));
}

Test testByGuid(zel::String const &guid) {
  internal::setLanguageIfNeeded();
  return Test(mirror().testByGuid(guid));
}

Test benchmarkByGuid(zel::String const &guid) { return testByGuid(guid); }

Test testByModuleGuidAndTestKey(zel::String const &moduleGuid, zel::String const &testKey) {
  return testByGuid(zel::TestImp::guid(moduleGuid, testKey));
}

Test benchmarkByModuleGuidAndBenchmarkKey(zel::String const &moduleGuid,
                                          zel::String const &benchmarkKey) {
  return testByModuleGuidAndTestKey(moduleGuid, benchmarkKey);
}

ModuleList getModules() {
  internal::setLanguageIfNeeded();
  return ModuleList(mirror().getModules());
}

Module firstModule() {
  internal::setLanguageIfNeeded();
  zel::Array<boost::shared_ptr<zel::IModuleImp>> const modules = mirror().getModules();
  return modules.isEmpty() ? Module() : Module(modules[0]);
}

Module moduleByGuid(zel::String const &guid) {
  internal::setLanguageIfNeeded();
  return Module(mirror().moduleByGuid(guid));
}

AlertList alerts() {
  internal::setLanguageIfNeeded();
  return AlertList(mirror().getAlerts());
}

bool areTestsRunning() { return internal::scriptIsActive(); }

bool isProfilerEnabled() { return true; }

// ================================================================ observers

void registerEnumerationObserver(EnumerationObserver *observer) {
  handler().registerEnumerationObserver(observer);
}

void unregisterEnumerationObserver(EnumerationObserver *observer) {
  handler().unregisterEnumerationObserver(observer);
}

void registerPropertyObserver(Device const &device, zel::String const &module,
                              zel::String const &key, PropertyObserver *observer) {
  ZEL_ASSERT(device.isValid());
  logger().log(2, "registerPropertyObserver module = " + module + " key = " + key);
  handler().registerPropertyObserver(device.deviceType(), key, observer);
}

void unRegisterPropertyObserver(PropertyObserver *observer) {
  handler().unRegisterPropertyObserver(observer);
}

// ================================================================ logging and directories

void enableLogging(bool verbose, zel::String const &baseDir) {
  zel::MutexGuard guard(loggingMutex);
  if (loggingEnabled) {
    logger().log(3, "Logging already enabled");
    return;
  }
  internal::ensureClientObjects();
  // Folder failures are reported and do not stop the set-up: logging then
  // goes where the configuration can still write.
  if (baseDir != zel::String(".") && !zel::FileSystem::isDirectory(baseDir)) {
    if (zel::FileSystem::makeDirectory(baseDir, true)) {
      if (!zel::FileSystem::makeDirectory(baseDir + "/logs", false))
        logger().log(4, "enableLogging() failed to create basedir/logs: " + baseDir + "/logs");
    } else {
      logger().log(4, "enableLogging() failed to create basedir: " + baseDir);
    }
  }
  internal::setLoggingBaseDirectory(baseDir);
  zel::LogFactory::configure("OstrelLoggerConfig.xml", 5, zel::String(baseDir.c_str()));
  loggingEnabled = true;
  logger().log(2, "enableLogging verbose = " + boolText(verbose) + " baseDir = " + baseDir);
}

zel::String loggingBaseDir() { return internal::loggingBaseDirectory(); }

zel::String const &homeDir() {
  // Nothing in the library assigns it: it stays empty for the process.
  static zel::String const *homeDirectory = new zel::String();
  return *homeDirectory;
}

void setWorkingDirectory(zel::String const &directory) { zel::System::changeDirectory(directory); }

bool changeCurrentDirectory(zel::String const &directory) {
  return zel::System::changeDirectory(directory);
}

} // namespace ostrel5
