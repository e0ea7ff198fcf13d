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
/// The children List and the attribute set are made with the first child or attribute, so the
/// leaves of a large document cost no more than their name and text; readers that ask a node
/// without any see an empty List. Attributes keep their order and may repeat a name. Appends
/// take the List's lock; walks read the Lists without it: no other thread may change a tree
/// being read, written or freed.
#ifndef QUORLIN_XML_XML_NODE_HPP
#define QUORLIN_XML_XML_NODE_HPP

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <optional>
#include <string_view>
#include "quorlin/base/api.hpp"

#include "quorlin/base/list.hpp"
#include "quorlin/base/recursive_lock.hpp"

namespace quorlin {

class XmlDocument;
struct XmlTree;

/// Node storage for the Lists of a tree: the tree makes their nodes in its own storage and links
/// them, and they are given back only with it. A List of a tree therefore holds no pointer to
/// its storage, and users of the tree cannot add to it but through the functions below.
struct XmlArenaNodes {
  using Lock = RecursiveLock;  ///< nothing to destroy: the arena frees memory without destructors

  /// Nothing: a node's memory goes back with its document's.
  template <typename Node>
  void deallocate(void*) {}
};

struct XmlAttribute {
  std::string_view name;
  std::string_view value;
};

/// How a node holds a name or text of 65,535 bytes or more: its bytes and size, kept in the tree
/// (16 bytes beside at least 64 KiB), so that a node keeps its sizes in 16 bits.
struct XmlLongBytes {
  const char* bytes;  ///< the first byte
  std::size_t size;   ///< how many there are
};

class XmlNode;
using XmlChildren = List<XmlNode, XmlArenaNodes>;  ///< each child lives inside its List node
using XmlAttributes = List<XmlAttribute, XmlArenaNodes>;
using XmlChild = ListNode<XmlNode>;

/// An element; xml_node_new, xml_add_element and the parser make them.
class QUORLIN_API XmlNode {
 public:
  XmlNode(const XmlNode&) = delete;
  XmlNode& operator=(const XmlNode&) = delete;

  /// Deleting the root (what its unique_ptr does) frees the whole tree and its storage.
  static void operator delete(XmlNode* node, std::destroying_delete_t);

  /// Defined here, declared with their contracts below: readers call them once per node.
  friend std::string_view xml_node_name(const XmlNode& node) {
    return bytes(node.name_, node.name_size_);
  }
  friend const XmlChildren& xml_node_children(const XmlNode& node) {
    return node.children_ != nullptr ? *node.children_ : kNoChildren;
  }
  friend std::optional<std::string_view> xml_node_text(const XmlNode& node) {
    if (node.text_ == nullptr) return std::nullopt;
    return bytes(node.text_, node.text_size_);
  }

 private:
  friend struct XmlTree;
  static constexpr std::uint16_t kLong = 0xFFFF;  ///< the size of bytes kept as XmlLongBytes
  static const XmlChildren kNoChildren;

  /// A node named by no bytes yet, without text, attributes or children.
  explicit XmlNode(XmlDocument* document) : document_(document) {}

  /// The bytes at `data` of size `size`, or those of the XmlLongBytes at `data` for kLong.
  static std::string_view bytes(const char* data, std::uint16_t size) {
    if (size != kLong) return {data, size};
    const auto* long_bytes = reinterpret_cast<const XmlLongBytes*>(data);
    return {long_bytes->bytes, long_bytes->size};
  }

  const char* name_ = nullptr;           ///< the name's bytes, or its XmlLongBytes
  char* text_ = nullptr;                 ///< the text's bytes or XmlLongBytes; null for no text
  std::uint16_t name_size_ = 0;          ///< kLong when name_ is an XmlLongBytes
  std::uint16_t text_size_ = 0;          ///< kLong when text_ is an XmlLongBytes
  bool owned_text_ = false;              ///< text_ is a reusable block of the document
  XmlChildren* children_ = nullptr;      ///< null until the first child
  XmlAttributes* attributes_ = nullptr;  ///< null until the first attribute
  XmlDocument* document_;                ///< where this node's pieces are allocated
};

/// A new tree of one element named `name`.
QUORLIN_API std::unique_ptr<XmlNode> xml_node_new(std::string_view name);

/// Adopts the tree `child` as the last child of `node` in constant time and returns the List
/// node that holds it; the child keeps its address, so a pointer kept to it stays valid.
QUORLIN_API XmlChild* xml_node_add_child(XmlNode& node, std::unique_ptr<XmlNode> child);

/// Appends a new empty element named `name` to `parent` and returns it.
QUORLIN_API XmlNode& xml_add_element(XmlNode& parent, std::string_view name);

/// The element's name.
std::string_view xml_node_name(const XmlNode& node);

/// The children in document order; an empty List for a node without any.
const XmlChildren& xml_node_children(const XmlNode& node);

/// The attributes in the order they were added; an empty List for a node without any.
QUORLIN_API const XmlAttributes& xml_node_attributes(const XmlNode& node);

/// Replaces the text with a copy of `text`, or clears it for std::nullopt; the old text's bytes
/// go back to the tree. `text` may be a view of this tree's own bytes, even of the node's text.
QUORLIN_API void xml_node_set_text(XmlNode& node, std::optional<std::string_view> text);

/// The text, borrowed from the node, or std::nullopt when none was set.
std::optional<std::string_view> xml_node_text(const XmlNode& node);

/// Appends an attribute holding copies of `name` and `value`; returns its List node.
QUORLIN_API ListNode<XmlAttribute>* xml_node_add_attribute(XmlNode& node, std::string_view name,
                                                           std::string_view value);

/// The value of the last attribute named `name` (case-sensitive), borrowed, or std::nullopt.
QUORLIN_API std::optional<std::string_view> xml_node_attribute(const XmlNode& node,
                                                               std::string_view name);

}  // namespace quorlin

#endif  // QUORLIN_XML_XML_NODE_HPP
