// XmlNode: one element of an XML document, with its name, attributes, children and text.
//
// A document is its root node, which xml_node_new and xml_parse return. The root owns the
// document's storage (XmlDocument), and every node, attribute, name and text of the tree lives
// there: a node owns its subtree in the sense that the subtree goes when the root goes, all
// at once and without recursion, so a tree of any depth or size is freed in a few steps.
// Nodes are neither copied nor moved; they are made inside a tree by xml_add_element, and a
// separate tree joins another by xml_node_add_child, which copies it over.
//
// Every string handed in is copied and no byte of a name, value or text is checked, escaped or
// decoded: the tree holds exactly the bytes it was given. Names and texts are returned as views
// borrowed from the tree, valid until the node is changed or the tree is freed.
//
// The children List and the attribute set are made with the first child or attribute, so the
// leaves of a large document cost no more than their name and text; readers that ask a node
// without any see an empty List. Attributes keep their order and may repeat a name. Appends
// take the List's lock; walks read the Lists without it: no other thread may change a tree
// being read, written or freed.
#ifndef QUORLIN_XML_XML_NODE_HPP
#define QUORLIN_XML_XML_NODE_HPP

#include <cstddef>
#include <memory>
#include <optional>
#include <string_view>

#include "quorlin/base/list.hpp"
#include "quorlin/xml/xml_document.hpp"

namespace quorlin {

struct XmlAttribute {
  std::string_view name;
  std::string_view value;
};

struct XmlNode;
using XmlChildren = List<XmlNode, XmlArenaNodes>;  // each child lives inside its List node
using XmlAttributes = List<XmlAttribute, XmlArenaNodes>;
using XmlChild = ListNode<XmlNode>;

struct XmlAttributeSet {
  explicit XmlAttributeSet(XmlArenaNodes storage) : attributes(storage) {}
  XmlAttributes attributes;
};

// What a node is made from: the document it lives in and its name, whose bytes already live in
// that document.
struct XmlNodeSeed {
  XmlDocument* document;
  std::string_view name;
};

struct XmlNode {
  explicit XmlNode(XmlNodeSeed seed);
  XmlNode(const XmlNode&) = delete;
  XmlNode& operator=(const XmlNode&) = delete;
  ~XmlNode();  // the root frees its document, and the whole tree with it

  std::string_view name;
  XmlChildren* children = nullptr;           // null until the first child
  XmlAttributeSet* attribute_set = nullptr;  // null until the first attribute
  XmlDocument* document;
  char* text_bytes = nullptr;  // null while there is no text
  std::size_t text_size = 0;
};

// A new tree of one element named `name`.
std::unique_ptr<XmlNode> xml_node_new(std::string_view name);

// Copies the tree `child` in as the last child of `node` and frees `child`; returns the List
// node that now holds the copy.
XmlChild* xml_node_add_child(XmlNode& node, std::unique_ptr<XmlNode> child);

// Appends a new empty element named `name` to `parent` and returns it.
XmlNode& xml_add_element(XmlNode& parent, std::string_view name);

// For code that builds a tree no other thread can reach yet (the parser): appends an element
// whose name already lives in the parent's document, without copying the name and without
// taking the children List's lock.
XmlNode& xml_add_element_unshared(XmlNode& parent, std::string_view name_in_document);

// The children in document order; an empty List for a node without any.
const XmlChildren& xml_node_children(const XmlNode& node);

// The attributes in the order they were added; an empty List for a node without any.
const XmlAttributes& xml_node_attributes(const XmlNode& node);

// Replaces the text with a copy of `text`, or clears it for std::nullopt. `text` may be a view
// of this tree's own bytes, even of the node's current text.
void xml_node_set_text(XmlNode& node, std::optional<std::string_view> text);

// The text, borrowed from the node, or std::nullopt when none was set.
std::optional<std::string_view> xml_node_text(const XmlNode& node);

// Appends an attribute holding copies of `name` and `value`; returns its List node.
ListNode<XmlAttribute>* xml_node_add_attribute(XmlNode& node, std::string_view name,
                                               std::string_view value);

// The value of the last attribute named `name` (case-sensitive), borrowed, or std::nullopt.
std::optional<std::string_view> xml_node_attribute(const XmlNode& node, std::string_view name);

}  // namespace quorlin

#endif  // QUORLIN_XML_XML_NODE_HPP
