#include "zel/IDeviceImp.h"

#include <unordered_set>

#include "PropertyTable.h"

namespace zel {

namespace detail {

void intrusive_ptr_add_ref(PropertyTable const *table) noexcept {
  table->refs.fetch_add(1, std::memory_order_relaxed);
}

void intrusive_ptr_release(PropertyTable const *table) noexcept {
  if (table->refs.fetch_sub(1, std::memory_order_acq_rel) == 1)
    delete table;
}

} // namespace detail

using detail::PropertyTable;
using PropertyPtr = boost::shared_ptr<PropertyImp>;

IDeviceImp::IDeviceImp(IDeviceImp const &other)
    : m_guid(other.m_guid), m_name(other.m_name), m_description(other.m_description),
      m_osLocator(other.m_osLocator), m_hwLocator(other.m_hwLocator),
      m_deviceType(other.m_deviceType), m_capabilities(other.m_capabilities),
      m_parentGuid(other.m_parentGuid) {
  rwlock::read_guard guard(other.m_lock);
  m_state = other.m_state;
  m_table = other.m_table;
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
  m_table.swap(copy.m_table);
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

PropertyTable &IDeviceImp::ownTableLocked() {
  if (!m_table)
    m_table.reset(new PropertyTable());
  else if (!m_table->unshared())
    m_table.reset(new PropertyTable(*m_table));
  return *m_table;
}

IDeviceImp::Table IDeviceImp::tableSnapshot() const {
  rwlock::read_guard guard(m_lock);
  return m_table;
}

boost::shared_ptr<PropertyImp> IDeviceImp::property(String const &key) const {
  rwlock::read_guard guard(m_lock);
  if (!m_table)
    return PropertyPtr();
  std::uint32_t at = m_table->find(key);
  return at == PropertyTable::NONE ? PropertyPtr() : m_table->items[at];
}

bool IDeviceImp::hasProperty(String const &key) const {
  rwlock::read_guard guard(m_lock);
  return m_table && m_table->find(key) != PropertyTable::NONE;
}

IDeviceImp &IDeviceImp::setProperty(boost::shared_ptr<PropertyImp> const &property) {
  if (!property)
    return *this;
  rwlock::write_guard guard(m_lock);
  ownTableLocked().set(property);
  return *this;
}

bool IDeviceImp::insertProperty(boost::shared_ptr<PropertyImp> const &property) {
  if (!property)
    return false;
  rwlock::write_guard guard(m_lock);
  if (m_table && m_table->find(property->key()) != PropertyTable::NONE)
    return false;
  return ownTableLocked().insert(property);
}

void IDeviceImp::clearProperties() {
  rwlock::write_guard guard(m_lock);
  m_table.reset();
}

IDeviceImp &IDeviceImp::addProperty(PropertyImp const &property) {
  return setProperty(boost::shared_ptr<PropertyImp>(new PropertyImp(property)));
}

bool IDeviceImp::removeProperty(String const &key) {
  rwlock::write_guard guard(m_lock);
  if (!m_table)
    return false;
  std::uint32_t at = m_table->find(key);
  if (at == PropertyTable::NONE)
    return false;
  PropertyTable &table = ownTableLocked();
  table.items.erase(table.items.begin() + static_cast<std::ptrdiff_t>(at));
  table.reindex();
  return true;
}

void IDeviceImp::mergeProperties(IDeviceImp const &incoming,
                                 Array<boost::shared_ptr<PropertyImp>> *added) {
  if (&incoming == this)
    return;
  // The incoming table is read through a reference of its own, so the two
  // device locks are never held together.
  Table theirs = incoming.tableSnapshot();
  if (!theirs)
    return;
  rwlock::write_guard guard(m_lock);
  if (theirs == m_table)
    return; // the very same properties
  PropertyTable *mine = m_table.get();
  bool own = false;
  for (std::size_t i = 0; i < theirs->items.size(); ++i) {
    PropertyPtr const &p = theirs->items[i];
    String const &key = p->key();
    std::uint32_t at = PropertyTable::NONE;
    std::size_t hash = 0;
    bool hashed = false;
    if (mine) {
      // The same state of a device usually lists its properties in the
      // same order: try the same position before hashing the key.
      if (i < mine->items.size() && mine->items[i]->key() == key) {
        at = static_cast<std::uint32_t>(i);
      } else {
        hash = key.hash();
        hashed = true;
        at = mine->find(key, hash);
      }
    }
    if (at != PropertyTable::NONE) {
      PropertyPtr const &old = mine->items[at];
      if (old == p || *old == *p)
        continue;
    }
    if (!own) {
      mine = &ownTableLocked();
      own = true;
    }
    if (at != PropertyTable::NONE) {
      mine->items[at] = p;
    } else {
      mine->append(p, hashed ? hash : key.hash());
      if (added)
        added->append(p);
    }
  }
}

void IDeviceImp::differingValues(IDeviceImp const &incoming, Array<PropertyPair> &out) const {
  if (&incoming == this)
    return;
  Table theirs = incoming.tableSnapshot();
  Table mine = tableSnapshot();
  if (!theirs || !mine || theirs == mine)
    return;
  for (std::size_t i = 0; i < theirs->items.size(); ++i) {
    PropertyPtr const &p = theirs->items[i];
    std::uint32_t at = i < mine->items.size() && mine->items[i]->key() == p->key()
                           ? static_cast<std::uint32_t>(i)
                           : mine->find(p->key());
    if (at == PropertyTable::NONE)
      continue;
    PropertyPtr const &old = mine->items[at];
    if (old != p && old->value() != p->value())
      out.append(PropertyPair(old, p));
  }
}

Array<boost::shared_ptr<PropertyImp>> IDeviceImp::properties() const {
  rwlock::read_guard guard(m_lock);
  if (!m_table)
    return Array<PropertyPtr>();
  Array<PropertyPtr> out(m_table->items.size());
  for (auto const &p : m_table->items)
    out.append(p);
  return out;
}

unsigned int IDeviceImp::propertyCount() const {
  rwlock::read_guard guard(m_lock);
  return m_table ? static_cast<unsigned int>(m_table->items.size()) : 0u;
}

namespace {

// The keys named as a child by some property other than the one named.
std::unordered_set<String> childKeysOf(std::vector<PropertyPtr> const &properties) {
  std::unordered_set<String> keys;
  for (auto const &p : properties)
    for (String const &k : p->getChildrenKeys())
      if (k != p->key())
        keys.insert(k);
  return keys;
}

} // namespace

Array<boost::shared_ptr<PropertyImp>> IDeviceImp::topProperties() const {
  Table table = tableSnapshot();
  if (!table)
    return Array<PropertyPtr>();
  std::unordered_set<String> children = childKeysOf(table->items);
  Array<PropertyPtr> out(table->items.size());
  for (auto const &p : table->items)
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
  Array<PropertyPtr> out;
  if (!m_table)
    return out;
  for (auto const &p : m_table->items)
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
  String const &guid = child->guid(); // fixed once the child is in a mirror
  std::size_t hash = guid.hash();
  rwlock::write_guard guard(m_lock);
  for (std::size_t i = 0; i < m_children.size(); ++i)
    if (m_childHashes[i] == hash && m_children[i]->guid() == guid)
      return false;
  m_children.push_back(child);
  m_childHashes.push_back(hash);
  return true;
}

bool IDeviceImp::removeChild(String const &guid) {
  std::size_t hash = guid.hash();
  rwlock::write_guard guard(m_lock);
  for (std::size_t i = 0; i < m_children.size(); ++i)
    if (m_childHashes[i] == hash && m_children[i]->guid() == guid) {
      m_children.erase(m_children.begin() + static_cast<std::ptrdiff_t>(i));
      m_childHashes.erase(m_childHashes.begin() + static_cast<std::ptrdiff_t>(i));
      return true;
    }
  return false;
}

void IDeviceImp::clearChildren() {
  rwlock::write_guard guard(m_lock);
  m_children.clear();
  m_childHashes.clear();
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
