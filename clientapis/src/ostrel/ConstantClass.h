#pragma once
// The common set of every public constant class (TestResult, TestState, ...).
//
// A constant class names one row of a fixed table. Its rows are written once,
// as a row list (see zel/ConstantTable.h); for the classes that have an
// implementation class in the framework (zel::TestResultImp, ...) the list
// lives with that class and both share the row numbers, so a public constant
// and its implementation constant convert by copying the number.
//
// Every constant class C has:
//   - a nested enumeration C::C_ENUM, a 32-bit unsigned row number; its
//     enumerators are reachable as C::C_ENUM::NAME;
//   - C(C_ENUM): binds a row number without any check;
//   - one static function per row, named as the row (C::NAME()), which
//     returns a fresh object; nothing is stored;
//   - enumValue(): the row number;
//   - stringValue() and toString(): the same operation, the row's string;
//   - constantCount(): the number of rows;
//   - getConstantByIndex(i): row i, or the sentinel at or past the end;
//   - getConstantByString(text, caseSensitive): the first row (from row 0)
//     whose string matches, byte-exact or ASCII case-blind; the sentinel
//     when none does. The zel::String form takes the text's narrow form
//     (getLowerByteString). A null text counts as the empty text. It is the
//     row's *string* that is searched, never the accessor's name.
//   - == and !=: compare row numbers.
//
// The sentinel is the row number constantCount(): its string is "", it
// equals only itself, and look-ups give it instead of failing (no exception,
// no log line).
//
// Two shapes exist. A *wrapped* constant derives from SharedAll::ApiWrapper
// (a vtable and one 32-bit field). A *bare* constant has no base and no
// virtual operation: the object is the 32-bit row number and nothing else,
// so an array of them is an array of 32-bit integers, and it is trivially
// copied.
//
// Constants are immutable values and safe to share between threads.

#include "ostrel/ApiWrapper.h"
#include "zel/ConstantTable.h"
#include "zel/String.h"

/// The common set of a constant class C whose rows are described by the row
/// structure ROWS (which holds the enumeration C_ENUM). Opens a public
/// section; the class must declare `C_ENUM m_enum;` and typedef C_ENUM first.
#define OSTREL5_CONSTANT_CLASS(C, ROWS)                                                            \
public:                                                                                            \
  typedef C ConstantClass;                                                                         \
  typedef ROWS ConstantRows;                                                                       \
  /** Binds a row number without any check. */                                                     \
  C(C##_ENUM row) noexcept : m_enum(row) {}                                                        \
  C##_ENUM enumValue() const noexcept { return m_enum; }                                           \
  zel::String stringValue() const;                                                                 \
  zel::String toString() const;                                                                    \
  static unsigned int constantCount() noexcept;                                                    \
  static C getConstantByIndex(unsigned int index) noexcept;                                        \
  static C getConstantByString(char const *text, bool caseSensitive) noexcept;                     \
  static C getConstantByString(zel::String const &text, bool caseSensitive) noexcept;              \
  bool operator==(C const &other) const noexcept { return m_enum == other.m_enum; }                \
  bool operator!=(C const &other) const noexcept { return m_enum != other.m_enum; }

/// Row-list adaptor: the static accessor of one row, inside the class. The
/// empty macro between the name and its parentheses keeps a function-like
/// macro of the same name (a test framework's FAIL()) from swallowing the
/// declaration when such a header was included first.
#define OSTREL5_CONSTANT_ACCESSOR(name, ...)                                                       \
  static ConstantClass name OSTREL5_NOTHING()() noexcept {                                         \
    return ConstantClass(ConstantRows::name);                                                      \
  }
#define OSTREL5_NOTHING()

/// Copy operations and virtual destructor of a wrapped constant C.
#define OSTREL5_WRAPPED_CONSTANT(C)                                                                \
public:                                                                                            \
  C(C const &other) noexcept : SharedAll::ApiWrapper(other), m_enum(other.m_enum) {}               \
  C &operator=(C const &other) noexcept {                                                          \
    m_enum = other.m_enum;                                                                         \
    return *this;                                                                                  \
  }                                                                                                \
  ~C() override;

/// Out-of-line definitions of the common set of C over the zel::ConstantTable
/// expression TABLE (used in the class's .cpp file only).
#define OSTREL5_DEFINE_CONSTANT_CLASS(C, TABLE)                                                    \
  zel::String C::stringValue() const { return zel::String((TABLE).text(m_enum)); }                 \
  zel::String C::toString() const { return stringValue(); }                                        \
  unsigned int C::constantCount() noexcept { return (TABLE).count; }                               \
  C C::getConstantByIndex(unsigned int index) noexcept {                                           \
    return C(static_cast<C##_ENUM>((TABLE).clamp(index)));                                         \
  }                                                                                                \
  C C::getConstantByString(char const *text, bool caseSensitive) noexcept {                        \
    return C(static_cast<C##_ENUM>((TABLE).find(text, caseSensitive)));                            \
  }                                                                                                \
  C C::getConstantByString(zel::String const &text, bool caseSensitive) noexcept {                 \
    return getConstantByString(text.getLowerByteString(), caseSensitive);                          \
  }

/// The destructor of a wrapped constant, out of line.
#define OSTREL5_DEFINE_WRAPPED_CONSTANT(C) C::~C() = default;
