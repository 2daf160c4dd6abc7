#pragma once
// zel::ParameterImp: one parameter of a test or a module: a key, display
// texts, a priority (display order; lower first), a declared data type, the
// current value and where that value came from.
//
// The declared type rules: setValue converts a value of another type through
// its string form into the declared type, and a value that does not fit
// raises zel::TypeMismatch (from zel::ValueImp) with the parameter unchanged.
// A value holding no data is taken as it is (the parameter has no value).
//
// A plain value: copies (and clone()) are deep. Thread-compatible.

#include "zel/DataTypeImp.h"
#include "zel/ParameterSourceImp.h"
#include "zel/String.h"
#include "zel/ValueImp.h"

namespace zel {

class ParameterImp {
public:
  ParameterImp() = default;
  /// The value is taken as the default (source NOTSET) and must fit `type`.
  ParameterImp(String const &key, DataTypeImp type, ValueImp const &value,
               String const &localizedName = String(),
               String const &localizedDescription = String(), unsigned int priority = 0);
  ParameterImp(ParameterImp const &) = default;
  ParameterImp(ParameterImp &&) = default;
  ParameterImp &operator=(ParameterImp const &) = default;
  ParameterImp &operator=(ParameterImp &&) = default;
  virtual ~ParameterImp() = default;

  /// A new copy, owned by the caller.
  ParameterImp *clone() const { return new ParameterImp(*this); }

  String const &key() const noexcept { return m_key; }
  String const &localizedName() const noexcept { return m_name; }
  String const &localizedDescription() const noexcept { return m_description; }
  unsigned int priority() const noexcept { return m_priority; }
  DataTypeImp type() const noexcept { return m_type; }
  ValueImp const &value() const noexcept { return m_value; }
  ParameterSourceImp valueSource() const noexcept { return m_source; }

  /// Sets the value (converted to the declared type) and its source.
  /// zel::TypeMismatch when it does not fit; nothing changes then.
  void setValue(ValueImp const &value, ParameterSourceImp const &source);
  /// The same with the source CLIENT.
  void setValue(ValueImp const &value) { setValue(value, ParameterSourceImp::CLIENT); }

  ParameterImp &setKey(String const &v) {
    m_key = v;
    return *this;
  }
  ParameterImp &setLocalizedName(String const &v) {
    m_name = v;
    return *this;
  }
  ParameterImp &setLocalizedDescription(String const &v) {
    m_description = v;
    return *this;
  }
  ParameterImp &setPriority(unsigned int v) {
    m_priority = v;
    return *this;
  }
  /// Declares the type; the value is left as it is.
  ParameterImp &setType(DataTypeImp v) {
    m_type = v;
    return *this;
  }
  /// Sets the source alone (decoding, settings files).
  ParameterImp &setValueSource(ParameterSourceImp v) {
    m_source = v;
    return *this;
  }
  /// Stores value and source with no conversion (decoding only).
  ParameterImp &setRawValue(ValueImp const &v, ParameterSourceImp source) {
    m_value = v;
    m_source = source;
    return *this;
  }

  /// "<indent>Parameter <key> = <value> (<TYPE>)"; verbose adds the name,
  /// description, priority and source on further lines. Ends with "\n".
  String toString(unsigned int indent = 0, bool verbose = false) const;

  friend bool operator==(ParameterImp const &a, ParameterImp const &b);
  friend bool operator!=(ParameterImp const &a, ParameterImp const &b) { return !(a == b); }

private:
  String m_key;
  String m_name;
  String m_description;
  unsigned int m_priority = 0;
  DataTypeImp m_type = DataTypeImp::STRING;
  ValueImp m_value;
  ParameterSourceImp m_source = ParameterSourceImp::NOTSET;
};

} // namespace zel
