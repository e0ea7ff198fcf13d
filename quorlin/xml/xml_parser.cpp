// The parser walks index ranges of one text. Each open range is a Frame on an explicit stack:
// the node its elements go into, the position reached and the range's end. Finding an
// element's opening tag appends the element at once and pushes a frame for its content; the
// frame of the enclosing range goes on after the element's closing tag once that frame ends.
#include "quorlin/xml/xml_parser.hpp"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <optional>
#include <random>
#include <vector>

#include "quorlin/base/strings.hpp"

namespace quorlin {
namespace {

// The first `byte` in text[from, end), or -1. The gaps between delimiters are mostly a few
// bytes, so a short loop goes first and memchr takes over for long ones.
inline long find_byte(std::string_view text, char byte, long from, long end) {
  const char* data = text.data();
  const long quick_end = std::min(end, from + 16);
  for (long at = from; at < quick_end; ++at) {
    if (data[at] == byte) return at;
  }
  if (quick_end >= end) return -1;
  const void* found =
      std::memchr(data + quick_end, byte, static_cast<std::size_t>(end - quick_end));
  return found == nullptr ? -1 : static_cast<const char*>(found) - data;
}

// A seeded hash of a tag name, so that a document cannot be written to make names collide.
std::uint64_t name_hash(std::string_view name) {
  static const std::uint64_t seed = std::random_device{}() | 1;
  constexpr std::uint64_t kMultiplier = 0xFF51AFD7ED558CCDull;
  std::uint64_t hash = seed ^ name.size();
  const char* bytes = name.data();
  std::size_t left = name.size();
  for (; left >= 8; bytes += 8, left -= 8) {
    std::uint64_t word;
    std::memcpy(&word, bytes, 8);
    hash = (hash ^ word) * kMultiplier;
    hash ^= hash >> 32;
  }
  std::uint64_t tail = 0;
  for (std::size_t i = 0; i < left; ++i)
    tail |= std::uint64_t{static_cast<unsigned char>(bytes[i])} << (8 * i);
  hash = (hash ^ tail) * kMultiplier;
  return hash ^ (hash >> 29);
}

// Finds closing tags. "</name>" begins at p exactly when "</" stands at p and the first ">"
// after it ends `name` (a tag name never holds a ">"), so one pass over the "</" of the text
// finds them all. That pass is made on the first search, which the parser needs only when a
// closing tag is not simply the next tag (as it is for every element that holds only text);
// it chains the closing tags of each name in document order. The parser opens elements in
// document order, so each name's cursor only moves forward and the whole parse walks each
// chain once.
class ClosingTags {
 public:
  explicit ClosingTags(std::string_view text) : text_(text) {}

  // The first "</name>" beginning in [from, end); -1 when there is none.
  long find(std::string_view name, long from, long end) {
    if (!indexed_) index();
    const long found = first_from(name, from);
    return found >= 0 && found < end ? found : -1;
  }

  // Whether "</name>" begins at `at`; it may run past the range being parsed.
  bool closes(long at, std::string_view name) const {
    const std::size_t size = name.size() + 3;
    if (static_cast<std::size_t>(at) + size > text_.size()) return false;
    const char* tag = text_.data() + at;
    return tag[0] == '<' && tag[1] == '/' && tag[size - 1] == '>' &&
           std::string_view(tag + 2, name.size()) == name;
  }

 private:
  struct Tag {
    long start;  // the "<" of "</name>"
    long next;   // the next tag of the same name, as an index into tags_, or -1
  };
  struct Chain {
    std::string_view name;
    std::uint64_t hash;
    long first;      // the name's first tag, as an index into tags_
    long last;       // its last tag so far
    long cursor;     // its first tag at or after last_from, or -1
    long last_from;  // where the last search for the name began
  };

  void index() {
    indexed_ = true;
    slots_.assign(64, -1);
    const long length = static_cast<long>(text_.size());
    for (long p = find_byte(text_, '<', 0, length); p >= 0;
         p = find_byte(text_, '<', p + 1, length)) {
      if (p + 1 >= length || text_[p + 1] != '/') continue;
      const long gt = find_byte(text_, '>', p + 2, length);
      if (gt < 0) break;  // no later "</" has a ">" after it either
      const long tag = static_cast<long>(tags_.size());
      tags_.push_back(Tag{p, -1});
      const std::string_view name = text_.substr(p + 2, gt - p - 2);
      const std::uint64_t hash = name_hash(name);
      if (long* slot = find_slot(name, hash); *slot >= 0) {
        Chain& chain = chains_[*slot];
        tags_[chain.last].next = tag;
        chain.last = tag;
      } else {
        *slot = static_cast<long>(chains_.size());
        chains_.push_back(Chain{name, hash, tag, tag, tag, 0});
        if (chains_.size() * 2 > slots_.size()) grow();
      }
    }
  }

