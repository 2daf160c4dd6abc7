#pragma once
// The machinery shared by every constant class of the system: a fixed table
// of rows, the look-ups over it, and the implementation-side value class.
//
// A constant names one row of a fixed table by its row number (0-based, in
// table order). One number past the last row is the *sentinel*: every
// look-up that finds nothing gives it (no exception, no log line), its text
// is "", and it compares equal only to itself.
//
// Each table is written once, as a row list macro next to the class that owns
// it (ZEL_DATATYPE_ROWS in zel/DataTypeImp.h, ...). Every row is
// X(NAME, "text"[, extra fields]); NAME is the name of the public static
// accessor and of the enumerator, "text" the row's string. The enumeration,
// the row table and the public accessors are all generated from that one
// list, so they cannot drift apart:
//
//   enum DataType_ENUM : unsigned int { ZEL_DATATYPE_ROWS(ZEL_CONSTANT_ENUMERATOR) };
//   static ConstantRow const rows[] = { ZEL_DATATYPE_ROWS(ZEL_CONSTANT_ROW) };
//
// Public constant classes and their implementation classes share the row
// numbers, so converting one into the other is copying the number.
//
// Everything here is immutable after static initialisation and therefore
// thread-safe.

#include <cstddef>

#include "zel/String.h"

/// Row-list adaptor: the enumerator of a row.
#define ZEL_CONSTANT_ENUMERATOR(name, ...) name,
/// Row-list adaptor: the table entry of a row ({"NAME", "text", extras...}).
#define ZEL_CONSTANT_ROW(name, ...) {#name, __VA_ARGS__},

namespace zel {

/// A row with a string only. `name` is the accessor's name (used as the key of
/// display texts), `text` the row's string.
struct ConstantRow {
  char const *name;
  char const *text;
};

/// ASCII case-blind equality of two NUL-terminated texts (the stricmp family,
/// independent of the C locale).
bool constantTextEqualNoCase(char const *a, char const *b) noexcept;

/// The display text of a constant in the language of the global locale: the
/// key "<family>.<name>" (e.g. "TestResult.FAIL") of the string-resource file
/// "constants" (data/lang/constants_<language>.xml; English fills the gaps of
/// a translation). `fallback` when no file has the key, or when `name` is
/// empty (the sentinel, which has no display text).
String localizedConstantText(char const *family, char const *name, char const *fallback);

/// A read-only view of a row array. `Row` has at least `name` and `text`.
template <class Row> struct ConstantTable {
  Row const *rows;
  unsigned int count;

  template <std::size_t N>
  constexpr explicit ConstantTable(Row const (&array)[N]) noexcept
      : rows(array), count(static_cast<unsigned int>(N)) {}

  /// `index` when it names a row, else the sentinel (count).
  constexpr unsigned int clamp(unsigned int index) const noexcept {
    return index < count ? index : count;
  }
  /// The row, or null for the sentinel and beyond.
  Row const *row(unsigned int index) const noexcept {
    return index < count ? &rows[index] : nullptr;
  }
  /// The row's string; "" for the sentinel.
  char const *text(unsigned int index) const noexcept {
    return index < count ? rows[index].text : "";
  }
  /// The accessor's name; "" for the sentinel.
  char const *name(unsigned int index) const noexcept {
    return index < count ? rows[index].name : "";
  }
  /// The first row (from row 0 on) whose string matches `text`, byte for byte
  /// or ASCII case-blind; the sentinel when none does. A null text is read as
  /// the empty text.
  unsigned int find(char const *text, bool caseSensitive) const noexcept {
    if (!text)
      text = "";
    for (unsigned int i = 0; i < count; ++i) {
      bool same = caseSensitive ? String(rows[i].text) == text
                                : constantTextEqualNoCase(rows[i].text, text);
      if (same)
        return i;
    }
    return count;
  }
};

/// Base of the implementation-side constant classes (zel::DataTypeImp, ...):
/// a value holding one row number of `Derived::table()`. No virtual
/// operation, so the object is the 32-bit number and nothing else; copies
/// copy the number. The row number is taken as given (no check); reading
/// operations treat anything at or past the end as the sentinel.
template <class Derived, class Enum, class Row = ConstantRow> class ConstantImp {
public:
  using ENUM = Enum;
  using RowType = Row;

  /// Binds a row number without any check. Implicit, so that an enumerator
  /// can stand where a constant is expected (`setType(DataTypeImp::UINT32)`).
  constexpr ConstantImp(Enum row) noexcept : m_enum(row) {}

  constexpr Enum enumValue() const noexcept { return m_enum; }
  /// The row's string; "" for the sentinel.
  String toString() const { return String(Derived::table().text(m_enum)); }
  /// The accessor's name ("FAIL" where the string is "FAIL"; "WARN" where it
  /// is "WARNING"); "" for the sentinel.
  char const *name() const noexcept { return Derived::table().name(m_enum); }
  /// False for the sentinel (and any number past it).
  bool isValid() const noexcept { return m_enum < Derived::table().count; }

  static unsigned int constantCount() noexcept { return Derived::table().count; }
  static Derived sentinel() noexcept { return Derived(Enum(Derived::table().count)); }
  /// The row `index`; the sentinel at or past the end.
  static Derived getConstantByIndex(unsigned int index) noexcept {
    return Derived(Enum(Derived::table().clamp(index)));
  }
  /// The first row whose string matches; the sentinel when none does.
  static Derived getConstantByString(char const *text, bool caseSensitive = true) noexcept {
    return Derived(Enum(Derived::table().find(text, caseSensitive)));
  }
  static Derived getConstantByString(String const &text, bool caseSensitive = true) noexcept {
    return getConstantByString(text.getLowerByteString(), caseSensitive);
  }

  friend bool operator==(Derived const &a, Derived const &b) noexcept {
    return a.enumValue() == b.enumValue();
  }
  friend bool operator!=(Derived const &a, Derived const &b) noexcept {
    return a.enumValue() != b.enumValue();
  }
  /// Row order, so constants can key ordered containers.
  friend bool operator<(Derived const &a, Derived const &b) noexcept {
    return a.enumValue() < b.enumValue();
  }

protected:
  Enum m_enum;
};

} // namespace zel
