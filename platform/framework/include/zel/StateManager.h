#pragma once
// zel::StateManager: the mirror of the machine. Devices (a tree under one
// root, with their properties), modules, tests and benchmarks, the
// associations between them, alerts, indicators and indicator runs.
//
// One process-wide mirror: instance(), made on first use and never deleted.
// It is a reference; `instance()->x()` works as well as `instance().x()`
// (operator-> gives the object itself), as both spellings are in use.
// Further StateManager objects are partial or whole states that travel in
// messages (enumeration results, live updates); they are copyable and have
// an encoding (private to the framework, src/StateEncoding.h).
//
// Order: every list answers in insertion order ("the state manager's
// order"); replacing an object keeps its place, removal closes the gap.
//
// Look-ups by GUID (devices, tests, modules, alerts, indicators, indicator
// runs) are hash indexes: constant time.
//
// The device tree: a device with an empty parent GUID is a root; the first
// one added is rootDevice(). A device is linked under its parent as soon as
// both are in the mirror, whatever order they arrive in (a device whose
// parent is not there yet waits, reachable by GUID and in getDevices, and is
// linked when the parent comes).
//
// Merging: mergeWithTracking adds what is new and replaces what differs:
//   - a new device is taken in as a copy (with its properties) and linked;
//   - for a device the mirror has, every incoming property is set on the
//     mirror's device object (added, or replacing the old property in its
//     place); properties the incoming device lacks stay; the state is taken
//     over; identity fields stay as they are (see IDeviceImp);
//   - modules, tests, indicators, indicator runs and alerts are added or
//     replaced by GUID (copies; an alert's device is re-pointed to the
//     mirror's device); associations are added.
// Device objects are thus updated in place, so handles on a device see the
// new values after the merge, while handles on an old property keep the old
// value. previewMergeWithTracking reports the differing values and changes
// nothing. Both are safe when `incoming` is this object (nothing happens).
//
// removeDevice(guid, parent, withSubtree): removes the device and, with
// withSubtree true (what the client passes), all its descendants, with their
// associations; alerts about them stay. With withSubtree false only the
// device goes; its children stay in the mirror, unlinked, and are linked
// again if a device of that GUID comes back. When `parent` is given the
// device must be its child. False when nothing was removed.
//
// getDevices(capability, deviceTypeOnly): the devices whose capability set
// (or, with deviceTypeOnly true, whose device type) isCapable of
// `capability`; ALL() gives every device.
//
// Thread-safety: every operation is atomic with respect to the others (a
// reader-writer lock: many readers, one writer). Returned arrays are
// snapshots. The objects handed out are shared with the mirror: devices are
// internally locked (IDeviceImp), properties and alerts are not changed once
// in the mirror; modules and tests are thread-compatible.
//
// Cache file (saveCache/loadCache): the whole mirror in one file, written to
// a temporary file and renamed into place. Layout (integers little-endian):
//     8 bytes   "OSTRMIRR"
//     4 bytes   format version (CACHE_FORMAT_VERSION)
//     8 bytes   length of the body
//     8 bytes   FNV-1a 64 checksum of the body
//     body      the framework encoding of the StateManager
// loadCache checks all four and decodes the body into a new mirror before
// anything is replaced: a missing, short, damaged or newer file answers
// false and leaves the mirror as it was.

#include <boost/shared_ptr.hpp>

#include <unordered_map>
#include <vector>

#include "zel/Array.h"
#include "zel/CapabilityImp.h"
#include "zel/IAlertImp.h"
#include "zel/IDeviceImp.h"
#include "zel/IModuleImp.h"
#include "zel/IndicatorImp.h"
#include "zel/IndicatorRunImp.h"
#include "zel/Mutex.h"
#include "zel/PropertyImp.h"
#include "zel/StateChanges.h"
#include "zel/String.h"
#include "zel/TestImp.h"

namespace zel {

struct StateManagerAccess;

class StateManager {
public:
  using DevicePtr = boost::shared_ptr<IDeviceImp>;
  using PropertyPtr = boost::shared_ptr<PropertyImp>;
  using ModulePtr = boost::shared_ptr<IModuleImp>;
  using TestPtr = boost::shared_ptr<TestImp>;
  using AlertPtr = boost::shared_ptr<IAlertImp>;
  using IndicatorPtr = boost::shared_ptr<IndicatorImp>;
  using IndicatorRunPtr = boost::shared_ptr<IndicatorRunImp>;

  static constexpr unsigned int CACHE_FORMAT_VERSION = 1;

  StateManager();
  /// A deep copy: devices, modules, tests, alerts and indicators are copied,
  /// properties (immutable) are shared.
  StateManager(StateManager const &other);
  StateManager &operator=(StateManager const &other);
  ~StateManager();

  /// The process-wide mirror.
  static StateManager &instance();
  StateManager *operator->() noexcept { return this; }
  StateManager const *operator->() const noexcept { return this; }

  /// Empties the whole mirror.
  void clear();
  bool isEmpty() const;

