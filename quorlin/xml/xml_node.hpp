/// @file
/// XmlNode: one element of an XML document, with its name, attributes, children and text.
///
/// A document is its root node, which xml_node_new and xml_parse return. Every node, attribute,
/// name and text of a tree lives in storage that belongs to the tree and goes with the root, all
/// at once and without recursion, so a tree of any depth or size is freed in a few steps.
/// xml_node_add_child adopts a separate tree: the child keeps its address, and its storage
/// joins the parent's tree in constant time, whatever its size.
///
/// Every string handed in is copied and no byte of a name, value or text is checked, escaped or
/// decoded: the tree holds exactly the bytes it was given. Names and texts are returned as views
/// borrowed from the tree, valid until the node is changed or the tree is freed. A replaced text
/// gives its bytes back to the tree, which reuses them for later texts.
///
/// A node is a handle: the library makes every node and keeps its layout to itself, and users
/// reach names, texts, children and attributes through the functions below. Children and
/// attributes are walked as ranges (xml_node_children, xml_node_attributes) or one by one
/// (xml_node_first_child, xml_next_sibling). Attributes keep their order and may repeat a name.
/// Appends take a lock of the node; walks take none: no other thread may change a tree being
/// read, written or freed.
#ifndef QUORLIN_XML_XML_NODE_HPP
#define QUORLIN_XML_XML_NODE_HPP

#include <cstddef>
#include <iterator>
#include <memory>
#include <new>
#include <optional>
#include <string_view>
#include <type_traits>
#include "quorlin/base/api.hpp"

namespace quorlin {

/// An element of a tree; xml_node_new, xml_add_element and the parser make them.
class QUORLIN_API XmlNode {
 public:
  XmlNode(const XmlNode&) = delete;
  XmlNode& operator=(const XmlNode&) = delete;

  /// Deleting the root (what its unique_ptr does) frees the whole tree and its storage.
  static void operator delete(XmlNode* node, std::destroying_delete_t);

 private:
  friend class XmlElement;  // the library's layout of a node
  XmlNode() = default;
};

struct XmlAttribute {
  std::string_view name;
  std::string_view value;
};

///@{
/// The next child of the same parent, or null after the last; and the next attribute of the same
/// node, or null after the last.
QUORLIN_API const XmlNode* xml_next_sibling(const XmlNode& node);
QUORLIN_API XmlNode* xml_next_sibling(XmlNode& node);
QUORLIN_API const XmlAttribute* xml_next_sibling(const XmlAttribute& attribute);
///@}

/// A node's children or attributes as a forward range, first to last, for range-for and the
/// standard algorithms. Like the walk with xml_next_sibling, it reads the tree as it goes.
template <typename Item>
class XmlSiblings {
 public:
  /// A position in the range; the default one is the end.
  class iterator {
   public:
    using value_type = std::remove_const_t<Item>;
    using difference_type = std::ptrdiff_t;
    using reference = Item&;
    using pointer = Item*;
    using iterator_category = std::forward_iterator_tag;

    ///@{
    /// The forward-iterator operations: the position of `item`, the item here, the next
    /// position, equality.
    iterator() = default;
    explicit iterator(Item* item) : item_(item) {}
    reference operator*() const { return *item_; }
    pointer operator->() const { return item_; }
    iterator& operator++() {
      item_ = xml_next_sibling(*item_);
      return *this;
    }
    iterator operator++(int) {
      iterator before = *this;
      ++*this;
      return before;
    }
    friend bool operator==(const iterator&, const iterator&) = default;
    ///@}

   private:
    Item* item_ = nullptr;
  };

  ///@{
  /// The range that starts at `first` (null: an empty range), its ends, and whether it is empty.
  explicit XmlSiblings(Item* first) : first_(first) {}
  iterator begin() const { return iterator(first_); }
  iterator end() const { return iterator(); }
  bool empty() const { return first_ == nullptr; }
  ///@}

 private:
  Item* first_;
};

/// A new tree of one element named `name`.
QUORLIN_API std::unique_ptr<XmlNode> xml_node_new(std::string_view name);

/// Adopts the tree `child` as the last child of `node` in constant time and returns it; the
/// child keeps its address, so a pointer kept to it stays valid.
QUORLIN_API XmlNode& xml_node_add_child(XmlNode& node, std::unique_ptr<XmlNode> child);

/// Appends a new empty element named `name` to `parent` and returns it.
QUORLIN_API XmlNode& xml_add_element(XmlNode& parent, std::string_view name);

/// The element's name.
QUORLIN_API std::string_view xml_node_name(const XmlNode& node);

///@{
/// The first child, or null for a node without children.
QUORLIN_API const XmlNode* xml_node_first_child(const XmlNode& node);
QUORLIN_API XmlNode* xml_node_first_child(XmlNode& node);
///@}

///@{
/// The children in document order.
inline XmlSiblings<const XmlNode> xml_node_children(const XmlNode& node) {
  return XmlSiblings<const XmlNode>(xml_node_first_child(node));
}
inline XmlSiblings<XmlNode> xml_node_children(XmlNode& node) {
  return XmlSiblings<XmlNode>(xml_node_first_child(node));
}
///@}

/// The first attribute, or null for a node without attributes.
QUORLIN_API const XmlAttribute* xml_node_first_attribute(const XmlNode& node);

/// The attributes in the order they were added.
inline XmlSiblings<const XmlAttribute> xml_node_attributes(const XmlNode& node) {
  return XmlSiblings<const XmlAttribute>(xml_node_first_attribute(node));
}

/// Replaces the text with a copy of `text`, or clears it for std::nullopt; the old text's bytes
/// go back to the tree. `text` may be a view of this tree's own bytes, even of the node's text.
QUORLIN_API void xml_node_set_text(XmlNode& node, std::optional<std::string_view> text);

/// The text, borrowed from the node, or std::nullopt when none was set.
QUORLIN_API std::optional<std::string_view> xml_node_text(const XmlNode& node);

/// Appends an attribute holding copies of `name` and `value`, and returns it.
QUORLIN_API const XmlAttribute& xml_node_add_attribute(XmlNode& node, std::string_view name,
                                                       std::string_view value);

/// The value of the last attribute named `name` (case-sensitive), borrowed, or std::nullopt.
QUORLIN_API std::optional<std::string_view> xml_node_attribute(const XmlNode& node,
                                                               std::string_view name);

}  // namespace quorlin

#endif  // QUORLIN_XML_XML_NODE_HPP
