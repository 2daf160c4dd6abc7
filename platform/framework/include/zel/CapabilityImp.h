#pragma once
// zel::CapabilityImp: a set of device capabilities.
//
// A device says what it is and what it can do as a set of rows of the
// capability catalogue (zel/CatalogueRows.h, 298 rows numbered from 0). A
// CapabilityImp is such a set: a zel::RowSet of 299 bits, the 298 rows plus
// the sentinel row 298, which is what a failed look-up gives. It is a small
// plain value (40 bytes), copied by value; ostrel5::DeviceCapability owns one
// on the heap.
//
// Set rules:
//   - union (|), intersection test (intersect: the two share a member) and
//     equality are plain set operations; two sets built from the same rows
//     are equal whatever way they were built.
//   - a.isCapable(b) is true when a holds everything of b, with three
//     refinements that give scripts and category files their meaning:
//       * b holding INVALID or the sentinel is never met, not even by a set
//         that holds them: text naming an unknown capability selects nothing;
//       * ALL in b asks for nothing (x.isCapable(ALL()) is true for every x,
//         so "all devices" is a request like any other);
//       * a holding ALL is capable of everything else (a test that supports
//         ALL supports every device).
//     The empty set asks for nothing: every set is capable of it, which is
//     why an empty capability attribute places no condition.
//
// Text form (the string constructor reads it, toString(0, false) writes it):
//   - row strings joined by "|", in row order, without blanks: "PCI|USB|SSD".
//     The text never contains a blank, so it can travel as one word of a
//     command line.
//   - Reading: "|" and "," both separate names; blanks (space, tab, CR, LF,
//     VT, FF) around a name are ignored; empty names (",,", a leading or
//     trailing separator) are skipped; a name given twice counts once.
//   - A name is a row's string, matched without regard to ASCII case ("all",
//     "ALL" and "All" all give row 1). Accessor names that differ from their
//     string (ALL, AMD3DNOW, AMD3DNOWEXT) are matched through their strings
//     "All", "3DNOW" and "3DNOWEXT"; "AMD3DNOW" is not a name.
//   - A text with no name (empty, blanks, separators only) gives the empty set.
//   - A text with any unknown name ("*" included) gives exactly INVALID(), and
//     the first unknown name is logged at priority 3 on the logger
//     "zel.CapabilityImp". A misspelt name thus selects nothing rather than
//     silently widening a match.
//   - The sentinel row has the empty string and writes nothing; every other
//     set reads back equal to itself.
//
// Levels: each row has a signed level (see CatalogueRows.h). priorityLevel
// of a set is the greatest level among its members (-1 for the empty set);
// capsWithHighestPriority is the members at that level.
//
// Thread-safety: a CapabilityImp is thread-compatible; the static catalogue
// functions are safe from any thread. setIconResourceBasePath and iconName
// share one process-wide folder under a lock.

#include <cstddef>

#include "zel/CatalogueRows.h"
#include "zel/RowSet.h"
#include "zel/String.h"

namespace zel {

class ZELLocale;

class CapabilityImp {
public:
  /// Number of rows of the catalogue; also the sentinel's row number.
  static constexpr unsigned ROW_COUNT = 298;
  static constexpr unsigned SENTINEL = ROW_COUNT;

  /// The row numbers, named as the public accessors are.
  enum class Row : unsigned {
#define ZEL_CAP_ENUM_ROW(name, level) name,
#define ZEL_CAP_ENUM_NAMED(name, text, level) name,
    ZEL_CAPABILITY_ROWS(ZEL_CAP_ENUM_ROW, ZEL_CAP_ENUM_NAMED)
#undef ZEL_CAP_ENUM_ROW
#undef ZEL_CAP_ENUM_NAMED
        SENTINEL_ROW
  };
  static_assert(static_cast<unsigned>(Row::SENTINEL_ROW) == ROW_COUNT,
                "the catalogue must have 298 rows");

  using Bits = RowSet<ROW_COUNT + 1>;

  /// The empty set.
  CapabilityImp() noexcept = default;
  /// The set with the one row; any number at or past 298 gives the sentinel.
  explicit CapabilityImp(unsigned row) noexcept
      : m_bits(Bits::single(row < ROW_COUNT ? row : SENTINEL)) {}
  explicit CapabilityImp(Row row) noexcept : CapabilityImp(static_cast<unsigned>(row)) {}
  /// Reads the text form (see above).
  explicit CapabilityImp(String const &text);
  explicit CapabilityImp(char const *text);
  explicit CapabilityImp(Bits const &bits) noexcept : m_bits(bits) {}

  /// Reads the text form. `unknownName`, when given, receives the first
  /// unknown name (and is cleared when there is none). Logs as the
  /// constructor does.
  static CapabilityImp fromString(char const *text, std::size_t length,
                                  String *unknownName = nullptr);

  static CapabilityImp ALL() noexcept { return CapabilityImp(Row::ALL); }
  static CapabilityImp INVALID() noexcept { return CapabilityImp(Row::INVALID); }

  // --- set algebra -------------------------------------------------------