  // --- devices -----------------------------------------------------------------
  DevicePtr rootDevice() const;
  /// Empty when the mirror has no device of that GUID.
  DevicePtr deviceByGuid(String const &guid) const;
  Array<DevicePtr> getDevices(CapabilityImp const &capability, bool deviceTypeOnly) const;
  /// Every device.
  Array<DevicePtr> getDevices() const;
  unsigned int deviceCount() const;
  /// Takes `device` itself into the mirror and links it. A device of the
  /// same GUID is merged into (as mergeWithTracking does); false then.
  bool addDevice(DevicePtr const &device);
  /// Links a device of the mirror under its parent (and its waiting
  /// children under it); a device not yet in the mirror is added first.
  /// Harmless when already done.
  void addDeviceToTree(DevicePtr &device);
  void addDeviceToTree(DevicePtr const &device);
  bool removeDevice(String const &guid, IDeviceImp *parent = nullptr, bool withSubtree = true);
  /// Sets a property on the mirror's device; false when the device is unknown.
  bool setProperty(String const &deviceGuid, PropertyPtr const &property);
  /// Removes a property of the mirror's device; false when either is unknown.
  bool removeProperty(String const &deviceGuid, String const &key);

  // --- modules and tests ---------------------------------------------------------
  /// Adds, or replaces the module of the same GUID in its place (the object
  /// itself is taken). Re-adding the same object is harmless.
  void addModule(ModulePtr const &module);
  void addModule(IModuleImp *module); // takes ownership
  ModulePtr moduleByGuid(String const &guid) const;
  Array<ModulePtr> getModules() const;
  unsigned int moduleCount() const;
  bool removeModule(String const &guid);

  /// Adds, or replaces the test of the same GUID in its place.
  void addTest(TestPtr const &test);
  void addTest(TestImp *test); // takes ownership
  TestPtr testByGuid(String const &guid) const;
  TestPtr testByKeyAndModule(String const &key, String const &moduleGuid) const;
  /// Tests and benchmarks.
  Array<TestPtr> getTests() const;
  Array<TestPtr> getTestsByKeyInModule(String const &key) const;
  unsigned int testCount() const;
  bool removeTest(String const &guid);

  // --- associations (by GUID; added once, order of first association kept) ------
  void associate(IModuleImp const &module, TestImp const &test);
  void associate(ModulePtr const &module, TestPtr const &test);
  void associate(IModuleImp const &module, IDeviceImp const &device);
  void associate(ModulePtr const &module, DevicePtr const &device);
  void associate(TestImp const &test, IDeviceImp const &device);
  void associate(TestPtr const &test, DevicePtr const &device);
  void associateModuleTest(String const &moduleGuid, String const &testGuid);
  void associateModuleDevice(String const &moduleGuid, String const &deviceGuid);
  void associateTestDevice(String const &testGuid, String const &deviceGuid);

  Array<ModulePtr> getModulesByDevice(IDeviceImp const &device) const;
  Array<TestPtr> getTestsByDevice(IDeviceImp const &device) const;
  Array<DevicePtr> getDevicesByModule(IModuleImp const &module) const;
  Array<DevicePtr> getDevicesByTest(TestImp const &test) const;
  Array<TestPtr> getTestsByModule(IModuleImp const &module) const;
  ModulePtr firstModuleByTest(TestImp const &test) const;
  Array<ModulePtr> getModulesByDevice(boost::shared_ptr<IDeviceImp const> const &device) const;
  Array<TestPtr> getTestsByDevice(boost::shared_ptr<IDeviceImp const> const &device) const;
  Array<DevicePtr> getDevicesByModule(boost::shared_ptr<IModuleImp const> const &module) const;
  Array<DevicePtr> getDevicesByTest(boost::shared_ptr<TestImp const> const &test) const;
  Array<TestPtr> getTestsByModule(boost::shared_ptr<IModuleImp const> const &module) const;
  ModulePtr firstModuleByTest(boost::shared_ptr<TestImp const> const &test) const;

  // --- alerts ----------------------------------------------------------------
  /// Adds, or replaces the alert of the same GUID in its place. `device`,
  /// when given, is the device it concerns (looked up in the mirror by GUID).
  void addAlert(AlertPtr const &alert, IDeviceImp const *device = nullptr);
  void addAlert(IAlertImp const &alert, IDeviceImp const *device = nullptr);
  void addAlert(IAlertImp *alert, IDeviceImp const *device); // takes ownership
  AlertPtr alertByGuid(String const &guid) const;
  Array<AlertPtr> getAlerts() const;
  unsigned int alertCount() const;
  bool removeAlert(String const &guid);

  // --- indicators ----------------------------------------------------------------
  void addIndicator(IndicatorPtr const &indicator);
  void addIndicator(IndicatorImp const &indicator);
  IndicatorPtr indicatorByGuid(String const &guid) const;
  Array<IndicatorPtr> getIndicators() const;
  bool removeIndicator(String const &guid);
  void addIndicatorRun(IndicatorRunPtr const &run);
  void addIndicatorRun(IndicatorRunImp const &run);
  IndicatorRunPtr indicatorRunByGuid(String const &guid) const;
  Array<IndicatorRunPtr> getIndicatorRuns() const;
  bool removeIndicatorRun(String const &guid);

  // --- merging ------------------------------------------------------------------
  void previewMergeWithTracking(StateManager const &incoming,
                                StateChanges::PreviewChanges &out) const;
  /// `out` may be null.
  void mergeWithTracking(StateManager const &incoming, StateChanges::MergeChanges *out);

  // --- cache file ---------------------------------------------------------------
  bool saveCache(String const &path) const;
  bool loadCache(String const &path);

  /// Everything a reader can see is equal (devices by content and tree,
  /// modules, tests, associations, alerts, indicators, runs, all in order).
  bool sameContent(StateManager const &other) const;
  /// A readable dump of the whole mirror (for logs and tests).
  String toString(unsigned int deviceMask = 0xf20) const;

private:
  friend struct StateManagerAccess;
  struct Data;
  explicit StateManager(Data *data);

  mutable rwlock m_lock;
  Data *m_data;
};

} // namespace zel
