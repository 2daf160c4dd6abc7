#pragma once
// The fields of every message class, listed once.
//
// MessageCatalogue::fields(visitor, message) calls visitor(name, field) for
// each field that a class adds, after those of its base classes, in a fixed
// order. That one list drives encoding (the wire order is the visiting order),
// decoding and the log line, so a field cannot be encoded and forgotten in the
// log, or decoded in another order than it was written.
//
// The base fields (client id, name, priority) are not listed here: the
// envelope writes them for every class, unknown ones included.
//
// Field types that occur: bool, unsigned int, double, zel::String,
// zel::Array<zel::String>, zel::CapabilityImp, zel::TestStateImp,
// zel::TestResultImp, zel::ZELLocale, zel::MessageBox2Request,
// zel::MessageBox2Result, and std::unique_ptr of zel::StateManager,
// zel::TestRunImp, zel::TestRunManager and zel::IndicatorRunImp (payloads,
// possibly empty). A visitor handles each of these.

#include "zel/Messages.h"

namespace zel {

struct MessageCatalogue {
  /// An empty message of the class that `type` names; null for a number that
  /// names none. UnknownMessage comes back empty, to be filled by the caller.
  static Message *create(unsigned int type);

  template <class M> static Message *make() { return new M(); }

  // Base fields, for the envelope.
  static unsigned int &clientId(Message &m) noexcept { return m.m_clientId; }
  static String &clientName(Message &m) noexcept { return m.m_clientName; }
  static short &priority(Message &m) noexcept { return m.m_priority; }
  static unsigned int &unknownTypeId(UnknownMessage &m) noexcept { return m.m_unknownTypeId; }
  static String &rawBytes(UnknownMessage &m) noexcept { return m.m_rawBytes; }

  // ---- field lists (classes without fields of their own have empty lists)

  template <class V> static void fields(V &, Message &) {}
  template <class V> static void fields(V &, EnumerationMessage &) {}
  template <class V> static void fields(V &, DiagnosticMessage &) {}
  template <class V> static void fields(V &, ControlMessage &) {}
  template <class V> static void fields(V &, IndicatorMessage &) {}
  template <class V> static void fields(V &, IPCMessage &) {}
  template <class V> static void fields(V &, ShutdownClientToEngine &) {}
  template <class V> static void fields(V &, ClientCrashed &) {}
  template <class V> static void fields(V &, ClientLoggedOut &) {}
  template <class V> static void fields(V &, EnumerationInProgressEngineToClient &) {}

  template <class V> static void fields(V &v, EnumerateDevicesClientToEngine &m) {
    v("capability", m.m_capability);
    v("forceReEnum", m.m_forceReEnum);
    v("detailed", m.m_detailed);
    v("internetAccessAllowed", m.m_internetAccessAllowed);
  }
  template <class V> static void fields(V &v, EnumerateTestsClientToEngine &m) {
    v("databaseDirectory", m.m_databaseDirectory);
  }
  template <class V> static void fields(V &v, EnumerateTestRunsClientToEngine &m) {
    v("testState", m.m_testState);
  }
  template <class V> static void fields(V &v, SetInternetAccessAllowed &m) {
    v("allowed", m.m_allowed);
  }
  template <class V> static void fields(V &v, SysInfoRequestToEngine &m) {
    v("deviceGuid", m.m_deviceGuid);
  }
  template <class V> static void fields(V &v, EnumerationProgressMessage &m) {
    v("sourceName", m.m_sourceName);
    v("percentComplete", m.m_percentComplete);
    v("text", m.m_text);
  }
  template <class V> static void fields(V &v, DeviceEnumerationCompleted &m) {
    v("sourceName", m.m_sourceName);
    v("elapsed", m.m_elapsed);
    v("count", m.m_count);
  }
  template <class V> static void fields(V &v, TestEnumerationCompleted &m) {
    v("sourceName", m.m_sourceName);
    v("elapsed", m.m_elapsed);
    v("count", m.m_count);
  }
  template <class V> static void fields(V &v, DeviceEnumerationFailed &m) {
    v("sourceName", m.m_sourceName);
    v("elapsed", m.m_elapsed);
    v("reason", m.m_reason);
  }
  template <class V> static void fields(V &v, TestEnumerationFailed &m) {
    v("sourceName", m.m_sourceName);
    v("elapsed", m.m_elapsed);
    v("reason", m.m_reason);
  }
  template <class V> static void fields(V &v, EnumerationReturned &m) { v("state", m.m_state); }
  template <class V> static void fields(V &v, EnumerationReturnedFromEngine &m) {
    fields(v, static_cast<EnumerationReturned &>(m));
  }
  template <class V> static void fields(V &v, EnumerationReturnedProviderToEngine &m) {
    fields(v, static_cast<EnumerationReturned &>(m));
    v("providerName", m.m_providerName);
  }
  template <class V> static void fields(V &v, TestRunsReturnedEngineToClient &m) {
    v("testRunManager", m.m_manager);
  }

