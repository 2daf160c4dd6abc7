#pragma once
// The XML tree of the foundation: zel::XmlDocument, zel::XmlNode,
// zel::XmlElement, zel::XmlAttribute, zel::XmlBase (and the small node kinds
// zel::XmlComment, zel::XmlText, zel::XmlDeclaration).
//
// The names follow the familiar TinyXML shape, since script and category code
// is written against it; the storage underneath is a pugixml DOM.
//
// Ownership
// ---------
// Every node lives in a tree. A tree is owned by exactly one object, its
// *owner*: an XmlDocument, or a free-standing node made with `new` (for
// example `new XmlElement("Script")`) or returned by Clone(). Deleting the
// owner frees the whole tree, every node and attribute object in it included.
// All other XmlNode / XmlAttribute objects are created on first navigation and
// belong to the tree: never delete them, and a pointer to one stays valid for
// as long as the node stays in a tree (RemoveChild, Clear, RemoveAttribute,
// Parse and LoadFile end it). Moving a node with LinkEndChild keeps the
// pointers to it and to everything below it valid: they then belong to the new
// tree.
//
// Text
// ----
// Names and values are UTF-8 bytes exactly as they stand in the document, with
// entity and character references decoded ("&amp;" gives "&"). Text that
// consists of blanks only is not kept by the parser. The writer escapes what
// it must (& < > in text; & < > " and control characters in attribute values)
// and writes UTF-8, so names, values and text come back byte for byte; the
// few things XML itself cannot carry are listed at XmlComment and XmlText.
// Values cannot hold a NUL byte: a value is cut at its first NUL.
// Names are written as given; a name that is no XML name makes text that does
// not parse back.
//
// Thread-safety: none inside a tree. Even const navigation creates node
// objects, so one tree is used by one thread at a time. Distinct trees are
// independent.

#include <cstddef>

#include "zel/String.h"

namespace pugi {
struct xml_node_struct;
struct xml_attribute_struct;
} // namespace pugi

namespace zel {

class XmlNode;
class XmlElement;
class XmlComment;
class XmlText;
class XmlDeclaration;
class XmlDocument;
class XmlAttribute;

namespace xml_detail {
class Tree;
struct Access;
} // namespace xml_detail

/// Common base of nodes and attributes.
class XmlBase {
public:
  virtual ~XmlBase();

  /// The object's XML text, written compactly (no whitespace is added).
  /// For a node it is re-parsable XML of that node and everything below it;
  /// the texts of several nodes, concatenated, form a fragment that
  /// XmlDocument::ParseFragment reads back into the same nodes. For a
  /// document it is the concatenation of its children's texts (no
  /// declaration is added). For an attribute it is `name="value"`.
  virtual String toString() const = 0;

protected:
  XmlBase() = default;
  XmlBase(XmlBase const &) = default;
  XmlBase &operator=(XmlBase const &) = default;
};

class XmlNode : public XmlBase {
public:
  enum NodeType {
    DOCUMENT,
    ELEMENT,
    COMMENT,
    /// A processing instruction or a document type declaration.
    UNKNOWN,
    /// Character data, plain or CDATA section (XmlText::CDATA tells which).
    TEXT,
    /// The `<?xml ...?>` declaration.
    DECLARATION
  };

  XmlNode(XmlNode const &) = delete;
  XmlNode &operator=(XmlNode const &) = delete;
  /// Deleting a tree's owner frees the tree; see the file comment.
  ~XmlNode() override;

  NodeType Type() const noexcept { return m_type; }

  /// Element: the name. Comment, text: the text. Processing instruction: its
  /// target. Document type: its text. Declaration: "xml". Document: its path.
  String Value() const;
  /// Sets what Value() gives; on a declaration it does nothing.
  void SetValue(String const &value);

