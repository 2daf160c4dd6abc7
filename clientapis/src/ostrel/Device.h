#pragma once
// ostrel5::Device: a handle on one device of the machine as the client's
// mirror (zel::StateManager) holds it.
//
// A Device holds one boost::shared_ptr to a const zel::IDeviceImp and nothing
// else: every accessor reads the implementation object, and a copy is the
// same device under a second name. The default constructor gives the empty
// (invalid) handle; look-ups that find nothing return one.
//
// Empty handles: isValid(), == and != work on any handle. Every other
// operation asserts that the implementation is present (text "m_imp";
// "!!m_imp" for getImp) and raises the structured fault, which is meant to
// stop the process: test isValid() first.
//
// Relations are read from the process-wide mirror at the time of the call:
// parent() looks the parent's GUID up in zel::StateManager::instance(),
// modules()/tests()/benchmarks() ask it for the associations. A handle keeps
// its object alive after the mirror drops it, but the look-ups then find
// nothing.
//
// Threads: handles are plain values and may be passed between threads; the
// implementation object guards itself.

#include <boost/shared_ptr.hpp>

#include "ostrel/DeviceCapability.h"
#include "ostrel/DeviceState.h"
#include "ostrel/HandleList.h"
#include "zel/String.h"

namespace zel {
class IDeviceImp;
}

namespace ostrel5 {

class DeviceList;
class DeviceObserver;
class DeviceProperty;
class DevicePropertyList;
class ModuleList;
class PropertyCategory;
class Test;
class TestList;

class Device : public SharedHandle<zel::IDeviceImp const> {
public:
  /// The empty handle.
  Device() noexcept;
  explicit Device(boost::shared_ptr<zel::IDeviceImp const> const &imp) noexcept;
  Device(Device const &other) noexcept;
  Device &operator=(Device const &other) noexcept;
  ~Device() override;

  /// Same implementation object (two empty handles are equal).
  bool operator==(Device const &other) const noexcept { return m_imp == other.m_imp; }
  bool operator!=(Device const &other) const noexcept { return m_imp != other.m_imp; }

  zel::String const &name() const;
  zel::String description() const;
  /// Where the operating system finds the device (on Linux a device node or
  /// a sysfs path).
  zel::String const &osLocator() const;
  /// Where the hardware finds it (a bus address).
  zel::String const &hwLocator() const;
  /// The key of zel::StateManager::deviceByGuid.
  zel::String guid() const;
  /// The one type of the device.
  DeviceCapability deviceType() const;
  /// Everything it can do.
  DeviceCapability capabilities() const;
  DeviceState deviceState() const;

  /// The property under `key` (top or child), or an empty handle. Logged at
  /// priority 1 on "libOstrel.Device".
  DeviceProperty property(zel::String const &key) const;
  unsigned int topPropertyCount() const;
  /// The properties that no other property names as a child.
  DevicePropertyList topProperties() const;
  /// The properties whose category meets `category`.
  DevicePropertyList getProperties(PropertyCategory const &category) const;

  /// The parent from the mirror, or an empty handle (root, or parent gone).
  Device parent() const;
  DeviceList children() const;
  /// The first child, or an empty handle.
  Device firstChild() const;

  /// The modules that serve this device.
  ModuleList modules() const;
  /// The tests (not the benchmarks) associated with this device, in the
  /// mirror's order.
  TestList tests() const;
  /// The first of tests(), or an empty handle (also when only benchmarks
  /// are associated).
  Test firstTest() const;
  /// The benchmarks associated with this device, in the mirror's order.
  TestList benchmarks() const;

  /// The implementation's text form. `indent` counts indent steps; the flags
  /// choose the implementation's mask: `verbose` shows every field instead of
  /// the name and the properties, `withChildren` adds the child devices, and
  /// `withState` (only together with `withChildren`) the device states.
  zel::String toString(unsigned int indent, bool verbose, bool withChildren, bool withState) const;

  /// The implementation object; asserts "!!m_imp".
  boost::shared_ptr<zel::IDeviceImp const> getImp() const;

  /// The manufacturer's name from the first manufacturer property present
  /// (which keys are tried depends on the device type); "" when none is.
  zel::String manufacturer() const;

  /// Opens the tray of an optical drive (a device capable of Optical) at its
  /// osLocator(); does nothing for any other device. Failures are ignored:
  /// a drive that cannot eject stays as it is.
  void ejectOpticalDrive() const;

  /// Signs `observer` up for the notices about this device, by its GUID (a
  /// second registration for the same device is ignored). The observer stays
  /// registered across reconnection; the application owns it and keeps it
  /// alive until unRegisterObserver.
  void registerObserver(DeviceObserver *observer) const;
  /// Removes the first registration of `observer`, whichever device it
  /// watches; one call per registration.
  void unRegisterObserver(DeviceObserver *observer) const;
};

} // namespace ostrel5

// The lists and the property handle are part of the Device vocabulary; they
// are included after the class so that each header can be included first.
#include "ostrel/DeviceList.h"
#include "ostrel/DeviceProperty.h"
#include "ostrel/DevicePropertyList.h"
#include "ostrel/ModuleList.h"
#include "ostrel/TestList.h"
