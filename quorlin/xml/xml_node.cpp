#include "quorlin/xml/xml_node.hpp"

#include <cstddef>
#include <cstring>
#include <type_traits>

#include "quorlin/xml/xml_tree_internal.hpp"

namespace quorlin {
namespace {

template <typename T, typename... Args>
T* make_in(XmlDocument& document, Args&&... args) {
  return ::new (document.allocate_for<T>()) T(std::forward<Args>(args)...);
}

}  // namespace

void XmlNode::operator delete(XmlNode* node, std::destroying_delete_t) {
  // Only a root is ever deleted (a child's ownership passed to its parent), and its document heads
  // the chain of every document of the tree.
  XmlDocument* document = node->document_;
  node->~XmlNode();
  delete document;
}

XmlChildren& XmlTree::make_children(XmlNode& node) {
  return *(node.children_ = make_in<XmlChildren>(*node.document_));
}

XmlAttributes& XmlTree::attributes(XmlNode& node) {
  if (node.attributes_ == nullptr) {
    node.attributes_ = make_in<XmlAttributes>(*node.document_);
  }
  return *node.attributes_;
}

void XmlTree::view_long(XmlDocument& document, std::string_view bytes, const char*& data,
                        std::uint16_t& size, XmlLongBytes* reused) {
  void* memory = reused != nullptr ? reused : document.allocate_for<XmlLongBytes>();
  data = reinterpret_cast<const char*>(::new (memory) XmlLongBytes{bytes.data(), bytes.size()});
  size = kLongSize;
}

// An owned text is a reusable block of the document that holds the bytes, after an XmlLongBytes
// that points at them when they are long.
void XmlTree::set_text(XmlNode& node, std::optional<std::string_view> text) {
  const bool owned = node.owned_text_;
  if (!text) {
    if (owned) node.document_->release_text(node.text_);
    node.text_ = nullptr;
    node.text_size_ = 0;
    node.owned_text_ = false;
    return;
  }
  const std::size_t size = text->size();
  const bool long_text = size >= kLongSize;
  const std::size_t needed = long_text ? size + sizeof(XmlLongBytes) : size;
  const bool in_place = owned && needed <= XmlDocument::block_capacity(node.text_);
  char* block = in_place ? node.text_ : node.document_->allocate_text(needed);
  char* bytes = long_text ? block + sizeof(XmlLongBytes) : block;
  if (size != 0) std::memmove(bytes, text->data(), size);  // `text` may be the node's own bytes
  if (long_text) ::new (block) XmlLongBytes{bytes, size};
  if (owned && !in_place) node.document_->release_text(node.text_);
  node.text_ = block;
  node.text_size_ = long_text ? kLongSize : static_cast<std::uint16_t>(size);
  node.owned_text_ = true;
}

XmlChild* XmlTree::holder(XmlNode* node) {
  static_assert(std::is_standard_layout_v<XmlChild>);
  return reinterpret_cast<XmlChild*>(reinterpret_cast<std::byte*>(node) - offsetof(XmlChild, item));
}

void XmlTree::drop_last_child(XmlNode& parent) {
  XmlChildren& children = *parent.children_;
  XmlChild* last = children.last;
  children.last = last->previous;
  if (children.last != nullptr) {
    children.last->next = nullptr;
  } else {
    children.first = nullptr;
  }
}

std::unique_ptr<XmlNode> xml_node_new(std::string_view name) {
  auto document = std::make_unique<XmlDocument>();
  XmlChild* holder = XmlTree::new_element(*document, document->copy_text(name));
  document.release();  // the root owns its document from here on
  return std::unique_ptr<XmlNode>(&holder->item);
}

XmlChild* xml_node_add_child(XmlNode& node, std::unique_ptr<XmlNode> child) {
  XmlNode* adopted = child.release();
  XmlTree::document(node).adopt(&XmlTree::document(*adopted));
  return list_link_at_end(XmlTree::children(node), XmlTree::holder(adopted));
}

XmlNode& xml_add_element(XmlNode& parent, std::string_view name) {
  XmlDocument& document = XmlTree::document(parent);
  XmlChild* child = XmlTree::new_element(document, document.copy_text(name));
  return list_link_at_end(XmlTree::children(parent), child)->item;
}

const XmlChildren XmlNode::kNoChildren;

const XmlAttributes& xml_node_attributes(const XmlNode& node) {
  static const XmlAttributes kNoAttributes;
  const XmlAttributes* attributes = XmlTree::attributes_or_null(node);
  return attributes ? *attributes : kNoAttributes;
}

void xml_node_set_text(XmlNode& node, std::optional<std::string_view> text) {
  XmlTree::set_text(node, text);
}

ListNode<XmlAttribute>* xml_node_add_attribute(XmlNode& node, std::string_view name,
                                               std::string_view value) {
  XmlDocument& document = XmlTree::document(node);
  auto* attribute = XmlTree::new_list_node<XmlAttribute>(
      document, XmlAttribute{document.copy_text(name), document.copy_text(value)});
  return list_link_at_end(XmlTree::attributes(node), attribute);
}

std::optional<std::string_view> xml_node_attribute(const XmlNode& node, std::string_view name) {
  std::optional<std::string_view> found;
  for (auto* entry = xml_node_attributes(node).first; entry != nullptr; entry = entry->next) {
    if (entry->item.name == name) found = entry->item.value;  // the last match wins
  }
  return found;
}

}  // namespace quorlin
