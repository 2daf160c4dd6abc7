#pragma once
// ostrel5::DeviceCapability: a set of device capabilities.
//
// Every device declares what it is (Device::deviceType) and what it can do
// (Device::capabilities) as a set of rows of one catalogue of 298
// capabilities, listed with their strings and levels in zel/CatalogueRows.h.
// A DeviceCapability is such a set. Each static accessor (PCI(), Optical(),
// ALL(), ...) yields the set with just that row; operator| forms unions:
//
//   DeviceCapability storage = DeviceCapability::SSD() | DeviceCapability::NVME();
//   if (device.capabilities().isCapable(DeviceCapability::Optical())) ...
//
// Ownership. The object owns a private heap zel::CapabilityImp (m_imp): every
// constructor allocates one, a copy duplicates it (no sharing, no reference
// count) and the destructor deletes it. Nothing is cached, so an accessor
// costs one small allocation. The only way to a null m_imp is a failed
// allocation; an operation documented as asserting then reports the
// expression ("m_imp", "rhs.m_imp") through zel::AssertionFailure and throws
// zel::StructuredException with code 7.
//
// Set rules (zel::CapabilityImp):
//   - a.isCapable(b): a holds every member of b. ALL in b asks for nothing;
//     a set holding ALL meets everything; INVALID or the sentinel in b is
//     never met. The empty set is met by every set.
//   - a.intersect(b): the two share a member.
//   - ==, !=: equality as sets.
//
// Text form, read by DeviceCapability(zel::String const &) and written by
// toString():
//   Row strings joined by "|" in row order, without blanks ("PCI|USB|SSD").
//   On reading, "|" or "," separates names, blanks around names are ignored,
//   empty names and repeats are skipped, and names match a row's string
//   without regard to ASCII case ("all" is row 1 "All"; the strings, not the
//   accessor names, count: "3DNOW" is AMD3DNOW, "AMD3DNOW" is unknown). Text
//   without any name gives the empty set. Text with an unknown name, "*"
//   included, gives exactly INVALID(), and the name is logged at priority 3
//   on the logger "zel.CapabilityImp". Every set reads back from its
//   toString() equal to itself, except the sentinel, whose string is empty.
//
// Catalogue look-ups (getConstantByIndex, getConstantByString) behave as for
// every constant class: the first row from row 0 whose string matches,
// byte-exact or ASCII case-blind; the sentinel, row 298 with the empty
// string, when nothing matches. No exception, no log line.
//
// Thread-safety: a DeviceCapability is a value; distinct objects may be used
// on distinct threads, one object needs external locking for mutation. The
// static functions are safe from any thread.

#include "ostrel/ApiWrapper.h"
#include "zel/CapabilityImp.h"
#include "zel/CatalogueRows.h"
#include "zel/String.h"

namespace ostrel5 {

class DeviceCapability : public SharedAll::ApiWrapper {
public:
  /// The row numbers: DeviceCapability_ENUM::Optical, ...; SENTINEL_ROW is 298.
  typedef zel::CapabilityImp::Row DeviceCapability_ENUM;

  /// The set with that row (298 or more: the sentinel).
  DeviceCapability(DeviceCapability_ENUM row);
  /// A copy of the implementation object.
  DeviceCapability(zel::CapabilityImp const &imp);
  DeviceCapability(DeviceCapability const &other);
  /// Reads the text form (see above): how a set written in a script or a
  /// category file comes in.
  explicit DeviceCapability(zel::String const &text);
  ~DeviceCapability() override;

  /// Asserts "m_imp" and "rhs.m_imp", then assigns into the existing object.
  DeviceCapability &operator=(DeviceCapability const &rhs);

  /// Asserts both; a new object with the union. Neither operand changes.
  DeviceCapability operator|(DeviceCapability const &rhs) const;
  /// Assert both; equality as sets.
  bool operator==(DeviceCapability const &rhs) const;
  bool operator!=(DeviceCapability const &rhs) const;

  /// Asserts both; whether this set meets `rhs` (set rules above). The set
  /// tested is the left one: device.capabilities().isCapable(required).
  bool isCapable(DeviceCapability const &rhs) const;
  /// Whether the two sets share a member. No assertion.
  bool intersect(DeviceCapability const &rhs) const;

  /// Asserts "m_imp"; the icon name of the set's most specific member whose
  /// icon exists below the icon folder (zel::CapabilityImp::iconName), or
  /// UnknownIcon().
  zel::String iconName() const;
  /// "Unknown", allocated at first use and kept to the end of the process;
  /// the same reference on every call.
  static zel::String const &UnknownIcon();
  /// Sets the folder below which icon files are looked for.
  static void setIconResourceBasePath(zel::String const &folder);

  /// Asserts "m_imp"; the greatest level among the members (-1 when empty).
  int priorityLevel() const;
  /// Asserts "m_imp"; the members' display texts in the global locale.
  zel::String localizedDescription() const;
  /// Asserts "m_imp"; the text form.
  zel::String toString() const;
  /// The same as toString().
  zel::String stringValue() const;
  /// Asserts "m_imp"; the row of a one-member set, else SENTINEL_ROW.
  DeviceCapability_ENUM enumValue() const;

  /// Asserts "m_imp"; the number of rows in the set.
  unsigned int primitiveCapabilityCount() const;
  /// Asserts "m_imp"; the n-th member in row order as a new object (the
  /// sentinel past the end).
  DeviceCapability getPrimitiveCapability(unsigned int n) const;
  /// 298.
  static unsigned int allPrimitiveCapabilitiesCount();
  /// Row n of the catalogue (the sentinel from 298 on).
  static DeviceCapability getFromAllPrimitiveCapabilities(unsigned int n);
  /// Asserts "m_imp"; the members at the greatest level.
  DeviceCapability getHighestPriorityCapabilities() const;

  /// Asserts "m_imp"; the owned object, for callers inside the system.
  zel::CapabilityImp *getImp() const;

  /// 298.
  static unsigned int constantCount();
  /// Row `index`; 298 or more gives the sentinel.
  static DeviceCapability getConstantByIndex(unsigned int index);
  /// First row from 0 whose string matches; the sentinel if none (null text too).
  static DeviceCapability getConstantByString(char const *text, bool caseSensitive);
  /// The same on the text's narrow form (getLowerByteString).
  static DeviceCapability getConstantByString(zel::String const &text, bool caseSensitive);

  /// One accessor per row, named as the row: NIL(), ALL(), INVALID(), ...,
  /// Emulated(). Each returns a new one-row set.
#define OSTREL5_CAP_ACCESSOR_ROW(name, level) static DeviceCapability name();
#define OSTREL5_CAP_ACCESSOR_NAMED(name, text, level) static DeviceCapability name();
  ZEL_CAPABILITY_ROWS(OSTREL5_CAP_ACCESSOR_ROW, OSTREL5_CAP_ACCESSOR_NAMED)
#undef OSTREL5_CAP_ACCESSOR_ROW
#undef OSTREL5_CAP_ACCESSOR_NAMED

protected:
  /// Hands only `text` to the zel::CapabilityImp string constructor; the
  /// other arguments are accepted and dropped, so that a subclass's call
  /// stays valid.
  DeviceCapability(zel::String const &text, zel::String const &unused1, int unused2,
                   zel::String const &unused3);

private:
  zel::CapabilityImp *m_imp;
};

} // namespace ostrel5
