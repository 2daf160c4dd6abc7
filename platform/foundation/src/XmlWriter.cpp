// The XML writer. Our own rather than pugixml's so that the standard form is
// ours to define (text elements on one line, bounded indentation) and so that
// every node written is guaranteed to parse back to the same node.

#include <cstring>
#include <string>
#include <vector>

#include "XmlTree.h"

namespace zel {
namespace xml_detail {
namespace {

constexpr std::size_t INDENT_CAP = 64;

void appendCharRef(std::string &out, unsigned char ch) {
  out += "&#";
  if (ch >= 10)
    out += static_cast<char>('0' + ch / 10);
  out += static_cast<char>('0' + ch % 10);
  out += ';';
}

// Character data: & and < must go; > goes too so that "]]>" never appears.
// CR is written as a reference because the parser turns a literal one into
// LF; other control characters but tab and LF likewise, to keep them exact.
void appendEscaped(std::string &out, char const *s, bool attribute) {
  char const *run = s;
  for (; *s; ++s) {
    unsigned char ch = static_cast<unsigned char>(*s);
    char const *entity = nullptr;
    switch (ch) {
    case '&':
      entity = "&amp;";
      break;
    case '<':
      entity = "&lt;";
      break;
    case '>':
      entity = "&gt;";
      break;
    case '"':
      if (attribute)
        entity = "&quot;";
      break;
    case '\t':
    case '\n':
      // Attribute values are normalised on reading (blanks become spaces).
      if (!attribute)
        continue;
      break;
    default:
      break;
    }
    if (!entity && ch >= 0x20)
      continue;
    out.append(run, s);
    if (entity)
      out += entity;
    else
      appendCharRef(out, ch);
    run = s + 1;
  }
  out.append(run, s);
}

// Appends text with every occurrence of `bad` replaced by `good`.
void appendReplacing(std::string &out, char const *s, char const *bad, char const *good) {
  std::size_t badLength = std::strlen(bad);
  while (char const *hit = std::strstr(s, bad)) {
    out.append(s, hit);
    out += good;
    s = hit + badLength;
  }
  out += s;
}

void appendIndent(std::string &out, std::size_t depth) {
  out.append(2 * (depth < INDENT_CAP ? depth : INDENT_CAP), ' ');
}

bool hasTextChild(pugi::xml_node node) {
  for (pugi::xml_node child = node.first_child(); child; child = child.next_sibling())
    if (child.type() == pugi::node_pcdata || child.type() == pugi::node_cdata)
      return true;
  return false;
}

void appendAttributes(std::string &out, pugi::xml_node node, bool declaration) {
  for (pugi::xml_attribute attr = node.first_attribute(); attr; attr = attr.next_attribute()) {
    if (declaration && std::strcmp(attr.name(), "encoding") == 0) {
      out += " encoding=\"UTF-8\"";
      continue;
    }
    out += ' ';
    writeAttribute(out, attr);
  }
}

void appendLeaf(std::string &out, pugi::xml_node node) {
  switch (node.type()) {
  case pugi::node_pcdata:
    appendEscaped(out, node.value(), false);
    break;
  case pugi::node_cdata:
    // A section cannot hold "]]>", and a CR in it would come back as LF:
    // such text is written as escaped character data, which keeps it exact.
    if (std::strstr(node.value(), "]]>") || std::strchr(node.value(), '\r')) {
      appendEscaped(out, node.value(), false);
    } else {
      out += "<![CDATA[";
      out += node.value();
      out += "]]>";
    }
    break;
  case pugi::node_comment:
    out += "<!--";
    appendReplacing(out, node.value(), "-->", "-- >");
    out += "-->";
    break;
  case pugi::node_pi:
    out += "<?";
    out += node.name();
    if (*node.value()) {
      out += ' ';
      appendReplacing(out, node.value(), "?>", "? >");
    }
    out += "?>";
    break;
  case pugi::node_declaration:
    out += "<?xml";
    appendAttributes(out, node, true);
    out += "?>";
    break;
  case pugi::node_doctype:
    out += "<!DOCTYPE ";
    out += node.value();
    out += '>';
    break;
  default:
    break;
  }
}

} // namespace

void writeAttribute(std::string &out, pugi::xml_attribute attr) {
  out += attr.name();
  out += "=\"";
  appendEscaped(out, attr.value(), true);
  out += '"';
}

void writeNode(std::string &out, pugi::xml_node const root, bool pretty, std::size_t depth) {
  // Walks by parent/sibling links, never by recursion; the only memory that
  // grows with depth is one flag per open element.
  std::vector<bool> outerPretty;
  pugi::xml_node node = root;
  while (true) {
    if (pretty)
      appendIndent(out, depth);
    if (node.type() == pugi::node_element) {
      out += '<';
      out += node.name();
      appendAttributes(out, node, false);
      if (node.first_child()) {
        out += '>';
        bool inner = pretty && !hasTextChild(node);
        if (inner)
          out += '\n';
        outerPretty.push_back(pretty);
        pretty = inner;
        ++depth;
        node = node.first_child();
        continue;
      }
      out += "/>";
    } else {
      appendLeaf(out, node);
    }
    if (pretty)
      out += '\n';

    while (node != root && !node.next_sibling()) {
      node = node.parent();
      --depth;
      if (pretty)
        appendIndent(out, depth);
      pretty = outerPretty.back();
      outerPretty.pop_back();
      out += "</";
      out += node.name();
      out += '>';
      if (pretty)
        out += '\n';
    }
    if (node == root)
      break;
    node = node.next_sibling();
  }
}

void writeDocument(std::string &out, pugi::xml_node document, int flags) {
  bool pretty = !(flags & XmlDocument::FORMAT_COMPACT) && !hasTextChild(document);
  if (!(flags & XmlDocument::FORMAT_NO_DECLARATION) &&
      !document.find_child([](pugi::xml_node n) { return n.type() == pugi::node_declaration; })) {
    out += "<?xml version=\"1.0\" encoding=\"UTF-8\"?>";
    if (pretty)
      out += '\n';
  }
  for (pugi::xml_node child = document.first_child(); child; child = child.next_sibling())
    writeNode(out, child, pretty, 0);
}

} // namespace xml_detail
} // namespace zel
