#pragma once
// Helpers shared by the two catalogue sets (CapabilityImp, PropertyCategoryImp):
// row look-up by string and the reading and writing of the text form that
// both headers document. Internal to the framework.

#include <cstddef>
#include <cstring>
#include <string>
#include <utility>

#include "zel/String.h"

namespace zel {
namespace catalogue {

/// One row of a catalogue table, as the row macros expand it.
struct RowInfo {
  char const *accessor;
  char const *text;
  int level;
  unsigned length; ///< strlen(text), kept so a look-up compares lengths first
};

inline char asciiLower(char c) noexcept { return (c >= 'A' && c <= 'Z') ? char(c - 'A' + 'a') : c; }

inline bool equalNoCase(char const *a, char const *b, std::size_t n) noexcept {
  for (std::size_t i = 0; i < n; ++i)
    if (asciiLower(a[i]) != asciiLower(b[i]))
      return false;
  return true;
}

/// The first row whose string equals the `length` bytes at `text`, or
/// `count` when none does. A row of another length cannot match, so most
/// rows cost one comparison of two small integers.
inline unsigned findRow(RowInfo const *rows, unsigned count, char const *text, std::size_t length,
                        bool caseSensitive) noexcept {
  if (text == nullptr)
    return count;
  for (unsigned r = 0; r < count; ++r) {
    if (rows[r].length != length)
      continue;
    if (caseSensitive ? std::memcmp(rows[r].text, text, length) == 0
                      : equalNoCase(rows[r].text, text, length))
      return r;
  }
  return count;
}

inline bool isBlank(char c) noexcept {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
}
inline bool isSeparator(char c) noexcept { return c == '|' || c == ','; }

/// Reads a text of names. Calls add(row) for each known name; stops at the
/// first unknown name and returns false with `unknown` set to it (trimmed).
template <class Add>
bool parseNames(RowInfo const *rows, unsigned count, char const *text, std::size_t length,
                String &unknown, Add add) {
  if (text == nullptr)
    return true;
  std::size_t pos = 0;
  while (pos <= length) {
    std::size_t end = pos;
    while (end < length && !isSeparator(text[end]))
      ++end;
    std::size_t b = pos, e = end;
    while (b < e && isBlank(text[b]))
      ++b;
    while (e > b && isBlank(text[e - 1]))
      --e;
    if (e > b) {
      unsigned row = findRow(rows, count, text + b, e - b, false);
      if (row == count) {
        unknown = String(text + b, e - b);
        return false;
      }
      add(row);
    }
    pos = end + 1;
  }
  return true;
}

/// Writes the members' strings in row order joined by "|"; rows with an
/// empty string (the sentinel) write nothing.
template <class Set> String writeNames(RowInfo const *rows, unsigned count, Set const &set) {
  std::string out;
  for (unsigned r = set.next(0); r < count; r = set.next(r + 1)) {
    if (!out.empty())
      out += '|';
    out.append(rows[r].text, rows[r].length);
  }
  return String(std::move(out));
}

} // namespace catalogue
} // namespace zel
