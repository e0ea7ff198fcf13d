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
  if (const auto attributes = xml_node_attributes(*node); !attributes.empty()) {
    const char* separator = "[";
    for (const XmlAttribute& attribute : attributes) {
      out += separator + std::string(attribute.name) + "=" + std::string(attribute.value);
      separator = ";";
    }
    out += ']';
  }
  if (const auto children = xml_node_children(*node); !children.empty() && levels > 0) {
    const char* separator = "(";
    for (const XmlNode& child : children) {
      out += separator + describe(&child, levels - 1);
      separator = ",";
    }
    out += ')';
  }
  if (const auto text = xml_node_text(*node)) out += "='" + std::string(*text) + "'";
  return out;
}

}  // namespace quorlin

#endif  // QUORLIN_XML_XML_TEST_SUPPORT_HPP
