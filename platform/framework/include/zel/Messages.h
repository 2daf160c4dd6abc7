#pragma once
// The message catalogue: every class that client and engine exchange.
//
// Names say who sends to whom (RunTestClientToEngine). Class tree:
//
//   Message
//   ├─ EnumerationMessage
//   │   ├─ EnumerateDevicesClientToEngine, EnumerateTestsClientToEngine,
//   │   │  EnumerateTestRunsClientToEngine, SetInternetAccessAllowed
//   │   ├─ SysInfoRequestToEngine
//   │   ├─ EnumerationProgressMessage, EnumerationInProgressEngineToClient
//   │   ├─ DeviceEnumerationCompleted, DeviceEnumerationFailed,
//   │   │  TestEnumerationCompleted, TestEnumerationFailed
//   │   ├─ EnumerationReturned (abstract: carries a mirror)
//   │   │   └─ EnumerationReturnedFromEngine, EnumerationReturnedProviderToEngine
//   │   └─ TestRunsReturnedEngineToClient
//   ├─ DiagnosticMessage
//   │   ├─ RunTestClientToEngine
//   │   ├─ StopTestsClientToEngine
//   │   │   └─ StopTestEngineToProvider
//   │   └─ TestProgressProviderToEngine
//   │       └─ TestProgressEngineToClient
//   ├─ ControlMessage
//   │   └─ ShutdownClientToEngine, ModuleStarted, ClientCrashed, ClientLoggedOut
//   ├─ LocalizationMessage (abstract)
//   │   └─ SetLocaleMessage
//   ├─ IndicatorMessage
//   │   ├─ RunIndicatorClientToEngine
//   │   │   └─ PauseIndicatorClientToEngineToProvider,
//   │   │      ResumeIndicatorClientToEngineToProvider
//   │   ├─ RequestUpdateClientToEngineToIndicator, SetUpdateIntervalIndicatorClientToEngine,
//   │   │  ForceUpdateIndicatorClientToEngine, StopIndicatorClientToEngine
//   │   ├─ UpdatesProviderToEngineToUI, DeviceUpdateEngineToClient
//   │   └─ HttpGetRequestProviderToEngine
//   ├─ MessageBox2GenericMessage (abstract: test run guid and box id)
//   │   └─ MessageBox2AckMessage, MessageBox2ResultMessage,
//   │      MessageBox2RequestMessage, MessageBox2CancelMessage
//   ├─ IPCMessage
//   └─ UnknownMessage
//
// Live updates sit under IndicatorMessage because indicators are what
// produces them; what a connection reports about its peer (crash, log-out)
// is control traffic.
//
// Payloads. A message owns its own copy of every payload (mirror, test run,
// test run list, indicator run), so a clone or a decoded message never shares
// an object with the sender. Constructors that take a pointer say whether
// they take the object over or copy it. An empty payload pointer is allowed
// where noted and is encoded as such.
//
// The priority of every class is 0 except EnumerationProgressMessage and
// EnumerationInProgressEngineToClient, which start at PROGRESS_PRIORITY; the
// engine marks intermediate test progress with setPriority(PROGRESS_PRIORITY)
// and leaves final reports at 0, so they are never dropped.

#include <cstdint>
#include <memory>

#include "zel/Array.h"
#include "zel/CapabilityImp.h"
#include "zel/Message.h"
#include "zel/MessageBox2.h"
#include "zel/String.h"
#include "zel/TestResultImp.h"
#include "zel/TestStateImp.h"
#include "zel/ZELLocale.h"

