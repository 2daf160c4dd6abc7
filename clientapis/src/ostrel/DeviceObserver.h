#pragma once
// ostrel5::DeviceObserver: what an application hears about one device, the
// one whose GUID it was registered under (Device::registerObserver).
//
// Every operation is virtual with an empty body; override what you need.
// The application owns the observer and keeps it alive until
// Device::unRegisterObserver. Notices arrive on the connection's pull
// thread. handleDevicePropertyChanged belongs to the interface but nothing
// in this library calls it.

#include "zel/String.h"

namespace ostrel5 {

class Device;
class DeviceProperty;

class DeviceObserver {
public:
  DeviceObserver() = default;
  DeviceObserver(DeviceObserver const &) = default;
  DeviceObserver &operator=(DeviceObserver const &) = default;
  virtual ~DeviceObserver();

  virtual void handleDeviceAboutToBeRemoved(Device const &device);
  virtual void handleDeviceRemoved(Device const &device);
  virtual void handleNewProperty(Device const &device, DeviceProperty const &property);
  virtual void handlePropertyAboutToBeRemoved(Device const &device, DeviceProperty const &property);
  virtual void handlePropertyAboutToBeChanged(Device const &device,
                                              DeviceProperty const &oldProperty,
                                              DeviceProperty const &newProperty);
  virtual void handlePropertyChanged(Device const &device, DeviceProperty const &newProperty);
  virtual void handleDevicePropertyChanged(Device const &device, zel::String const &key);
};

} // namespace ostrel5
