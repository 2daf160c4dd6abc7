#pragma once
// ostrel5::DeviceProperty: a handle on one property of a device: a key unique
// on its device, a declared data type, display texts, a value, a category
// and the keys of its child properties.
//
// A DeviceProperty holds one boost::shared_ptr to a const zel::PropertyImp.
// Property objects never change once in the mirror: a new value arrives as a
// new object, so a handle taken before a change keeps reading the old value.
// Take the property again from its Device to see the current one.
//
// Empty handles: isValid(), == and != work on any handle; every other
// operation asserts "!!m_imp" and raises the structured fault.
//
// Threads: plain values; the shared object is immutable.

#include <boost/shared_ptr.hpp>

#include "ostrel/DataType.h"
#include "ostrel/HandleList.h"
#include "zel/Array.h"
#include "zel/String.h"

namespace zel {
class PropertyImp;
}

namespace ostrel5 {

class Device;
class DevicePropertyList;
class Module;
class PropertyCategory;
class PropertyObserver;
class Value;

class DeviceProperty : public SharedHandle<zel::PropertyImp const> {
public:
  /// The empty handle.
  DeviceProperty() noexcept;
  explicit DeviceProperty(boost::shared_ptr<zel::PropertyImp const> const &imp) noexcept;
  DeviceProperty(DeviceProperty const &other) noexcept;
  DeviceProperty &operator=(DeviceProperty const &other) noexcept;
  ~DeviceProperty() override;

  /// Same implementation object (two empty handles are equal).
  bool operator==(DeviceProperty const &other) const noexcept { return m_imp == other.m_imp; }
  bool operator!=(DeviceProperty const &other) const noexcept { return m_imp != other.m_imp; }

  /// Unique on its device.
  zel::String const &key() const;
  /// The declared type (the value may hold no data yet, see
  /// willBeDiscoveredLater).
  DataType type() const;
  zel::String const &localizedName() const;
  zel::String const &localizedDescription() const;
  Value value() const;
  PropertyCategory category() const;
  /// The module that reported the property, from the mirror; an empty
  /// handle when the mirror does not know it.
  Module sourceModule() const;

  /// The strings of a value, as one array that the whole process shares:
  /// it is filled once, from the property of the first call, and every later
  /// call on any property returns that same content. Callers that need the
  /// strings of a particular property read value() instead.
  zel::Array<zel::String> const &toArray() const;

  unsigned int childPropertyCount() const;
  /// The child properties as `device` holds them, in the order of the keys.
  DevicePropertyList children(Device const &device) const;
  /// The child property `key` from `device`; an empty handle (and a line at
  /// priority 4 on "libOstrel.DeviceProperty") when `key` is no child key of
  /// this property.
  DeviceProperty childPropertyByKey(Device const &device, zel::String const &key) const;

  /// The property exists but its value is not known yet.
  bool willBeDiscoveredLater() const;

  /// Signs `observer` up for the notices about this property's key on every
  /// device of `device`'s type, not only on `device` (a second registration
  /// for the same type and key is ignored). The observer stays registered
  /// across reconnection; the application owns it and keeps it alive until
  /// unRegisterObserver.
  void registerObserver(Device const &device, PropertyObserver *observer) const;
  /// Removes the first registration of `observer`; one call per registration.
  void unRegisterObserver(PropertyObserver *observer) const;

  /// The implementation object; asserts "!!m_imp".
  boost::shared_ptr<zel::PropertyImp const> getImp() const;
};

} // namespace ostrel5
