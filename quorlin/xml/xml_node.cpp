#include "quorlin/xml/xml_node.hpp"

#include <vector>

namespace quorlin {
namespace {

// Leaves `node` childless: children with children of their own move onto `pending`, leaves are
// freed with the List.
void take_children(XmlNode& node, std::vector<XmlNode>& pending) {
  if (!node.children) return;
  for (XmlChild* child = node.children->first; child != nullptr; child = child->next) {
    if (child->item.children) pending.push_back(std::move(child->item));
  }
  node.children.reset();
}

}  // namespace

XmlNode::~XmlNode() {
  // Each node is destroyed only after its children were moved out, so no destructor recurses.
  std::vector<XmlNode> pending;
  take_children(*this, pending);
  while (!pending.empty()) {
    XmlNode node = std::move(pending.back());
    pending.pop_back();
    take_children(node, pending);
  }
}

std::unique_ptr<XmlNode> xml_node_new(std::string_view name) {
  return std::make_unique<XmlNode>(name);
}

XmlChild* xml_node_add_child(XmlNode& node, XmlNode&& child) {
  if (!node.children) node.children = std::make_unique<XmlChildren>();
  return list_append(*node.children, std::move(child));
}

XmlNode& xml_add_element(XmlNode& parent, std::string_view name) {
  if (!parent.children) parent.children = std::make_unique<XmlChildren>();
  return list_append(*parent.children, name)->item;
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
  if (text) {
    node.text.emplace(*text);
  } else {
    node.text.reset();
  }
}

std::optional<std::string_view> xml_node_text(const XmlNode& node) {
  if (!node.text) return std::nullopt;
  return std::string_view(*node.text);
}

ListNode<std::unique_ptr<XmlAttribute>>* xml_node_add_attribute(XmlNode& node,
                                                                std::string_view name,
                                                                std::string_view value) {
  if (!node.attribute_set) node.attribute_set = std::make_unique<XmlAttributeSet>();
  return list_append(node.attribute_set->attributes, std::make_unique<XmlAttribute>(XmlAttribute{
                                                         std::string(name), std::string(value)}));
}

std::optional<std::string_view> xml_node_attribute(const XmlNode& node, std::string_view name) {
  std::optional<std::string_view> found;
  for (auto* entry = xml_node_attributes(node).first; entry != nullptr; entry = entry->next) {
    if (entry->item->name == name) found = entry->item->value;  // the last match wins
  }
  return found;
}

}  // namespace quorlin
