#include "quorlin/xml/xml_node.hpp"

#include <cstddef>
#include <cstring>
#include <type_traits>
#include <utility>

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
  XmlDocument* document = &XmlTree::document(*node);
  XmlElement::of(*node).~XmlElement();
  delete document;
}

const XmlChildren XmlElement::kNoChildren;
const XmlAttributes XmlElement::kNoAttributes;

XmlChildren& XmlTree::make_children(XmlElement& element) {
  return *(element.children_ = make_in<XmlChildren>(*element.document_));
}

XmlAttributes& XmlTree::attributes(XmlNode& node) {
  XmlElement& element = XmlElement::of(node);
  if (element.attributes_ == nullptr) {
    element.attributes_ = make_in<XmlAttributes>(*element.document_);
  }
  return *element.attributes_;
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
  XmlElement& element = XmlElement::of(node);
  const bool owned = element.owned_text_;
  if (!text) {
    if (owned) element.document_->release_text(element.text_);
    element.text_ = nullptr;
    element.text_size_ = 0;
    element.owned_text_ = false;
    return;
  }
  const std::size_t size = text->size();
  const bool long_text = size >= kLongSize;
  const std::size_t needed = long_text ? size + sizeof(XmlLongBytes) : size;
  const bool in_place = owned && needed <= XmlDocument::block_capacity(element.text_);
  char* block = in_place ? element.text_ : element.document_->allocate_text(needed);
  char* bytes = long_text ? block + sizeof(XmlLongBytes) : block;
  if (size != 0) std::memmove(bytes, text->data(), size);  // `text` may be the node's own bytes
  if (long_text) ::new (block) XmlLongBytes{bytes, size};
  if (owned && !in_place) element.document_->release_text(element.text_);
  element.text_ = block;
  element.text_size_ = long_text ? kLongSize : static_cast<std::uint16_t>(size);
  element.owned_text_ = true;
}

XmlChild* XmlTree::holder(const XmlNode* node) {
  static_assert(std::is_standard_layout_v<XmlChild>);
  const auto* item = reinterpret_cast<const std::byte*>(&XmlElement::of(*node));
  return reinterpret_cast<XmlChild*>(const_cast<std::byte*>(item) - offsetof(XmlChild, item));
}

void XmlTree::drop_last_child(XmlNode& parent) {
  XmlChildren& children = *XmlElement::of(parent).children_;
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

XmlNode& xml_node_add_child(XmlNode& node, std::unique_ptr<XmlNode> child) {
  XmlNode* adopted = child.release();
  XmlTree::document(node).adopt(&XmlTree::document(*adopted));
  return list_link_at_end(XmlTree::children(node), XmlTree::holder(adopted))->item;
}

XmlNode& xml_add_element(XmlNode& parent, std::string_view name) {
  XmlDocument& document = XmlTree::document(parent);
  XmlChild* child = XmlTree::new_element(document, document.copy_text(name));
  return list_link_at_end(XmlTree::children(parent), child)->item;
}

std::string_view xml_node_name(const XmlNode& node) {
  return XmlElement::of(node).name();
}

std::optional<std::string_view> xml_node_text(const XmlNode& node) {
  return XmlElement::of(node).text();
}

const XmlNode* xml_node_first_child(const XmlNode& node) {
  const XmlChild* first = XmlElement::of(node).children().first;
  return first != nullptr ? &first->item : nullptr;
}

XmlNode* xml_node_first_child(XmlNode& node) {
  return const_cast<XmlNode*>(xml_node_first_child(std::as_const(node)));
}

const XmlNode* xml_next_sibling(const XmlNode& node) {
  const XmlChild* next = XmlTree::holder(&node)->next;
  return next != nullptr ? &next->item : nullptr;
}

XmlNode* xml_next_sibling(XmlNode& node) {
  return const_cast<XmlNode*>(xml_next_sibling(std::as_const(node)));
}

const XmlAttribute* xml_node_first_attribute(const XmlNode& node) {
  const ListNode<XmlAttribute>* first = XmlElement::of(node).attributes().first;
  return first != nullptr ? &first->item : nullptr;
}

// An attribute lives inside its List node, as a child does.
const XmlAttribute* xml_next_sibling(const XmlAttribute& attribute) {
  using Holder = ListNode<XmlAttribute>;
  static_assert(std::is_standard_layout_v<Holder>);
  const auto* holder = reinterpret_cast<const Holder*>(
      reinterpret_cast<const std::byte*>(&attribute) - offsetof(Holder, item));
  return holder->next != nullptr ? &holder->next->item : nullptr;
}

void xml_node_set_text(XmlNode& node, std::optional<std::string_view> text) {
  XmlTree::set_text(node, text);
}

const XmlAttribute& xml_node_add_attribute(XmlNode& node, std::string_view name,
                                           std::string_view value) {
  XmlDocument& document = XmlTree::document(node);
  auto* attribute = XmlTree::new_list_node<XmlAttribute>(
      document, XmlAttribute{document.copy_text(name), document.copy_text(value)});
  return list_link_at_end(XmlTree::attributes(node), attribute)->item;
}

std::optional<std::string_view> xml_node_attribute(const XmlNode& node, std::string_view name) {
  std::optional<std::string_view> found;
  for (const XmlAttribute& attribute : XmlElement::of(node).attributes()) {
    if (attribute.name == name) found = attribute.value;  // the last match wins
  }
  return found;
}

}  // namespace quorlin
