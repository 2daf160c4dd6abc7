#pragma once
// zel::String: the text type of the whole system.
//
// Holds UTF-8 in a std::string. Byte-oriented operations (length, find,
// substring, indexing) count bytes; charCount and getFixedStr count code
// points. Case operations touch ASCII letters only, which keeps them safe on
// any UTF-8 text. A String is a plain value: copies are independent and a
// String is as thread-safe as a std::string (const use from many threads is
// fine, mutation needs external locking).

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <string>

namespace zel {

template <class T> class Array;

class String {
public:
  static constexpr std::size_t npos = std::string::npos;

  String() = default;
  /// A null pointer gives the empty string.
  String(char const *text) : m_s(text ? text : "") {}
  String(char const *text, std::size_t bytes) : m_s(text ? text : "", text ? bytes : 0) {}
  String(std::string const &text) : m_s(text) {}
  String(std::string &&text) noexcept : m_s(std::move(text)) {}
  String(std::size_t count, char fill) : m_s(count, fill) {}

  /// One shared empty string, valid for the life of the process.
  static String const &EMPTY();

  char const *c_str() const noexcept { return m_s.c_str(); }
  char const *data() const noexcept { return m_s.data(); }
  std::string const &str() const noexcept { return m_s; }
  std::string &str() noexcept { return m_s; }
  /// Length in bytes.
  std::size_t length() const noexcept { return m_s.size(); }
  std::size_t size() const noexcept { return m_s.size(); }
  bool isEmpty() const noexcept { return m_s.empty(); }
  bool empty() const noexcept { return m_s.empty(); }
  /// Number of code points (a malformed byte counts as one).
  std::size_t charCount() const noexcept;
  char operator[](std::size_t index) const { return m_s[index]; }

  /// The narrow (byte) form, for interfaces that take char const *.
  char const *getLowerByteString() const noexcept { return m_s.c_str(); }

  String toLower() const;
  String toUpper() const;
  /// Without leading and trailing blanks (space, tab, CR, LF, VT, FF).
  String trim() const;
  String trimLeft() const;
  String trimRight() const;
  /// Cuts at every occurrence of separator. Empty tokens are kept, so n
  /// separators give n + 1 tokens and a text without one gives one token
  /// (the empty text gives one empty token). An empty separator gives the
  /// whole text as the one token.
  Array<String> tokenize(String const &separator = String(",")) const;
  /// Every occurrence of ch removed.
  String removeAll(char ch) const;
  /// Every blank (space, tab, CR, LF) removed.
  String removeBlanks() const;
  String replaceAll(String const &from, String const &to) const;

  int compare(String const &other) const noexcept { return m_s.compare(other.m_s); }
  /// ASCII case-blind comparison: negative, 0 or positive.
  int compareNoCase(String const &other) const noexcept;
  bool equalNoCase(String const &other) const noexcept;

  /// Byte offset of the first occurrence at or after from, or npos.
  std::size_t find(String const &needle, std::size_t from = 0) const noexcept {
    return m_s.find(needle.m_s, from);
  }
  std::size_t find(char ch, std::size_t from = 0) const noexcept { return m_s.find(ch, from); }
  std::size_t rfind(String const &needle) const noexcept { return m_s.rfind(needle.m_s); }
  bool contains(String const &needle) const noexcept { return m_s.find(needle.m_s) != npos; }
  bool startsWith(String const &prefix) const noexcept;
  bool endsWith(String const &suffix) const noexcept;
  /// Bytes [start, start + count), clipped to the text; start past the end gives "".
  String substring(std::size_t start, std::size_t count = npos) const;

