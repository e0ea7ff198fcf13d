// The three ways of parsing (a whole tree from a copy, from a kept buffer, and child by child,
// whole or to a depth) must give the same tree. Parse, write, parse again, write again: the second
// writing must equal the first for every tree that the unescaped writer can represent. Trees it
// cannot (see representable) are only parsed, written and freed. Texts of up to 4 KiB must also
// read exactly as the plain, recursive algorithm reads them. Any crash, leak or undefined behaviour
// is a finding.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/reference_parser.hpp"
#include "quorlin/xml/xml_parser.hpp"
#include "quorlin/xml/xml_test_support.hpp"
#include "quorlin/xml/xml_writer.hpp"

namespace {

using quorlin::XmlNode;

// Whether writing `root` and reading it back must give the same tree. The writer escapes
// nothing, so these cannot hold: a quote inside an attribute (it splits the attribute), a name
// ending in "/" (it reads back as self-closing), a root named "?..." (it reads back as a
// declaration), and an element whose written tag or content holds its own closing tag (through
// an attribute, a descendant of the same name, or a name such as "/a" or "x</a" below a).
bool representable(const XmlNode& root) {
  if (quorlin::xml_node_name(root).starts_with('?')) return false;
  std::vector<const XmlNode*> pending{&root};
  while (!pending.empty()) {
    const XmlNode& node = *pending.back();
    pending.pop_back();
    if (quorlin::xml_node_name(node).ends_with('/')) return false;
    for (const quorlin::XmlAttribute& attribute : quorlin::xml_node_attributes(node)) {
      if (attribute.name.find('"') != std::string_view::npos) return false;
      if (attribute.value.find('"') != std::string_view::npos) return false;
    }
    for (const XmlNode& child : quorlin::xml_node_children(node)) pending.push_back(&child);
    std::string written;
    quorlin::xml_write_node(node, written);
    const std::string closing = "</" + std::string(quorlin::xml_node_name(node)) + ">";
    if (written.find(closing, 1) != written.size() - closing.size()) return false;
  }
  return true;
}

// The root's name and its children, pictured one by one down to `depth` levels below the root;
// "null" for no tree. The same picture comes from a whole tree and from the children that
// xml_parse_children hands over built to that depth.
std::string describe_root_children(const quorlin::XmlNode* root, std::size_t depth) {
  if (root == nullptr) return "null";
  std::string out = std::string(quorlin::xml_node_name(*root)) + ":";
  for (const XmlNode& child : quorlin::xml_node_children(*root)) {
    out += quorlin::describe(&child, depth - 1) + ",";
  }
  return out;
}

std::string describe_handed_over(std::string_view text, std::size_t depth) {
  std::string children;
  const auto root = quorlin::xml_parse_children(
      text,
      [&](const quorlin::XmlNode&, const quorlin::XmlNode& child) {
        children += quorlin::describe(&child) + ",";
      },
      depth);
  return root ? std::string(*root) + ":" + children : "null";
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  auto tree = quorlin::xml_parse(text);
  if (size <= 4096 &&
      quorlin::describe(tree.get()) != quorlin::reference::parse_and_describe(text)) {
    std::abort();
  }
  for (const std::size_t depth : {quorlin::XML_EVERY_LEVEL, std::size_t{1} + size % 3}) {
    if (describe_handed_over(text, depth) != describe_root_children(tree.get(), depth)) {
      std::abort();
    }
  }
  if (quorlin::describe(quorlin::xml_parse_buffer(std::string(text)).get()) !=
      quorlin::describe(tree.get())) {
    std::abort();
  }
  if (!tree) return 0;
  const std::string first = quorlin::xml_to_string(*tree);
  auto again = quorlin::xml_parse(first);
  if (!representable(*tree)) return 0;
  if (!again) std::abort();
  if (quorlin::xml_to_string(*again) != first) std::abort();
  return 0;
}
