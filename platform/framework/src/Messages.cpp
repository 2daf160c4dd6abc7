// The message classes: constructors, copies and the per-class overrides.

#include "zel/Messages.h"

#include <ostream>

#include "zel/AssertionFailure.h"
#include "zel/IndicatorRunImp.h"
#include "zel/Logger.h"
#include "zel/StateManager.h"
#include "zel/TestRunImp.h"
#include "zel/TestRunManager.h"

namespace zel {

// ---------------------------------------------------------------- type numbers

char const *msgTypeName(MsgTypeId type) noexcept {
  switch (type) {
#define ZEL_MSG_TYPE_NAME(name, number)                                                            \
  case MsgTypeId::name:                                                                            \
    return #name;
    ZEL_MESSAGE_TYPES(ZEL_MSG_TYPE_NAME)
#undef ZEL_MSG_TYPE_NAME
  case MsgTypeId::None:
    break;
  }
  return "";
}

bool isKnownMsgType(unsigned number) noexcept {
  return number < 0x10000 && *msgTypeName(static_cast<MsgTypeId>(number)) != '\0';
}

String toString(MsgTypeId type) {
  char const *name = msgTypeName(type);
  if (*name)
    return String(name);
  return String::format("MsgTypeId(%u)", static_cast<unsigned>(type));
}

std::ostream &operator<<(std::ostream &out, MsgTypeId type) { return out << toString(type).str(); }

// ---------------------------------------------------------------- handler defaults

MessageHandler::~MessageHandler() = default;

#define ZEL_MSG_HANDLER_DEFAULT(name, number)                                                      \
  MessageHandler::HandlerReturn MessageHandler::handleMessage(name const &) { return 0; }
ZEL_MESSAGE_TYPES(ZEL_MSG_HANDLER_DEFAULT)
#undef ZEL_MSG_HANDLER_DEFAULT

// ---------------------------------------------------------------- base

namespace {
Logger &messageLogger() {
  static Logger &logger = LogFactory::getLogger("zel.Message");
  return logger;
}
} // namespace

Message::Message() = default;
Message::~Message() = default;

MessageTransfer Message::clone() const { return MessageTransfer(new Message(*this)); }

void Message::copyBaseValues(Message const &other) {
  m_clientId = other.m_clientId;
  m_clientName = other.m_clientName;
  m_priority = other.m_priority;
}

void Message::log(String const &prefix, bool verbose) const {
  Logger &logger = messageLogger();
  if (logger.isEnabled(2))
    logger.log(2, prefix + toString(verbose));
}

MsgTypeId Message::getType() const { return MsgTypeId::Message; }

MessageHandler::HandlerReturn Message::dispatchToHandler(MessageHandler &handler) const {
  return handler.handleMessage(*this);
}

// The overrides of every concrete class but Message itself.
#define ZEL_MESSAGE_OVERRIDES(name)                                                                \
  name::~name() = default;                                                                         \
  MessageTransfer name::clone() const { return MessageTransfer(new name(*this)); }                 \
  MsgTypeId name::getType() const { return MsgTypeId::name; }                                      \
  MessageHandler::HandlerReturn name::dispatchToHandler(MessageHandler &handler) const {           \
    return handler.handleMessage(*this);                                                           \
  }
// One line per class but Message, whose definitions are above. A class left
// out here fails to link (its destructor and vtable are missing).

ZEL_MESSAGE_OVERRIDES(SetInternetAccessAllowed)
ZEL_MESSAGE_OVERRIDES(MessageBox2CancelMessage)
ZEL_MESSAGE_OVERRIDES(MessageBox2RequestMessage)
ZEL_MESSAGE_OVERRIDES(MessageBox2ResultMessage)
ZEL_MESSAGE_OVERRIDES(MessageBox2AckMessage)
ZEL_MESSAGE_OVERRIDES(HttpGetRequestProviderToEngine)
ZEL_MESSAGE_OVERRIDES(SetUpdateIntervalIndicatorClientToEngine)
ZEL_MESSAGE_OVERRIDES(ForceUpdateIndicatorClientToEngine)
ZEL_MESSAGE_OVERRIDES(StopIndicatorClientToEngine)
ZEL_MESSAGE_OVERRIDES(RequestUpdateClientToEngineToIndicator)
ZEL_MESSAGE_OVERRIDES(UpdatesProviderToEngineToUI)
ZEL_MESSAGE_OVERRIDES(DeviceUpdateEngineToClient)
ZEL_MESSAGE_OVERRIDES(ResumeIndicatorClientToEngineToProvider)
ZEL_MESSAGE_OVERRIDES(PauseIndicatorClientToEngineToProvider)
ZEL_MESSAGE_OVERRIDES(RunIndicatorClientToEngine)
ZEL_MESSAGE_OVERRIDES(IndicatorMessage)
ZEL_MESSAGE_OVERRIDES(SetLocaleMessage)
ZEL_MESSAGE_OVERRIDES(SysInfoRequestToEngine)
ZEL_MESSAGE_OVERRIDES(StopTestEngineToProvider)
ZEL_MESSAGE_OVERRIDES(StopTestsClientToEngine)
ZEL_MESSAGE_OVERRIDES(TestEnumerationFailed)
ZEL_MESSAGE_OVERRIDES(TestEnumerationCompleted)
ZEL_MESSAGE_OVERRIDES(DeviceEnumerationFailed)
ZEL_MESSAGE_OVERRIDES(DeviceEnumerationCompleted)
ZEL_MESSAGE_OVERRIDES(EnumerationProgressMessage)
ZEL_MESSAGE_OVERRIDES(EnumerationInProgressEngineToClient)
ZEL_MESSAGE_OVERRIDES(EnumerationReturnedProviderToEngine)
ZEL_MESSAGE_OVERRIDES(EnumerationReturnedFromEngine)
ZEL_MESSAGE_OVERRIDES(TestRunsReturnedEngineToClient)
ZEL_MESSAGE_OVERRIDES(EnumerateTestRunsClientToEngine)
ZEL_MESSAGE_OVERRIDES(EnumerateDevicesClientToEngine)
ZEL_MESSAGE_OVERRIDES(EnumerateTestsClientToEngine)
ZEL_MESSAGE_OVERRIDES(EnumerationMessage)
ZEL_MESSAGE_OVERRIDES(TestProgressEngineToClient)
ZEL_MESSAGE_OVERRIDES(TestProgressProviderToEngine)
ZEL_MESSAGE_OVERRIDES(RunTestClientToEngine)
ZEL_MESSAGE_OVERRIDES(DiagnosticMessage)
ZEL_MESSAGE_OVERRIDES(IPCMessage)
ZEL_MESSAGE_OVERRIDES(ModuleStarted)
ZEL_MESSAGE_OVERRIDES(ShutdownClientToEngine)
ZEL_MESSAGE_OVERRIDES(ControlMessage)
ZEL_MESSAGE_OVERRIDES(ClientCrashed)
ZEL_MESSAGE_OVERRIDES(ClientLoggedOut)
ZEL_MESSAGE_OVERRIDES(UnknownMessage)

#undef ZEL_MESSAGE_OVERRIDES

namespace {
template <class T> std::unique_ptr<T> copyOf(std::unique_ptr<T> const &p) {
  return p ? std::unique_ptr<T>(new T(*p)) : std::unique_ptr<T>();
}
template <class T> std::unique_ptr<T> copyOf(T const *p) {
  return p ? std::unique_ptr<T>(new T(*p)) : std::unique_ptr<T>();
}
} // namespace

// ---------------------------------------------------------------- enumeration

EnumerationMessage::EnumerationMessage() = default;

EnumerateDevicesClientToEngine::EnumerateDevicesClientToEngine() = default;
EnumerateDevicesClientToEngine::EnumerateDevicesClientToEngine(CapabilityImp const &capability,
                                                               bool forceReEnum, bool detailed,
                                                               bool internetAccessAllowed)
    : m_capability(capability), m_forceReEnum(forceReEnum), m_detailed(detailed),
      m_internetAccessAllowed(internetAccessAllowed) {}

EnumerateTestsClientToEngine::EnumerateTestsClientToEngine() = default;
EnumerateTestsClientToEngine::EnumerateTestsClientToEngine(String const &databaseDirectory)
    : m_databaseDirectory(databaseDirectory) {}

EnumerateTestRunsClientToEngine::EnumerateTestRunsClientToEngine()
    : m_testState(TestStateImp::ALL) {}

SetInternetAccessAllowed::SetInternetAccessAllowed() = default;
SetInternetAccessAllowed::SetInternetAccessAllowed(bool allowed) : m_allowed(allowed) {}

SysInfoRequestToEngine::SysInfoRequestToEngine(String const &deviceGuid)
    : m_deviceGuid(deviceGuid) {}

EnumerationProgressMessage::EnumerationProgressMessage() { setPriority(PROGRESS_PRIORITY); }
EnumerationProgressMessage::EnumerationProgressMessage(String const &sourceName,
                                                       unsigned int percentComplete,
                                                       String const &text)
    : m_sourceName(sourceName), m_percentComplete(percentComplete), m_text(text) {
  setPriority(PROGRESS_PRIORITY);
}

EnumerationInProgressEngineToClient::EnumerationInProgressEngineToClient() {
  setPriority(PROGRESS_PRIORITY);
}

DeviceEnumerationCompleted::DeviceEnumerationCompleted() = default;
DeviceEnumerationCompleted::DeviceEnumerationCompleted(String const &sourceName, double elapsed,
                                                       unsigned int count)
    : m_sourceName(sourceName), m_elapsed(elapsed), m_count(count) {}

TestEnumerationCompleted::TestEnumerationCompleted() = default;
TestEnumerationCompleted::TestEnumerationCompleted(String const &sourceName, double elapsed,
                                                   unsigned int count)
    : m_sourceName(sourceName), m_elapsed(elapsed), m_count(count) {}

DeviceEnumerationFailed::DeviceEnumerationFailed() = default;
DeviceEnumerationFailed::DeviceEnumerationFailed(String const &sourceName, double elapsed,
                                                 String const &reason)
    : m_sourceName(sourceName), m_elapsed(elapsed), m_reason(reason) {}

TestEnumerationFailed::TestEnumerationFailed() = default;
TestEnumerationFailed::TestEnumerationFailed(String const &sourceName, double elapsed,
                                             String const &reason)
    : m_sourceName(sourceName), m_elapsed(elapsed), m_reason(reason) {}

EnumerationReturned::EnumerationReturned() : m_state(new StateManager()) {}
EnumerationReturned::EnumerationReturned(StateManager const &state)
    : m_state(new StateManager(state)) {}
EnumerationReturned::EnumerationReturned(EnumerationReturned const &other)
    : EnumerationMessage(other), m_state(new StateManager(*other.m_state)) {}
EnumerationReturned::~EnumerationReturned() = default;

EnumerationReturnedFromEngine::EnumerationReturnedFromEngine() = default;
EnumerationReturnedFromEngine::EnumerationReturnedFromEngine(StateManager const &state)
    : EnumerationReturned(state) {}

EnumerationReturnedProviderToEngine::EnumerationReturnedProviderToEngine() = default;
EnumerationReturnedProviderToEngine::EnumerationReturnedProviderToEngine(String const &providerName,
                                                                         StateManager const &state)
    : EnumerationReturned(state), m_providerName(providerName) {}

TestRunsReturnedEngineToClient::TestRunsReturnedEngineToClient() = default;
TestRunsReturnedEngineToClient::TestRunsReturnedEngineToClient(TestRunManager *manager)
    : m_manager(manager) {}
TestRunsReturnedEngineToClient::TestRunsReturnedEngineToClient(
    TestRunsReturnedEngineToClient const &other)
    : EnumerationMessage(other), m_manager(copyOf(other.m_manager)) {}

// ---------------------------------------------------------------- diagnostics

DiagnosticMessage::DiagnosticMessage() = default;

RunTestClientToEngine::RunTestClientToEngine() = default;
RunTestClientToEngine::RunTestClientToEngine(TestRunImp *testRun) : m_testRun(copyOf(testRun)) {}
RunTestClientToEngine::RunTestClientToEngine(RunTestClientToEngine const &other)
    : DiagnosticMessage(other), m_testRun(copyOf(other.m_testRun)) {}

TestRunImp &RunTestClientToEngine::getTestRun() const {
  ZEL_ASSERT(m_testRun && "RunTestClientToEngine carries no test run");
  return *m_testRun;
}

StopTestsClientToEngine::StopTestsClientToEngine() : m_result(TestResultImp::sentinel()) {}
StopTestsClientToEngine::StopTestsClientToEngine(TestResultImp result) : m_result(result) {}

StopTestEngineToProvider::StopTestEngineToProvider() = default;
StopTestEngineToProvider::StopTestEngineToProvider(TestResultImp result)
    : StopTestsClientToEngine(result) {}

TestProgressProviderToEngine::TestProgressProviderToEngine() = default;
TestProgressProviderToEngine::TestProgressProviderToEngine(TestRunImp const &run)
    : m_testRun(new TestRunImp(run)) {}
TestProgressProviderToEngine::TestProgressProviderToEngine(
    TestProgressProviderToEngine const &other)
    : DiagnosticMessage(other), m_testRun(copyOf(other.m_testRun)) {}

TestRunImp &TestProgressProviderToEngine::getTestRun() const {
  ZEL_ASSERT(m_testRun && "test progress message carries no test run");
  return *m_testRun;
}

TestProgressEngineToClient::TestProgressEngineToClient() = default;
TestProgressEngineToClient::TestProgressEngineToClient(TestRunImp const &run)
    : TestProgressProviderToEngine(run) {}

// ---------------------------------------------------------------- control

ControlMessage::ControlMessage() = default;
ShutdownClientToEngine::ShutdownClientToEngine() = default;
ClientCrashed::ClientCrashed() = default;
ClientLoggedOut::ClientLoggedOut() = default;

ModuleStarted::ModuleStarted() = default;
ModuleStarted::ModuleStarted(String const &moduleGuid, unsigned int processId)
    : m_moduleGuid(moduleGuid), m_processId(processId) {}

// ---------------------------------------------------------------- localisation

LocalizationMessage::LocalizationMessage() = default;
LocalizationMessage::~LocalizationMessage() = default;

SetLocaleMessage::SetLocaleMessage() = default;
SetLocaleMessage::SetLocaleMessage(ZELLocale const &locale) : m_locale(locale) {}

// ---------------------------------------------------------------- indicators

IndicatorMessage::IndicatorMessage() = default;

RunIndicatorClientToEngine::RunIndicatorClientToEngine() = default;
RunIndicatorClientToEngine::RunIndicatorClientToEngine(IndicatorRunImp *run) : m_run(run) {}
RunIndicatorClientToEngine::RunIndicatorClientToEngine(IndicatorRunImp const *run, bool)
    : m_run(copyOf(run)) {}
RunIndicatorClientToEngine::RunIndicatorClientToEngine(RunIndicatorClientToEngine const &other)
    : IndicatorMessage(other), m_run(copyOf(other.m_run)) {}

IndicatorRunImp &RunIndicatorClientToEngine::getIndicatorRun() const {
  ZEL_ASSERT(m_run && "indicator message carries no indicator run");
  return *m_run;
}

PauseIndicatorClientToEngineToProvider::PauseIndicatorClientToEngineToProvider() = default;
PauseIndicatorClientToEngineToProvider::PauseIndicatorClientToEngineToProvider(
    IndicatorRunImp *run, unsigned int idleTime)
    : RunIndicatorClientToEngine(run, true), m_idleTime(idleTime) {}

ResumeIndicatorClientToEngineToProvider::ResumeIndicatorClientToEngineToProvider() = default;
ResumeIndicatorClientToEngineToProvider::ResumeIndicatorClientToEngineToProvider(
    IndicatorRunImp *run)
    : RunIndicatorClientToEngine(run, true) {}

RequestUpdateClientToEngineToIndicator::RequestUpdateClientToEngineToIndicator() = default;
RequestUpdateClientToEngineToIndicator::RequestUpdateClientToEngineToIndicator(
    String const &deviceGuid, String const &propertyKey)
    : m_deviceGuid(deviceGuid), m_propertyKey(propertyKey) {}

SetUpdateIntervalIndicatorClientToEngine::SetUpdateIntervalIndicatorClientToEngine() = default;
SetUpdateIntervalIndicatorClientToEngine::SetUpdateIntervalIndicatorClientToEngine(
    String const &indicatorRunGuid, unsigned int intervalSeconds)
    : m_indicatorRunGuid(indicatorRunGuid), m_intervalSeconds(intervalSeconds) {}

ForceUpdateIndicatorClientToEngine::ForceUpdateIndicatorClientToEngine() = default;
ForceUpdateIndicatorClientToEngine::ForceUpdateIndicatorClientToEngine(
    String const &indicatorRunGuid)
    : m_indicatorRunGuid(indicatorRunGuid) {}

StopIndicatorClientToEngine::StopIndicatorClientToEngine() = default;
StopIndicatorClientToEngine::StopIndicatorClientToEngine(String const &indicatorRunGuid)
    : m_indicatorRunGuid(indicatorRunGuid) {}

UpdatesProviderToEngineToUI::UpdatesProviderToEngineToUI() : m_state(new StateManager()) {}
UpdatesProviderToEngineToUI::UpdatesProviderToEngineToUI(
    StateManager const &state, Array<String> const &deviceGuidsToRemove,
    Array<String> const &deviceGuidsForPropertiesToRemove,
    Array<String> const &propertyGuidsToRemove, Array<String> const &alertGuidsToRemove)
    : m_state(new StateManager(state)), m_deviceGuidsToRemove(deviceGuidsToRemove),
      m_deviceGuidsForPropertiesToRemove(deviceGuidsForPropertiesToRemove),
      m_propertyGuidsToRemove(propertyGuidsToRemove), m_alertGuidsToRemove(alertGuidsToRemove) {}
UpdatesProviderToEngineToUI::UpdatesProviderToEngineToUI(UpdatesProviderToEngineToUI const &other)
    : IndicatorMessage(other), m_state(new StateManager(*other.m_state)),
      m_deviceGuidsToRemove(other.m_deviceGuidsToRemove),
      m_deviceGuidsForPropertiesToRemove(other.m_deviceGuidsForPropertiesToRemove),
      m_propertyGuidsToRemove(other.m_propertyGuidsToRemove),
      m_alertGuidsToRemove(other.m_alertGuidsToRemove) {}

void UpdatesProviderToEngineToUI::addPropertyToRemove(String const &deviceGuid,
                                                      String const &propertyKey) {
  m_deviceGuidsForPropertiesToRemove.append(deviceGuid);
  m_propertyGuidsToRemove.append(propertyKey);
}

DeviceUpdateEngineToClient::DeviceUpdateEngineToClient() = default;
DeviceUpdateEngineToClient::DeviceUpdateEngineToClient(String const &deviceGuid,
                                                       Array<String> const &propertyKeys)
    : m_deviceGuid(deviceGuid), m_propertyKeys(propertyKeys) {}

HttpGetRequestProviderToEngine::HttpGetRequestProviderToEngine() = default;
HttpGetRequestProviderToEngine::HttpGetRequestProviderToEngine(String const &url,
                                                               unsigned int requestId)
    : m_url(url), m_requestId(requestId) {}

// ---------------------------------------------------------------- message boxes

MessageBox2GenericMessage::MessageBox2GenericMessage() = default;
MessageBox2GenericMessage::MessageBox2GenericMessage(String const &testRunGuid,
                                                     unsigned int uniqueId)
    : m_testRunGuid(testRunGuid), m_uniqueId(uniqueId) {}
MessageBox2GenericMessage::~MessageBox2GenericMessage() = default;

MessageBox2RequestMessage::MessageBox2RequestMessage() = default;
MessageBox2RequestMessage::MessageBox2RequestMessage(MessageBox2Request const &request,
                                                     String const &testRunGuid,
                                                     unsigned int const &uniqueId)
    : MessageBox2GenericMessage(testRunGuid, uniqueId), m_request(request) {}

MessageBox2AckMessage::MessageBox2AckMessage() = default;
MessageBox2AckMessage::MessageBox2AckMessage(MessageBox2RequestMessage const &request, bool handled)
    : MessageBox2GenericMessage(request.testRunGuid(), request.getUniqueId()), m_handled(handled) {}
MessageBox2AckMessage::MessageBox2AckMessage(String const &testRunGuid,
                                             unsigned int const &uniqueId, bool handled)
    : MessageBox2GenericMessage(testRunGuid, uniqueId), m_handled(handled) {}

MessageBox2ResultMessage::MessageBox2ResultMessage() = default;
MessageBox2ResultMessage::MessageBox2ResultMessage(MessageBox2Result const &result,
                                                   String const &testRunGuid,
                                                   unsigned int const &uniqueId)
    : MessageBox2GenericMessage(testRunGuid, uniqueId), m_result(result) {}

MessageBox2CancelMessage::MessageBox2CancelMessage() = default;
MessageBox2CancelMessage::MessageBox2CancelMessage(String const &testRunGuid,
                                                   unsigned int const &uniqueId)
    : MessageBox2GenericMessage(testRunGuid, uniqueId) {}

// ---------------------------------------------------------------- transport

IPCMessage::IPCMessage() = default;

UnknownMessage::UnknownMessage() = default;
UnknownMessage::UnknownMessage(unsigned int unknownTypeId, String const &rawBytes)
    : m_unknownTypeId(unknownTypeId), m_rawBytes(rawBytes) {
  ZEL_ASSERT(unknownTypeId <= 0xFFFF && "a message type number has 16 bits");
}

} // namespace zel
