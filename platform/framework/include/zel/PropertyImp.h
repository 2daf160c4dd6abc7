#pragma once
// zel::PropertyImp: one property of a device: a key unique on its device, a
// declared data type, display texts, a value, a category set, the module that
// reported it and the keys of its child properties.
//
// Child properties are properties of the same device, stored on the device
// under their own keys; a property only names them. A property is "top" on
// its device when no other property of the device names it as a child.
//
// willBeDiscoveredLater: the property exists but its value is not known yet
// (the value then usually holds no data); the type is still the declared one.
//
// Once a property is in a zel::StateManager it is never changed: a new value
// arrives as a new PropertyImp that replaces the old one on its device, so a
// handle on the old object keeps reading the old value. Build a property
// completely before handing it over. Thread-compatible; shared const objects
// may be read from any thread.

#include <boost/shared_ptr.hpp>

#include "zel/Array.h"
#include "zel/DataTypeImp.h"
#include "zel/PropertyCategoryImp.h"
#include "zel/String.h"
#include "zel/ValueImp.h"

namespace zel {

class IDeviceImp;
struct EncodingAccess;

class PropertyImp {
public:
  /// No key, no data, type sentinel, empty category.
  PropertyImp() = default;
  /// The type is the value's type.
  PropertyImp(String const &key, ValueImp const &value,
              PropertyCategoryImp const &category = PropertyCategoryImp(),
              String const &localizedName = String(), String const &localizedDescription = String(),
              String const &moduleGuid = String())
      : m_key(key), m_type(value.type()), m_name(localizedName),
        m_description(localizedDescription), m_value(value), m_category(category),
        m_moduleGuid(moduleGuid) {}
  PropertyImp(PropertyImp const &) = default;
  PropertyImp(PropertyImp &&) = default;
  PropertyImp &operator=(PropertyImp const &) = default;
  PropertyImp &operator=(PropertyImp &&) = default;
  virtual ~PropertyImp() = default;

  String const &key() const noexcept { return m_key; }
  DataTypeImp type() const noexcept { return m_type; }
  String const &localizedName() const noexcept { return m_name; }
  String const &localizedDescription() const noexcept { return m_description; }
  ValueImp const &value() const noexcept { return m_value; }
  PropertyCategoryImp const &category() const noexcept { return m_category; }
  String const &moduleGuid() const noexcept { return m_moduleGuid; }
  Array<String> const &getChildrenKeys() const noexcept { return m_childKeys; }
  unsigned int childCount() const noexcept { return static_cast<unsigned int>(m_childKeys.size()); }
  bool hasChild(String const &key) const { return m_childKeys.contains(key); }
  bool willBeDiscoveredLater() const noexcept { return m_later; }

  /// The child properties as `device` holds them, in the order of the child
  /// keys; keys the device does not hold are left out.
  Array<boost::shared_ptr<PropertyImp>> children(IDeviceImp const &device) const;

  PropertyImp &setKey(String const &v) {
    m_key = v;
    return *this;
  }
  PropertyImp &setType(DataTypeImp v) {
    m_type = v;
    return *this;
  }
  PropertyImp &setLocalizedName(String const &v) {
    m_name = v;
    return *this;
  }
  PropertyImp &setLocalizedDescription(String const &v) {
    m_description = v;
    return *this;
  }
  /// Sets the value; the declared type is left as it is.
  PropertyImp &setValue(ValueImp const &v) {
    m_value = v;
    return *this;
  }
  PropertyImp &setCategory(PropertyCategoryImp const &v) {
    m_category = v;
    return *this;
  }
  PropertyImp &setModuleGuid(String const &v) {
    m_moduleGuid = v;
    return *this;
  }
  /// Adds a child key (once).
  PropertyImp &addChildKey(String const &key) {
    if (!m_childKeys.contains(key))
      m_childKeys.append(key);
    return *this;
  }
  PropertyImp &setChildrenKeys(Array<String> const &keys) {
    m_childKeys = keys;
    return *this;
  }
  PropertyImp &setWillBeDiscoveredLater(bool v) {
    m_later = v;
    return *this;
  }

  /// One line: indent (two blanks a step), key, "=", the value's string form,
  /// then the fields that `mask` asks for (IDeviceImp's property bits) in
  /// brackets; ends with "\n".
  String toString(unsigned int indent, unsigned int mask) const;

  /// Every field equal.
  friend bool operator==(PropertyImp const &a, PropertyImp const &b);
  friend bool operator!=(PropertyImp const &a, PropertyImp const &b) { return !(a == b); }

private:
  friend struct EncodingAccess; // decodes straight into the fields

  String m_key;
  DataTypeImp m_type = DataTypeImp::sentinel();
  String m_name;
  String m_description;
  ValueImp m_value;
  PropertyCategoryImp m_category;
  String m_moduleGuid;
  Array<String> m_childKeys;
  bool m_later = false;
};

} // namespace zel
