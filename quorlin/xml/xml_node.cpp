#include "quorlin/xml/xml_node.hpp"

#include <cstring>
#include <utility>
#include <vector>

namespace quorlin {
namespace {

template <typename T, typename... Args>
T* make_in(XmlDocument& document, Args&&... args) {
  return ::new (document.allocate(sizeof(T), alignof(T))) T(std::forward<Args>(args)...);
}

XmlChildren& children_of(XmlNode& node) {
  if (node.children == nullptr) {
    node.children = make_in<XmlChildren>(*node.document, XmlArenaNodes{node.document});
  }
  return *node.children;
}

// Gives `target` copies of the text and attributes of `source`, which may be in another tree.
void copy_text_and_attributes(const XmlNode& source, XmlNode& target) {
  xml_node_set_text(target, xml_node_text(source));
  for (auto* entry = xml_node_attributes(source).first; entry != nullptr; entry = entry->next) {
    xml_node_add_attribute(target, entry->item.name, entry->item.value);
  }
}

}  // namespace

XmlNode::XmlNode(XmlNodeSeed seed) : name(seed.name), document(seed.document) {}

XmlNode::~XmlNode() {
  // Only the root owns the document; the nodes inside it are never destroyed one by one.
  if (document->owner() == this) delete document;
}

std::unique_ptr<XmlNode> xml_node_new(std::string_view name) {
  auto document = std::make_unique<XmlDocument>(nullptr);
  auto root = std::make_unique<XmlNode>(XmlNodeSeed{document.get(), document->copy_text(name)});
  document.release()->set_owner(root.get());
  return root;
}

XmlChild* xml_node_add_child(XmlNode& node, std::unique_ptr<XmlNode> child) {
  XmlChild* copy = list_append(children_of(node),
                               XmlNodeSeed{node.document, node.document->copy_text(child->name)});
  copy_text_and_attributes(*child, copy->item);
  // Copies the subtree level by level with an explicit stack of (source, copy) pairs.
  std::vector<std::pair<const XmlNode*, XmlNode*>> pending{{child.get(), &copy->item}};
  while (!pending.empty()) {
    auto [source, target] = pending.back();
    pending.pop_back();
    for (auto* entry = xml_node_children(*source).first; entry != nullptr; entry = entry->next) {
      XmlNode& element = xml_add_element(*target, entry->item.name);
      copy_text_and_attributes(entry->item, element);
      pending.emplace_back(&entry->item, &element);
    }
  }
  return copy;
}

XmlNode& xml_add_element(XmlNode& parent, std::string_view name) {
  XmlDocument& document = *parent.document;
  return list_append(children_of(parent), XmlNodeSeed{&document, document.copy_text(name)})->item;
}

XmlNode& xml_add_element_unshared(XmlNode& parent, std::string_view name_in_document) {
  return list_append_unlocked(children_of(parent), XmlNodeSeed{parent.document, name_in_document})
      ->item;
}

const XmlChildren& xml_node_children(const XmlNode& node) {
  static const XmlChildren kNoChildren;
  return node.children ? *node.children : kNoChildren;
}

const XmlAttributes& xml_node_attributes(const XmlNode& node) {
  static const XmlAttributes kNoAttributes;
  return node.attribute_set ? node.attribute_set->attributes : kNoAttributes;
}

void xml_node_set_text(XmlNode& node, std::optional<std::string_view> text) {
  if (!text) {
    node.text_bytes = nullptr;
    node.text_size = 0;
  } else if (node.text_bytes != nullptr && text->size() <= node.text_size) {
    // Each text's bytes belong to its node alone, so they can be overwritten in place.
    std::memmove(node.text_bytes, text->data(), text->size());
    node.text_size = text->size();
  } else {
    node.text_bytes = node.document->copy(*text);
    node.text_size = text->size();
  }
}

std::optional<std::string_view> xml_node_text(const XmlNode& node) {
  if (node.text_bytes == nullptr) return std::nullopt;
  return std::string_view(node.text_bytes, node.text_size);
}

ListNode<XmlAttribute>* xml_node_add_attribute(XmlNode& node, std::string_view name,
                                               std::string_view value) {
  if (node.attribute_set == nullptr) {
    node.attribute_set = make_in<XmlAttributeSet>(*node.document, XmlArenaNodes{node.document});
  }
  XmlDocument& document = *node.document;
  return list_append(node.attribute_set->attributes,
                     XmlAttribute{document.copy_text(name), document.copy_text(value)});
}

std::optional<std::string_view> xml_node_attribute(const XmlNode& node, std::string_view name) {
  std::optional<std::string_view> found;
  for (auto* entry = xml_node_attributes(node).first; entry != nullptr; entry = entry->next) {
    if (entry->item.name == name) found = entry->item.value;  // the last match wins
  }
  return found;
}

}  // namespace quorlin