  /// Whether this set meets `required` (see Set rules above).
  bool isCapable(CapabilityImp const &required) const noexcept {
    return m_bits.isCapableOf(required.m_bits, static_cast<unsigned>(Row::ALL), neverMet());
  }
  /// Whether the two sets share a member.
  bool intersect(CapabilityImp const &other) const noexcept {
    return m_bits.intersects(other.m_bits);
  }
  bool contains(unsigned row) const noexcept { return m_bits.contains(row); }
  bool contains(Row row) const noexcept { return m_bits.contains(static_cast<unsigned>(row)); }
  bool isEmpty() const noexcept { return m_bits.isEmpty(); }

  CapabilityImp &operator|=(CapabilityImp const &rhs) noexcept {
    m_bits |= rhs.m_bits;
    return *this;
  }
  friend CapabilityImp operator|(CapabilityImp lhs, CapabilityImp const &rhs) noexcept {
    return lhs |= rhs;
  }
  /// The members that both sets hold.
  friend CapabilityImp operator&(CapabilityImp lhs, CapabilityImp const &rhs) noexcept {
    lhs.m_bits &= rhs.m_bits;
    return lhs;
  }
  friend bool operator==(CapabilityImp const &a, CapabilityImp const &b) noexcept {
    return a.m_bits == b.m_bits;
  }
  friend bool operator!=(CapabilityImp const &a, CapabilityImp const &b) noexcept {
    return !(a == b);
  }

  Bits const &bits() const noexcept { return m_bits; }

  // --- members -----------------------------------------------------------

  /// Number of rows in the set (the sentinel counts as one).
  unsigned primitiveCapabilityCount() const noexcept { return m_bits.count(); }
  /// The n-th member in row order as a one-row set; the sentinel when n is
  /// at or past the count.
  CapabilityImp getPrimitiveCapability(unsigned n) const noexcept {
    return CapabilityImp(m_bits.nth(n));
  }
  /// The row of the n-th member, or SENTINEL past the end. For a set that
  /// holds the sentinel, its last member is SENTINEL too.
  unsigned primitiveRow(unsigned n) const noexcept {
    unsigned r = m_bits.nth(n);
    return r < ROW_COUNT ? r : SENTINEL;
  }
  static unsigned allPrimitiveCapabilitiesCount() noexcept { return ROW_COUNT; }
  /// Row n of the catalogue; the sentinel from 298 on.
  static CapabilityImp getFromAllPrimitiveCapabilities(unsigned n) noexcept {
    return CapabilityImp(n);
  }

  // --- levels, icons, descriptions ------------------------------------------

  /// The greatest level among the members; -1 for the empty set.
  int priorityLevel() const noexcept;
  /// The members whose level is priorityLevel(); empty for the empty set.
  CapabilityImp capsWithHighestPriority() const noexcept;

  /// The name of the icon that stands for this set. Members are tried by
  /// falling level, then by row; the first whose icon file
  /// (<folder>/<row string> with ".png", ".svg" or ".ico") exists gives its
  /// row string. With no folder set, the first member in that order gives its
  /// string unchecked. With no member (or no file found), unknownIconName().
  String iconName() const;
  /// "Unknown": the icon name of a set that has no icon of its own.
  static char const *unknownIconName() noexcept { return "Unknown"; }
  /// Sets the folder below which icon files are looked for ("" for none).
  static void setIconResourceBasePath(String const &folder);
  static String iconResourceBasePath();

  /// The members' display texts in the global locale, joined by ", " in row
  /// order; "" for the empty set. See description(locale).
  String description() const;
  /// The same in `locale`. A member's text is the string resource
  /// "capabilities" under the row string as key (data/lang/capabilities_*.xml,
  /// English filling the gaps of a translation); a row without text shows its
  /// row string.
  String description(ZELLocale const &locale) const;

  /// toString(0, false) is the text form. `indent` puts two blanks per step
  /// before it; `verbose` adds " [level N]" with priorityLevel() (a display
  /// form, not meant to be read back).
  String toString(unsigned indent = 0, bool verbose = false) const;

  // --- the catalogue -----------------------------------------------------------

  /// The row's string; "" for the sentinel and past it.
  static char const *rowString(unsigned row) noexcept;
  /// The name of the row's public accessor; "" for the sentinel and past it.
  static char const *rowAccessorName(unsigned row) noexcept;
  /// The row's level; 0 for the sentinel and past it.
  static int rowLevel(unsigned row) noexcept;
  /// The first row, from row 0 on, whose string equals `text` (byte for
  /// byte, or ASCII case-blind); SENTINEL when none does or `text` is null.
  static unsigned rowByString(char const *text, bool caseSensitive) noexcept;
  /// The same for `length` bytes at `text`.
  static unsigned rowByString(char const *text, std::size_t length, bool caseSensitive) noexcept;

private:
  static constexpr Bits neverMet() noexcept {
    Bits b = Bits::single(static_cast<unsigned>(Row::INVALID));
    b.insert(SENTINEL);
    return b;
  }

  Bits m_bits;
};

} // namespace zel
