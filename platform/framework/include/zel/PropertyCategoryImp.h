#pragma once
// zel::PropertyCategoryImp: a set of property categories.
//
// A device property says what it is for as a set of rows of the property
// category catalogue (zel/CatalogueRows.h, 29 rows numbered from 0): ALL
// "All", INVALID "Invalid", SysInfo, FRU, Key, ... Manufacturer. The set is a
// zel::RowSet of 30 bits (the rows and the sentinel row 29, which a failed
// look-up gives), one machine word; ostrel5::PropertyCategory owns one on the
// heap.
//
// The set rules and the text form are those of zel::CapabilityImp (see
// CapabilityImp.h), on this catalogue:
//   - union, shared-member test and equality are plain set operations;
//   - a.isCapable(b): b holding INVALID or the sentinel is never met; ALL in
//     b asks for nothing; a holding ALL meets everything else; otherwise a
//     must hold every member of b. (A category filter of INVALID, which
//     means "no filtering" in a category file, is the caller's to test
//     before asking.)
//   - text: row strings joined by "|" in row order ("Key|Group"); reading
//     accepts "|" or "," between names, blanks around them, empty names,
//     repeats, and any ASCII case; no name gives the empty set; any unknown
//     name gives exactly INVALID() and is logged at priority 3 on the logger
//     "zel.PropertyCategoryImp".
//
// Thread-compatible; the static catalogue functions are safe from any thread.

#include <cstddef>

#include "zel/CatalogueRows.h"
#include "zel/RowSet.h"
#include "zel/String.h"

namespace zel {

class PropertyCategoryImp {
public:
  static constexpr unsigned ROW_COUNT = 29;
  static constexpr unsigned SENTINEL = ROW_COUNT;

  enum class Row : unsigned {
#define ZEL_PC_ENUM_ROW(name) name,
#define ZEL_PC_ENUM_NAMED(name, text) name,
    ZEL_PROPERTY_CATEGORY_ROWS(ZEL_PC_ENUM_ROW, ZEL_PC_ENUM_NAMED)
#undef ZEL_PC_ENUM_ROW
#undef ZEL_PC_ENUM_NAMED
        SENTINEL_ROW
  };
  static_assert(static_cast<unsigned>(Row::SENTINEL_ROW) == ROW_COUNT,
                "the catalogue must have 29 rows");

  using Bits = RowSet<ROW_COUNT + 1>;

  /// The empty set.
  PropertyCategoryImp() noexcept = default;
  /// The set with the one row; 29 or more gives the sentinel.
  explicit PropertyCategoryImp(unsigned row) noexcept
      : m_bits(Bits::single(row < ROW_COUNT ? row : SENTINEL)) {}
  explicit PropertyCategoryImp(Row row) noexcept
      : PropertyCategoryImp(static_cast<unsigned>(row)) {}
  explicit PropertyCategoryImp(Bits const &bits) noexcept : m_bits(bits) {}

  /// Reads the text form; a null text gives the empty set.
  static PropertyCategoryImp createFromString(char const *text);
  static PropertyCategoryImp createFromString(String const &text);
  /// As createFromString; `unknownName` (when given) receives the first
  /// unknown name, or is cleared.
  static PropertyCategoryImp fromString(char const *text, std::size_t length,
                                        String *unknownName = nullptr);

  static PropertyCategoryImp ALL() noexcept { return PropertyCategoryImp(Row::ALL); }
  static PropertyCategoryImp INVALID() noexcept { return PropertyCategoryImp(Row::INVALID); }

  bool isCapable(PropertyCategoryImp const &required) const noexcept {
    return m_bits.isCapableOf(required.m_bits, static_cast<unsigned>(Row::ALL), neverMet());
  }
  bool intersect(PropertyCategoryImp const &other) const noexcept {
    return m_bits.intersects(other.m_bits);
  }
  bool contains(unsigned row) const noexcept { return m_bits.contains(row); }
  bool contains(Row row) const noexcept { return m_bits.contains(static_cast<unsigned>(row)); }
  bool isEmpty() const noexcept { return m_bits.isEmpty(); }
  unsigned count() const noexcept { return m_bits.count(); }
  Bits const &bits() const noexcept { return m_bits; }

  PropertyCategoryImp &operator|=(PropertyCategoryImp const &rhs) noexcept {
    m_bits |= rhs.m_bits;
    return *this;
  }
  friend PropertyCategoryImp operator|(PropertyCategoryImp lhs,
                                       PropertyCategoryImp const &rhs) noexcept {
    return lhs |= rhs;
  }
  friend bool operator==(PropertyCategoryImp const &a, PropertyCategoryImp const &b) noexcept {
    return a.m_bits == b.m_bits;
  }
  friend bool operator!=(PropertyCategoryImp const &a, PropertyCategoryImp const &b) noexcept {
    return !(a == b);
  }

  /// toString(0, false) is the text form; `indent` puts two blanks per step
  /// before it. `verbose` changes nothing here.
  String toString(unsigned indent = 0, bool verbose = false) const;

  /// The row's string; "" for the sentinel and past it.
  static char const *rowString(unsigned row) noexcept;
  static char const *rowAccessorName(unsigned row) noexcept;
  /// As zel::CapabilityImp::rowByString, on this catalogue.
  static unsigned rowByString(char const *text, bool caseSensitive) noexcept;

private:
  static constexpr Bits neverMet() noexcept {
    Bits b = Bits::single(static_cast<unsigned>(Row::INVALID));
    b.insert(SENTINEL);
    return b;
  }

  Bits m_bits;
};

} // namespace zel