  /// Navigation; null where there is no such node. The parent of a
  /// free-standing node is null. Pointers stay valid as described above.
  XmlNode *Parent();
  XmlNode const *Parent() const { return const_cast<XmlNode *>(this)->Parent(); }
  XmlNode *FirstChild();
  XmlNode const *FirstChild() const { return const_cast<XmlNode *>(this)->FirstChild(); }
  XmlNode *LastChild();
  XmlNode const *LastChild() const { return const_cast<XmlNode *>(this)->LastChild(); }
  XmlNode *NextSibling();
  XmlNode const *NextSibling() const { return const_cast<XmlNode *>(this)->NextSibling(); }
  XmlNode *PreviousSibling();
  XmlNode const *PreviousSibling() const { return const_cast<XmlNode *>(this)->PreviousSibling(); }
  /// Element children and siblings, optionally only those of a name
  /// (compared exactly, case included).
  XmlElement *FirstChildElement();
  XmlElement const *FirstChildElement() const {
    return const_cast<XmlNode *>(this)->FirstChildElement();
  }
  XmlElement *FirstChildElement(String const &name);
  XmlElement const *FirstChildElement(String const &name) const {
    return const_cast<XmlNode *>(this)->FirstChildElement(name);
  }
  XmlElement *NextSiblingElement();
  XmlElement const *NextSiblingElement() const {
    return const_cast<XmlNode *>(this)->NextSiblingElement();
  }
  XmlElement *NextSiblingElement(String const &name);
  XmlElement const *NextSiblingElement(String const &name) const {
    return const_cast<XmlNode *>(this)->NextSiblingElement(name);
  }
  /// The document this node is part of; null for a free-standing tree.
  XmlDocument *GetDocument();
  XmlDocument const *GetDocument() const { return const_cast<XmlNode *>(this)->GetDocument(); }
  bool NoChildren() const;

  /// Text of the first child when that child is a text node (plain or
  /// CDATA); empty otherwise.
  String GetText() const;

  /// Typed views: this node as that kind, or null when it is another kind.
  XmlElement *ToElement();
  XmlElement const *ToElement() const;
  XmlComment *ToComment();
  XmlComment const *ToComment() const;
  XmlText *ToText();
  XmlText const *ToText() const;
  XmlDeclaration *ToDeclaration();
  XmlDeclaration const *ToDeclaration() const;
  XmlDocument *ToDocument();
  XmlDocument const *ToDocument() const;

  /// Appends `node` as the last child and returns it. A free-standing node is
  /// taken over (the caller no longer deletes it); a node that is already in
  /// a tree, this one or another, is moved here. In both cases pointers to
  /// the node and its descendants stay valid.
  /// Refused, returning null and changing nothing (a free-standing node then
  /// still belongs to the caller): a null node, a document, this node or one
  /// of its ancestors, and a child this node cannot hold (only documents and
  /// elements have children; a declaration or document type only goes under
  /// a document).
  XmlNode *LinkEndChild(XmlNode *node);
  /// Appends a deep copy of `node`; returns the copy, or null when refused
  /// as in LinkEndChild.
  XmlNode *InsertEndChild(XmlNode const &node);
  /// Removes a child and frees it with everything below it; pointers to them
  /// end. False (and nothing happens) when `child` is not a child of this.
  bool RemoveChild(XmlNode *child);
  /// Removes and frees every child.
  void Clear();

  /// A deep copy that the caller owns and deletes: a free-standing node of
  /// the same kind (an XmlDocument for a document).
  XmlNode *Clone() const;

  String toString() const override;

protected:
  /// Creates a free-standing node of the given pugixml kind (see Xml.cpp).
  XmlNode(NodeType type, int pugiType);
  /// Wraps a node of an existing tree.
  XmlNode(NodeType type, xml_detail::Tree *tree, pugi::xml_node_struct *node);
  /// Replaces this node's attributes and children by copies of other's.
  void copyContentFrom(XmlNode const &other);

  NodeType m_type;
  xml_detail::Tree *m_tree = nullptr;
  pugi::xml_node_struct *m_node = nullptr;
  /// True for the tree's owner: this object frees the tree.
  bool m_ownsTree = false;

  friend struct xml_detail::Access;
  friend class xml_detail::Tree;
};

/// A name/value pair of an element. Objects belong to the element's tree.
class XmlAttribute : public XmlBase {
public:
  XmlAttribute(XmlAttribute const &) = delete;
  XmlAttribute &operator=(XmlAttribute const &) = delete;

