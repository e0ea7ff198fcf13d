// Both the writer and the dump walk the tree with an explicit stack of (node, next child), so
// that a document of any depth is written without recursion.
#include "quorlin/xml/xml_writer.hpp"

#include <cstring>
#include <vector>

#include "quorlin/base/log.hpp"

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
        out += '<';
        out += open.name;
        for (auto* entry = xml_node_attributes(open).first; entry != nullptr; entry = entry->next) {
          out += ' ';
          out += entry->item->name;
          out += "=\"";
          out += entry->item->value;
          out += '"';
        }
        out += '>';
      },
      [&out](const XmlNode& close) {
        if (close.text) out += *close.text;
        out += "</";
        out += close.name;
        out += '>';
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
        log_printf("<%s", open.name.c_str());
        for (auto* entry = xml_node_attributes(open).first; entry != nullptr; entry = entry->next) {
          log_printf(" %s=\"%s\"", entry->item->name.c_str(), entry->item->value.c_str());
        }
        log_printf(">\n");
      },
      [](const XmlNode& close) {
        if (close.text) log_printf("%s", close.text->c_str());
        log_printf("</%s>\n", close.name.c_str());
      });
}

}  // namespace quorlin