  template <class V> static void fields(V &v, RunTestClientToEngine &m) {
    v("testRun", m.m_testRun);
  }
  template <class V> static void fields(V &v, StopTestsClientToEngine &m) {
    v("result", m.m_result);
    v("testRunGuids", m.m_testRunGuids);
  }
  template <class V> static void fields(V &v, StopTestEngineToProvider &m) {
    fields(v, static_cast<StopTestsClientToEngine &>(m));
  }
  template <class V> static void fields(V &v, TestProgressProviderToEngine &m) {
    v("testRun", m.m_testRun);
  }
  template <class V> static void fields(V &v, TestProgressEngineToClient &m) {
    fields(v, static_cast<TestProgressProviderToEngine &>(m));
  }

  template <class V> static void fields(V &v, ModuleStarted &m) {
    v("moduleGuid", m.m_moduleGuid);
    v("processId", m.m_processId);
  }
  template <class V> static void fields(V &v, SetLocaleMessage &m) { v("locale", m.m_locale); }

  template <class V> static void fields(V &v, RunIndicatorClientToEngine &m) {
    v("indicatorRun", m.m_run);
  }
  template <class V> static void fields(V &v, PauseIndicatorClientToEngineToProvider &m) {
    fields(v, static_cast<RunIndicatorClientToEngine &>(m));
    v("idleTime", m.m_idleTime);
  }
  template <class V> static void fields(V &v, ResumeIndicatorClientToEngineToProvider &m) {
    fields(v, static_cast<RunIndicatorClientToEngine &>(m));
  }
  template <class V> static void fields(V &v, RequestUpdateClientToEngineToIndicator &m) {
    v("deviceGuid", m.m_deviceGuid);
    v("propertyKey", m.m_propertyKey);
  }
  template <class V> static void fields(V &v, SetUpdateIntervalIndicatorClientToEngine &m) {
    v("indicatorRunGuid", m.m_indicatorRunGuid);
    v("intervalSeconds", m.m_intervalSeconds);
  }
  template <class V> static void fields(V &v, ForceUpdateIndicatorClientToEngine &m) {
    v("indicatorRunGuid", m.m_indicatorRunGuid);
  }
  template <class V> static void fields(V &v, StopIndicatorClientToEngine &m) {
    v("indicatorRunGuid", m.m_indicatorRunGuid);
  }
  template <class V> static void fields(V &v, UpdatesProviderToEngineToUI &m) {
    v("state", m.m_state);
    v("deviceGuidsToRemove", m.m_deviceGuidsToRemove);
    v("deviceGuidsForPropertiesToRemove", m.m_deviceGuidsForPropertiesToRemove);
    v("propertyGuidsToRemove", m.m_propertyGuidsToRemove);
    v("alertGuidsToRemove", m.m_alertGuidsToRemove);
  }
  template <class V> static void fields(V &v, DeviceUpdateEngineToClient &m) {
    v("deviceGuid", m.m_deviceGuid);
    v("propertyKeys", m.m_propertyKeys);
  }
  template <class V> static void fields(V &v, HttpGetRequestProviderToEngine &m) {
    v("url", m.m_url);
    v("requestId", m.m_requestId);
  }

  template <class V> static void fields(V &v, MessageBox2GenericMessage &m) {
    v("testRunGuid", m.m_testRunGuid);
    v("uniqueId", m.m_uniqueId);
  }
  template <class V> static void fields(V &v, MessageBox2RequestMessage &m) {
    fields(v, static_cast<MessageBox2GenericMessage &>(m));
    v("request", m.m_request);
  }
  template <class V> static void fields(V &v, MessageBox2AckMessage &m) {
    fields(v, static_cast<MessageBox2GenericMessage &>(m));
    v("handled", m.m_handled);
  }
  template <class V> static void fields(V &v, MessageBox2ResultMessage &m) {
    fields(v, static_cast<MessageBox2GenericMessage &>(m));
    v("result", m.m_result);
  }
  template <class V> static void fields(V &v, MessageBox2CancelMessage &m) {
    fields(v, static_cast<MessageBox2GenericMessage &>(m));
  }

  /// UnknownMessage has no listed fields: its raw bytes are written and read
  /// by the envelope, as they have no structure this build knows.
  template <class V> static void fields(V &, UnknownMessage &) {}

  /// Checks that hold between the fields of a decoded message; throws
  /// zel::BadInput when they do not.
  static void validate(Message const &m);
};

} // namespace zel
