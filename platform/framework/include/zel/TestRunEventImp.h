#pragma once
// zel::TestRunEventImp: one event that a test run reported (an error found,
// a warning, a progress note), with its tips.
//
// Identity: every constructed event gets a fresh guid; copies and the
// encoding keep it. The guid is what tells a new event from one the engine
// reports again (runs are reported whole, over and over), so an event and its
// copies are "the same event" wherever they travel.
//
// message() is the engine's text unless setMessageOverride() was called, in
// which case it is the override (also an empty one).
//
// timeTriggered() is a Unix time stamp in whole seconds; a new event carries
// the time of its construction until setTimeTriggered() says otherwise.
//
// A plain value: copies are deep (tips included) and independent.
// Thread-compatible; once an event has been handed to a zel::TestRunImp it is
// shared with the run's readers and must not be changed any more.

#include <boost/shared_ptr.hpp>

#include <cstdint>

#include "zel/EventTypeImp.h"
#include "zel/String.h"
#include "zel/TipImp.h"

namespace zel {

struct TestRunCodec;

class TestRunEventImp {
public:
  /// No module, no key, type UNINITIALIZED, a fresh guid.
  TestRunEventImp();
  /// An event of `module` (a module guid or a library name such as
  /// "libOstrel") and `key` (the event's name in that module).
  TestRunEventImp(String const &module, String const &key);
  TestRunEventImp(TestRunEventImp const &other);
  TestRunEventImp &operator=(TestRunEventImp const &other);
  TestRunEventImp(TestRunEventImp &&other) noexcept = default;
  TestRunEventImp &operator=(TestRunEventImp &&other) noexcept = default;
  virtual ~TestRunEventImp();

  String const &guid() const noexcept { return m_guid; }
  String const &module() const noexcept { return m_module; }
  String const &key() const noexcept { return m_key; }
  /// The override when one was set, else the reported text.
  String const &message() const noexcept { return m_hasOverride ? m_messageOverride : m_message; }
  bool hasMessageOverride() const noexcept { return m_hasOverride; }
  unsigned int eventCode() const noexcept { return m_eventCode; }
  String const &eventCodeString() const noexcept { return m_eventCodeString; }
  String const &customerEventCode() const noexcept { return m_customerEventCode; }
  EventTypeImp type() const noexcept { return m_type; }
  /// The guid of the device the event concerns (empty when none).
  String const &device() const noexcept { return m_device; }
  String const &sourceFile() const noexcept { return m_sourceFile; }
  unsigned int sourceLine() const noexcept { return m_sourceLine; }
  std::int64_t timeTriggered() const noexcept { return m_timeTriggered; }

  TipArray const &tips() const noexcept { return m_tips; }
  unsigned int tipCount() const noexcept { return static_cast<unsigned int>(m_tips.size()); }
  /// The tip at `index`, owned by this event; null past the end.
  TipImp const *tip(unsigned int index) const noexcept;
  /// Appends a copy of `tip`.
  void addTip(TipImp const &tip);

  TestRunEventImp &setMessage(String const &message);
  TestRunEventImp &setMessageOverride(String const &message);
  TestRunEventImp &setEventCode(unsigned int code);
  TestRunEventImp &setEventCodeString(String const &code);
  TestRunEventImp &setCustomerEventCode(String const &code);
  TestRunEventImp &setType(EventTypeImp type);
  TestRunEventImp &setDevice(String const &deviceGuid);
  TestRunEventImp &setSource(String const &file, unsigned int line);
  TestRunEventImp &setTimeTriggered(std::int64_t unixSeconds);

  /// Text form: "Event - <key> (<module>)" then, one per line and indented,
  /// type, message, codes and time; `verbose` adds guid, device, source and
  /// the tips' own text form. Lines start with two blanks per indent step and
  /// end with "\n".
  String toString(unsigned int indent = 0, bool verbose = false) const;

  /// Every field equal, guid included, and tips equal in content and order.
  friend bool operator==(TestRunEventImp const &a, TestRunEventImp const &b);
  friend bool operator!=(TestRunEventImp const &a, TestRunEventImp const &b) { return !(a == b); }

private:
  friend struct TestRunCodec;

  String m_guid;
  String m_module;
  String m_key;
  String m_message;
  String m_messageOverride;
  bool m_hasOverride = false;
  unsigned int m_eventCode = 0;
  String m_eventCodeString;
  String m_customerEventCode;
  EventTypeImp m_type = EventTypeImp::UNINITIALIZED;
  String m_device;
  String m_sourceFile;
  unsigned int m_sourceLine = 0;
  std::int64_t m_timeTriggered = 0;
  TipArray m_tips;
};

} // namespace zel
