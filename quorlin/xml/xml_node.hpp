// XmlNode: one element of an XML document, with its name, attributes, children and text.
//
// A document is its root node. A node owns its name, its text, its attributes and its
// children; a child belongs to exactly one parent. Every string handed in is copied and no
// byte of a name, value or text is checked, escaped or decoded: the tree holds exactly the
// bytes it was given.
//
// The children List and the attribute set are allocated with the first child or attribute, so
// that the leaves of a large document cost no more than their name and text; readers that ask
// a node without any see an empty List. Attributes keep their order and may repeat a name.
// Walks read the Lists without their locks: no other thread may change a tree being read,
// written or freed. Destroying a node frees its whole subtree without recursion, so a tree of
// any depth can be freed.
#ifndef QUORLIN_XML_XML_NODE_HPP
#define QUORLIN_XML_XML_NODE_HPP

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "quorlin/base/list.hpp"

namespace quorlin {

struct XmlNode;

struct XmlAttribute {
  std::string name;
  std::string value;
};

using XmlChildren = List<XmlNode>;  // each child lives inside its List node
using XmlAttributes = List<std::unique_ptr<XmlAttribute>>;

struct XmlAttributeSet {
  XmlAttributes attributes;
};

struct XmlNode {
  explicit XmlNode(std::string_view element_name) : name(element_name) {}
  XmlNode(const XmlNode&) = delete;
  XmlNode& operator=(const XmlNode&) = delete;
  XmlNode(XmlNode&&) noexcept = default;
  XmlNode& operator=(XmlNode&&) noexcept = default;
  ~XmlNode();

  std::string name;
  std::unique_ptr<XmlChildren> children;  // null until the first child
  std::optional<std::string> text;
  std::unique_ptr<XmlAttributeSet> attribute_set;  // null until the first attribute
};

using XmlChild = ListNode<XmlNode>;

std::unique_ptr<XmlNode> xml_node_new(std::string_view name);

// Moves `child` in as the last child of `node`; returns the List node that now holds it.
XmlChild* xml_node_add_child(XmlNode& node, XmlNode&& child);

// Appends a new empty element named `name` to `parent` and returns it.
XmlNode& xml_add_element(XmlNode& parent, std::string_view name);

// The children in document order; an empty List for a node without any.
const XmlChildren& xml_node_children(const XmlNode& node);

// The attributes in the order they were added; an empty List for a node without any.
const XmlAttributes& xml_node_attributes(const XmlNode& node);

// Replaces the text with a copy of `text`, or clears it for std::nullopt.
void xml_node_set_text(XmlNode& node, std::optional<std::string_view> text);

// The text, borrowed from the node, or std::nullopt when none was set.
std::optional<std::string_view> xml_node_text(const XmlNode& node);

// Appends an attribute holding copies of `name` and `value`; returns its List node.
ListNode<std::unique_ptr<XmlAttribute>>* xml_node_add_attribute(XmlNode& node,
                                                                std::string_view name,
                                                                std::string_view value);

// The value of the last attribute named `name` (case-sensitive), borrowed, or std::nullopt.
std::optional<std::string_view> xml_node_attribute(const XmlNode& node, std::string_view name);

}  // namespace quorlin

#endif  // QUORLIN_XML_XML_NODE_HPP
