#pragma once
// zel::IDeviceImp: one device of the machine as the mirror (zel::StateManager)
// holds it: identity and description, the device type and capability sets, a
// state, the parent's GUID, the children, and the properties by key.
//
// Identity and description (GUID, name, description, locators, type,
// capabilities, parent GUID) are set while the device is built and are fixed
// once it is in a zel::StateManager: the getters hand out references to them.
// A device whose identity changes is removed and added again by the engine.
// What changes in place is the state, the property table (a property is
// replaced by a new object, never altered) and the list of children.
//
// Properties: one table by key, in the order they were first set; a child
// property is stored under its own key like any other (see PropertyImp).
// Setting a key that is present replaces the property in its place.
//
// Thread-safety: the changing parts are guarded by a reader-writer lock of
// the device, so handles may read a device on any thread while the mirror
// merges into it. Arrays are returned as copies (snapshots).
//
// Copying copies identity, state and the property table (sharing the
// immutable PropertyImp objects) but not the children: the tree belongs to
// the mirror that links the device. Copies share the table itself until one
// of them changes it, so a copy costs the same whatever the property count.

#include <boost/intrusive_ptr.hpp>
#include <boost/shared_ptr.hpp>

#include <utility>

#include <unordered_map>
#include <vector>

#include "zel/Array.h"
#include "zel/CapabilityImp.h"
#include "zel/DeviceStateImp.h"
#include "zel/Mutex.h"
#include "zel/PropertyCategoryImp.h"
#include "zel/PropertyImp.h"
#include "zel/String.h"

namespace zel {

struct EncodingAccess;

namespace detail {
struct PropertyTable;
void intrusive_ptr_add_ref(PropertyTable const *table) noexcept;
void intrusive_ptr_release(PropertyTable const *table) noexcept;
} // namespace detail

class IDeviceImp {
public:
  /// Bits of the mask of toString. The device line shows the name; each bit
  /// adds a field or a section.
  enum ToStringMask : unsigned int {
    SHOW_GUID = 0x000001,
    SHOW_DESCRIPTION = 0x000002,
    SHOW_OS_LOCATOR = 0x000004,
    SHOW_HW_LOCATOR = 0x000008,
    SHOW_DEVICE_TYPE = 0x000010,
    SHOW_NAME = 0x000020,
    SHOW_CAPABILITIES = 0x000040,
    SHOW_STATE = 0x000080,
    SHOW_PROPERTIES = 0x000100, // top properties, one line each
    SHOW_PROPERTY_TYPE = 0x000200,
    SHOW_PROPERTY_CATEGORY = 0x000400,
    SHOW_CHILD_PROPERTIES = 0x000800, // child properties nested under their parent
    SHOW_PROPERTY_NAME = 0x001000,
    SHOW_PROPERTY_DESCRIPTION = 0x002000,
    SHOW_PROPERTY_MODULE = 0x004000,
    SHOW_PROPERTY_LATER = 0x008000, // mark values that will be discovered later
    SHOW_PARENT = 0x010000,
    SHOW_CHILDREN = 0x020000, // child devices, recursively, one indent step deeper
    SHOW_INTERNAL = 0x040000, // include properties of the Internal category
  };

  IDeviceImp() = default;
  IDeviceImp(String const &guid, String const &name, CapabilityImp const &deviceType,
             String const &parentGuid = String())
      : m_guid(guid), m_name(name), m_deviceType(deviceType), m_capabilities(deviceType),
        m_parentGuid(parentGuid) {}
  /// Identity, state and properties; no children.
  IDeviceImp(IDeviceImp const &other);
  IDeviceImp &operator=(IDeviceImp const &other);
  virtual ~IDeviceImp() = default;

  // --- identity (fixed once in a mirror) -------------------------------------
  String const &guid() const noexcept { return m_guid; }
  String const &name() const noexcept { return m_name; }
  String description() const { return m_description; }
  String const &osLocator() const noexcept { return m_osLocator; }
  String const &hwLocator() const noexcept { return m_hwLocator; }
  CapabilityImp const &deviceType() const noexcept { return m_deviceType; }
  CapabilityImp const &capabilities() const noexcept { return m_capabilities; }
  /// "" for the root and for a device whose parent is not known.
  String const &parentGuid() const noexcept { return m_parentGuid; }

  IDeviceImp &setGuid(String const &v) {
    m_guid = v;
    return *this;
  }
  IDeviceImp &setName(String const &v) {
    m_name = v;
    return *this;
  }
  IDeviceImp &setDescription(String const &v) {
    m_description = v;
    return *this;
  }
  IDeviceImp &setOsLocator(String const &v) {
    m_osLocator = v;
    return *this;
  }
  IDeviceImp &setHwLocator(String const &v) {
    m_hwLocator = v;
    return *this;
  }
  IDeviceImp &setDeviceType(CapabilityImp const &v) {
    m_deviceType = v;
    return *this;
  }
  IDeviceImp &setCapabilities(CapabilityImp const &v) {
    m_capabilities = v;
    return *this;
  }
  IDeviceImp &setParentGuid(String const &v) {
    m_parentGuid = v;
    return *this;
  }
  /// Same GUID, name, description, locators, type, capabilities and parent.
  bool sameIdentity(IDeviceImp const &other) const;