namespace zel {

class StateManager;
class TestRunImp;
class TestRunManager;
class IndicatorRunImp;

// ---------------------------------------------------------------- enumeration

class EnumerationMessage : public Message {
  ZEL_MESSAGE_CLASS(EnumerationMessage);

public:
  EnumerationMessage();

protected:
  EnumerationMessage(EnumerationMessage const &) = default;
};

/// Asks for the devices of a capability; answered by
/// EnumerationReturnedFromEngine. `detailed` and `internetAccessAllowed` are
/// the engine's to interpret.
class EnumerateDevicesClientToEngine : public EnumerationMessage {
  ZEL_MESSAGE_CLASS(EnumerateDevicesClientToEngine);

public:
  EnumerateDevicesClientToEngine(CapabilityImp const &capability, bool forceReEnum, bool detailed,
                                 bool internetAccessAllowed);
  CapabilityImp const &capability() const noexcept { return m_capability; }
  bool forceReEnum() const noexcept { return m_forceReEnum; }
  bool detailed() const noexcept { return m_detailed; }
  bool internetAccessAllowed() const noexcept { return m_internetAccessAllowed; }

private:
  EnumerateDevicesClientToEngine();
  EnumerateDevicesClientToEngine(EnumerateDevicesClientToEngine const &) = default;
  CapabilityImp m_capability;
  bool m_forceReEnum = false;
  bool m_detailed = false;
  bool m_internetAccessAllowed = false;
};

/// Asks for modules, tests and their devices; answered by
/// EnumerationReturnedFromEngine.
class EnumerateTestsClientToEngine : public EnumerationMessage {
  ZEL_MESSAGE_CLASS(EnumerateTestsClientToEngine);

public:
  explicit EnumerateTestsClientToEngine(String const &databaseDirectory);
  String const &databaseDirectory() const noexcept { return m_databaseDirectory; }

private:
  EnumerateTestsClientToEngine();
  EnumerateTestsClientToEngine(EnumerateTestsClientToEngine const &) = default;
  String m_databaseDirectory;
};

/// Asks for the engine's test runs in one state (ALL: every run); answered by
/// TestRunsReturnedEngineToClient.
class EnumerateTestRunsClientToEngine : public EnumerationMessage {
  ZEL_MESSAGE_CLASS(EnumerateTestRunsClientToEngine);

public:
  /// State ALL until setTestState.
  EnumerateTestRunsClientToEngine();
  void setTestState(TestStateImp const &state) noexcept { m_testState = state; }
  TestStateImp const &testState() const noexcept { return m_testState; }

private:
  EnumerateTestRunsClientToEngine(EnumerateTestRunsClientToEngine const &) = default;
  TestStateImp m_testState;
};

class SetInternetAccessAllowed : public EnumerationMessage {
  ZEL_MESSAGE_CLASS(SetInternetAccessAllowed);

public:
  explicit SetInternetAccessAllowed(bool allowed);
  bool allowed() const noexcept { return m_allowed; }

private:
  SetInternetAccessAllowed();
  SetInternetAccessAllowed(SetInternetAccessAllowed const &) = default;
  bool m_allowed = false;
};

/// Asks the engine to gather system information again, for one device or,
/// with an empty guid, for the whole machine.
class SysInfoRequestToEngine : public EnumerationMessage {
  ZEL_MESSAGE_CLASS(SysInfoRequestToEngine);

public:
  explicit SysInfoRequestToEngine(String const &deviceGuid = String());
  String const &deviceGuid() const noexcept { return m_deviceGuid; }

private:
  SysInfoRequestToEngine(SysInfoRequestToEngine const &) = default;
  String m_deviceGuid;
};

/// How far one enumeration source has come. Priority PROGRESS_PRIORITY.
class EnumerationProgressMessage : public EnumerationMessage {
  ZEL_MESSAGE_CLASS(EnumerationProgressMessage);

public:
  EnumerationProgressMessage(String const &sourceName, unsigned int percentComplete,
                             String const &text);
  String const &sourceName() const noexcept { return m_sourceName; }
  unsigned int percentComplete() const noexcept { return m_percentComplete; }
  String const &text() const noexcept { return m_text; }

private:
  EnumerationProgressMessage();
  EnumerationProgressMessage(EnumerationProgressMessage const &) = default;
  String m_sourceName;
  unsigned int m_percentComplete = 0;
  String m_text;
};

/// Tells the client that an enumeration is under way. Priority
/// PROGRESS_PRIORITY; the client ignores it.
class EnumerationInProgressEngineToClient : public EnumerationMessage {
  ZEL_MESSAGE_CLASS(EnumerationInProgressEngineToClient);

public:
  EnumerationInProgressEngineToClient();

private:
  EnumerationInProgressEngineToClient(EnumerationInProgressEngineToClient const &) = default;
};

/// One enumeration source finished: its name, the seconds it took and the
/// number of objects it found.
class DeviceEnumerationCompleted : public EnumerationMessage {
  ZEL_MESSAGE_CLASS(DeviceEnumerationCompleted);

public:
  DeviceEnumerationCompleted(String const &sourceName, double elapsed, unsigned int count);
  String const &sourceName() const noexcept { return m_sourceName; }
  double elapsed() const noexcept { return m_elapsed; }
  unsigned int count() const noexcept { return m_count; }

private:
  DeviceEnumerationCompleted();
  DeviceEnumerationCompleted(DeviceEnumerationCompleted const &) = default;
  String m_sourceName;
  double m_elapsed = 0;
  unsigned int m_count = 0;
};

class TestEnumerationCompleted : public EnumerationMessage {
  ZEL_MESSAGE_CLASS(TestEnumerationCompleted);

public:
  TestEnumerationCompleted(String const &sourceName, double elapsed, unsigned int count);
  String const &sourceName() const noexcept { return m_sourceName; }
  double elapsed() const noexcept { return m_elapsed; }
  unsigned int count() const noexcept { return m_count; }

private:
  TestEnumerationCompleted();
  TestEnumerationCompleted(TestEnumerationCompleted const &) = default;
  String m_sourceName;
  double m_elapsed = 0;
  unsigned int m_count = 0;
};

/// One enumeration source failed: its name, the seconds it took and why.
class DeviceEnumerationFailed : public EnumerationMessage {
  ZEL_MESSAGE_CLASS(DeviceEnumerationFailed);

public:
  DeviceEnumerationFailed(String const &sourceName, double elapsed, String const &reason);
  String const &sourceName() const noexcept { return m_sourceName; }
  double elapsed() const noexcept { return m_elapsed; }
  String const &reason() const noexcept { return m_reason; }

private:
  DeviceEnumerationFailed();
  DeviceEnumerationFailed(DeviceEnumerationFailed const &) = default;
  String m_sourceName;
  double m_elapsed = 0;
  String m_reason;
};

class TestEnumerationFailed : public EnumerationMessage {
  ZEL_MESSAGE_CLASS(TestEnumerationFailed);

public:
  TestEnumerationFailed(String const &sourceName, double elapsed, String const &reason);
  String const &sourceName() const noexcept { return m_sourceName; }
  double elapsed() const noexcept { return m_elapsed; }
  String const &reason() const noexcept { return m_reason; }

private:
  TestEnumerationFailed();
  TestEnumerationFailed(TestEnumerationFailed const &) = default;
  String m_sourceName;
  double m_elapsed = 0;
  String m_reason;
};

/// Base of the messages that carry a mirror (a whole or partial
/// zel::StateManager, owned by the message). Never made itself.
class EnumerationReturned : public EnumerationMessage {
public:
  ~EnumerationReturned() override;
  /// The carried mirror; an empty one when none was given.
  StateManager const &getState() const noexcept { return *m_state; }
  StateManager &getState() noexcept { return *m_state; }

protected:
  /// An empty mirror.
  EnumerationReturned();
  /// A copy of `state`.
  explicit EnumerationReturned(StateManager const &state);
  /// Copies the mirror.
  EnumerationReturned(EnumerationReturned const &other);

private:
  friend struct MessageCatalogue;
  std::unique_ptr<StateManager> m_state;
};

/// The answer to an enumeration request. Carries the whole mirror (devices
/// and tests alike), since a client in another process replaces its own with
/// it; the in-process engine shares the client's mirror and may send it empty.
class EnumerationReturnedFromEngine : public EnumerationReturned {
  ZEL_MESSAGE_CLASS(EnumerationReturnedFromEngine);

public:
  /// An empty mirror.
  EnumerationReturnedFromEngine();
  /// A copy of `state`.
  explicit EnumerationReturnedFromEngine(StateManager const &state);

private:
  EnumerationReturnedFromEngine(EnumerationReturnedFromEngine const &) = default;
};

/// What one enumeration provider found, handed to the engine.
class EnumerationReturnedProviderToEngine : public EnumerationReturned {
  ZEL_MESSAGE_CLASS(EnumerationReturnedProviderToEngine);

public:
  EnumerationReturnedProviderToEngine(String const &providerName, StateManager const &state);
  String const &providerName() const noexcept { return m_providerName; }

private:
  EnumerationReturnedProviderToEngine();
  EnumerationReturnedProviderToEngine(EnumerationReturnedProviderToEngine const &) = default;
  String m_providerName;
};

/// The engine's test runs, in a zel::TestRunManager that the receiver takes
/// over with takeTestRunManager(). A manager nobody took is destroyed with
/// the message. A clone carries its own copy, so each copy can be taken once.
class TestRunsReturnedEngineToClient : public EnumerationMessage {
  ZEL_MESSAGE_CLASS(TestRunsReturnedEngineToClient);

public:
  /// Takes `manager` over; null is allowed (and is an error for the client).
  explicit TestRunsReturnedEngineToClient(TestRunManager *manager);
  /// Hands the manager to the caller, who deletes it. The first call returns
  /// it; later calls return null, so a message handled twice cannot free it
  /// twice.
  TestRunManager *takeTestRunManager() const noexcept { return m_manager.release(); }
  /// The manager while the message still holds it; null once taken.
  TestRunManager const *testRunManager() const noexcept { return m_manager.get(); }

private:
  TestRunsReturnedEngineToClient();
  TestRunsReturnedEngineToClient(TestRunsReturnedEngineToClient const &other);
  mutable std::unique_ptr<TestRunManager> m_manager;
};

// ---------------------------------------------------------------- diagnostics

class DiagnosticMessage : public Message {
  ZEL_MESSAGE_CLASS(DiagnosticMessage);

public:
  DiagnosticMessage();

protected:
  DiagnosticMessage(DiagnosticMessage const &) = default;
};

/// Starts a test run. The message holds its own copy of the run, so the
/// engine never works on the client's object (the client learns of progress
/// only through TestProgressEngineToClient).
class RunTestClientToEngine : public DiagnosticMessage {
  ZEL_MESSAGE_CLASS(RunTestClientToEngine);

public:
  /// Copies `*testRun`; null gives a message without a run.
  explicit RunTestClientToEngine(TestRunImp *testRun);
  /// The message's copy of the run. Asserts that there is one.
  TestRunImp &getTestRun() const;
  bool hasTestRun() const noexcept { return static_cast<bool>(m_testRun); }

private:
  RunTestClientToEngine();
  RunTestClientToEngine(RunTestClientToEngine const &other);
  std::unique_ptr<TestRunImp> m_testRun;
};

/// Stops the listed runs with `result`. The sentinel result means that no
/// particular result was asked for; an empty list stops nothing; a guid may
/// appear twice.
class StopTestsClientToEngine : public DiagnosticMessage {
  ZEL_MESSAGE_CLASS(StopTestsClientToEngine);

public:
  explicit StopTestsClientToEngine(TestResultImp result);
  void addTestRunGuid(String const &guid) { m_testRunGuids.append(guid); }
  TestResultImp const &result() const noexcept { return m_result; }
  Array<String> const &testRunGuids() const noexcept { return m_testRunGuids; }

protected:
  StopTestsClientToEngine();
  StopTestsClientToEngine(StopTestsClientToEngine const &) = default;

private:
  TestResultImp m_result;
  Array<String> m_testRunGuids;
};

/// The engine passing a stop on to the module that runs the tests.
class StopTestEngineToProvider : public StopTestsClientToEngine {
  ZEL_MESSAGE_CLASS(StopTestEngineToProvider);

public:
  explicit StopTestEngineToProvider(TestResultImp result);

private:
  StopTestEngineToProvider();
  StopTestEngineToProvider(StopTestEngineToProvider const &) = default;
};

/// A report on a running test, as a copy of the run.
class TestProgressProviderToEngine : public DiagnosticMessage {
  ZEL_MESSAGE_CLASS(TestProgressProviderToEngine);

public:
  /// Copies `run`.
  explicit TestProgressProviderToEngine(TestRunImp const &run);
  /// The message's copy of the run. Asserts that there is one.
  TestRunImp &getTestRun() const;
  bool hasTestRun() const noexcept { return static_cast<bool>(m_testRun); }

protected:
  TestProgressProviderToEngine();
  TestProgressProviderToEngine(TestProgressProviderToEngine const &other);

private:
  std::unique_ptr<TestRunImp> m_testRun;
};

/// The engine's report on a run to the client: state, result, progress and
/// events. Intermediate reports carry PROGRESS_PRIORITY, the final one 0.
class TestProgressEngineToClient : public TestProgressProviderToEngine {
  ZEL_MESSAGE_CLASS(TestProgressEngineToClient);

public:
  explicit TestProgressEngineToClient(TestRunImp const &run);

private:
  TestProgressEngineToClient();
  TestProgressEngineToClient(TestProgressEngineToClient const &) = default;
};

// ---------------------------------------------------------------- control

class ControlMessage : public Message {
  ZEL_MESSAGE_CLASS(ControlMessage);

public:
  ControlMessage();

protected:
  ControlMessage(ControlMessage const &) = default;
};

/// Ends the engine.
class ShutdownClientToEngine : public ControlMessage {
  ZEL_MESSAGE_CLASS(ShutdownClientToEngine);

public:
  ShutdownClientToEngine();

private:
  ShutdownClientToEngine(ShutdownClientToEngine const &) = default;
};

/// A diagnostic module's process has started.
class ModuleStarted : public ControlMessage {
  ZEL_MESSAGE_CLASS(ModuleStarted);

public:
  ModuleStarted(String const &moduleGuid, unsigned int processId);
  String const &moduleGuid() const noexcept { return m_moduleGuid; }
  unsigned int processId() const noexcept { return m_processId; }

private:
  ModuleStarted();
  ModuleStarted(ModuleStarted const &) = default;
  String m_moduleGuid;
  unsigned int m_processId = 0;
};

/// The peer of a connection died (made by the connection, not sent).
class ClientCrashed : public ControlMessage {
  ZEL_MESSAGE_CLASS(ClientCrashed);

public:
  ClientCrashed();

private:
  ClientCrashed(ClientCrashed const &) = default;
};

/// The peer of a connection logged out (made by the connection, not sent).
class ClientLoggedOut : public ControlMessage {
  ZEL_MESSAGE_CLASS(ClientLoggedOut);

public:
  ClientLoggedOut();

private:
  ClientLoggedOut(ClientLoggedOut const &) = default;
};

// ---------------------------------------------------------------- localisation

/// Base of the messages about language. Never made itself.
class LocalizationMessage : public Message {
protected:
  LocalizationMessage();
  LocalizationMessage(LocalizationMessage const &) = default;

public:
  ~LocalizationMessage() override;
};

class SetLocaleMessage : public LocalizationMessage {
  ZEL_MESSAGE_CLASS(SetLocaleMessage);

public:
  explicit SetLocaleMessage(ZELLocale const &locale);
  ZELLocale const &locale() const noexcept { return m_locale; }

private:
  SetLocaleMessage();
  SetLocaleMessage(SetLocaleMessage const &) = default;
  ZELLocale m_locale;
};

// ---------------------------------------------------------------- indicators

class IndicatorMessage : public Message {
  ZEL_MESSAGE_CLASS(IndicatorMessage);

public:
  IndicatorMessage();

protected:
  IndicatorMessage(IndicatorMessage const &) = default;
};

/// Starts an indicator: the message takes the run it is given over.
class RunIndicatorClientToEngine : public IndicatorMessage {
  ZEL_MESSAGE_CLASS(RunIndicatorClientToEngine);

public:
  /// Takes `run` over; null gives a message without a run.
  explicit RunIndicatorClientToEngine(IndicatorRunImp *run);
  /// The run. Asserts that there is one.
  IndicatorRunImp &getIndicatorRun() const;
  bool hasIndicatorRun() const noexcept { return static_cast<bool>(m_run); }

protected:
  /// Copies `run` (Pause and Resume name a run that someone else owns).
  RunIndicatorClientToEngine(IndicatorRunImp const *run, bool copy);
  RunIndicatorClientToEngine();
  RunIndicatorClientToEngine(RunIndicatorClientToEngine const &other);

private:
  std::unique_ptr<IndicatorRunImp> m_run;
};

/// Pauses a running indicator for `idleTime` (the engine's unit; the client
/// sends the realtime idle interval). Copies the run it names.
class PauseIndicatorClientToEngineToProvider : public RunIndicatorClientToEngine {
  ZEL_MESSAGE_CLASS(PauseIndicatorClientToEngineToProvider);

public:
  PauseIndicatorClientToEngineToProvider(IndicatorRunImp *run, unsigned int idleTime);
  unsigned int idleTime() const noexcept { return m_idleTime; }

private:
  PauseIndicatorClientToEngineToProvider();
  PauseIndicatorClientToEngineToProvider(PauseIndicatorClientToEngineToProvider const &) = default;
  unsigned int m_idleTime = 0;
};

/// Resumes a paused indicator. Copies the run it names.
class ResumeIndicatorClientToEngineToProvider : public RunIndicatorClientToEngine {
  ZEL_MESSAGE_CLASS(ResumeIndicatorClientToEngineToProvider);

public:
  explicit ResumeIndicatorClientToEngineToProvider(IndicatorRunImp *run);

private:
  ResumeIndicatorClientToEngineToProvider();
  ResumeIndicatorClientToEngineToProvider(ResumeIndicatorClientToEngineToProvider const &) =
      default;
};

/// Refreshes one device, or with a property key one property of it.
class RequestUpdateClientToEngineToIndicator : public IndicatorMessage {
  ZEL_MESSAGE_CLASS(RequestUpdateClientToEngineToIndicator);

public:
  RequestUpdateClientToEngineToIndicator(String const &deviceGuid, String const &propertyKey);
  String const &deviceGuid() const noexcept { return m_deviceGuid; }
  /// Empty for the whole device.
  String const &propertyKey() const noexcept { return m_propertyKey; }

private:
  RequestUpdateClientToEngineToIndicator();
  RequestUpdateClientToEngineToIndicator(RequestUpdateClientToEngineToIndicator const &) = default;
  String m_deviceGuid;
  String m_propertyKey;
};

/// Changes how often a running indicator reports, in seconds.
class SetUpdateIntervalIndicatorClientToEngine : public IndicatorMessage {
  ZEL_MESSAGE_CLASS(SetUpdateIntervalIndicatorClientToEngine);

public:
  SetUpdateIntervalIndicatorClientToEngine(String const &indicatorRunGuid,
                                           unsigned int intervalSeconds);
  String const &indicatorRunGuid() const noexcept { return m_indicatorRunGuid; }
  unsigned int intervalSeconds() const noexcept { return m_intervalSeconds; }

private:
  SetUpdateIntervalIndicatorClientToEngine();
  SetUpdateIntervalIndicatorClientToEngine(SetUpdateIntervalIndicatorClientToEngine const &) =
      default;
  String m_indicatorRunGuid;
  unsigned int m_intervalSeconds = 0;
};

/// Makes a running indicator report now.
class ForceUpdateIndicatorClientToEngine : public IndicatorMessage {
  ZEL_MESSAGE_CLASS(ForceUpdateIndicatorClientToEngine);

public:
  explicit ForceUpdateIndicatorClientToEngine(String const &indicatorRunGuid);
  String const &indicatorRunGuid() const noexcept { return m_indicatorRunGuid; }

private:
  ForceUpdateIndicatorClientToEngine();
  ForceUpdateIndicatorClientToEngine(ForceUpdateIndicatorClientToEngine const &) = default;
  String m_indicatorRunGuid;
};

/// Stops a running indicator.
class StopIndicatorClientToEngine : public IndicatorMessage {
  ZEL_MESSAGE_CLASS(StopIndicatorClientToEngine);

public:
  explicit StopIndicatorClientToEngine(String const &indicatorRunGuid);
  String const &indicatorRunGuid() const noexcept { return m_indicatorRunGuid; }

private:
  StopIndicatorClientToEngine();
  StopIndicatorClientToEngine(StopIndicatorClientToEngine const &) = default;
  String m_indicatorRunGuid;
};

/// A live change of the machine: a partial mirror of what is new or changed,
/// and what went away. deviceGuidsForPropertiesToRemove and
/// propertyGuidsToRemove run in parallel: element i of the first is the
/// device of the property whose key is element i of the second.
class UpdatesProviderToEngineToUI : public IndicatorMessage {
  ZEL_MESSAGE_CLASS(UpdatesProviderToEngineToUI);

public:
  /// An empty partial mirror and no removals, to be filled.
  UpdatesProviderToEngineToUI();
  /// A copy of `state` and the four lists.
  UpdatesProviderToEngineToUI(StateManager const &state, Array<String> const &deviceGuidsToRemove,
                              Array<String> const &deviceGuidsForPropertiesToRemove,
                              Array<String> const &propertyGuidsToRemove,
                              Array<String> const &alertGuidsToRemove);

