#include "zel/TestRunEventImp.h"

#include "TestRunGuid.h"
#include "zel/System.h"

namespace zel {

TestRunEventImp::TestRunEventImp()
    : m_guid(testrun::newGuid()), m_timeTriggered(System::getCurrentTimeStamp()) {}

TestRunEventImp::TestRunEventImp(String const &module, String const &key)
    : m_guid(testrun::newGuid()), m_module(module), m_key(key),
      m_timeTriggered(System::getCurrentTimeStamp()) {}

// Tips are shared pointers in a TipArray; an event owns its tips, so copies
// take copies of them rather than sharing.
TestRunEventImp::TestRunEventImp(TestRunEventImp const &other)
    : m_guid(other.m_guid), m_module(other.m_module), m_key(other.m_key),
      m_message(other.m_message), m_messageOverride(other.m_messageOverride),
      m_hasOverride(other.m_hasOverride), m_eventCode(other.m_eventCode),
      m_eventCodeString(other.m_eventCodeString), m_customerEventCode(other.m_customerEventCode),
      m_type(other.m_type), m_device(other.m_device), m_sourceFile(other.m_sourceFile),
      m_sourceLine(other.m_sourceLine), m_timeTriggered(other.m_timeTriggered),
      m_tips(other.m_tips.deepCopy()) {}

TestRunEventImp &TestRunEventImp::operator=(TestRunEventImp const &other) {
  if (this != &other) {
    TestRunEventImp copy(other);
    *this = std::move(copy);
  }
  return *this;
}

TestRunEventImp::~TestRunEventImp() = default;

TipImp const *TestRunEventImp::tip(unsigned int index) const noexcept { return m_tips.at(index); }

void TestRunEventImp::addTip(TipImp const &tip) { m_tips.addTip(tip); }

TestRunEventImp &TestRunEventImp::setMessage(String const &message) {
  m_message = message;
  return *this;
}

TestRunEventImp &TestRunEventImp::setMessageOverride(String const &message) {
  m_messageOverride = message;
  m_hasOverride = true;
  return *this;
}

TestRunEventImp &TestRunEventImp::setEventCode(unsigned int code) {
  m_eventCode = code;
  return *this;
}

TestRunEventImp &TestRunEventImp::setEventCodeString(String const &code) {
  m_eventCodeString = code;
  return *this;
}

TestRunEventImp &TestRunEventImp::setCustomerEventCode(String const &code) {
  m_customerEventCode = code;
  return *this;
}

TestRunEventImp &TestRunEventImp::setType(EventTypeImp type) {
  m_type = type;
  return *this;
}

TestRunEventImp &TestRunEventImp::setDevice(String const &deviceGuid) {
  m_device = deviceGuid;
  return *this;
}

TestRunEventImp &TestRunEventImp::setSource(String const &file, unsigned int line) {
  m_sourceFile = file;
  m_sourceLine = line;
  return *this;
}

TestRunEventImp &TestRunEventImp::setTimeTriggered(std::int64_t unixSeconds) {
  m_timeTriggered = unixSeconds;
  return *this;
}

String TestRunEventImp::toString(unsigned int indent, bool verbose) const {
  String pad(static_cast<std::size_t>(indent) * 2, ' ');
  String inner = pad + "  ";
  String out = pad + "Event - " + m_key + " (" + m_module + ")\n";
  out += inner + "Type: " + m_type.toString() + "\n";
  out += inner + "Message: " + message() + "\n";
  out += inner + "Code: " + String::fromUInt(m_eventCode);
  if (!m_eventCodeString.isEmpty())
    out += " (" + m_eventCodeString + ")";
  out += "\n";
  if (!m_customerEventCode.isEmpty())
    out += inner + "Customer code: " + m_customerEventCode + "\n";
  out += inner + "Time: " + String::fromInt(m_timeTriggered) + "\n";
  if (verbose) {
    out += inner + "Guid: " + m_guid + "\n";
    if (!m_device.isEmpty())
      out += inner + "Device: " + m_device + "\n";
    if (!m_sourceFile.isEmpty())
      out += inner + "Source: " + m_sourceFile + ":" + String::fromUInt(m_sourceLine) + "\n";
    for (auto const &t : m_tips)
      out += t->toString(indent + 1, true);
  }
  return out;
}

bool operator==(TestRunEventImp const &a, TestRunEventImp const &b) {
  return a.m_guid == b.m_guid && a.m_module == b.m_module && a.m_key == b.m_key &&
         a.m_message == b.m_message && a.m_messageOverride == b.m_messageOverride &&
         a.m_hasOverride == b.m_hasOverride && a.m_eventCode == b.m_eventCode &&
         a.m_eventCodeString == b.m_eventCodeString &&
         a.m_customerEventCode == b.m_customerEventCode && a.m_type == b.m_type &&
         a.m_device == b.m_device && a.m_sourceFile == b.m_sourceFile &&
         a.m_sourceLine == b.m_sourceLine && a.m_timeTriggered == b.m_timeTriggered &&
         a.m_tips.sameContent(b.m_tips);
}

} // namespace zel
