/// @file
/// The compact XML writer and the debugging dump.
///
/// xml_to_string writes, for each node: "<name", then ` attr="value"` per attribute, ">", the
/// children, the text (always after the children, wherever it stood in a parsed document), and
/// "</name>". Nothing is escaped, no declaration, blank or line break is added, and an element
/// without content is "<a></a>", never "<a/>". Writing is iterative and amortised linear.
#ifndef QUORLIN_XML_XML_WRITER_HPP
#define QUORLIN_XML_XML_WRITER_HPP

#include <cstddef>
#include <memory>
#include <string>
#include "quorlin/base/api.hpp"

#include "quorlin/xml/xml_node.hpp"

namespace quorlin {

inline constexpr std::size_t TEXT_BUFFER_BLOCK = 512;

/// A NUL-terminated text whose capacity is always a whole number of 512-byte blocks.
struct TextBuffer {
  std::unique_ptr<char[]> text;  ///< null before the first reservation
  std::size_t capacity = 0;
};

/// Makes room for `extra` more bytes and the terminator, and returns the (possibly moved) text.
/// The first call allocates one empty block whatever `extra` is; later calls move the text to
/// ((length + extra) / 512 + 1) blocks when (length + extra) / 512 exceeds length / 512.
QUORLIN_API char* text_buffer_reserve(TextBuffer& buffer, std::size_t extra);

/// The whole tree as compact text.
QUORLIN_API std::string xml_to_string(const XmlNode& root);

/// Appends `node` and its subtree to `out`.
QUORLIN_API void xml_write_node(const XmlNode& node, std::string& out);

/// Writes the tree through log_printf, one entry per piece: "<name", each attribute, ">\n",
/// the children, the text, "</name>\n".
QUORLIN_API void xml_node_dump(const XmlNode& node);

}  // namespace quorlin

#endif  // QUORLIN_XML_XML_WRITER_HPP
