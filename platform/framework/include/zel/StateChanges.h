#pragma once
// zel::StateChanges: what zel::StateManager reports when it previews or
// performs a merge of an incoming (usually partial) state.
//
// PreviewChanges (previewMergeWithTracking): the properties present both in
// the mirror and in the incoming state, on the same device, whose values
// differ (ValueImp::operator!=). Each entry names the mirror's device, the
// mirror's property (old) and the incoming property (new).
//
// MergeChanges (mergeWithTracking), each list in the incoming state's order:
//   newDevices     devices the mirror did not have (their properties come
//                  with them and are not listed again)
//   newProperties  properties that an existing device did not have
//   newAlerts      alerts the mirror did not have
// The pointers are the mirror's own objects after the merge.

#include <boost/shared_ptr.hpp>

#include <utility>

#include "zel/Array.h"
#include "zel/IAlertImp.h"
#include "zel/IDeviceImp.h"
#include "zel/PropertyImp.h"

namespace zel {

namespace StateChanges {

class ChangedProperty {
public:
  ChangedProperty() = default;
  ChangedProperty(boost::shared_ptr<IDeviceImp> const &device,
                  boost::shared_ptr<PropertyImp> const &oldProperty,
                  boost::shared_ptr<PropertyImp> const &newProperty)
      : m_device(device), m_old(oldProperty), m_new(newProperty) {}

  boost::shared_ptr<IDeviceImp> const &device() const noexcept { return m_device; }
  boost::shared_ptr<PropertyImp> const &oldProperty() const noexcept { return m_old; }
  boost::shared_ptr<PropertyImp> const &newProperty() const noexcept { return m_new; }

private:
  boost::shared_ptr<IDeviceImp> m_device;
  boost::shared_ptr<PropertyImp> m_old;
  boost::shared_ptr<PropertyImp> m_new;
};

class PreviewChanges {
public:
  Array<ChangedProperty> changedProperties;

  Array<ChangedProperty> const &changes() const noexcept { return changedProperties; }
  std::size_t size() const noexcept { return changedProperties.size(); }
  bool isEmpty() const noexcept { return changedProperties.isEmpty(); }
  void clear() noexcept { changedProperties.clear(); }
};

using NewProperty = std::pair<boost::shared_ptr<IDeviceImp>, boost::shared_ptr<PropertyImp>>;

class MergeChanges {
public:
  Array<boost::shared_ptr<IDeviceImp>> newDevices;
  Array<NewProperty> newProperties;
  Array<boost::shared_ptr<IAlertImp>> newAlerts;

  bool isEmpty() const noexcept {
    return newDevices.isEmpty() && newProperties.isEmpty() && newAlerts.isEmpty();
  }
  void clear() noexcept {
    newDevices.clear();
    newProperties.clear();
    newAlerts.clear();
  }
};

} // namespace StateChanges
} // namespace zel
