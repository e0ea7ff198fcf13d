// How the library lays out an element, and reads one inline. Users see XmlNode as a handle and
// reach its fields through exported functions; the library's own readers (the records, the
// writer) walk thousands of elements per reply and read them here without a call. Not installed.
#ifndef QUORLIN_XML_XML_ELEMENT_INTERNAL_HPP
#define QUORLIN_XML_XML_ELEMENT_INTERNAL_HPP

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "quorlin/base/list.hpp"
#include "quorlin/base/recursive_lock.hpp"
#include "quorlin/xml/xml_node.hpp"

namespace quorlin {

class XmlDocument;
class XmlElement;
struct XmlTree;

// Node storage for the Lists of a tree: the tree makes their nodes in its own storage and links
// them, and they are given back only with it. A List of a tree therefore holds no pointer to its
// storage, and nothing can be added to it but through the tree's functions.
struct XmlArenaNodes {
  using Lock = RecursiveLock;  // nothing to destroy: the arena frees memory without destructors

  // Nothing: a node's memory goes back with its document's.
  template <typename Node>
  void deallocate(void*) {}
};

// How an element holds a name or text of 65,535 bytes or more: its bytes and size, kept in the
// tree (16 bytes beside at least 64 KiB), so that an element keeps its sizes in 16 bits.
struct XmlLongBytes {
  const char* bytes;
  std::size_t size;
};

using XmlChildren = List<XmlElement, XmlArenaNodes>;  // each child lives inside its List node
using XmlAttributes = List<XmlAttribute, XmlArenaNodes>;
using XmlChild = ListNode<XmlElement>;

// An element: the XmlNode users hold, with its fields.
class XmlElement final : public XmlNode {
 public:
  static const XmlElement& of(const XmlNode& node) { return static_cast<const XmlElement&>(node); }
  static XmlElement& of(XmlNode& node) { return static_cast<XmlElement&>(node); }

  std::string_view name() const { return bytes(name_, name_size_); }
  std::optional<std::string_view> text() const {
    if (text_ == nullptr) return std::nullopt;
    return bytes(text_, text_size_);
  }
  // Children in document order; an empty List for an element without any.
  const XmlChildren& children() const { return children_ != nullptr ? *children_ : kNoChildren; }
  // Attributes in the order they were added; an empty List for an element without any.
  const XmlAttributes& attributes() const {
    return attributes_ != nullptr ? *attributes_ : kNoAttributes;
  }

 private:
  friend struct XmlTree;
  static constexpr std::uint16_t kLong = 0xFFFF;  // the size of bytes kept as XmlLongBytes
  static const XmlChildren kNoChildren;
  static const XmlAttributes kNoAttributes;

  // An element named by no bytes yet, without text, attributes or children.
  explicit XmlElement(XmlDocument* document) : document_(document) {}

  // The bytes at `data` of size `size`, or those of the XmlLongBytes at `data` for kLong.
  static std::string_view bytes(const char* data, std::uint16_t size) {
    if (size != kLong) return {data, size};
    const auto* long_bytes = reinterpret_cast<const XmlLongBytes*>(data);
    return {long_bytes->bytes, long_bytes->size};
  }

  const char* name_ = nullptr;           // the name's bytes, or its XmlLongBytes
  char* text_ = nullptr;                 // the text's bytes or XmlLongBytes; null for no text
  std::uint16_t name_size_ = 0;          // kLong when name_ is an XmlLongBytes
  std::uint16_t text_size_ = 0;          // kLong when text_ is an XmlLongBytes
  bool owned_text_ = false;              // text_ is a reusable block of the document
  XmlChildren* children_ = nullptr;      // null until the first child
  XmlAttributes* attributes_ = nullptr;  // null until the first attribute
  XmlDocument* document_;                // where this element's pieces are allocated
};

// xml_node_name, xml_node_text and xml_node_children, inline for the library's own readers.
inline std::string_view xml_element_name(const XmlNode& node) {
  return XmlElement::of(node).name();
}
inline std::optional<std::string_view> xml_element_text(const XmlNode& node) {
  return XmlElement::of(node).text();
}
inline const XmlChildren& xml_element_children(const XmlNode& node) {
  return XmlElement::of(node).children();
}

}  // namespace quorlin

#endif  // QUORLIN_XML_XML_ELEMENT_INTERNAL_HPP
