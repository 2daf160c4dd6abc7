#pragma once
// zel::ZELValue: one scalar datum, the content of a table cell.
//
// A ZELValue is empty or holds exactly one of: a signed or unsigned integer
// of 32 or 64 bits, a double, a boolean or a text. The kind is kept, so that
// a zel::ValueImp made from a cell gets the matching DataType row without
// being told (INT32 stays INT32, a text stays STRING).
//
// Accessors are strict: asking a text for a number (or the reverse) throws
// zel::TypeMismatch. The integer accessors accept every integer kind and
// reinterpret the 64-bit pattern, as a C cast would.
//
// Equality compares kind and content; two NaN doubles are equal, so a value
// always equals its own copy (tables that hold NaN would otherwise never
// compare equal to themselves and always show up as changed).
//
// A plain value type; thread-compatible.

#include <cstdint>

#include "zel/String.h"

namespace zel {

class ZELValue {
public:
  enum Kind : unsigned int { EMPTY, INT32, UINT32, INT64, UINT64, DOUBLE, BOOLEAN, STRING };

  ZELValue() noexcept = default;
  ZELValue(int value) noexcept : m_kind(INT32), m_int(value) {}
  ZELValue(unsigned int value) noexcept : m_kind(UINT32), m_int(value) {}
  ZELValue(long value) noexcept : m_kind(INT64), m_int(static_cast<std::uint64_t>(value)) {}
  ZELValue(unsigned long value) noexcept : m_kind(UINT64), m_int(value) {}
  ZELValue(long long value) noexcept : m_kind(INT64), m_int(static_cast<std::uint64_t>(value)) {}
  ZELValue(unsigned long long value) noexcept : m_kind(UINT64), m_int(value) {}
  ZELValue(double value) noexcept : m_kind(DOUBLE), m_double(value) {}
  ZELValue(bool value) noexcept : m_kind(BOOLEAN), m_int(value ? 1 : 0) {}
  /// A text; a null pointer gives the empty text (not an empty value).
  ZELValue(char const *text) : m_kind(STRING), m_text(text) {}
  ZELValue(String const &text) : m_kind(STRING), m_text(text) {}

  Kind kind() const noexcept { return m_kind; }
  bool isEmpty() const noexcept { return m_kind == EMPTY; }
  bool isInteger() const noexcept { return m_kind >= INT32 && m_kind <= UINT64; }

  /// Any integer kind; TypeMismatch otherwise.
  long long asInt64() const;
  unsigned long long asUInt64() const;
  /// Integers and doubles; TypeMismatch otherwise.
  double asDouble() const;
  /// BOOLEAN only; TypeMismatch otherwise.
  bool asBool() const;
  /// STRING only; TypeMismatch otherwise.
  String const &asString() const;

  /// The text form: decimal integers, the shortest double that reads back
  /// (String::fromReal64), "true"/"false", the text itself; "" when empty.
  String toString() const;
  /// The decimal form of an integer ("-12"); used to build keys from numbers.
  static String toString(long long value);

  friend bool operator==(ZELValue const &a, ZELValue const &b) noexcept;
  friend bool operator!=(ZELValue const &a, ZELValue const &b) noexcept { return !(a == b); }

private:
  Kind m_kind = EMPTY;
  std::uint64_t m_int = 0;
  double m_double = 0.0;
  String m_text;
};

} // namespace zel