  String Name() const;
  String Value() const;
  void SetValue(String const &value);
  /// Parses the value as a decimal int. Blanks (space, tab, CR, LF) around
  /// the number and one leading sign are accepted; anything else ("12abc",
  /// "0x10", "1.5", "", out of the int range) fails. On failure *value is
  /// left as it was and false is returned.
  bool QueryIntValue(int *value) const;
  /// The next attribute of the element in document (or setting) order, or
  /// null after the last.
  XmlAttribute *Next();
  XmlAttribute const *Next() const { return const_cast<XmlAttribute *>(this)->Next(); }
  XmlAttribute *Previous();
  XmlAttribute const *Previous() const { return const_cast<XmlAttribute *>(this)->Previous(); }

  String toString() const override;

private:
  XmlAttribute(xml_detail::Tree *tree, pugi::xml_attribute_struct *attr)
      : m_tree(tree), m_attr(attr) {}

  xml_detail::Tree *m_tree;
  pugi::xml_attribute_struct *m_attr;

  friend struct xml_detail::Access;
  friend class xml_detail::Tree;
};

class XmlElement : public XmlNode {
public:
  /// A free-standing element that the caller owns.
  explicit XmlElement(String const &name);
  /// A free-standing deep copy of other.
  XmlElement(XmlElement const &other);
  /// Takes other's name, attributes and children (deep copies); this object
  /// stays where it is in its tree.
  XmlElement &operator=(XmlElement const &other);

  /// The value of the named attribute, or the empty text when it is absent
  /// (HasAttribute / FindAttribute tell the two apart).
  String Attribute(String const &name) const;
  bool HasAttribute(String const &name) const;
  XmlAttribute *FindAttribute(String const &name);
  XmlAttribute const *FindAttribute(String const &name) const {
    return const_cast<XmlElement *>(this)->FindAttribute(name);
  }
  /// Attributes in document order, then in the order they were first set.
  XmlAttribute *FirstAttribute();
  XmlAttribute const *FirstAttribute() const {
    return const_cast<XmlElement *>(this)->FirstAttribute();
  }
  XmlAttribute *LastAttribute();
  XmlAttribute const *LastAttribute() const {
    return const_cast<XmlElement *>(this)->LastAttribute();
  }
  /// Sets an existing attribute in place (its position stays) or appends a
  /// new one at the end.
  void SetAttribute(String const &name, String const &value);
  void SetAttribute(String const &name, char const *value) { SetAttribute(name, String(value)); }
  /// The value written in decimal.
  void SetAttribute(String const &name, int value);
  /// XmlAttribute::QueryIntValue of the named attribute; false, with *value
  /// untouched, also when the attribute is absent.
  bool QueryIntAttribute(String const &name, int *value) const;
  /// Removes the attribute (its XmlAttribute object ends); false when absent.
  bool RemoveAttribute(String const &name);

private:
  XmlElement(xml_detail::Tree *tree, pugi::xml_node_struct *node) : XmlNode(ELEMENT, tree, node) {}
  friend struct xml_detail::Access;
};

class XmlComment : public XmlNode {
public:
  /// A free-standing comment that the caller owns. XML has no escapes in
  /// comments: the writer breaks any "-->" inside the text as "-- >" so that
  /// the comment parses back, and a CR in it comes back as LF.
  explicit XmlComment(String const &text);
  XmlComment(XmlComment const &other);

private:
  XmlComment(xml_detail::Tree *tree, pugi::xml_node_struct *node) : XmlNode(COMMENT, tree, node) {}
  friend struct xml_detail::Access;
};

class XmlText : public XmlNode {
public:
  /// A free-standing text node that the caller owns; a CDATA section when
  /// cdata is true. A section whose text holds "]]>" or a CR cannot keep that
  /// text exactly, so the writer writes it as plain (escaped) text instead.
  explicit XmlText(String const &text, bool cdata = false);
  XmlText(XmlText const &other);

  bool CDATA() const;

private:
  XmlText(xml_detail::Tree *tree, pugi::xml_node_struct *node) : XmlNode(TEXT, tree, node) {}
  friend struct xml_detail::Access;
};

/// `<?xml version=".." encoding=".." standalone=".."?>`. Empty parts are left
/// out. The writer always writes UTF-8, so it writes any encoding as "UTF-8".
class XmlDeclaration : public XmlNode {
public:
  XmlDeclaration(String const &version, String const &encoding, String const &standalone);
  XmlDeclaration(XmlDeclaration const &other);

