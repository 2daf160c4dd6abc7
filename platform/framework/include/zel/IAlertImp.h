#pragma once
// zel::IAlertImp: something the machine told the user about (a crashed
// application, a driver problem, a slow start-up), as the mirror holds it.
//
// An alert has a GUID (its identity in the mirror), a key (what kind of
// alert, as the module names it), a type row, a title and a message (display
// texts resolved by the engine), optionally the device it concerns, tips, the
// time it was triggered (seconds since the epoch) and whether that time is
// real (true) or only the time the alert was noticed (false, e.g. an event
// found in a log after the fact), and named values.
//
// Values: a key (one of the alert value key strings, "ApplicationName" ...)
// holds a list of texts; getValue(key, out, index) gives element `index`
// (0 for a single value). False, with `out` untouched, when the key or the
// element is missing.
//
// The device: the alert holds a shared pointer; inside a zel::StateManager
// it is the mirror's own device object of that GUID whenever the mirror has
// it (the mirror re-points it when it takes the alert in).
//
// Copies share the device and copy everything else. Thread-compatible: once
// in a mirror an alert is not changed.

#include <boost/shared_ptr.hpp>

#include "zel/AlertTypeImp.h"
#include "zel/Array.h"
#include "zel/HashTable.h"
#include "zel/String.h"
#include "zel/TipImp.h"
#include "zel/ValueImp.h"

namespace zel {

class IDeviceImp;

class IAlertImp {
public:
  IAlertImp() = default;
  IAlertImp(String const &guid, String const &key, AlertTypeImp type, LocalizedString const &title,
            LocalizedString const &message)
      : m_guid(guid), m_key(key), m_type(type), m_title(title), m_message(message) {}
  IAlertImp(IAlertImp const &other);
  IAlertImp &operator=(IAlertImp const &other);
  virtual ~IAlertImp() = default;

  String guid() const { return m_guid; }
  String const &key() const noexcept { return m_key; }
  AlertTypeImp type() const noexcept { return m_type; }
  LocalizedString const &title() const noexcept { return m_title; }
  LocalizedString const &message() const noexcept { return m_message; }
  /// The device concerned, or empty.
  boost::shared_ptr<IDeviceImp> device() const { return m_device; }
  /// The GUID of the device concerned ("" for none), known even when the
  /// device object is not.
  String const &deviceGuid() const noexcept { return m_deviceGuid; }
  unsigned int tipCount() const noexcept { return static_cast<unsigned int>(m_tips.size()); }
  TipImp const *tip(unsigned int index) const { return m_tips.at(index); }
  TipArray const &tips() const noexcept { return m_tips; }
  long long timeTriggered() const noexcept { return m_time; }
  bool timeIsReal() const noexcept { return m_timeIsReal; }
  /// See the header.
  bool getValue(String const &key, String &out, int index = 0) const;
  /// The keys that hold values, in the order first set.
  Array<String> const &valueKeys() const noexcept { return m_valueKeys; }
  /// Every element under `key` (empty when none).
  Array<String> values(String const &key) const;

  IAlertImp &setGuid(String const &v) {
    m_guid = v;
    return *this;
  }
  IAlertImp &setKey(String const &v) {
    m_key = v;
    return *this;
  }
  IAlertImp &setType(AlertTypeImp v) {
    m_type = v;
    return *this;
  }
  IAlertImp &setTitle(LocalizedString const &v) {
    m_title = v;
    return *this;
  }
  IAlertImp &setMessage(LocalizedString const &v) {
    m_message = v;
    return *this;
  }
  /// Sets the device and its GUID (an empty pointer clears both).
  IAlertImp &setDevice(boost::shared_ptr<IDeviceImp> const &device);
  /// Sets the GUID alone, keeping no device object.
  IAlertImp &setDeviceGuid(String const &guid);
  IAlertImp &addTip(TipImp const &tip) {
    m_tips.addTip(tip);
    return *this;
  }
  IAlertImp &setTimeTriggered(long long v) {
    m_time = v;
    return *this;
  }
  IAlertImp &setTimeIsReal(bool v) {
    m_timeIsReal = v;
    return *this;
  }
  /// Replaces the list under `key`.
  IAlertImp &setValues(String const &key, Array<String> const &values);
  /// Appends one element to the list under `key`.
  IAlertImp &addValue(String const &key, String const &value);

  /// "<indent>Alert <TYPE> <key> [<guid>]: <title>" then, verbose, message,
  /// device, time, values and tips one step deeper. Ends with "\n".
  String toString(unsigned int indent = 0, bool verbose = false) const;

  /// Every field equal; the device compared by GUID.
  friend bool operator==(IAlertImp const &a, IAlertImp const &b);
  friend bool operator!=(IAlertImp const &a, IAlertImp const &b) { return !(a == b); }

private:
  String m_guid;
  String m_key;
  AlertTypeImp m_type = AlertTypeImp::MESSAGE;
  LocalizedString m_title;
  LocalizedString m_message;
  boost::shared_ptr<IDeviceImp> m_device;
  String m_deviceGuid;
  TipArray m_tips;
  long long m_time = 0;
  bool m_timeIsReal = true;
  Array<String> m_valueKeys;
  HashTable<String, Array<String>> m_values;
};

} // namespace zel
