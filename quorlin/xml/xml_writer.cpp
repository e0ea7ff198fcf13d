// Both the writer and the dump walk the tree with an explicit stack of (node, next child), so
// that a document of any depth is written without recursion.
#include "quorlin/xml/xml_writer.hpp"

#include <algorithm>
#include <climits>
#include <cstring>
#include <vector>

#include "quorlin/base/log.hpp"
#include "quorlin/xml/xml_writer_internal.hpp"

namespace quorlin {
namespace {

// Calls open(node) on the way down and close(node) once all its children are done.
template <typename Open, typename Close>
void walk(const XmlNode& root, Open open, Close close) {
  struct Step {
    const XmlNode* node;
    const XmlChild* next_child;
  };
  open(root);
  std::vector<Step> path{{&root, xml_node_children(root).first}};
  while (!path.empty()) {
    Step& step = path.back();
    if (step.next_child == nullptr) {
      close(*step.node);
      path.pop_back();
      continue;
    }
    const XmlNode& child = step.next_child->item;
    step.next_child = step.next_child->next;
    open(child);
    path.push_back({&child, xml_node_children(child).first});
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
      [&out](const XmlNode& open) {
        compact::tag_start(out, xml_node_name(open));
        for (auto* entry = xml_node_attributes(open).first; entry != nullptr; entry = entry->next) {
          compact::attribute(out, entry->item.name, entry->item.value);
        }
        compact::tag_end(out);
      },
      [&out](const XmlNode& close) {
        if (const auto text = xml_node_text(close)) out += *text;
        compact::closing_tag(out, xml_node_name(close));
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
      [](const XmlNode& open) {
        log_printf("<%.*s", printable(xml_node_name(open)), xml_node_name(open).data());
        for (auto* entry = xml_node_attributes(open).first; entry != nullptr; entry = entry->next) {
          const XmlAttribute& attribute = entry->item;
          log_printf(" %.*s=\"%.*s\"", printable(attribute.name), attribute.name.data(),
                     printable(attribute.value), attribute.value.data());
        }
        log_printf(">\n");
      },
      [](const XmlNode& close) {
        if (const auto text = xml_node_text(close)) {
          log_printf("%.*s", printable(*text), text->data());
        }
        log_printf("</%.*s>\n", printable(xml_node_name(close)), xml_node_name(close).data());
      });
}

}  // namespace quorlin
