// A compact, unambiguous picture of a tree for table-driven tests:
//   name[attr=value;...](child,child,...)='text'   and "null" for no tree.
#ifndef QUORLIN_XML_XML_TEST_SUPPORT_HPP
#define QUORLIN_XML_XML_TEST_SUPPORT_HPP

#include <string>

#include "quorlin/xml/xml_node.hpp"
#include "quorlin/xml/xml_parser.hpp"

namespace quorlin {

inline std::string describe(const XmlNode* node) {
  if (node == nullptr) return "null";
  std::string out(xml_node_name(*node));
  if (const XmlAttributes& attributes = xml_node_attributes(*node); attributes.first != nullptr) {
    out += '[';
    for (auto* entry = attributes.first; entry != nullptr; entry = entry->next) {
      out += std::string(entry->item.name) + "=" + std::string(entry->item.value) +
             (entry->next ? ";" : "");
    }
    out += ']';
  }
  if (const XmlChildren& children = xml_node_children(*node); children.first != nullptr) {
    out += '(';
    for (auto* child = children.first; child != nullptr; child = child->next) {
      out += describe(&child->item) + (child->next ? "," : "");
    }
    out += ')';
  }
  if (const auto text = xml_node_text(*node)) out += "='" + std::string(*text) + "'";
  return out;
}

// The root's name and its children, pictured one by one; "null" for no tree. The same picture
// comes from a whole tree and from the children that xml_parse_children hands over.
inline std::string describe_root_children(const XmlNode* root) {
  if (root == nullptr) return "null";
  std::string out = std::string(xml_node_name(*root)) + ":";
  for (auto* child = xml_node_children(*root).first; child != nullptr; child = child->next) {
    out += describe(&child->item) + ",";
  }
  return out;
}

inline std::string describe_handed_over(std::string_view text) {
  std::string children;
  const auto root = xml_parse_children(
      text, [&](const XmlNode&, const XmlNode& child) { children += describe(&child) + ","; });
  return root ? std::string(*root) + ":" + children : "null";
}

}  // namespace quorlin

#endif  // QUORLIN_XML_XML_TEST_SUPPORT_HPP