  // The slot that holds the chain of `name`, or the free slot where it belongs.
  long* find_slot(std::string_view name, std::uint64_t hash) {
    const std::size_t mask = slots_.size() - 1;
    for (std::size_t slot = hash & mask;; slot = (slot + 1) & mask) {
      const long chain = slots_[slot];
      if (chain < 0 || (chains_[chain].hash == hash && chains_[chain].name == name)) {
        return &slots_[slot];
      }
    }
  }

  void grow() {
    slots_.assign(slots_.size() * 2, -1);
    const std::size_t mask = slots_.size() - 1;
    for (std::size_t chain = 0; chain < chains_.size(); ++chain) {
      std::size_t slot = chains_[chain].hash & mask;
      while (slots_[slot] >= 0) slot = (slot + 1) & mask;
      slots_[slot] = static_cast<long>(chain);
    }
  }

  long first_from(std::string_view name, long from) {
    const long chain_index = *find_slot(name, name_hash(name));
    if (chain_index < 0) return -1;
    Chain& chain = chains_[chain_index];
    // The parser's searches only go forward; one that goes back starts the chain over.
    if (from < chain.last_from) chain.cursor = chain.first;
    chain.last_from = from;
    while (chain.cursor >= 0 && tags_[chain.cursor].start < from) {
      chain.cursor = tags_[chain.cursor].next;
    }
    return chain.cursor >= 0 ? tags_[chain.cursor].start : -1;
  }

  std::string_view text_;
  bool indexed_ = false;
  std::vector<long> slots_;  // open addressing over chains_, by name hash
  std::vector<Chain> chains_;
  std::vector<Tag> tags_;  // every closing tag, in document order
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

  // Reads on in `frame` up to its next element with child elements, which it appends, and
  // returns the frame of that element's content; std::nullopt when the range is done or
  // cannot go on. Elements without child elements are completed on the way.
  std::optional<Frame> next_element(Frame& frame) {
    while (frame.position < frame.end) {
      long lt = frame.position;
      if (text_[lt] != '<') {
        lt = find_byte(text_, '<', frame.position, frame.end);
        if (lt < 0) lt = frame.end;
        frame.text_start = frame.position;
        frame.text_end = lt;
        frame.position = lt;
        continue;
      }
      long gt = lt + 1;  // the name ends at the tag's first blank or ">"
      while (gt < frame.end && text_[gt] != '>' && text_[gt] != ' ') ++gt;
      const long space = gt < frame.end && text_[gt] == ' ' ? gt : -1;
      if (space >= 0) gt = find_byte(text_, '>', space + 1, frame.end);
      if (gt < 0 || gt >= frame.end) return std::nullopt;
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
  // is empty when the element has no child elements and is already complete.
  std::optional<Frame> open_element(Frame& frame, long lt, long space, long gt) {
    const long name_end = space >= 0 ? space : gt;
    const std::string_view name = text_.substr(lt + 1, name_end - lt - 1);
    const long closing_size = static_cast<long>(name.size()) + 3;

    long attributes_end = gt;
    long content_end = gt;
    long next = gt + 1;
    long leaf_text_end = -1;
    if (text_[gt - 1] == '/') {
      attributes_end = gt - 1;
    } else {
      // Most elements hold only text: the next tag after the opening tag is their closing tag,
      // which is then the first one (it cannot begin at the opening "<" unless it is "</").
      const long next_tag = find_byte(text_, '<', lt + 1, frame.end);
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

    XmlNode* element;
    if (frame.current != nullptr) {
      element = &xml_add_element(*frame.current, name);
    } else {
      root_ = xml_node_new(name);
      element = frame.current = root_.get();
    }
    if (space >= 0) xml_parse_attributes(*element, text_, space + 1, attributes_end);
    frame.position = next;
    if (leaf_text_end > gt + 1)
      xml_node_set_text(*element, text_.substr(gt + 1, leaf_text_end - gt - 1));
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
