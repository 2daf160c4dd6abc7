#include "zel/IAlertImp.h"

#include "zel/IDeviceImp.h"

namespace zel {

IAlertImp::IAlertImp(IAlertImp const &o)
    : m_guid(o.m_guid), m_key(o.m_key), m_type(o.m_type), m_title(o.m_title),
      m_message(o.m_message), m_device(o.m_device), m_deviceGuid(o.m_deviceGuid),
      m_tips(o.m_tips.deepCopy()), m_time(o.m_time), m_timeIsReal(o.m_timeIsReal),
      m_valueKeys(o.m_valueKeys), m_values(o.m_values) {}

IAlertImp &IAlertImp::operator=(IAlertImp const &o) {
  if (this != &o) {
    IAlertImp copy(o);
    m_guid = copy.m_guid;
    m_key = copy.m_key;
    m_type = copy.m_type;
    m_title = copy.m_title;
    m_message = copy.m_message;
    m_device = copy.m_device;
    m_deviceGuid = copy.m_deviceGuid;
    m_tips = copy.m_tips;
    m_time = copy.m_time;
    m_timeIsReal = copy.m_timeIsReal;
    m_valueKeys = copy.m_valueKeys;
    m_values = copy.m_values;
  }
  return *this;
}

bool IAlertImp::getValue(String const &key, String &out, int index) const {
  Array<String> const *list = m_values.find(key);
  if (!list || index < 0 || static_cast<std::size_t>(index) >= list->size())
    return false;
  out = (*list)[static_cast<std::size_t>(index)];
  return true;
}

Array<String> IAlertImp::values(String const &key) const {
  Array<String> const *list = m_values.find(key);
  return list ? *list : Array<String>();
}

IAlertImp &IAlertImp::setDevice(boost::shared_ptr<IDeviceImp> const &device) {
  m_device = device;
  m_deviceGuid = device ? device->guid() : String();
  return *this;
}

IAlertImp &IAlertImp::setDeviceGuid(String const &guid) {
  if (!m_device || m_device->guid() != guid)
    m_device.reset();
  m_deviceGuid = guid;
  return *this;
}

IAlertImp &IAlertImp::setValues(String const &key, Array<String> const &values) {
  if (m_values.put(key, values))
    m_valueKeys.append(key);
  return *this;
}

IAlertImp &IAlertImp::addValue(String const &key, String const &value) {
  Array<String> *list = m_values.find(key);
  if (list) {
    list->append(value);
  } else {
    m_values.put(key, Array<String>{value});
    m_valueKeys.append(key);
  }
  return *this;
}

String IAlertImp::toString(unsigned int indent, bool verbose) const {
  String pad(indent * 2, ' ');
  String out = pad + "Alert " + m_type.toString() + " " + m_key + " [" + m_guid +
               "]: " + m_title.text() + "\n";
  if (!verbose)
    return out;
  String f = pad + "  ";
  if (!m_message.text().isEmpty())
    out += f + "message: " + m_message.text() + "\n";
  if (!m_deviceGuid.isEmpty())
    out += f + "device: " + m_deviceGuid + "\n";
  out += f + "time: " + String::fromInt(m_time) + (m_timeIsReal ? "" : " (noticed)") + "\n";
  for (String const &k : m_valueKeys) {
    String joined;
    for (String const &v : values(k))
      joined += (joined.isEmpty() ? "" : ", ") + v;
    out += f + k + ": " + joined + "\n";
  }
  for (auto const &t : m_tips)
    out += t->toString(indent + 1, false);
  return out;
}

bool operator==(IAlertImp const &a, IAlertImp const &b) {
  if (!(a.m_guid == b.m_guid && a.m_key == b.m_key && a.m_type == b.m_type &&
        a.m_title == b.m_title && a.m_message == b.m_message && a.m_deviceGuid == b.m_deviceGuid &&
        a.m_tips.sameContent(b.m_tips) && a.m_time == b.m_time &&
        a.m_timeIsReal == b.m_timeIsReal && a.m_valueKeys == b.m_valueKeys))
    return false;
  for (String const &k : a.m_valueKeys)
    if (a.values(k) != b.values(k))
      return false;
  return true;
}

} // namespace zel
