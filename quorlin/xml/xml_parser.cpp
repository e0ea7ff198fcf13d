// The parser walks index ranges of one text. Each open range is a Frame on an explicit stack:
// the node its elements go into, the position reached and the range's end. Finding an
// element's opening tag appends the element at once; an element that holds only text is
// completed there, and any other pushes a frame for its content. The frame of the enclosing
// range goes on after the element's closing tag once that frame ends.
//
// The tree keeps one copy of the parsed range, made when the first element is found; names
// and texts are views of that copy, so each costs no allocation of its own.
#include "quorlin/xml/xml_parser.hpp"

#include <algorithm>
#include <optional>
#include <vector>

#include "quorlin/base/strings.hpp"
#include "quorlin/xml/xml_closing_tags.hpp"
#include "quorlin/xml/xml_scan.hpp"

namespace quorlin {
namespace {

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
  Parser(std::string_view text, XmlNode* parent) : text_(text), closing_(text), parent_(parent) {}

  std::unique_ptr<XmlNode> run(long start, long end) {
    start_ = start;
    std::vector<Frame> frames{Frame{parent_, parent_, start, std::min(end, length())}};
    end_ = frames.back().end;
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

  // Reads on in `frame` up to its next element with child elements, which it appends, and
  // returns the frame of that element's content; std::nullopt when the range is done or
  // cannot go on. Elements that hold only text are completed on the way.
  std::optional<Frame> next_element(Frame& frame) {
    while (frame.position < frame.end) {
      const long lt = frame.position;
      if (text_[lt] != '<') {
        const long next_tag = scan::find_byte(text_, '<', lt, frame.end);
        frame.text_start = lt;
        frame.text_end = frame.position = next_tag < 0 ? frame.end : next_tag;
        continue;
      }
      // The name ends at the tag's first blank or ">".
      const long name_end = scan::find_either(text_, ' ', '>', lt + 1, frame.end);
      if (name_end < 0) return std::nullopt;
      const long space = text_[name_end] == ' ' ? name_end : -1;
      const long gt = space < 0 ? name_end : scan::find_byte(text_, '>', space + 1, frame.end);
      if (gt < 0) return std::nullopt;
      if (lt == 0 && text_[1] == '?') {  // a declaration at the very start
        frame.position = gt + 1;
        continue;
      }
      std::optional<Frame> content = open_element(frame, lt, space, gt);
      if (!content || content->position < content->end) return content;
    }
    return std::nullopt;
  }

  // Appends the element whose tag is text[lt, gt] and returns the frame of its content, which
  // is empty when the element holds only text and is already complete.
  std::optional<Frame> open_element(Frame& frame, long lt, long space, long gt) {
    const std::string_view name = text_.substr(lt + 1, (space >= 0 ? space : gt) - lt - 1);
    const long closing_size = static_cast<long>(name.size()) + 3;

    long attributes_end = gt;
    long content_end = gt;
    long leaf_text_end = -1;
    long next = gt + 1;
    if (text_[gt - 1] == '/') {
      attributes_end = gt - 1;
    } else {
      // Most elements hold only text: the next tag after the opening tag is their closing tag,
      // which is then the first one (it cannot begin at the opening "<" unless it is "</").
      const long next_tag = scan::find_byte(text_, '<', lt + 1, frame.end);
      if (next_tag > gt && text_[lt + 1] != '/' && closing_.closes(next_tag, name)) {
        leaf_text_end = next_tag;
        next = next_tag + closing_size;
      } else {
        const long closing = closing_.find(name, lt, frame.end);
        if (closing < 0) return std::nullopt;
        content_end = closing;
        next = closing + closing_size;
      }
    }

    XmlNode& element = append(frame, name);
    if (space >= 0) xml_parse_attributes(element, text_, space + 1, attributes_end);
    if (leaf_text_end > gt + 1) set_text(element, gt + 1, leaf_text_end);
    frame.position = next;
    return Frame{&element, &element, gt + 1, content_end};
  }

  XmlNode& append(Frame& frame, std::string_view name) {
    if (frame.current == nullptr) {
      root_ = xml_node_new(name);
      frame.current = root_.get();
      copy_text_into(*root_->document);
      return *root_;
    }
    if (copy_ == nullptr) copy_text_into(*frame.current->document);
    // The caller's parent may be shared; the elements made here are not, until returned.
    if (frame.current == parent_) return xml_add_element(*parent_, name);
    return xml_add_element_unshared(*frame.current, in_copy(name));
  }

  void copy_text_into(XmlDocument& document) {
    copy_ = document.copy(text_.substr(start_, end_ - start_));
  }

  // The bytes of `part` of the text in the tree's copy of it.
  std::string_view in_copy(std::string_view part) const {
    return {copy_ + (part.data() - text_.data() - start_), part.size()};
  }

  void set_text(XmlNode& node, long start, long end) {
    node.text_bytes = copy_ + (start - start_);
    node.text_size = static_cast<std::size_t>(end - start);
  }

  void finish(const Frame& frame) {
    if (frame.parent == nullptr || frame.text_start < 0) return;
    if (frame.parent == parent_) {
      xml_node_set_text(*parent_,
                        text_.substr(frame.text_start, frame.text_end - frame.text_start));
    } else {
      set_text(*frame.parent, frame.text_start, frame.text_end);
    }
  }

  std::string_view text_;
  ClosingTags closing_;
  XmlNode* parent_;
  long start_ = 0;
  long end_ = 0;
  char* copy_ = nullptr;  // the tree's copy of text[start_, end_)
  std::unique_ptr<XmlNode> root_;
};

}  // namespace

std::unique_ptr<XmlNode> xml_parse(std::string_view text) {
  // The end passed on is the whole view's; xml_parse_element cuts the text at its first NUL.
  return xml_parse_element(nullptr, text, 0, static_cast<long>(text.size()));
}

std::unique_ptr<XmlNode> xml_parse_element(XmlNode* parent, std::string_view text, long start,
                                           long end) {
  text = c_text(text);
  start = std::max(start, 0L);
  if (start >= std::min(end, static_cast<long>(text.size()))) return nullptr;
  return Parser(text, parent).run(start, end);
}

void xml_parse_attributes(XmlNode& node, std::string_view text, long start, long end) {
  end = std::min(end, static_cast<long>(text.size()));
  for (long position = std::max(start, 0L); position < end;) {
    long stop = end;
    const long open_quote = scan::find_byte(text, '"', position, end);
    if (open_quote >= 0) {
      const long close_quote = scan::find_byte(text, '"', open_quote + 1, end);
      if (close_quote >= 0) stop = close_quote + 1;
    }
    xml_parse_attribute(node, text, position, stop);
    position = stop + 1;  // exactly one separating byte is skipped
  }
}

void xml_parse_attribute(XmlNode& node, std::string_view text, long start, long end) {
  const long equals = scan::find_byte(text, '=', start, end);
  if (equals < 0) return;
  long value_start = equals + 1;
  if (equals != end - 1 && text[value_start] == '"') ++value_start;
  const long value_end = text[end - 1] == '"' ? end - 1 : end;
  const std::string_view value =
      value_end > value_start ? text.substr(value_start, value_end - value_start) : "";
  xml_node_add_attribute(node, text.substr(start, equals - start), value);
}

}  // namespace quorlin
