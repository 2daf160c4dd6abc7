#include "zel/ParameterImp.h"

namespace zel {

namespace {

// The value as the declared type: unchanged when it already is, read from
// its string form otherwise (TypeMismatch when that does not fit).
ValueImp converted(ValueImp const &value, DataTypeImp type) {
  if (!value.hasData() || value.type() == type)
    return value;
  return ValueImp(value.toString(false), type);
}

} // namespace

ParameterImp::ParameterImp(String const &key, DataTypeImp type, ValueImp const &value,
                           String const &localizedName, String const &localizedDescription,
                           unsigned int priority)
    : m_key(key), m_name(localizedName), m_description(localizedDescription), m_priority(priority),
      m_type(type), m_value(converted(value, type)) {}

void ParameterImp::setValue(ValueImp const &value, ParameterSourceImp const &source) {
  ValueImp v = converted(value, m_type);
  m_value = std::move(v);
  m_source = source;
}

String ParameterImp::toString(unsigned int indent, bool verbose) const {
  String pad(indent * 2, ' ');
  String out = pad + "Parameter " + m_key + " = " + m_value.toString(true) + " (" +
               m_type.toString() + ")\n";
  if (verbose) {
    if (!m_name.isEmpty())
      out += pad + "  name: " + m_name + "\n";
    if (!m_description.isEmpty())
      out += pad + "  description: " + m_description + "\n";
    out += pad + "  priority: " + String::fromUInt(m_priority) + "\n";
    out += pad + "  source: " + m_source.toString() + "\n";
  }
  return out;
}

bool operator==(ParameterImp const &a, ParameterImp const &b) {
  return a.m_key == b.m_key && a.m_name == b.m_name && a.m_description == b.m_description &&
         a.m_priority == b.m_priority && a.m_type == b.m_type && a.m_value == b.m_value &&
         a.m_source == b.m_source;
}

} // namespace zel
