#include "zel/String.h"

#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ostream>

namespace zel {

namespace {

bool isBlank(char c) noexcept {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
}

char asciiLower(char c) noexcept { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c + 32) : c; }
char asciiUpper(char c) noexcept { return (c >= 'a' && c <= 'z') ? static_cast<char>(c - 32) : c; }

// Length of the well-formed UTF-8 sequence at s[i], or 0 when malformed.
std::size_t utf8SequenceLength(std::string const &s, std::size_t i) noexcept {
  auto b = [&](std::size_t k) { return static_cast<unsigned char>(s[k]); };
  unsigned char c = b(i);
  std::size_t n = s.size() - i;
  if (c < 0x80)
    return 1;
  if (c >= 0xC2 && c <= 0xDF)
    return (n >= 2 && (b(i + 1) & 0xC0) == 0x80) ? 2 : 0;
  if (c >= 0xE0 && c <= 0xEF) {
    if (n < 3 || (b(i + 1) & 0xC0) != 0x80 || (b(i + 2) & 0xC0) != 0x80)
      return 0;
    if (c == 0xE0 && b(i + 1) < 0xA0)
      return 0; // overlong
    if (c == 0xED && b(i + 1) >= 0xA0)
      return 0; // surrogate
    return 3;
  }
  if (c >= 0xF0 && c <= 0xF4) {
    if (n < 4 || (b(i + 1) & 0xC0) != 0x80 || (b(i + 2) & 0xC0) != 0x80 ||
        (b(i + 3) & 0xC0) != 0x80)
      return 0;
    if (c == 0xF0 && b(i + 1) < 0x90)
      return 0; // overlong
    if (c == 0xF4 && b(i + 1) >= 0x90)
      return 0; // above U+10FFFF
    return 4;
  }
  return 0;
}

// Splits text into trimmed number text for the strto* family. Returns false
// when only blanks remain.
std::string trimmedCopy(std::string const &s) {
  std::size_t a = 0, e = s.size();
  while (a < e && isBlank(s[a]))
    ++a;
  while (e > a && isBlank(s[e - 1]))
    --e;
  return s.substr(a, e - a);
}

template <class Fn>
auto parseWith(String const &text, bool *ok, Fn fn) -> decltype(fn("", nullptr)) {
  std::string t = trimmedCopy(text.str());
  char *end = nullptr;
  errno = 0;
  auto value = fn(t.c_str(), &end);
  bool good = !t.empty() && end != t.c_str() && *end == '\0' && errno != ERANGE;
  if (end == t.c_str())
    value = 0;
  if (ok)
    *ok = good;
  return value;
}

} // namespace

String const &String::EMPTY() {
  static String const empty;
  return empty;
}

std::size_t String::charCount() const noexcept {
  std::size_t count = 0;
  for (std::size_t i = 0; i < m_s.size(); ++count) {
    std::size_t n = utf8SequenceLength(m_s, i);
    i += n ? n : 1;
  }
  return count;
}

String String::toLower() const {
  std::string r(m_s);
  for (char &c : r)
    c = asciiLower(c);
  return String(std::move(r));
}

String String::toUpper() const {
  std::string r(m_s);
  for (char &c : r)
    c = asciiUpper(c);
  return String(std::move(r));
}

String String::trim() const { return String(trimmedCopy(m_s)); }

String String::trimLeft() const {
  std::size_t a = 0;
  while (a < m_s.size() && isBlank(m_s[a]))
    ++a;
  return String(m_s.substr(a));
}

String String::trimRight() const {
  std::size_t e = m_s.size();
  while (e > 0 && isBlank(m_s[e - 1]))
    --e;
  return String(m_s.substr(0, e));
}

Array<String> String::tokenize(String const &separator) const {
  Array<String> out;
  if (separator.isEmpty()) {
    out.append(*this);
    return out;
  }
  std::size_t start = 0;
  for (;;) {
    std::size_t pos = m_s.find(separator.m_s, start);
    if (pos == npos) {
      out.append(String(m_s.substr(start)));
      return out;
    }
    out.append(String(m_s.substr(start, pos - start)));
    start = pos + separator.size();
  }
}

String String::removeAll(char ch) const {
  std::string r;
  r.reserve(m_s.size());
  for (char c : m_s)
    if (c != ch)
      r += c;
  return String(std::move(r));
}

String String::removeBlanks() const {
  std::string r;
  r.reserve(m_s.size());
  for (char c : m_s)
    if (c != ' ' && c != '\t' && c != '\r' && c != '\n')
      r += c;
  return String(std::move(r));
}

String String::replaceAll(String const &from, String const &to) const {
  if (from.isEmpty())
    return *this;
  std::string r;
  std::size_t start = 0;
  for (;;) {
    std::size_t pos = m_s.find(from.m_s, start);
    if (pos == npos)
      break;
    r.append(m_s, start, pos - start);
    r += to.m_s;
    start = pos + from.size();
  }
  r.append(m_s, start, npos);
  return String(std::move(r));
}

int String::compareNoCase(String const &other) const noexcept {
  std::size_t n = std::min(m_s.size(), other.m_s.size());
  for (std::size_t i = 0; i < n; ++i) {
    unsigned char a = static_cast<unsigned char>(asciiLower(m_s[i]));
    unsigned char b = static_cast<unsigned char>(asciiLower(other.m_s[i]));
    if (a != b)
      return a < b ? -1 : 1;
  }
  if (m_s.size() == other.m_s.size())
    return 0;
  return m_s.size() < other.m_s.size() ? -1 : 1;
}

