// The parser walks index ranges of one text. Each open range is a Frame on an explicit stack:
// the node its elements go into, the position reached and the range's end. Finding an
// element's opening tag appends the element at once and pushes a frame for its content; the
// frame of the enclosing range goes on after the element's closing tag once that frame ends.
#include "quorlin/xml/xml_parser.hpp"

#include <algorithm>
#include <cstring>
#include <optional>
#include <unordered_map>
#include <vector>

#include "quorlin/base/strings.hpp"

namespace quorlin {
namespace {

// The first `byte` in text[from, end), or -1.
long find_byte(std::string_view text, char byte, long from, long end) {
  if (from >= end) return -1;
  const void* found = std::memchr(text.data() + from, byte, static_cast<std::size_t>(end - from));
  return found == nullptr ? -1 : static_cast<const char*>(found) - text.data();
}

// Where every "</name>" of the text begins, by name. "</name>" begins at p exactly when "</"
// stands at p and the first ">" after it ends `name` (a tag name never holds a ">"), so one
// pass over the "</" of the text finds them all.
class ClosingTags {
 public:
  explicit ClosingTags(std::string_view text) {
    const long length = static_cast<long>(text.size());
    for (long p = find_byte(text, '<', 0, length); p >= 0;
         p = find_byte(text, '<', p + 1, length)) {
      if (p + 1 >= length || text[p + 1] != '/') continue;
      const long gt = find_byte(text, '>', p + 2, length);
      if (gt < 0) break;  // no later "</" has a ">" after it either
      positions_[text.substr(p + 2, gt - p - 2)].push_back(p);
    }
  }

  // The first "</name>" beginning in [from, end), or -1.
  long find(std::string_view name, long from, long end) const {
    const auto entry = positions_.find(name);
    if (entry == positions_.end()) return -1;
    const std::vector<long>& starts = entry->second;
    const auto found = std::lower_bound(starts.begin(), starts.end(), from);
    return found != starts.end() && *found < end ? *found : -1;
  }

 private:
  std::unordered_map<std::string_view, std::vector<long>> positions_;
};

struct Frame {
  XmlNode* parent;   // receives the range's text; null at the top level, where text is dropped
  XmlNode* current;  // receives the range's elements; null until the top level has a root
  long position;
  long end;
  long text_start = -1;  // the last text segment seen; each one replaces the one before
  long text_end = -1;
};

class Parser {
 public:
  explicit Parser(std::string_view text) : text_(text), closing_(text) {}

  std::unique_ptr<XmlNode> run(XmlNode* parent, long start, long end) {
    std::vector<Frame> frames{Frame{parent, parent, start, std::min(end, length())}};
    while (!frames.empty()) {
      if (std::optional<Frame> content = next_element(frames.back())) {
        frames.push_back(*content);
      } else {
        finish(frames.back());
        frames.pop_back();
      }
    }
    return std::move(root_);
  }

 private:
  long length() const { return static_cast<long>(text_.size()); }

  // Reads on in `frame` up to its next element, which it appends, and returns the frame of
  // that element's content; std::nullopt when the range is done or cannot go on.
  std::optional<Frame> next_element(Frame& frame) {
    while (frame.position < frame.end) {
      long lt = find_byte(text_, '<', frame.position, frame.end);
      if (lt != frame.position) {
        if (lt < 0) lt = frame.end;
        frame.text_start = frame.position;
        frame.text_end = lt;
        frame.position = lt;
        continue;
      }
      const long gt = find_byte(text_, '>', lt, frame.end);
      if (gt < 0) return std::nullopt;
      if (lt == 0 && frame.end > 0 && text_[1] == '?') {  // a declaration at the very start
        frame.position = gt + 1;
        continue;
      }
      return open_element(frame, lt, gt);
    }
    return std::nullopt;
  }

  std::optional<Frame> open_element(Frame& frame, long lt, long gt) {
    const long space = find_byte(text_, ' ', lt, gt);
    const long name_end = space >= 0 ? space : gt;
    const std::string_view name = text_.substr(lt + 1, name_end - lt - 1);

    long attributes_end = gt;
    long content_end = gt;
    long next = gt + 1;
    if (text_[gt - 1] != '/') {
      const long closing = closing_.find(name, lt, frame.end);
      if (closing < 0) return std::nullopt;
      content_end = closing;
      next = closing + static_cast<long>(name.size()) + 3;
    } else {
      attributes_end = gt - 1;
    }

    XmlNode* element;
    if (frame.current != nullptr) {
      element = &xml_add_element(*frame.current, name);
    } else {
      root_ = xml_node_new(name);
      element = frame.current = root_.get();
    }
    if (space >= 0) xml_parse_attributes(*element, text_, space + 1, attributes_end);
    frame.position = next;
    return Frame{element, element, gt + 1, content_end};
  }

  void finish(const Frame& frame) {
    if (frame.parent == nullptr || frame.text_start < 0) return;
    xml_node_set_text(*frame.parent,
                      text_.substr(frame.text_start, frame.text_end - frame.text_start));
  }

  std::string_view text_;
  ClosingTags closing_;
  std::unique_ptr<XmlNode> root_;
};

}  // namespace

std::unique_ptr<XmlNode> xml_parse(std::string_view text) {
  text = c_text(text);
  return xml_parse_element(nullptr, text, 0, static_cast<long>(text.size()));
}

std::unique_ptr<XmlNode> xml_parse_element(XmlNode* parent, std::string_view text, long start,
                                           long end) {
  text = c_text(text);
  return Parser(text).run(parent, std::max(start, 0L), end);
}

void xml_parse_attributes(XmlNode& node, std::string_view text, long start, long end) {
  end = std::min(end, static_cast<long>(text.size()));
  for (long position = std::max(start, 0L); position < end;) {
    long stop = end;
    const long open_quote = find_byte(text, '"', position, end);
    if (open_quote >= 0) {
      const long close_quote = find_byte(text, '"', open_quote + 1, end);
      if (close_quote >= 0) stop = close_quote + 1;
    }
    xml_parse_attribute(node, text, position, stop);
    position = stop + 1;  // exactly one separating byte is skipped
  }
}

void xml_parse_attribute(XmlNode& node, std::string_view text, long start, long end) {
  const long equals = find_byte(text, '=', start, end);
  if (equals < 0) return;
  long value_start = equals + 1;
  if (equals != end - 1 && text[value_start] == '"') ++value_start;
  const long value_end = text[end - 1] == '"' ? end - 1 : end;
  const std::string_view value =
      value_end > value_start ? text.substr(value_start, value_end - value_start) : "";
  xml_node_add_attribute(node, text.substr(start, equals - start), value);
}

}  // namespace quorlin