  // Conversions from text. Leading and trailing blanks are ignored and a sign
  // is accepted. `ok`, when given, is true only when the whole text is a
  // number in range. Text that does not start with a number gives 0; a number
  // followed by other text gives that number (ok false); an out-of-range value
  // is clamped (ok false). Base 16 accepts an optional "0x"; base 0 chooses as
  // strtol does.
  static int strToInt(String const &text, int base = 10, bool *ok = nullptr);
  static long long strToInt64(String const &text, int base = 10, bool *ok = nullptr);
  /// Unsigned parse; a negative number wraps modulo 2^32 as strtoul does, so
  /// "-1" gives 0xFFFFFFFF.
  static unsigned int strToUInt(String const &text, int base = 10, bool *ok = nullptr);
  static unsigned long long strToUInt64(String const &text, int base = 10, bool *ok = nullptr);
  static double strToReal64(String const &text, bool *ok = nullptr);
  /// True for "true", "yes", "on", "1" (case-blind, blanks ignored); false otherwise.
  static bool strToBoolean(String const &text);

  static String fromInt(long long value);
  static String fromUInt(unsigned long long value);
  /// Shortest text that reads back to the same double ("%.17g" trimmed).
  static String fromReal64(double value);
  /// "true" or "false".
  static String fromBoolean(bool value);
  /// "0x" and the address in hexadecimal; "0x0" for null.
  static String fromPointer(void const *pointer);

  /// printf-style formatting.
  static String format(char const *fmt, ...) __attribute__((format(printf, 1, 2)));
  static String vformat(char const *fmt, va_list args) __attribute__((format(printf, 1, 0)));

  /// The text filled up with blanks on the right to `width` code points.
  /// Flags: 0 keeps a longer text whole; FIXED_TRUNCATE cuts it to the width.
  static String getFixedStr(String const &text, unsigned int width, int flags = 0);
  static constexpr int FIXED_TRUNCATE = 1;

  /// Validates UTF-8: well-formed text comes back unchanged, every malformed
  /// sequence (bad lead, missing continuation, overlong, surrogate, > U+10FFFF)
  /// becomes U+FFFD.
  static String UTF8Decode(String const &text);
  static bool isValidUTF8(String const &text) noexcept;

  String &operator+=(String const &rhs) {
    m_s += rhs.m_s;
    return *this;
  }
  String &operator+=(char const *rhs) {
    m_s += rhs ? rhs : "";
    return *this;
  }
  String &operator+=(char rhs) {
    m_s += rhs;
    return *this;
  }

  friend String operator+(String lhs, String const &rhs) { return lhs += rhs; }
  friend String operator+(String lhs, char const *rhs) { return lhs += rhs; }
  friend String operator+(char const *lhs, String const &rhs) { return String(lhs) += rhs; }
  friend String operator+(String lhs, char rhs) { return lhs += rhs; }

  friend bool operator==(String const &a, String const &b) noexcept { return a.m_s == b.m_s; }
  friend bool operator!=(String const &a, String const &b) noexcept { return a.m_s != b.m_s; }
  friend bool operator<(String const &a, String const &b) noexcept { return a.m_s < b.m_s; }
  friend bool operator>(String const &a, String const &b) noexcept { return a.m_s > b.m_s; }
  friend bool operator<=(String const &a, String const &b) noexcept { return a.m_s <= b.m_s; }
  friend bool operator>=(String const &a, String const &b) noexcept { return a.m_s >= b.m_s; }
  friend bool operator==(String const &a, char const *b) noexcept { return a.m_s == (b ? b : ""); }
  friend bool operator!=(String const &a, char const *b) noexcept { return !(a == b); }
  friend bool operator==(char const *a, String const &b) noexcept { return b == a; }
  friend bool operator!=(char const *a, String const &b) noexcept { return !(b == a); }

  std::size_t hash() const noexcept { return std::hash<std::string>()(m_s); }

private:
  std::string m_s;
};

std::ostream &operator<<(std::ostream &out, String const &text);

} // namespace zel

template <> struct std::hash<zel::String> {
  std::size_t operator()(zel::String const &s) const noexcept { return s.hash(); }
};

#include "zel/Array.h"
