// The compact grammar of xml_to_string, piece by piece, and XmlOut, which writes elements either
// into a tree or straight into the text that xml_to_string would make of that tree.
//
// xml_write_node and XmlOut both write their tags with these pieces, so that text written
// without a tree cannot drift from the text of the tree. Nothing is escaped.
//
// Not installed: the pieces serve the library's own writers.
#ifndef QUORLIN_XML_XML_WRITER_INTERNAL_HPP
#define QUORLIN_XML_XML_WRITER_INTERNAL_HPP

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "quorlin/xml/xml_node.hpp"

namespace quorlin::compact {

// Single bytes go in with push_back, whose fast path is inline; a one-byte append is a call.

// "<name": the attributes follow, then tag_end.
inline void tag_start(std::string& out, std::string_view name) {
  out += '<';
  out += name;
}

inline void attribute(std::string& out, std::string_view name, std::string_view value) {
  out += ' ';
  out += name;
  out += '=';
  out += '"';
  out += value;
  out += '"';
}

inline void tag_end(std::string& out) {
  out += '>';
}

// The text comes after the children, just before this.
inline void closing_tag(std::string& out, std::string_view name) {
  out += '<';
  out += '/';
  out += name;
  out += '>';
}

}  // namespace quorlin::compact

namespace quorlin {

// Where a writer puts elements without attributes: into a tree, or appended to a text that is
// then byte for byte what xml_to_string makes of that tree.
class XmlOut {
 public:
  XmlOut() = default;  // a new tree, whose root is the first element written; see tree()
  explicit XmlOut(XmlNode& parent) : path_{&parent} {}
  explicit XmlOut(std::string& text) : text_(&text) {}

  // An element holding `text`; without children or text for std::nullopt.
  void element(std::string_view name, std::optional<std::string_view> text) {
    if (text_ == nullptr) {
      xml_node_set_text(add(name), text);
      return;
    }
    open(name);
    if (text) *text_ += *text;
    close(name);
  }

  // An element whose children are written next, up to close(name).
  void open(std::string_view name) {
    if (text_ == nullptr) {
      path_.push_back(&add(name));
      return;
    }
    compact::tag_start(*text_, name);
    compact::tag_end(*text_);
  }

  void close(std::string_view name) {
    if (text_ == nullptr) {
      path_.pop_back();
      return;
    }
    compact::closing_tag(*text_, name);
  }

  // The tree that an XmlOut made without a parent has written.
  std::unique_ptr<XmlNode> tree() { return std::move(root_); }

 private:
  XmlNode& add(std::string_view name) {
    if (!path_.empty()) return xml_add_element(*path_.back(), name);
    root_ = xml_node_new(name);
    return *root_;
  }

  std::vector<XmlNode*> path_;  // the open elements of the tree, innermost last
  std::unique_ptr<XmlNode> root_;
  std::string* text_ = nullptr;
};

}  // namespace quorlin

#endif  // QUORLIN_XML_XML_WRITER_INTERNAL_HPP
