// The parser walks index ranges of one text. Each open range is a Frame on an explicit stack:
// the node its elements go into, the position reached and the range's end. Finding an
// element's opening tag appends the element at once; an element that holds only text is
// completed there, and any other pushes a frame for its content. The frame of the enclosing
// range goes on after the element's closing tag once that frame ends.
//
// A parse first tries a single pass that needs no search for closing tags: an element's
// content frame runs on until its own "</name>" turns up at a position of that frame. That
// closing tag is the first one after the opening tag, as the grammar wants, as long as every
// byte in between was read at a frame position or lies in text without "<": the pass gives up
// on anything that breaks this (a "<" inside a tag, an element named like one that is still
// open, a closing tag of another name, a range that ends first). The parse then starts over
// with the closing-tag index, which finds each element's range before its content is read.
//
// The tree keeps one copy of the parsed range, made when the first element is found; names
// and texts are views of that copy, so each costs no allocation of its own.
#include "quorlin/xml/xml_parser.hpp"

#include <algorithm>
#include <bitset>
#include <cstdint>
#include <cstring>
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
  long resume = -1;            // where the enclosing range goes on after this element's closing tag
  std::string_view name = {};  // the element's name in the parsed text, whose bytes are warm
};

// Names that are open at once in the single pass are told apart by 12 bits of their outer
// bytes and length; two open names with the same key make the pass give up, which costs time
// but never changes the tree.
using OpenNames = std::bitset<4096>;

std::size_t open_name_key(std::string_view name) {
  std::uint64_t head = 0;
  std::uint64_t tail = 0;
  const std::size_t size = name.size();
  std::memcpy(&head, name.data(), std::min<std::size_t>(size, 8));
  if (size > 8) std::memcpy(&tail, name.data() + size - 8, 8);
  const std::uint64_t mixed =
      (head * 0x9E3779B97F4A7C15ull) ^ ((tail + size) * 0xC2B2AE3D27D4EB4Full);
  return static_cast<std::size_t>(mixed >> 52);
}

class Parser {
 public:
  Parser(std::string_view text, XmlNode* parent) : text_(text), closing_(text), parent_(parent) {}

  std::unique_ptr<XmlNode> run(long start, long end) {
    start_ = start;
    end_ = std::min(end, length());
    // Elements appended to a caller's parent cannot be taken back, so that parse is indexed.
    single_pass_ = parent_ == nullptr;
    if (walk()) return std::move(root_);
    root_.reset();
    copy_ = nullptr;
    single_pass_ = gave_up_ = false;
    walk();
    return std::move(root_);
  }

 private:
  long length() const { return static_cast<long>(text_.size()); }

  // Parses the range into the tree; false when the single pass gives up.
  bool walk() {
    std::vector<Frame> frames{Frame{parent_, parent_, start_, end_}};
    while (!frames.empty()) {
      if (std::optional<Frame> content = next_element(frames.back())) {
        frames.push_back(*content);
        continue;
      }
      if (gave_up_) return false;
      finish(frames.back());
      const long resume = frames.back().resume;
      frames.pop_back();
      if (resume >= 0) frames.back().position = resume;
    }
    return true;
  }

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
      if (single_pass_ && lt + 1 < length() && text_[lt + 1] == '/') return close(frame, lt);
      // The name ends at the tag's first blank or ">".
      const long name_end = scan::find_either(text_, ' ', '>', lt + 1, frame.end);
      if (name_end < 0) return stop(frame);
      const long space = text_[name_end] == ' ' ? name_end : -1;
      const long gt = space < 0 ? name_end : scan::find_byte(text_, '>', space + 1, frame.end);
      if (gt < 0) return stop(frame);
      if (lt == 0 && text_[1] == '?') {  // a declaration at the very start
        frame.position = gt + 1;
        continue;
      }
      std::optional<Frame> content = open_element(frame, lt, space, gt);
      if (!content || content->position < content->end) return content;
    }
    return stop(frame);
  }

  // The single pass meets "</" at `lt`: the end of the element whose content `frame` is, or a
  // text it cannot read.
  std::optional<Frame> close(Frame& frame, long lt) {
    if (frame.parent == nullptr || !closing_.closes(lt, frame.name)) return give_up();
    open_names_.reset(open_name_key(frame.name));
    frame.resume = lt + static_cast<long>(frame.name.size()) + 3;
    return std::nullopt;
  }

  // The range ends or cannot go on; in the single pass an element's content may do neither.
  std::optional<Frame> stop(const Frame& frame) {
    if (single_pass_ && frame.parent != nullptr) return give_up();
    return std::nullopt;
  }

  std::optional<Frame> give_up() {
    gave_up_ = true;
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
    // Most elements hold only text: the next tag after the opening tag is their closing tag,
    // which is then the first one (it cannot begin at the opening "<" unless it is "</"). A "<"
    // inside the tag could hide a closing tag from the single pass.
    const bool self_closing = text_[gt - 1] == '/';
    const long next_tag = scan::find_byte(text_, '<', lt + 1, self_closing ? gt : frame.end);
    if (single_pass_ && next_tag >= 0 && next_tag < gt) return give_up();
    const std::size_t key = single_pass_ && !self_closing ? open_name_key(name) : 0;
    if (self_closing) {
      attributes_end = gt - 1;
    } else if (single_pass_ && open_names_.test(key)) {
      return give_up();
    } else if (next_tag > gt && text_[lt + 1] != '/' && closing_.closes(next_tag, name)) {
      leaf_text_end = next_tag;
      next = next_tag + closing_size;
    } else if (single_pass_) {
      if (gt + 1 >= frame.end) return give_up();  // no room left for the closing tag
      open_names_.set(key);
      content_end = frame.end;  // until the closing tag turns up
    } else {
      const long closing = closing_.find(name, lt, frame.end);
      if (closing < 0) return std::nullopt;
      content_end = closing;
      next = closing + closing_size;
    }

    XmlNode& element = append(frame, name);
    if (space >= 0) xml_parse_attributes(element, text_, space + 1, attributes_end);
    if (leaf_text_end > gt + 1) set_text(element, gt + 1, leaf_text_end);
    frame.position = next;
    return Frame{.parent = &element,
                 .current = &element,
                 .position = gt + 1,
                 .end = content_end,
                 .name = name};
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
  bool single_pass_ = false;
  bool gave_up_ = false;
  OpenNames open_names_;  // the single pass's open elements, by open_name_key
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