  String Version() const;
  String Encoding() const;
  String Standalone() const;

private:
  XmlDeclaration(xml_detail::Tree *tree, pugi::xml_node_struct *node)
      : XmlNode(DECLARATION, tree, node) {}
  friend struct xml_detail::Access;
};

/// A document: the root of a tree, and the way text and files come in and go
/// out. A document owns its tree. It may hold several top-level nodes
/// (comments, a declaration, and normally one element, the root element).
class XmlDocument : public XmlNode {
public:
  /// GetFormattedStr flags.
  /// Standard form: an XML declaration first (`<?xml version="1.0"
  /// encoding="UTF-8"?>`, unless the document holds a declaration node of its
  /// own, which is then written where it stands); every top-level node on a
  /// line of its own; children of an element indented by two blanks per
  /// level, one per line. An element that has a text child is written on one
  /// line with nothing added inside it, so text keeps its exact bytes.
  /// Indentation stops growing after 64 levels. Every line ends in "\n". The
  /// same tree always gives the same bytes, and parse -> format is stable.
  static constexpr int FORMAT_STANDARD = 0;
  /// No whitespace is added anywhere.
  static constexpr int FORMAT_COMPACT = 1;
  /// No declaration is added (a declaration node of the tree is still written).
  static constexpr int FORMAT_NO_DECLARATION = 2;

  XmlDocument();
  /// An empty document that LoadFile() and SaveFile() read and write at path.
  explicit XmlDocument(String const &path);
  /// A deep copy (path included); errors are not copied.
  XmlDocument(XmlDocument const &other);
  XmlDocument &operator=(XmlDocument const &other);
  ~XmlDocument() override;

  /// Reads the file at the document's path; false on failure. The encoding
  /// is detected from a byte order mark or the declaration (UTF-8, UTF-16,
  /// UTF-32, Latin-1), UTF-8 otherwise; names and values are held as UTF-8.
  /// Otherwise as Parse.
  bool LoadFile();
  /// Makes path the document's path, then LoadFile().
  bool LoadFile(String const &path);
  /// Writes GetFormattedStr(FORMAT_STANDARD) to the document's path (or to
  /// path, without changing the document's path). False when the file cannot
  /// be written completely.
  bool SaveFile() const;
  bool SaveFile(String const &path) const;

  /// Replaces the content with the document in text. It must hold exactly
  /// one root element (besides comments, processing instructions, a
  /// declaration and a document type). The text is UTF-8 whatever its
  /// declaration says (a leading byte order mark is skipped). On failure the document is empty,
  /// Error() is true and ErrorDesc() tells where and why. Every node object of the old content
  /// ends, in both cases.
  bool Parse(String const &text);
  /// As Parse, but any number of top-level nodes is accepted, text and none
  /// at all included: the form in which concatenated XmlBase::toString texts
  /// come back.
  bool ParseFragment(String const &text);

  /// Whether the last Parse / ParseFragment / LoadFile failed.
  bool Error() const noexcept { return m_error; }
  /// After a failure: "line L, column C: description", where L and C count
  /// from 1 and C counts characters (code points) of the line. When the file
  /// itself could not be read the text is "<path>: description" instead.
  /// Empty when the last operation succeeded.
  String const &ErrorDesc() const noexcept { return m_errorDesc; }
  /// Line and column of the last error; 0 when there is none or no position.
  int ErrorRow() const noexcept { return m_errorRow; }
  int ErrorCol() const noexcept { return m_errorCol; }
  void ClearError();

  /// The first element child, or null.
  XmlElement *RootElement();
  XmlElement const *RootElement() const { return const_cast<XmlDocument *>(this)->RootElement(); }

  /// The document's text in the form the flags choose (FORMAT_* above,
  /// combined with |). Written UTF-8.
  String GetFormattedStr(int flags = FORMAT_STANDARD) const;

private:
  bool parseText(char const *data, std::size_t size, bool fragment, bool detect);

  String m_path;
  bool m_error = false;
  String m_errorDesc;
  int m_errorRow = 0;
  int m_errorCol = 0;

  friend class XmlNode;
};

} // namespace zel
