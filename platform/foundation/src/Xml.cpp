#include "zel/Xml.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <new>
#include <string>

#include "XmlTree.h"

namespace zel {

using xml_detail::Access;
using xml_detail::Tree;

namespace {

pugi::xml_node handle(pugi::xml_node_struct *node) { return pugi::xml_node(node); }

bool isBlank(char ch) { return ch == ' ' || ch == '\t' || ch == '\r' || ch == '\n'; }

bool parseDecimalInt(char const *s, int *value) {
  while (isBlank(*s))
    ++s;
  bool negative = *s == '-';
  if (*s == '-' || *s == '+')
    ++s;
  if (*s < '0' || *s > '9')
    return false;
  long long limit = negative ? -static_cast<long long>(INT_MIN) : INT_MAX;
  long long magnitude = 0;
  for (; *s >= '0' && *s <= '9'; ++s) {
    magnitude = magnitude * 10 + (*s - '0');
    if (magnitude > limit)
      return false;
  }
  while (isBlank(*s))
    ++s;
  if (*s)
    return false;
  *value = static_cast<int>(negative ? -magnitude : magnitude);
  return true;
}

// Visits a subtree in document order without recursion.
template <class Visit> void walk(pugi::xml_node const root, Visit visit) {
  pugi::xml_node node = root;
  while (true) {
    visit(node);
    if (node.first_child()) {
      node = node.first_child();
      continue;
    }
    while (node != root && !node.next_sibling())
      node = node.parent();
    if (node == root)
      return;
    node = node.next_sibling();
  }
}

} // namespace

// ---------------------------------------------------------------------------
// Tree

namespace xml_detail {

Tree::~Tree() {
  // The objects go before the DOM they point into.
  nodes.clear();
  attrs.clear();
}

XmlNode *Tree::wrap(pugi::xml_node node) {
  if (!node)
    return nullptr;
  pugi::xml_node_struct *key = node.internal_object();
  if (owner && key == owner->m_node)
    return owner;
  if (node.type() == pugi::node_document)
    return nullptr; // the hidden root of a free-standing tree
  auto found = nodes.find(key);
  if (found != nodes.end())
    return found->second.get();
  XmlNode *made = Access::make(this, node);
  nodes.emplace(key, std::unique_ptr<XmlNode>(made));
  return made;
}

XmlAttribute *Tree::wrap(pugi::xml_attribute attr) {
  if (!attr)
    return nullptr;
  auto found = attrs.find(attr.internal_object());
  if (found != attrs.end())
    return found->second.get();
  XmlAttribute *made = Access::make(this, attr);
  attrs.emplace(attr.internal_object(), std::unique_ptr<XmlAttribute>(made));
  return made;
}

void Tree::forget(pugi::xml_node subtree) {
  if (nodes.empty() && attrs.empty())
    return;
  walk(subtree, [this](pugi::xml_node node) {
    if (!nodes.empty())
      nodes.erase(node.internal_object());
    if (!attrs.empty())
      for (pugi::xml_attribute a = node.first_attribute(); a; a = a.next_attribute())
        attrs.erase(a.internal_object());
  });
}

void Tree::forget(pugi::xml_attribute attr) { attrs.erase(attr.internal_object()); }

void Tree::forgetAll() {
  nodes.clear();
  attrs.clear();
}

void Tree::destroy(pugi::xml_node subtree) {
  forget(subtree);
  pugi::xml_node node = subtree;
  while (true) {
    while (node.first_child())
      node = node.first_child();
    if (node == subtree)
      break;
    pugi::xml_node parent = node.parent();
    parent.remove_child(node);
    node = parent;
  }
  subtree.parent().remove_child(subtree);
}

XmlNode *Access::make(Tree *tree, pugi::xml_node node) {
  pugi::xml_node_struct *s = node.internal_object();
  switch (node.type()) {
  case pugi::node_element:
    return new XmlElement(tree, s);
  case pugi::node_pcdata:
  case pugi::node_cdata:
    return new XmlText(tree, s);
  case pugi::node_comment:
    return new XmlComment(tree, s);
  case pugi::node_declaration:
    return new XmlDeclaration(tree, s);
  default:
    return new XmlNode(XmlNode::UNKNOWN, tree, s);
  }
}

XmlAttribute *Access::make(Tree *tree, pugi::xml_attribute attr) {
  return new XmlAttribute(tree, attr.internal_object());
}

void Access::migrate(Tree *src, pugi::xml_node const from, Tree *dst, pugi::xml_node to) {
  auto moveNode = [&](pugi::xml_node s, pugi::xml_node d) {
    XmlNode *object = nullptr;
    if (src->owner && src->owner->m_node == s.internal_object()) {
      object = src->owner;
    } else if (!src->nodes.empty()) {
      auto found = src->nodes.find(s.internal_object());
      if (found != src->nodes.end()) {
        object = found->second.release();
        src->nodes.erase(found);
      }
    }
    if (object) {
      object->m_tree = dst;
      object->m_node = d.internal_object();
      dst->nodes.emplace(d.internal_object(), std::unique_ptr<XmlNode>(object));
    }
    if (src->attrs.empty())
      return;
    pugi::xml_attribute da = d.first_attribute();
    for (pugi::xml_attribute sa = s.first_attribute(); sa; sa = sa.next_attribute()) {
      auto found = src->attrs.find(sa.internal_object());
      if (found != src->attrs.end()) {
        XmlAttribute *attr = found->second.release();
        src->attrs.erase(found);
        attr->m_tree = dst;
        attr->m_attr = da.internal_object();
        dst->attrs.emplace(da.internal_object(), std::unique_ptr<XmlAttribute>(attr));
      }
      da = da.next_attribute();
    }
  };

  if (src->nodes.empty() && src->attrs.empty()) {
    moveNode(from, to); // at most the owner to rebind
    return;
  }
  // The copy has the shape of the original: walk both in step.
  pugi::xml_node s = from, d = to;
  while (true) {
    moveNode(s, d);
    if (s.first_child()) {
      s = s.first_child();
      d = d.first_child();
      continue;
    }
    while (s != from && !s.next_sibling()) {
      s = s.parent();
      d = d.parent();
    }
    if (s == from)
      return;
    s = s.next_sibling();
    d = d.next_sibling();
  }
}

} // namespace xml_detail

// ---------------------------------------------------------------------------
// XmlBase

XmlBase::~XmlBase() = default;

// ---------------------------------------------------------------------------
// XmlNode

XmlNode::XmlNode(NodeType type, int pugiType) : m_type(type), m_ownsTree(true) {
  m_tree = new Tree(this);
  if (pugiType == pugi::node_document)
    m_node = m_tree->doc.internal_object();
  else
    m_node = m_tree->doc.append_child(static_cast<pugi::xml_node_type>(pugiType)).internal_object();
  if (!m_node) {
    delete m_tree;
    throw std::bad_alloc();
  }
}

XmlNode::XmlNode(NodeType type, Tree *tree, pugi::xml_node_struct *node)
    : m_type(type), m_tree(tree), m_node(node) {}

XmlNode::~XmlNode() {
  if (m_ownsTree) {
    m_tree->owner = nullptr;
    delete m_tree;
  }
}

String XmlNode::Value() const {
  pugi::xml_node n = handle(m_node);
  switch (n.type()) {
  case pugi::node_document:
    return static_cast<XmlDocument const *>(this)->m_path;
  case pugi::node_element:
  case pugi::node_pi:
    return String(n.name());
  case pugi::node_declaration:
    return String("xml");
  default:
    return String(n.value());
  }
}

void XmlNode::SetValue(String const &value) {
  pugi::xml_node n = handle(m_node);
  switch (n.type()) {
  case pugi::node_document:
    static_cast<XmlDocument *>(this)->m_path = value;
    break;
  case pugi::node_element:
  case pugi::node_pi:
    n.set_name(value.c_str());
    break;
  case pugi::node_declaration:
    break;
  default:
    n.set_value(value.c_str());
    break;
  }
}

XmlNode *XmlNode::Parent() { return m_tree->wrap(handle(m_node).parent()); }
XmlNode *XmlNode::FirstChild() { return m_tree->wrap(handle(m_node).first_child()); }
XmlNode *XmlNode::LastChild() { return m_tree->wrap(handle(m_node).last_child()); }
XmlNode *XmlNode::NextSibling() { return m_tree->wrap(handle(m_node).next_sibling()); }
XmlNode *XmlNode::PreviousSibling() { return m_tree->wrap(handle(m_node).previous_sibling()); }

XmlElement *XmlNode::FirstChildElement() {
  for (pugi::xml_node c = handle(m_node).first_child(); c; c = c.next_sibling())
    if (c.type() == pugi::node_element)
      return static_cast<XmlElement *>(m_tree->wrap(c));
  return nullptr;
}

XmlElement *XmlNode::FirstChildElement(String const &name) {
  return static_cast<XmlElement *>(m_tree->wrap(handle(m_node).child(name.c_str())));
}

XmlElement *XmlNode::NextSiblingElement() {
  for (pugi::xml_node c = handle(m_node).next_sibling(); c; c = c.next_sibling())
    if (c.type() == pugi::node_element)
      return static_cast<XmlElement *>(m_tree->wrap(c));
  return nullptr;
}

XmlElement *XmlNode::NextSiblingElement(String const &name) {
  return static_cast<XmlElement *>(m_tree->wrap(handle(m_node).next_sibling(name.c_str())));
}

XmlDocument *XmlNode::GetDocument() {
  XmlNode *owner = m_tree->owner;
  return owner && owner->m_type == DOCUMENT ? static_cast<XmlDocument *>(owner) : nullptr;
}

bool XmlNode::NoChildren() const { return !handle(m_node).first_child(); }

String XmlNode::GetText() const {
  pugi::xml_node first = handle(m_node).first_child();
  if (first.type() == pugi::node_pcdata || first.type() == pugi::node_cdata)
    return String(first.value());
  return String();
}

#define ZEL_XML_VIEW(Method, Class, Kind)                                                          \
  Class *XmlNode::Method() { return m_type == Kind ? static_cast<Class *>(this) : nullptr; }       \
  Class const *XmlNode::Method() const {                                                           \
    return m_type == Kind ? static_cast<Class const *>(this) : nullptr;                            \
  }
ZEL_XML_VIEW(ToElement, XmlElement, ELEMENT)
ZEL_XML_VIEW(ToComment, XmlComment, COMMENT)
ZEL_XML_VIEW(ToText, XmlText, TEXT)
ZEL_XML_VIEW(ToDeclaration, XmlDeclaration, DECLARATION)
ZEL_XML_VIEW(ToDocument, XmlDocument, DOCUMENT)
#undef ZEL_XML_VIEW

XmlNode *XmlNode::LinkEndChild(XmlNode *node) {
  if (!node || node->m_type == DOCUMENT)
    return nullptr;
  pugi::xml_node parent = handle(m_node);
  pugi::xml_node child = handle(node->m_node);

  if (node->m_tree == m_tree) {
    // pugixml refuses a move under the node's own subtree; the node object
    // keeps its pugixml node, so nothing needs rebinding.
    return parent.append_move(child) ? node : nullptr;
  }

  pugi::xml_node copy = parent.append_copy(child);
  if (!copy)
    return nullptr;
  Tree *source = node->m_tree;
  Access::migrate(source, child, m_tree, copy);
  if (node->m_ownsTree) {
    node->m_ownsTree = false;
    source->owner = nullptr;
    delete source;
  } else {
    source->destroy(child);
  }
  return node;
}

XmlNode *XmlNode::InsertEndChild(XmlNode const &node) {
  if (node.m_type == DOCUMENT)
    return nullptr;
  // Through a free-standing copy: the node may be this one or an ancestor.
  XmlNode *copy = node.Clone();
  if (LinkEndChild(copy))
    return copy;
  delete copy;
  return nullptr;
}

bool XmlNode::RemoveChild(XmlNode *child) {
  if (!child || child->m_tree != m_tree || handle(child->m_node).parent() != handle(m_node))
    return false;
  m_tree->destroy(handle(child->m_node));
  return true;
}

void XmlNode::Clear() {
  pugi::xml_node self = handle(m_node);
  while (pugi::xml_node child = self.first_child())
    m_tree->destroy(child);
}

XmlNode *XmlNode::Clone() const {
  if (m_type == DOCUMENT)
    return new XmlDocument(*static_cast<XmlDocument const *>(this));
  auto tree = std::make_unique<Tree>(nullptr);
  pugi::xml_node copy = tree->doc.append_copy(handle(m_node));
  if (!copy)
    throw std::bad_alloc();
  XmlNode *made = Access::make(tree.get(), copy);
  made->m_ownsTree = true;
  tree->owner = made;
  tree.release();
  return made;
}

void XmlNode::copyContentFrom(XmlNode const &other) {
  pugi::xml_node self = handle(m_node);
  pugi::xml_node source = handle(other.m_node);
  Clear();
  while (pugi::xml_attribute a = self.first_attribute()) {
    m_tree->forget(a);
    self.remove_attribute(a);
  }
  switch (self.type()) {
  case pugi::node_element:
  case pugi::node_pi:
    self.set_name(source.name());
    break;
  case pugi::node_document:
  case pugi::node_declaration:
    break;
  default:
    self.set_value(source.value());
    break;
  }
  for (pugi::xml_attribute a = source.first_attribute(); a; a = a.next_attribute())
    self.append_attribute(a.name()).set_value(a.value());
  for (pugi::xml_node c = source.first_child(); c; c = c.next_sibling())
    self.append_copy(c);
}

String XmlNode::toString() const {
  std::string out;
  pugi::xml_node self = handle(m_node);
  if (self.type() == pugi::node_document)
    xml_detail::writeDocument(out, self,
                              XmlDocument::FORMAT_COMPACT | XmlDocument::FORMAT_NO_DECLARATION);
  else
    xml_detail::writeNode(out, self, false, 0);
  return String(std::move(out));
}

// ---------------------------------------------------------------------------
// XmlAttribute

String XmlAttribute::Name() const { return String(pugi::xml_attribute(m_attr).name()); }
String XmlAttribute::Value() const { return String(pugi::xml_attribute(m_attr).value()); }

void XmlAttribute::SetValue(String const &value) {
  pugi::xml_attribute(m_attr).set_value(value.c_str());
}

bool XmlAttribute::QueryIntValue(int *value) const {
  return value && parseDecimalInt(pugi::xml_attribute(m_attr).value(), value);
}

XmlAttribute *XmlAttribute::Next() {
  return m_tree->wrap(pugi::xml_attribute(m_attr).next_attribute());
}

XmlAttribute *XmlAttribute::Previous() {
  return m_tree->wrap(pugi::xml_attribute(m_attr).previous_attribute());
}

String XmlAttribute::toString() const {
  std::string out;
  xml_detail::writeAttribute(out, pugi::xml_attribute(m_attr));
  return String(std::move(out));
}

// ---------------------------------------------------------------------------
// XmlElement

XmlElement::XmlElement(String const &name) : XmlNode(ELEMENT, pugi::node_element) {
  handle(m_node).set_name(name.c_str());
}

XmlElement::XmlElement(XmlElement const &other) : XmlNode(ELEMENT, pugi::node_element) {
  copyContentFrom(other);
}

XmlElement &XmlElement::operator=(XmlElement const &other) {
  if (this != &other) {
    // other may live below this element: copy it out before clearing.
    std::unique_ptr<XmlNode> copy(other.Clone());
    copyContentFrom(*copy);
  }
  return *this;
}

String XmlElement::Attribute(String const &name) const {
  return String(handle(m_node).attribute(name.c_str()).value());
}

bool XmlElement::HasAttribute(String const &name) const {
  return static_cast<bool>(handle(m_node).attribute(name.c_str()));
}

XmlAttribute *XmlElement::FindAttribute(String const &name) {
  return m_tree->wrap(handle(m_node).attribute(name.c_str()));
}

XmlAttribute *XmlElement::FirstAttribute() {
  return m_tree->wrap(handle(m_node).first_attribute());
}

XmlAttribute *XmlElement::LastAttribute() { return m_tree->wrap(handle(m_node).last_attribute()); }

void XmlElement::SetAttribute(String const &name, String const &value) {
  pugi::xml_node self = handle(m_node);
  pugi::xml_attribute attr = self.attribute(name.c_str());
  if (!attr)
    attr = self.append_attribute(name.c_str());
  attr.set_value(value.c_str());
}

void XmlElement::SetAttribute(String const &name, int value) {
  SetAttribute(name, String::fromInt(value));
}

bool XmlElement::QueryIntAttribute(String const &name, int *value) const {
  pugi::xml_attribute attr = handle(m_node).attribute(name.c_str());
  return attr && value && parseDecimalInt(attr.value(), value);
}

bool XmlElement::RemoveAttribute(String const &name) {
  pugi::xml_node self = handle(m_node);
  pugi::xml_attribute attr = self.attribute(name.c_str());
  if (!attr)
    return false;
  m_tree->forget(attr);
  return self.remove_attribute(attr);
}

// ---------------------------------------------------------------------------
// XmlComment, XmlText, XmlDeclaration

XmlComment::XmlComment(String const &text) : XmlNode(COMMENT, pugi::node_comment) {
  handle(m_node).set_value(text.c_str());
}

XmlComment::XmlComment(XmlComment const &other) : XmlNode(COMMENT, pugi::node_comment) {
  copyContentFrom(other);
}

XmlText::XmlText(String const &text, bool cdata)
    : XmlNode(TEXT, cdata ? pugi::node_cdata : pugi::node_pcdata) {
  handle(m_node).set_value(text.c_str());
}

XmlText::XmlText(XmlText const &other)
    : XmlNode(TEXT, other.CDATA() ? pugi::node_cdata : pugi::node_pcdata) {
  copyContentFrom(other);
}

bool XmlText::CDATA() const { return handle(m_node).type() == pugi::node_cdata; }

XmlDeclaration::XmlDeclaration(String const &version, String const &encoding,
                               String const &standalone)
    : XmlNode(DECLARATION, pugi::node_declaration) {
  pugi::xml_node self = handle(m_node);
  if (!version.empty())
    self.append_attribute("version").set_value(version.c_str());
  if (!encoding.empty())
    self.append_attribute("encoding").set_value(encoding.c_str());
  if (!standalone.empty())
    self.append_attribute("standalone").set_value(standalone.c_str());
}

XmlDeclaration::XmlDeclaration(XmlDeclaration const &other)
    : XmlNode(DECLARATION, pugi::node_declaration) {
  copyContentFrom(other);
}

String XmlDeclaration::Version() const {
  return String(handle(m_node).attribute("version").value());
}
String XmlDeclaration::Encoding() const {
  return String(handle(m_node).attribute("encoding").value());
}
String XmlDeclaration::Standalone() const {
  return String(handle(m_node).attribute("standalone").value());
}

// ---------------------------------------------------------------------------
// XmlDocument

XmlDocument::XmlDocument() : XmlNode(DOCUMENT, pugi::node_document) {}

XmlDocument::XmlDocument(String const &path)
    : XmlNode(DOCUMENT, pugi::node_document), m_path(path) {}

XmlDocument::XmlDocument(XmlDocument const &other)
    : XmlNode(DOCUMENT, pugi::node_document), m_path(other.m_path) {
  copyContentFrom(other);
}

XmlDocument &XmlDocument::operator=(XmlDocument const &other) {
  if (this != &other) {
    m_path = other.m_path;
    copyContentFrom(other); // another document is always another tree
    ClearError();
  }
  return *this;
}

XmlDocument::~XmlDocument() = default;

void XmlDocument::ClearError() {
  m_error = false;
  m_errorDesc = String();
  m_errorRow = 0;
  m_errorCol = 0;
}

bool XmlDocument::LoadFile(String const &path) {
  m_path = path;
  return LoadFile();
}

bool XmlDocument::LoadFile() {
  m_tree->forgetAll();
  m_tree->doc.reset();
  ClearError();
  std::string text;
  std::FILE *file = std::fopen(m_path.c_str(), "rb");
  bool ok = file != nullptr;
  if (ok) {
    char block[65536];
    std::size_t got;
    while ((got = std::fread(block, 1, sizeof block, file)) > 0)
      text.append(block, got);
    ok = !std::ferror(file);
    std::fclose(file);
  }
  if (!ok) {
    m_error = true;
    m_errorDesc = m_path + ": " + std::strerror(errno);
    return false;
  }
  return parseText(text.data(), text.size(), false, true);
}

bool XmlDocument::SaveFile() const { return SaveFile(m_path); }

bool XmlDocument::SaveFile(String const &path) const {
  String text = GetFormattedStr(FORMAT_STANDARD);
  std::FILE *file = std::fopen(path.c_str(), "wb");
  if (!file)
    return false;
  bool ok = std::fwrite(text.data(), 1, text.size(), file) == text.size();
  return std::fclose(file) == 0 && ok;
}

bool XmlDocument::Parse(String const &text) {
  return parseText(text.data(), text.size(), false, false);
}

bool XmlDocument::ParseFragment(String const &text) {
  return parseText(text.data(), text.size(), true, false);
}

bool XmlDocument::parseText(char const *data, std::size_t size, bool fragment, bool detect) {
  m_tree->forgetAll();
  ClearError();
  unsigned int options = xml_detail::PARSE_OPTIONS | (fragment ? pugi::parse_fragment : 0u);
  pugi::xml_parse_result result = m_tree->doc.load_buffer(
      data, size, options, detect ? pugi::encoding_auto : pugi::encoding_utf8);
  std::ptrdiff_t offset = result.offset;
  char const *description = result.description();
  if (result) {
    // pugixml reads on after the root element; a document has only one.
    if (fragment)
      return true;
    pugi::xml_node second;
    int roots = 0;
    for (pugi::xml_node c = m_tree->doc.first_child(); c && roots < 2; c = c.next_sibling())
      if (c.type() == pugi::node_element && ++roots == 2)
        second = c;
    if (!second)
      return true;
    offset = second.offset_debug();
    if (offset > 0)
      --offset; // offset_debug points at the name, past the '<'
    description = "More than one root element";
  }

  m_tree->doc.reset();
  m_error = true;
  // Line and column of the offset. Columns count code points, so UTF-8
  // continuation bytes do not count; CR LF and a lone CR end a line as LF does.
  std::size_t end = offset < 0 ? 0 : static_cast<std::size_t>(offset);
  if (end > size)
    end = size;
  int line = 1, column = 1;
  for (std::size_t i = 0; i < end; ++i) {
    unsigned char ch = static_cast<unsigned char>(data[i]);
    if (ch == '\n' || (ch == '\r' && (i + 1 >= size || data[i + 1] != '\n'))) {
      ++line;
      column = 1;
    } else if (ch != '\r' && (ch & 0xC0) != 0x80) {
      ++column;
    }
  }
  m_errorRow = line;
  m_errorCol = column;
  m_errorDesc = String::format("line %d, column %d: %s", line, column, description);
  return false;
}

XmlElement *XmlDocument::RootElement() { return FirstChildElement(); }

String XmlDocument::GetFormattedStr(int flags) const {
  std::string out;
  xml_detail::writeDocument(out, handle(m_node), flags);
  return String(std::move(out));
}

} // namespace zel
