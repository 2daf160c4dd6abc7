#pragma once
// ostrel5::PropertyObserver: what an application hears about one property
// key on one device type (DeviceProperty::registerObserver). It watches the
// key on every device of that type, not only on the device it was
// registered through.
//
// Every operation is virtual with an empty body; override what you need.
// The application owns the observer and keeps it alive until
// DeviceProperty::unRegisterObserver. Notices arrive on the connection's
// pull thread.

namespace ostrel5 {

class Device;
class DeviceProperty;

class PropertyObserver {
public:
  PropertyObserver() = default;
  PropertyObserver(PropertyObserver const &) = default;
  PropertyObserver &operator=(PropertyObserver const &) = default;
  virtual ~PropertyObserver();

  virtual void handleNewProperty(Device const &device, DeviceProperty const &property);
  virtual void handlePropertyAboutToBeRemoved(Device const &device, DeviceProperty const &property);
  virtual void handlePropertyAboutToBeChanged(Device const &device,
                                              DeviceProperty const &oldProperty,
                                              DeviceProperty const &newProperty);
  virtual void handlePropertyChanged(Device const &device, DeviceProperty const &newProperty);
};

} // namespace ostrel5
