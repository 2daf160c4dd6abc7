#pragma once
// ostrel5::PropertyCategory: a set of property categories.
//
// Every device property declares what it is for as a set of rows of a
// catalogue of 29 categories (zel/CatalogueRows.h): ALL "All",
// INVALID "Invalid", SysInfo, FRU, Key, CompositeKey, ParentKey,
// RequiredForEnumeration, RequiredForTests, Internal, ChildBusId,
// ArchitectureVersion, Summary, Profile, ID, Tier1, Tier2, Tier3, Group,
// Volatile, Inventory, LinkInFromDevice, SecurityInfo,
// PerformanceMeasurement, ErrorDevId, Model, Serial, Firmware, Manufacturer.
// Each static accessor yields the set with that one row; | and |= form
// unions.
//
// Ownership. The object owns a private heap zel::PropertyCategoryImp
// (m_propertyCategoryImp): a copy duplicates it, the destructor deletes it.
// A failed allocation leaves the pointer null; the operations documented as
// asserting then report "m_propertyCategoryImp" (or
// "rhs.m_propertyCategoryImp") through zel::AssertionFailure and throw
// zel::StructuredException with code 7.
//
// Set rules and text form are those of DeviceCapability (see
// DeviceCapability.h) on this catalogue: a.isCapable(b) when a holds every
// member of b (ALL in b asks for nothing, a holding ALL meets everything,
// INVALID or the sentinel in b is never met); the text is row strings
// joined by "|" ("Key|Group"), read case-blind with "|" or "," between
// names and blanks ignored; no name gives the empty set, an unknown name
// gives exactly INVALID() and is logged at priority 3 on the logger
// "zel.PropertyCategoryImp".
//
// Look-ups give the sentinel, row 29 with the empty string, on failure.
//
// Thread-safety: a value; one object needs external locking for mutation.

#include "ostrel/ApiWrapper.h"
#include "zel/CatalogueRows.h"
#include "zel/PropertyCategoryImp.h"
#include "zel/String.h"

namespace ostrel5 {

class PropertyCategory : public SharedAll::ApiWrapper {
public:
  /// The row numbers: PropertyCategory_ENUM::Group, ...; SENTINEL_ROW is 29.
  typedef zel::PropertyCategoryImp::Row PropertyCategory_ENUM;

  /// The set with that row (29 or more: the sentinel).
  PropertyCategory(PropertyCategory_ENUM row);
  /// zel::PropertyCategoryImp::createFromString(text): the text form.
  explicit PropertyCategory(char const *text);
  /// The same for a zel::String.
  explicit PropertyCategory(zel::String const &text);
  /// A copy of the implementation object.
  PropertyCategory(zel::PropertyCategoryImp const &imp);
  PropertyCategory(PropertyCategory const &other);
  ~PropertyCategory() override;

  /// Asserts "m_propertyCategoryImp" and "rhs.m_propertyCategoryImp", then
  /// assigns into the existing object.
  PropertyCategory &operator=(PropertyCategory const &rhs);
  /// Asserts both; a new object with the union. Neither operand changes.
  PropertyCategory operator|(PropertyCategory const &rhs) const;
  /// Asserts both; stores the union in this object only.
  PropertyCategory &operator|=(PropertyCategory const &rhs);
  /// Assert both; equality as sets.
  bool operator==(PropertyCategory const &rhs) const;
  bool operator!=(PropertyCategory const &rhs) const;
  /// Asserts both; whether this set meets `rhs`.
  bool isCapable(PropertyCategory const &rhs) const;

  /// Asserts "m_propertyCategoryImp"; the text form.
  zel::String toString() const;
  /// The same as toString().
  zel::String stringValue() const;
  /// Asserts "m_propertyCategoryImp"; the row of a one-member set, else
  /// SENTINEL_ROW.
  PropertyCategory_ENUM enumValue() const;
  /// Asserts "m_propertyCategoryImp"; the owned object.
  zel::PropertyCategoryImp const &imp() const;

  /// 29.
  static unsigned int constantCount();
  /// Row `index`; 29 or more gives the sentinel.
  static PropertyCategory getConstantByIndex(unsigned int index);
  /// First row from 0 whose string matches; the sentinel if none.
  static PropertyCategory getConstantByString(char const *text, bool caseSensitive);
  static PropertyCategory getConstantByString(zel::String const &text, bool caseSensitive);

  /// One accessor per row: ALL(), INVALID(), SysInfo(), ... Manufacturer().
#define OSTREL5_PC_ACCESSOR_ROW(name) static PropertyCategory name();
#define OSTREL5_PC_ACCESSOR_NAMED(name, text) static PropertyCategory name();
  ZEL_PROPERTY_CATEGORY_ROWS(OSTREL5_PC_ACCESSOR_ROW, OSTREL5_PC_ACCESSOR_NAMED)
#undef OSTREL5_PC_ACCESSOR_ROW
#undef OSTREL5_PC_ACCESSOR_NAMED

private:
  zel::PropertyCategoryImp *m_propertyCategoryImp;
};

} // namespace ostrel5
