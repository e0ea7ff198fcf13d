/// @file
/// The forgiving XML parser.
///
/// It reads the documents that the service and this library write: elements, double-quoted
/// attributes, text, self-closing elements and a declaration at the very first byte. It does
/// not validate, decode entities or trim whitespace, and its reading has fixed quirks that
/// callers rely on:
///   - "<?...>" is skipped only at byte 0; anywhere else it is an element named "?xml" (or so);
///   - the name ends at the first blank of the tag, so "<a/>" is named "a/" and "<a />" is "a";
///   - an element is closed by the first "</name>" after its opening tag, even a nested one's;
///   - elements after the first top-level one become children of that root;
///   - a node's text is the last text segment directly inside it, written after its children;
///   - attributes are split at double quotes, skipping one byte between them.
/// Malformed input ends the parse of the range it is in; what was built so far stays.
///
/// The parse reads the text once, front to back, in time linear in the text: every search is
/// bounded by its range, and nesting is followed with an explicit stack, so depth costs no
/// stack. The tree holds one copy of the text it was parsed from, whose bytes its names, texts
/// and attributes are, or, from xml_parse_buffer, the text itself.
#ifndef QUORLIN_XML_XML_PARSER_HPP
#define QUORLIN_XML_XML_PARSER_HPP

#include <cstddef>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include "quorlin/base/api.hpp"

#include "quorlin/xml/xml_node.hpp"

namespace quorlin {

/// The root of the first complete element of `text` (which ends at its first NUL), or null.
QUORLIN_API std::unique_ptr<XmlNode> xml_parse(std::string_view text);

/// The same, for a text the tree may keep: the tree views `text` in place instead of copying it,
/// so that a large document is not held twice. The text is consumed whether or not it parses.
QUORLIN_API std::unique_ptr<XmlNode> xml_parse_buffer(std::string&& text);

/// Parses the elements of text[start, end). With a parent, each element is appended to it and
/// null is returned; without one, the first element becomes the root that is returned and the
/// later ones its children.
QUORLIN_API std::unique_ptr<XmlNode> xml_parse_element(XmlNode* parent, std::string_view text,
                                                       long start, long end);

/// xml_parse_children builds each child whole.
inline constexpr std::size_t XML_EVERY_LEVEL = std::numeric_limits<std::size_t>::max();

/// Where xml_parse_children hands each child, with the `context` it was given.
using XmlChildCallback = void (*)(void* context, const XmlNode& root, const XmlNode& child);

/// Parses `text` as xml_parse does without keeping the root's children: each child is handed to
/// `deliver` as soon as it is complete, then let go, and its memory serves the next one, so that
/// a long list costs the memory of one item. The root handed over with each child holds its name
/// alone, none of its attributes or texts, which a long root tag would make cost as much as a
/// list. The nodes handed over and their names and texts view `text` and live only during the
/// hand-over. Elements more than `depth` levels below the root (its children are at 1) are read
/// as the grammar reads them but not made, so that a reader that looks no deeper pays nothing
/// for a document nested deeper. Returns the root's name, a view of `text`, or std::nullopt when
/// the text has no complete root: the children handed over then belong to no tree and are to be
/// discarded.
QUORLIN_API std::optional<std::string_view> xml_parse_children(std::string_view text,
                                                               XmlChildCallback deliver,
                                                               void* context,
                                                               std::size_t depth = XML_EVERY_LEVEL);

/// The same with any callable taking (const XmlNode& root, const XmlNode& child).
template <typename OnChild>
std::optional<std::string_view> xml_parse_children(std::string_view text, OnChild&& on_child,
                                                   std::size_t depth = XML_EVERY_LEVEL) {
  return xml_parse_children(
      text,
      [](void* context, const XmlNode& root, const XmlNode& child) {
        (*static_cast<std::remove_reference_t<OnChild>*>(context))(root, child);
      },
      &on_child, depth);
}

/// Splits text[start, end) into attributes at double quotes and adds them to `node`.
QUORLIN_API void xml_parse_attributes(XmlNode& node, std::string_view text, long start, long end);

/// Adds the attribute name="value" of text[start, end) to `node`; nothing without an "=".
QUORLIN_API void xml_parse_attribute(XmlNode& node, std::string_view text, long start, long end);

}  // namespace quorlin

#endif  // QUORLIN_XML_XML_PARSER_HPP
