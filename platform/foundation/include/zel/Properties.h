#pragma once
// zel::Properties: an ordered store of text values under text keys, and the
// file format of the settings file and of the string-resource files.
//
// Order: keys() gives the keys in the order they were first set; setting an
// existing key replaces its value in place. Keys are case-sensitive and never
// empty; keys and values are UTF-8 text without NUL characters.
//
// File format (UTF-8 XML):
//
//   <?xml version="1.0" encoding="UTF-8"?>
//   <properties>
//     <!-- comments are allowed anywhere -->
//     <property key="Ostrel.EngineStartTimeout" value="20000"/>
//     <property key="help.intro">Text that is long
//   or spans lines</property>
//   </properties>
//
// - The root element is "properties"; its children are "property" elements.
// - "key" is required and not empty. The value is the "value" attribute or,
//   without it, the element's text (text and CDATA joined, as written; none
//   gives ""). Having both is an error.
// - A key given twice takes the later value (at the earlier position).
// - Anything else is an error: other elements or attributes, non-blank text
//   between properties, elements inside a property. Being strict catches a
//   misspelt "vaule" instead of silently dropping the setting.
//
// A load that fails reports "<source>:<line>:<column>: <what>" (line and
// column 1-based, the column in bytes) and leaves the object unchanged; a
// successful load replaces the whole content. Any byte sequence may be given
// to the loaders: bad input is an error, never a crash.
//
// saveToFile writes values as attributes (special characters escaped, so
// every value reads back exactly) and replaces the file atomically.
//
// Thread-compatible: concurrent const use is safe, mutation needs external
// locking.

#include <cstddef>
#include <unordered_map>
#include <utility>
#include <vector>

#include "zel/Array.h"
#include "zel/String.h"

namespace zel {

class Properties {
public:
  Properties() = default;

  /// True and the value when the key is present; `out` untouched otherwise.
  bool get(String const &key, String &out) const;
  /// The value, or `fallback` when the key is absent.
  String getOr(String const &key, String const &fallback) const;
  /// Adds or replaces. An empty key is ignored (it could not be saved).
  void set(String const &key, String const &value);
  /// True when the key was there.
  bool remove(String const &key);
  bool contains(String const &key) const;
  Array<String> keys() const;
  std::size_t size() const noexcept { return m_entries.size(); }
  bool isEmpty() const noexcept { return m_entries.empty(); }
  void clear();

  /// Reads a file in the format above; `error` (when given) receives the
  /// reason on failure ("<path>:<line>:<column>: ..." or "<path>: cannot read").
  bool loadFromFile(String const &path, String *error = nullptr);
  /// The same for text in memory; `sourceName` stands for the file in errors.
  bool loadFromString(String const &text, String *error = nullptr,
                      String const &sourceName = String("<string>"));
  /// The document text of the content, in key order.
  String saveToString() const;
  bool saveToFile(String const &path, String *error = nullptr) const;

  /// Same keys with the same values in the same order.
  friend bool operator==(Properties const &a, Properties const &b) {
    return a.m_entries == b.m_entries;
  }
  friend bool operator!=(Properties const &a, Properties const &b) { return !(a == b); }

private:
  std::vector<std::pair<String, String>> m_entries;
  std::unordered_map<String, std::size_t> m_index; // key -> position in m_entries
};

} // namespace zel
