// A compact, unambiguous picture of a tree for table-driven tests:
//   name[attr=value;...](child,child,...)='text'   and "null" for no tree.
#ifndef QUORLIN_XML_XML_TEST_SUPPORT_HPP
#define QUORLIN_XML_XML_TEST_SUPPORT_HPP

#include <cstdint>
#include <string>

#include "quorlin/xml/xml_node.hpp"

namespace quorlin {

// `levels` limits the picture to the node and its descendants down to that many levels below it.
inline std::string describe(const XmlNode* node, std::size_t levels = SIZE_MAX) {
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
  if (const XmlChildren& children = xml_node_children(*node); children.first && levels > 0) {
    out += '(';
    for (auto* child = children.first; child != nullptr; child = child->next) {
      out += describe(&child->item, levels - 1) + (child->next ? "," : "");
    }
    out += ')';
  }
  if (const auto text = xml_node_text(*node)) out += "='" + std::string(*text) + "'";
  return out;
}

}  // namespace quorlin

#endif  // QUORLIN_XML_XML_TEST_SUPPORT_HPP
