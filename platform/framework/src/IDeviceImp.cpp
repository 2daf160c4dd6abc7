#include "zel/IDeviceImp.h"

#include <unordered_set>

namespace zel {

IDeviceImp::IDeviceImp(IDeviceImp const &other)
    : m_guid(other.m_guid), m_name(other.m_name), m_description(other.m_description),
      m_osLocator(other.m_osLocator), m_hwLocator(other.m_hwLocator),
      m_deviceType(other.m_deviceType), m_capabilities(other.m_capabilities),
      m_parentGuid(other.m_parentGuid) {
  rwlock::read_guard guard(other.m_lock);
  m_state = other.m_state;
  m_properties = other.m_properties;
  m_propertyIndex = other.m_propertyIndex;
}

IDeviceImp &IDeviceImp::operator=(IDeviceImp const &other) {
  if (this == &other)
    return *this;
  IDeviceImp copy(other);
  m_guid = copy.m_guid;
  m_name = copy.m_name;
  m_description = copy.m_description;
  m_osLocator = copy.m_osLocator;
  m_hwLocator = copy.m_hwLocator;
  m_deviceType = copy.m_deviceType;
  m_capabilities = copy.m_capabilities;
  m_parentGuid = copy.m_parentGuid;
  rwlock::write_guard guard(m_lock);
  m_state = copy.m_state;
  m_properties.swap(copy.m_properties);
  m_propertyIndex.swap(copy.m_propertyIndex);
  return *this;
}

bool IDeviceImp::sameIdentity(IDeviceImp const &o) const {
  return m_guid == o.m_guid && m_name == o.m_name && m_description == o.m_description &&
         m_osLocator == o.m_osLocator && m_hwLocator == o.m_hwLocator &&
         m_deviceType == o.m_deviceType && m_capabilities == o.m_capabilities &&
         m_parentGuid == o.m_parentGuid;
}

DeviceStateImp IDeviceImp::deviceState() const {
  rwlock::read_guard guard(m_lock);
  return m_state;
}

IDeviceImp &IDeviceImp::setDeviceState(DeviceStateImp state) {
  rwlock::write_guard guard(m_lock);
  m_state = state;
  return *this;
}

boost::shared_ptr<PropertyImp> IDeviceImp::property(String const &key) const {
  rwlock::read_guard guard(m_lock);
  auto it = m_propertyIndex.find(key);
  return it == m_propertyIndex.end() ? boost::shared_ptr<PropertyImp>() : m_properties[it->second];
}

bool IDeviceImp::hasProperty(String const &key) const {
  rwlock::read_guard guard(m_lock);
  return m_propertyIndex.count(key) != 0;
}

IDeviceImp &IDeviceImp::setProperty(boost::shared_ptr<PropertyImp> const &property) {
  if (!property)
    return *this;
  rwlock::write_guard guard(m_lock);
  auto it = m_propertyIndex.find(property->key());
  if (it != m_propertyIndex.end()) {
    m_properties[it->second] = property;
  } else {
    m_propertyIndex.emplace(property->key(), m_properties.size());
    m_properties.push_back(property);
  }
  return *this;
}

bool IDeviceImp::insertProperty(boost::shared_ptr<PropertyImp> const &property) {
  if (!property)
    return false;
  rwlock::write_guard guard(m_lock);
  if (!m_propertyIndex.emplace(property->key(), m_properties.size()).second)
    return false;
  m_properties.push_back(property);
  return true;
}

void IDeviceImp::clearProperties() {
  rwlock::write_guard guard(m_lock);
  m_properties.clear();
  m_propertyIndex.clear();
}

IDeviceImp &IDeviceImp::addProperty(PropertyImp const &property) {
  return setProperty(boost::shared_ptr<PropertyImp>(new PropertyImp(property)));
}

bool IDeviceImp::removeProperty(String const &key) {
  rwlock::write_guard guard(m_lock);
  auto it = m_propertyIndex.find(key);
  if (it == m_propertyIndex.end())
    return false;
  m_properties.erase(m_properties.begin() + static_cast<std::ptrdiff_t>(it->second));
  rebuildIndexLocked();
  return true;
}

void IDeviceImp::rebuildIndexLocked() {
  m_propertyIndex.clear();
  for (std::size_t i = 0; i < m_properties.size(); ++i)
    m_propertyIndex.emplace(m_properties[i]->key(), i);
}

Array<boost::shared_ptr<PropertyImp>> IDeviceImp::properties() const {
  rwlock::read_guard guard(m_lock);
  Array<boost::shared_ptr<PropertyImp>> out(m_properties.size());
  for (auto const &p : m_properties)
    out.append(p);
  return out;
}

unsigned int IDeviceImp::propertyCount() const {
  rwlock::read_guard guard(m_lock);
  return static_cast<unsigned int>(m_properties.size());
}

namespace {

// The keys named as a child by some property other than the one named.
std::unordered_set<String>
childKeysOf(std::vector<boost::shared_ptr<PropertyImp>> const &properties) {
  std::unordered_set<String> keys;
  for (auto const &p : properties)
    for (String const &k : p->getChildrenKeys())
      if (k != p->key())
        keys.insert(k);
  return keys;
}

} // namespace

Array<boost::shared_ptr<PropertyImp>> IDeviceImp::topProperties() const {
  rwlock::read_guard guard(m_lock);
  std::unordered_set<String> children = childKeysOf(m_properties);
  Array<boost::shared_ptr<PropertyImp>> out(m_properties.size());
  for (auto const &p : m_properties)
    if (children.empty() || children.count(p->key()) == 0)
      out.append(p);
  return out;
}

unsigned int IDeviceImp::topPropertyCount() const {
  return static_cast<unsigned int>(topProperties().size());
}

Array<boost::shared_ptr<PropertyImp>>
IDeviceImp::getProperties(PropertyCategoryImp const &category) const {
  rwlock::read_guard guard(m_lock);
  Array<boost::shared_ptr<PropertyImp>> out;
  for (auto const &p : m_properties)
    if (p->category().isCapable(category))
      out.append(p);
  return out;
}

Array<boost::shared_ptr<IDeviceImp>> IDeviceImp::children() const {
  rwlock::read_guard guard(m_lock);
  Array<boost::shared_ptr<IDeviceImp>> out(m_children.size());
  for (auto const &c : m_children)
    out.append(c);
  return out;
}

unsigned int IDeviceImp::childCount() const {
  rwlock::read_guard guard(m_lock);
  return static_cast<unsigned int>(m_children.size());
}

boost::shared_ptr<IDeviceImp> IDeviceImp::firstChild() const {
  rwlock::read_guard guard(m_lock);
  return m_children.empty() ? boost::shared_ptr<IDeviceImp>() : m_children.front();
}

bool IDeviceImp::addChild(boost::shared_ptr<IDeviceImp> const &child) {
  if (!child || child.get() == this)
    return false;
  rwlock::write_guard guard(m_lock);
  for (auto const &c : m_children)
    if (c->guid() == child->guid())
      return false;
  m_children.push_back(child);
  return true;
}

bool IDeviceImp::removeChild(String const &guid) {
  rwlock::write_guard guard(m_lock);
  for (auto it = m_children.begin(); it != m_children.end(); ++it)
    if ((*it)->guid() == guid) {
      m_children.erase(it);
      return true;
    }
  return false;
}

void IDeviceImp::clearChildren() {
  rwlock::write_guard guard(m_lock);
  m_children.clear();
}

namespace {

bool isInternal(PropertyImp const &p) {
  return p.category().contains(PropertyCategoryImp::Row::Internal);
}

void writeProperty(String &out, IDeviceImp const &device, PropertyImp const &p, unsigned int indent,
                   unsigned int mask, int depth) {
  if (!(mask & IDeviceImp::SHOW_INTERNAL) && isInternal(p))
    return;
  out += p.toString(indent, mask);
  if (!(mask & IDeviceImp::SHOW_CHILD_PROPERTIES) || depth > 16)
    return;
  for (auto const &child : p.children(device))
    if (child->key() != p.key())
      writeProperty(out, device, *child, indent + 1, mask, depth + 1);
}

} // namespace

String IDeviceImp::toString(unsigned int indent, unsigned int mask) const {
  String pad(indent * 2, ' ');
  String out = pad + "Device";
  if (mask & SHOW_NAME)
    out += " " + m_name;
  if (mask & SHOW_GUID)
    out += " [" + m_guid + "]";
  out += "\n";
  String field = pad + "  ";
  if ((mask & SHOW_DESCRIPTION) && !m_description.isEmpty())
    out += field + "description: " + m_description + "\n";
  if ((mask & SHOW_OS_LOCATOR) && !m_osLocator.isEmpty())
    out += field + "os locator: " + m_osLocator + "\n";
  if ((mask & SHOW_HW_LOCATOR) && !m_hwLocator.isEmpty())
    out += field + "hw locator: " + m_hwLocator + "\n";
  if (mask & SHOW_DEVICE_TYPE)
    out += field + "type: " + m_deviceType.toString(0, false) + "\n";
  if (mask & SHOW_CAPABILITIES)
    out += field + "capabilities: " + m_capabilities.toString(0, false) + "\n";
  if (mask & SHOW_STATE)
    out += field + "state: " + deviceState().toString() + "\n";
  if ((mask & SHOW_PARENT) && !m_parentGuid.isEmpty())
    out += field + "parent: " + m_parentGuid + "\n";
  if (mask & SHOW_PROPERTIES) {
    for (auto const &p : topProperties())
      writeProperty(out, *this, *p, indent + 1, mask, 0);
  }
  if (mask & SHOW_CHILDREN) {
    for (auto const &c : children())
      out += c->toString(indent + 1, mask);
  }
  return out;
}

bool IDeviceImp::sameContent(IDeviceImp const &other) const {
  if (this == &other)
    return true;
  if (!sameIdentity(other) || deviceState() != other.deviceState())
    return false;
  Array<boost::shared_ptr<PropertyImp>> a = properties();
  Array<boost::shared_ptr<PropertyImp>> b = other.properties();
  if (a.size() != b.size())
    return false;
  for (std::size_t i = 0; i < a.size(); ++i)
    if (*a[i] != *b[i])
      return false;
  return true;
}

} // namespace zel
