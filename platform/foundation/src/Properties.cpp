#include "zel/Properties.h"

#include <pugixml.hpp>

#include <algorithm>
#include <cstring>
#include <sstream>

#include "zel/FileSystem.h"

namespace zel {

namespace {

// "source:line:column: " for a byte offset into text; offsets pugixml cannot
// give (negative) leave the position out.
String where(String const &source, String const &text, std::ptrdiff_t offset) {
  if (offset < 0)
    return source + ": ";
  std::size_t end = std::min(static_cast<std::size_t>(offset), text.length());
  std::size_t line = 1, column = 1;
  for (std::size_t i = 0; i < end; ++i) {
    if (text[i] == '\n') {
      ++line;
      column = 1;
    } else {
      ++column;
    }
  }
  return source + ":" + String::fromUInt(line) + ":" + String::fromUInt(column) + ": ";
}

bool isBlank(char const *s) {
  for (; *s; ++s)
    if (!std::strchr(" \t\r\n", *s))
      return false;
  return true;
}

struct Parser {
  String const &source;
  String const &text;
  String error;

  bool fail(pugi::xml_node node, String const &what) {
    // An element's offset is that of its name; the reader wants the '<'.
    std::ptrdiff_t offset = node.offset_debug();
    if (node.type() == pugi::node_element && offset > 0)
      --offset;
    error = where(source, text, offset) + what;
    return false;
  }

  bool parseProperty(pugi::xml_node el, std::vector<std::pair<String, String>> &out) {
    pugi::xml_attribute keyAttr, valueAttr;
    for (pugi::xml_attribute a : el.attributes()) {
      if (std::strcmp(a.name(), "key") == 0)
        keyAttr = a;
      else if (std::strcmp(a.name(), "value") == 0)
        valueAttr = a;
      else
        return fail(el, "unknown attribute \"" + String(a.name()) + "\" on <property>");
    }
    if (!keyAttr || *keyAttr.value() == 0)
      return fail(el, "<property> without a key");
    String value;
    bool hasText = false;
    for (pugi::xml_node child : el.children()) {
      if (child.type() == pugi::node_pcdata || child.type() == pugi::node_cdata) {
        value += child.value();
        hasText = true;
      } else if (child.type() == pugi::node_element) {
        return fail(child, "element <" + String(child.name()) + "> inside <property>");
      }
    }
    if (valueAttr) {
      if (hasText)
        return fail(el, "<property key=\"" + String(keyAttr.value()) +
                            "\"> has both a value attribute and text");
      value = valueAttr.value();
    }
    out.emplace_back(String(keyAttr.value()), value);
    return true;
  }

  bool parse(std::vector<std::pair<String, String>> &out) {
    pugi::xml_document doc;
    unsigned int flags = pugi::parse_default | pugi::parse_ws_pcdata;
    pugi::xml_parse_result r =
        doc.load_buffer(text.data(), text.length(), flags, pugi::encoding_utf8);
    if (!r) {
      error = where(source, text, r.offset) + r.description();
      return false;
    }
    pugi::xml_node root;
    for (pugi::xml_node n : doc.children()) {
      if (n.type() == pugi::node_element) {
        if (root)
          return fail(n, "a second root element <" + String(n.name()) + ">");
        root = n;
      } else if (n.type() == pugi::node_pcdata && !isBlank(n.value())) {
        return fail(n, "text outside <properties>");
      }
    }
    if (!root) {
      error = where(source, text, 0) + "no root element";
      return false;
    }
    if (std::strcmp(root.name(), "properties") != 0)
      return fail(root, "the root element is <" + String(root.name()) + ">, not <properties>");
    if (root.first_attribute())
      return fail(root, "unknown attribute \"" + String(root.first_attribute().name()) +
                            "\" on <properties>");
    for (pugi::xml_node n : root.children()) {
      switch (n.type()) {
      case pugi::node_element:
        if (std::strcmp(n.name(), "property") != 0)
          return fail(n, "unknown element <" + String(n.name()) + ">");
        if (!parseProperty(n, out))
          return false;
        break;
      case pugi::node_pcdata:
      case pugi::node_cdata:
        if (!isBlank(n.value()))
          return fail(n, "text between properties");
        break;
      default:
        break;
      }
    }
    return true;
  }
};

} // namespace

bool Properties::get(String const &key, String &out) const {
  auto it = m_index.find(key);
  if (it == m_index.end())
    return false;
  out = m_entries[it->second].second;
  return true;
}

String Properties::getOr(String const &key, String const &fallback) const {
  String v;
  return get(key, v) ? v : fallback;
}

void Properties::set(String const &key, String const &value) {
  if (key.isEmpty())
    return;
  auto it = m_index.find(key);
  if (it != m_index.end()) {
    m_entries[it->second].second = value;
    return;
  }
  m_index.emplace(key, m_entries.size());
  m_entries.emplace_back(key, value);
}

bool Properties::remove(String const &key) {
  auto it = m_index.find(key);
  if (it == m_index.end())
    return false;
  std::size_t pos = it->second;
  m_entries.erase(m_entries.begin() + static_cast<std::ptrdiff_t>(pos));
  m_index.erase(it);
  for (auto &entry : m_index)
    if (entry.second > pos)
      --entry.second;
  return true;
}

bool Properties::contains(String const &key) const { return m_index.count(key) != 0; }

Array<String> Properties::keys() const {
  Array<String> out(m_entries.size());
  for (auto const &e : m_entries)
    out.append(e.first);
  return out;
}

void Properties::clear() {
  m_entries.clear();
  m_index.clear();
}

bool Properties::loadFromString(String const &text, String *error, String const &sourceName) {
  Parser p{sourceName, text, String()};
  std::vector<std::pair<String, String>> entries;
  if (!p.parse(entries)) {
    if (error)
      *error = p.error;
    return false;
  }
  Properties loaded;
  for (auto &e : entries)
    loaded.set(e.first, e.second);
  *this = std::move(loaded);
  return true;
}

bool Properties::loadFromFile(String const &path, String *error) {
  String text;
  if (!FileSystem::loadFile(path, text)) {
    if (error)
      *error = path + ": cannot read";
    return false;
  }
  return loadFromString(text, error, path);
}

String Properties::saveToString() const {
  pugi::xml_document doc;
  pugi::xml_node decl = doc.append_child(pugi::node_declaration);
  decl.append_attribute("version") = "1.0";
  decl.append_attribute("encoding") = "UTF-8";
  pugi::xml_node root = doc.append_child("properties");
  for (auto const &e : m_entries) {
    pugi::xml_node p = root.append_child("property");
    p.append_attribute("key") = e.first.c_str();
    p.append_attribute("value") = e.second.c_str();
  }
  std::ostringstream out;
  doc.save(out, "  ", pugi::format_indent, pugi::encoding_utf8);
  return String(out.str());
}

bool Properties::saveToFile(String const &path, String *error) const {
  if (FileSystem::saveFile(path, saveToString()))
    return true;
  if (error)
    *error = path + ": cannot write";
  return false;
}

} // namespace zel
