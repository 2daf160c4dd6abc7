#pragma once
// Private to the XML classes: the tree that holds a pugixml DOM and the node
// and attribute objects handed out for it.
//
// Node objects are made on first navigation and kept in side tables keyed by
// the pugixml node, so parsing never pays for them and a node asked for twice
// gives the same pointer. The tree's owner (the XmlDocument, or the
// free-standing node the caller holds) is not in the tables: the caller owns
// that object and it owns the tree.

#include <pugixml.hpp>

#include <memory>
#include <string>
#include <unordered_map>

#include "zel/Xml.h"

namespace zel {
namespace xml_detail {

/// The parser options of every document: comments, processing instructions,
/// declarations and document types are kept; entities and line ends are
/// decoded as XML says.
constexpr unsigned int PARSE_OPTIONS = pugi::parse_full;

class Tree {
public:
  explicit Tree(XmlNode *treeOwner) : owner(treeOwner) {}
  ~Tree();
  Tree(Tree const &) = delete;
  Tree &operator=(Tree const &) = delete;

  /// The object for a node of this tree; null for an empty handle and for the
  /// hidden document node of a free-standing tree.
  XmlNode *wrap(pugi::xml_node node);
  XmlAttribute *wrap(pugi::xml_attribute attr);

  /// Ends the objects of a subtree (the owner excepted) before it is freed.
  void forget(pugi::xml_node subtree);
  void forget(pugi::xml_attribute attr);
  /// Ends every object but the owner.
  void forgetAll();

  /// Frees a subtree, its objects first. pugixml frees a subtree by
  /// recursion, which a deep enough document turns into a stack overflow, so
  /// the subtree is taken apart leaf by leaf here.
  void destroy(pugi::xml_node subtree);

  pugi::xml_document doc;
  XmlNode *owner;
  std::unordered_map<pugi::xml_node_struct *, std::unique_ptr<XmlNode>> nodes;
  std::unordered_map<pugi::xml_attribute_struct *, std::unique_ptr<XmlAttribute>> attrs;
};

struct Access {
  static XmlNode *make(Tree *tree, pugi::xml_node node);
  static XmlAttribute *make(Tree *tree, pugi::xml_attribute attr);
  /// Moves the objects of the subtree `from` (in tree src) over to `to`, its
  /// copy in tree dst, rebinding each to its copied node.
  static void migrate(Tree *src, pugi::xml_node from, Tree *dst, pugi::xml_node to);
};

/// Compact (pretty = false) or standard text of a subtree, appended to out.
/// `depth` is the indentation level of the subtree's first line.
void writeNode(std::string &out, pugi::xml_node node, bool pretty, std::size_t depth);
/// The text of a whole document or the hidden root of a tree.
void writeDocument(std::string &out, pugi::xml_node document, int flags);
/// `name="value"` with the value escaped.
void writeAttribute(std::string &out, pugi::xml_attribute attr);

} // namespace xml_detail
} // namespace zel