  // --- state -----------------------------------------------------------------
  DeviceStateImp deviceState() const;
  IDeviceImp &setDeviceState(DeviceStateImp state);

  // --- properties ---------------------------------------------------------------
  /// The property under `key`, or an empty pointer.
  boost::shared_ptr<PropertyImp> property(String const &key) const;
  bool hasProperty(String const &key) const;
  /// Adds, or replaces the property of the same key in its place. Null is ignored.
  IDeviceImp &setProperty(boost::shared_ptr<PropertyImp> const &property);
  /// Adds a copy of `property` (or replaces, as setProperty).
  IDeviceImp &addProperty(PropertyImp const &property);
  /// Adds `property` only when its key is absent; false otherwise (or null).
  bool insertProperty(boost::shared_ptr<PropertyImp> const &property);
  /// Removes every property.
  void clearProperties();
  /// Removes the property under `key`; false when there is none. Its child
  /// properties stay (they become top properties unless another names them).
  bool removeProperty(String const &key);
  /// Every property, top and child, in table order.
  Array<boost::shared_ptr<PropertyImp>> properties() const;
  unsigned int propertyCount() const;
  /// The properties no other property of this device names as a child.
  Array<boost::shared_ptr<PropertyImp>> topProperties() const;
  unsigned int topPropertyCount() const;
  /// The properties whose category set meets `category`
  /// (PropertyCategoryImp::isCapable; ALL gives every property).
  Array<boost::shared_ptr<PropertyImp>> getProperties(PropertyCategoryImp const &category) const;

  using PropertyPair = std::pair<boost::shared_ptr<PropertyImp>, boost::shared_ptr<PropertyImp>>;
  /// Takes in another state of this device (what zel::StateManager's merge
  /// does with a device it has): every property of `incoming` is set here,
  /// as setProperty does, unless this device holds an equal one (by
  /// PropertyImp ==), which then stays; properties `incoming` lacks stay.
  /// The properties under keys this device lacked are appended to `added`,
  /// when given, in `incoming`'s order. One step under the lock.
  void mergeProperties(IDeviceImp const &incoming, Array<boost::shared_ptr<PropertyImp>> *added);
  /// Appends to `out` (mine, incoming) for every property of `incoming`
  /// whose key this device holds with a different value (ValueImp !=), in
  /// `incoming`'s order; one and the same object is never listed.
  void differingValues(IDeviceImp const &incoming, Array<PropertyPair> &out) const;

  // --- children (linked by the mirror) -------------------------------------------
  Array<boost::shared_ptr<IDeviceImp>> children() const;
  unsigned int childCount() const;
  /// The first child, or an empty pointer.
  boost::shared_ptr<IDeviceImp> firstChild() const;
  /// Appends `child` unless a child of that GUID is there; true when appended.
  bool addChild(boost::shared_ptr<IDeviceImp> const &child);
  /// Unlinks the child of that GUID; false when there is none.
  bool removeChild(String const &guid);
  void clearChildren();

  /// A readable dump: `indent` is the number of two-blank steps, `mask` the
  /// ToStringMask bits. The masks the client passes: 0xfdff7f, 0xf20,
  /// 0xffffff, 0x20fa0, 0xffff7f, 0x20f20.
  String toString(unsigned int indent, unsigned int mask) const;

  /// Identity, state and properties (by value) equal; children not compared.
  bool sameContent(IDeviceImp const &other) const;

private:
  friend struct EncodingAccess;
  using Table = boost::intrusive_ptr<detail::PropertyTable>;

  /// The table, made this device's own (see PropertyTable); under the write lock.
  detail::PropertyTable &ownTableLocked();
  /// A reference to the current table, taken under the read lock: a shared
  /// table is never changed, so it can be read without the lock after that.
  Table tableSnapshot() const;

  String m_guid;
  String m_name;
  String m_description;
  String m_osLocator;
  String m_hwLocator;
  CapabilityImp m_deviceType;
  CapabilityImp m_capabilities;
  String m_parentGuid;

  mutable rwlock m_lock; // guards everything below
  DeviceStateImp m_state = DeviceStateImp::FUNCTIONAL;
  Table m_table; // null when there is no property
  std::vector<boost::shared_ptr<IDeviceImp>> m_children;
  // The children's GUID hashes, in step with m_children: the duplicate check
  // of addChild compares these before any GUID.
  std::vector<std::size_t> m_childHashes;
};

} // namespace zel
