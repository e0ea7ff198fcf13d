// Both the writer and the dump walk the tree with an explicit stack of (node, next child), so
// that a document of any depth is written without recursion.
#include "quorlin/xml/xml_writer.hpp"

#include <algorithm>
#include <climits>
#include <cstring>
#include <vector>

#include "quorlin/base/log.hpp"
#include "quorlin/xml/xml_element_internal.hpp"
#include "quorlin/xml/xml_writer_internal.hpp"

namespace quorlin {
namespace {

// Calls open(element) on the way down and close(element) once all its children are done.
template <typename Open, typename Close>
void walk(const XmlNode& root_node, Open open, Close close) {
  struct Step {
    const XmlElement* element;
    const XmlChild* next_child;
  };
  const XmlElement& root = XmlElement::of(root_node);
  open(root);
  std::vector<Step> path{{&root, root.children().first}};
  while (!path.empty()) {
    Step& step = path.back();
    if (step.next_child == nullptr) {
      close(*step.element);
      path.pop_back();
      continue;
    }
    const XmlElement& child = step.next_child->item;
    step.next_child = step.next_child->next;
    open(child);
    path.push_back({&child, child.children().first});
  }
}

// The length for "%.*s"; like "%s", the output still ends at the first NUL.
int printable(std::string_view text) {
  return static_cast<int>(std::min<std::size_t>(text.size(), INT_MAX));
}

}  // namespace

char* text_buffer_reserve(TextBuffer& buffer, std::size_t extra) {
  if (!buffer.text) {
    buffer.text = std::make_unique<char[]>(TEXT_BUFFER_BLOCK);
    buffer.capacity = TEXT_BUFFER_BLOCK;
    return buffer.text.get();
  }
  const std::size_t length = std::strlen(buffer.text.get());
  if ((length + extra) / TEXT_BUFFER_BLOCK > length / TEXT_BUFFER_BLOCK) {
    const std::size_t capacity = ((length + extra) / TEXT_BUFFER_BLOCK + 1) * TEXT_BUFFER_BLOCK;
    auto moved = std::make_unique<char[]>(capacity);
    std::memcpy(moved.get(), buffer.text.get(), length + 1);
    buffer.text = std::move(moved);
    buffer.capacity = capacity;
  }
  return buffer.text.get();
}

void xml_write_node(const XmlNode& node, std::string& out) {
  walk(
      node,
      [&out](const XmlElement& open) {
        compact::tag_start(out, open.name());
        for (const XmlAttribute& attribute : open.attributes()) {
          compact::attribute(out, attribute.name, attribute.value);
        }
        compact::tag_end(out);
      },
      [&out](const XmlElement& close) {
        if (const auto text = close.text()) out += *text;
        compact::closing_tag(out, close.name());
      });
}

std::string xml_to_string(const XmlNode& root) {
  std::string out;
  xml_write_node(root, out);
  return out;
}

void xml_node_dump(const XmlNode& node) {
  walk(
      node,
      [](const XmlElement& open) {
        log_printf("<%.*s", printable(open.name()), open.name().data());
        for (const XmlAttribute& attribute : open.attributes()) {
          log_printf(" %.*s=\"%.*s\"", printable(attribute.name), attribute.name.data(),
                     printable(attribute.value), attribute.value.data());
        }
        log_printf(">\n");
      },
      [](const XmlElement& close) {
        if (const auto text = close.text()) log_printf("%.*s", printable(*text), text->data());
        log_printf("</%.*s>\n", printable(close.name()), close.name().data());
      });
}

}  // namespace quorlin
