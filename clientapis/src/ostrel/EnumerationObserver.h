#pragma once
// ostrel5::EnumerationObserver: what an application hears about enumeration
// and about the devices, properties and alerts that it brings or changes.
//
// Every operation is virtual with an empty body, so that an application
// overrides only what it needs. The observer is registered by raw pointer
// (registerEnumerationObserver); the application owns it and must keep it
// alive until it is unregistered. Notices arrive on the connection's pull
// thread, under the handler's enumeration lock: an override must not
// register or unregister enumeration observers itself, or it blocks.

#include "zel/String.h"

namespace ostrel5 {

class Alert;
class Device;
class DeviceProperty;

class EnumerationObserver {
public:
  EnumerationObserver() = default;
  EnumerationObserver(EnumerationObserver const &) = default;
  EnumerationObserver &operator=(EnumerationObserver const &) = default;
  virtual ~EnumerationObserver();

  virtual void handleDeviceEnumerationCompleted(zel::String const &sourceName, unsigned int count,
                                                double elapsed);
  virtual void handleDeviceEnumerationFailed(zel::String const &sourceName,
                                             zel::String const &reason, double elapsed);
  virtual void handleTestEnumerationCompleted(zel::String const &sourceName, unsigned int count,
                                              double elapsed);
  virtual void handleTestEnumerationFailed(zel::String const &sourceName, zel::String const &reason,
                                           double elapsed);
  virtual void handleAlert(Alert const &alert);
  virtual void handleNewDevice(Device const &device);
  virtual void handleDeviceAboutToBeRemoved(Device const &device);
  virtual void handleDeviceRemoved(Device const &device);
  virtual void handleNewProperty(Device const &device, DeviceProperty const &property);
  virtual void handlePropertyAboutToBeRemoved(Device const &device, DeviceProperty const &property);
  virtual void handlePropertyAboutToBeChanged(Device const &device,
                                              DeviceProperty const &oldProperty,
                                              DeviceProperty const &newProperty);
  virtual void handlePropertyChanged(Device const &device, DeviceProperty const &newProperty);
  virtual void handleAlertAboutToBeRemoved(Alert const &alert);
  virtual void handleAlertRemoved(Alert const &alert);
  virtual void handleEnumerationComplete(bool succeeded);
};

} // namespace ostrel5
