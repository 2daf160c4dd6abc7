#include "zel/PropertyImp.h"

#include "zel/IDeviceImp.h"

namespace zel {

Array<boost::shared_ptr<PropertyImp>> PropertyImp::children(IDeviceImp const &device) const {
  Array<boost::shared_ptr<PropertyImp>> out(m_childKeys.size());
  for (String const &key : m_childKeys) {
    boost::shared_ptr<PropertyImp> p = device.property(key);
    if (p)
      out.append(p);
  }
  return out;
}

String PropertyImp::toString(unsigned int indent, unsigned int mask) const {
  String out(indent * 2, ' ');
  out += m_key + " = " + m_value.toString(true);
  String extra;
  auto add = [&extra](String const &field) {
    if (!extra.isEmpty())
      extra += "; ";
    extra += field;
  };
  if (mask & IDeviceImp::SHOW_PROPERTY_TYPE)
    add("type " + m_type.toString());
  if (mask & IDeviceImp::SHOW_PROPERTY_CATEGORY)
    add("category " + m_category.toString(0, false));
  if ((mask & IDeviceImp::SHOW_PROPERTY_NAME) && !m_name.isEmpty())
    add("name " + m_name);
  if ((mask & IDeviceImp::SHOW_PROPERTY_DESCRIPTION) && !m_description.isEmpty())
    add("description " + m_description);
  if ((mask & IDeviceImp::SHOW_PROPERTY_MODULE) && !m_moduleGuid.isEmpty())
    add("module " + m_moduleGuid);
  if ((mask & IDeviceImp::SHOW_PROPERTY_LATER) && m_later)
    add("discovered later");
  if (!extra.isEmpty())
    out += " [" + extra + "]";
  out += "\n";
  return out;
}

bool operator==(PropertyImp const &a, PropertyImp const &b) {
  return a.m_key == b.m_key && a.m_type == b.m_type && a.m_name == b.m_name &&
         a.m_description == b.m_description && a.m_value == b.m_value &&
         a.m_category == b.m_category && a.m_moduleGuid == b.m_moduleGuid &&
         a.m_childKeys == b.m_childKeys && a.m_later == b.m_later;
}

} // namespace zel
