// The parser's algorithm as plainly as it can be written: every search runs to the end of the
// whole text, each element's content is parsed by recursion, and every piece is a fresh copy.
// It is slow and recursion-deep on purpose: the xml fuzzer compares xml_parse with it on texts
// of up to 4 KiB, in the picture that describe() draws.
#ifndef QUORLIN_FUZZ_REFERENCE_PARSER_HPP
#define QUORLIN_FUZZ_REFERENCE_PARSER_HPP

#include <memory>
#include <string>

#include "quorlin/xml/xml_test_support.hpp"

namespace quorlin::reference {

inline long index_of(const std::string& text, const std::string& needle, long start) {
  if (start >= static_cast<long>(text.size())) return -1;
  const auto found = text.find(needle, static_cast<std::size_t>(start));
  return found == std::string::npos ? -1 : static_cast<long>(found);
}

inline long index_before(const std::string& text, const std::string& needle, long start, long end) {
  const long found = index_of(text, needle, start);
  return found < end ? found : -1;
}

inline void parse_attribute(XmlNode& node, const std::string& text, long start, long end) {
  const long equals = index_before(text, "=", start, end);
  if (equals == -1) return;
  long value_start = equals + 1;
  if (equals != end - 1 && text[value_start] == '"') ++value_start;
  const long value_end = text[end - 1] == '"' ? end - 1 : end;
  std::string value =
      value_end > value_start ? text.substr(value_start, value_end - value_start) : std::string();
  xml_node_add_attribute(node, text.substr(start, equals - start), value);
}

inline void parse_attributes(XmlNode& node, const std::string& text, long start, long end) {
  for (long position = start; position < end;) {
    long stop = end;
    const long open_quote = index_before(text, "\"", position, end);
    if (open_quote != -1) {
      const long close_quote = index_before(text, "\"", open_quote + 1, end);
      if (close_quote != -1) stop = close_quote + 1;
    }
    parse_attribute(node, text, position, stop);
    position = stop + 1;
  }
}

// With a parent, elements are appended to it; without one, the first becomes the result.
inline std::unique_ptr<XmlNode> parse_element(XmlNode* parent, const std::string& text, long start,
                                              long end) {
  std::unique_ptr<XmlNode> root;
  XmlNode* current = parent;
  for (long position = start; position < end;) {
    long lt = index_before(text, "<", position, end);
    if (lt != position) {
      if (lt == -1) lt = end;
      if (parent != nullptr) xml_node_set_text(*parent, text.substr(position, lt - position));
      position = lt;
      continue;
    }
    const long gt = index_before(text, ">", position, end);
    if (gt == -1) break;
    if (position == 0 && end > 0 && text[1] == '?') {
      position = gt + 1;
      continue;
    }
    long space = index_before(text, " ", lt, gt);
    const bool has_attributes = space != -1;
    if (!has_attributes) space = gt;
    const std::string name = text.substr(lt + 1, space - lt - 1);
    auto child = xml_node_new(name);
    long attributes_end = gt;
    long content_end = gt;
    long next = gt + 1;
    if (text[gt - 1] == '/') {
      attributes_end = gt - 1;
    } else {
      const long closing = index_before(text, "</" + name + ">", lt, end);
      if (closing == -1) break;
      content_end = closing;
      next = closing + static_cast<long>(name.size()) + 3;
    }
    if (has_attributes) parse_attributes(*child, text, space + 1, attributes_end);
    parse_element(child.get(), text, gt + 1, content_end);
    if (current != nullptr) {
      xml_node_add_child(*current, std::move(child));
    } else {
      root = std::move(child);
      current = root.get();
    }
    position = next;
  }
  return root;
}

// The picture of the tree that the plain algorithm reads from `text` (up to its first NUL).
inline std::string parse_and_describe(std::string text) {
  text = text.substr(0, text.find('\0'));
  return describe(parse_element(nullptr, text, 0, static_cast<long>(text.size())).get());
}

}  // namespace quorlin::reference

#endif  // QUORLIN_FUZZ_REFERENCE_PARSER_HPP