  StateManager const &state() const noexcept { return *m_state; }
  StateManager &state() noexcept { return *m_state; }
  Array<String> const &deviceGuidsToRemove() const noexcept { return m_deviceGuidsToRemove; }
  Array<String> const &deviceGuidsForPropertiesToRemove() const noexcept {
    return m_deviceGuidsForPropertiesToRemove;
  }
  Array<String> const &propertyGuidsToRemove() const noexcept { return m_propertyGuidsToRemove; }
  Array<String> const &alertGuidsToRemove() const noexcept { return m_alertGuidsToRemove; }

  void addDeviceToRemove(String const &deviceGuid) { m_deviceGuidsToRemove.append(deviceGuid); }
  /// Adds one pair to the two parallel lists.
  void addPropertyToRemove(String const &deviceGuid, String const &propertyKey);
  void addAlertToRemove(String const &alertGuid) { m_alertGuidsToRemove.append(alertGuid); }

private:
  UpdatesProviderToEngineToUI(UpdatesProviderToEngineToUI const &other);
  std::unique_ptr<StateManager> m_state;
  Array<String> m_deviceGuidsToRemove;
  Array<String> m_deviceGuidsForPropertiesToRemove;
  Array<String> m_propertyGuidsToRemove;
  Array<String> m_alertGuidsToRemove;
};

/// The properties of one device that changed (by key).
class DeviceUpdateEngineToClient : public IndicatorMessage {
  ZEL_MESSAGE_CLASS(DeviceUpdateEngineToClient);

public:
  DeviceUpdateEngineToClient(String const &deviceGuid, Array<String> const &propertyKeys);
  String const &deviceGuid() const noexcept { return m_deviceGuid; }
  Array<String> const &propertyKeys() const noexcept { return m_propertyKeys; }

private:
  DeviceUpdateEngineToClient();
  DeviceUpdateEngineToClient(DeviceUpdateEngineToClient const &) = default;
  String m_deviceGuid;
  Array<String> m_propertyKeys;
};

/// A provider asking the engine to fetch a web resource for it (the engine
/// decides, by the internet access flag, whether it may).
class HttpGetRequestProviderToEngine : public IndicatorMessage {
  ZEL_MESSAGE_CLASS(HttpGetRequestProviderToEngine);

public:
  HttpGetRequestProviderToEngine(String const &url, unsigned int requestId);
  String const &url() const noexcept { return m_url; }
  unsigned int requestId() const noexcept { return m_requestId; }

private:
  HttpGetRequestProviderToEngine();
  HttpGetRequestProviderToEngine(HttpGetRequestProviderToEngine const &) = default;
  String m_url;
  unsigned int m_requestId = 0;
};

// ---------------------------------------------------------------- message boxes

/// Base of the message-box messages: the test run that asks and the box's
/// id, unique within the engine. Never made itself.
class MessageBox2GenericMessage : public Message {
public:
  ~MessageBox2GenericMessage() override;
  String const &testRunGuid() const noexcept { return m_testRunGuid; }
  unsigned int getUniqueId() const noexcept { return m_uniqueId; }

protected:
  MessageBox2GenericMessage();
  MessageBox2GenericMessage(String const &testRunGuid, unsigned int uniqueId);
  MessageBox2GenericMessage(MessageBox2GenericMessage const &) = default;

private:
  friend struct MessageCatalogue;
  String m_testRunGuid;
  unsigned int m_uniqueId = 0;
};

/// A test needs the user: the request, for the run and box id of the base.
class MessageBox2RequestMessage : public MessageBox2GenericMessage {
  ZEL_MESSAGE_CLASS(MessageBox2RequestMessage);

public:
  MessageBox2RequestMessage(MessageBox2Request const &request, String const &testRunGuid,
                            unsigned int const &uniqueId);
  MessageBox2Request const &request() const noexcept { return m_request; }

private:
  MessageBox2RequestMessage();
  MessageBox2RequestMessage(MessageBox2RequestMessage const &) = default;
  MessageBox2Request m_request;
};

/// Whether the client will show a requested box (false: the test must not
/// wait for an answer).
class MessageBox2AckMessage : public MessageBox2GenericMessage {
  ZEL_MESSAGE_CLASS(MessageBox2AckMessage);

public:
  /// For the run and box of `request`.
  MessageBox2AckMessage(MessageBox2RequestMessage const &request, bool handled);
  MessageBox2AckMessage(String const &testRunGuid, unsigned int const &uniqueId, bool handled);
  bool handled() const noexcept { return m_handled; }

private:
  MessageBox2AckMessage();
  MessageBox2AckMessage(MessageBox2AckMessage const &) = default;
  bool m_handled = false;
};

/// The user's answer to a box.
class MessageBox2ResultMessage : public MessageBox2GenericMessage {
  ZEL_MESSAGE_CLASS(MessageBox2ResultMessage);

public:
  MessageBox2ResultMessage(MessageBox2Result const &result, String const &testRunGuid,
                           unsigned int const &uniqueId);
  MessageBox2Result const &result() const noexcept { return m_result; }

private:
  MessageBox2ResultMessage();
  MessageBox2ResultMessage(MessageBox2ResultMessage const &) = default;
  MessageBox2Result m_result;
};

/// The test no longer needs the answer.
class MessageBox2CancelMessage : public MessageBox2GenericMessage {
  ZEL_MESSAGE_CLASS(MessageBox2CancelMessage);

public:
  MessageBox2CancelMessage(String const &testRunGuid, unsigned int const &uniqueId);

private:
  MessageBox2CancelMessage();
  MessageBox2CancelMessage(MessageBox2CancelMessage const &) = default;
};

// ---------------------------------------------------------------- transport

/// Base of what only the transport itself says. Carries nothing.
class IPCMessage : public Message {
  ZEL_MESSAGE_CLASS(IPCMessage);

public:
  IPCMessage();

protected:
  IPCMessage(IPCMessage const &) = default;
};

/// What decoding makes of a type number this build does not know: the
/// number and the bytes of the class's fields, kept as they came, with the
/// base fields read as usual. Encoding it again gives the same bytes, so a
/// relay passes such messages on unchanged.
class UnknownMessage : public Message {
  ZEL_MESSAGE_CLASS(UnknownMessage);

public:
  UnknownMessage(unsigned int unknownTypeId, String const &rawBytes);
  /// The type number found in the input (16 bits; a larger one is asserted
  /// against).
  unsigned int unknownTypeId() const noexcept { return m_unknownTypeId; }
  /// The encoded fields that followed the base fields.
  String const &rawBytes() const noexcept { return m_rawBytes; }

private:
  UnknownMessage();
  UnknownMessage(UnknownMessage const &) = default;
  unsigned int m_unknownTypeId = 0;
  String m_rawBytes;
};

} // namespace zel