bool String::equalNoCase(String const &other) const noexcept {
  return m_s.size() == other.m_s.size() && compareNoCase(other) == 0;
}

bool String::startsWith(String const &prefix) const noexcept {
  return m_s.size() >= prefix.m_s.size() && m_s.compare(0, prefix.m_s.size(), prefix.m_s) == 0;
}

bool String::endsWith(String const &suffix) const noexcept {
  return m_s.size() >= suffix.m_s.size() &&
         m_s.compare(m_s.size() - suffix.m_s.size(), suffix.m_s.size(), suffix.m_s) == 0;
}

String String::substring(std::size_t start, std::size_t count) const {
  if (start >= m_s.size())
    return String();
  return String(m_s.substr(start, count));
}

long long String::strToInt64(String const &text, int base, bool *ok) {
  return parseWith(text, ok,
                   [base](char const *s, char **end) { return std::strtoll(s, end, base); });
}

int String::strToInt(String const &text, int base, bool *ok) {
  bool good = false;
  long long v = strToInt64(text, base, &good);
  if (v > INT_MAX) {
    v = INT_MAX;
    good = false;
  } else if (v < INT_MIN) {
    v = INT_MIN;
    good = false;
  }
  if (ok)
    *ok = good;
  return static_cast<int>(v);
}

unsigned long long String::strToUInt64(String const &text, int base, bool *ok) {
  return parseWith(text, ok,
                   [base](char const *s, char **end) { return std::strtoull(s, end, base); });
}

unsigned int String::strToUInt(String const &text, int base, bool *ok) {
  bool good = false;
  std::string t = trimmedCopy(text.str());
  bool negative = !t.empty() && t[0] == '-';
  if (negative) {
    // Negative numbers wrap as strtoul does on a 32-bit unsigned long.
    long long v = strToInt64(text, base, &good);
    if (v < -static_cast<long long>(UINT_MAX)) {
      good = false;
      v = -static_cast<long long>(UINT_MAX);
    }
    if (ok)
      *ok = good;
    return static_cast<unsigned int>(v);
  }
  unsigned long long v = strToUInt64(text, base, &good);
  if (v > UINT_MAX) {
    v = UINT_MAX;
    good = false;
  }
  if (ok)
    *ok = good;
  return static_cast<unsigned int>(v);
}

double String::strToReal64(String const &text, bool *ok) {
  return parseWith(text, ok, [](char const *s, char **end) { return std::strtod(s, end); });
}

bool String::strToBoolean(String const &text) {
  String t = text.trim();
  return t.equalNoCase("true") || t.equalNoCase("yes") || t.equalNoCase("on") || t == "1";
}

String String::fromInt(long long value) { return String(std::to_string(value)); }
String String::fromUInt(unsigned long long value) { return String(std::to_string(value)); }

String String::fromReal64(double value) {
  if (std::isnan(value))
    return String("nan");
  if (std::isinf(value))
    return String(value < 0 ? "-inf" : "inf");
  char buf[64];
  for (int precision = 6; precision <= 17; ++precision) {
    std::snprintf(buf, sizeof buf, "%.*g", precision, value);
    if (std::strtod(buf, nullptr) == value)
      break;
  }
  return String(buf);
}

String String::fromBoolean(bool value) { return String(value ? "true" : "false"); }

String String::fromPointer(void const *pointer) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "0x%llx",
                static_cast<unsigned long long>(reinterpret_cast<std::uintptr_t>(pointer)));
  return String(buf);
}

String String::format(char const *fmt, ...) {
  va_list args;
  va_start(args, fmt);
  String out = vformat(fmt, args);
  va_end(args);
  return out;
}

String String::vformat(char const *fmt, va_list args) {
  if (!fmt)
    return String();
  va_list copy;
  va_copy(copy, args);
  int n = std::vsnprintf(nullptr, 0, fmt, copy);
  va_end(copy);
  std::string out;
  if (n > 0) {
    out.resize(static_cast<std::size_t>(n));
    std::vsnprintf(&out[0], out.size() + 1, fmt, args);
  }
  return String(std::move(out));
}

String String::getFixedStr(String const &text, unsigned int width, int flags) {
  std::size_t chars = text.charCount();
  if (chars >= width) {
    if (!(flags & FIXED_TRUNCATE) || chars == width)
      return text;
    // Cut after `width` code points.
    std::size_t i = 0;
    for (unsigned int c = 0; c < width && i < text.m_s.size(); ++c) {
      std::size_t n = utf8SequenceLength(text.m_s, i);
      i += n ? n : 1;
    }
    return String(text.m_s.substr(0, i));
  }
  return String(text.m_s + std::string(width - chars, ' '));
}

String String::UTF8Decode(String const &text) {
  std::string const &s = text.m_s;
  std::size_t i = 0;
  // Fast path: most text is valid.
  while (i < s.size()) {
    std::size_t n = utf8SequenceLength(s, i);
    if (!n)
      break;
    i += n;
  }
  if (i == s.size())
    return text;
  std::string out(s, 0, i);
  while (i < s.size()) {
    std::size_t n = utf8SequenceLength(s, i);
    if (n) {
      out.append(s, i, n);
      i += n;
    } else {
      out += "\xEF\xBF\xBD";
      ++i;
    }
  }
  return String(std::move(out));
}

bool String::isValidUTF8(String const &text) noexcept {
  std::size_t i = 0;
  while (i < text.m_s.size()) {
    std::size_t n = utf8SequenceLength(text.m_s, i);
    if (!n)
      return false;
    i += n;
  }
  return true;
}

std::ostream &operator<<(std::ostream &out, String const &text) { return out << text.str(); }

} // namespace zel
