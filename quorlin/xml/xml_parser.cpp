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
#include <cstdint>
#include <cstring>
#include <optional>
#include <random>
#include <vector>

#include "quorlin/base/strings.hpp"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace quorlin {
namespace {

#if defined(__SSE2__)
// A mask of the 16 bytes at `at` that equal `byte`.
inline unsigned byte_mask(const char* at, char byte) {
  const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(at));
  return static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(block, _mm_set1_epi8(byte))));
}
#endif

// The first position in text[from, end) whose byte is `first` or `second`, or -1. Sixteen
// bytes are compared at once wherever sixteen can be read inside the text.
inline long find_either(std::string_view text, char first, char second, long from, long end) {
  const char* data = text.data();
#if defined(__SSE2__)
  const long last_block = static_cast<long>(text.size()) - 16;
  for (; from < end && from <= last_block; from += 16) {
    const unsigned hits = byte_mask(data + from, first) | byte_mask(data + from, second);
    if (hits != 0) {
      const long at = from + __builtin_ctz(hits);
      return at < end ? at : -1;
    }
  }
#endif
  for (; from < end; ++from) {
    if (data[from] == first || data[from] == second) return from;
  }
  return -1;
}

// The first `byte` in text[from, end), or -1.
inline long find_byte(std::string_view text, char byte, long from, long end) {
  return find_either(text, byte, byte, from, end);
}

// The next "</" at or after `from` in the text, or -1.
inline long find_closing_start(std::string_view text, long from) {
  const char* data = text.data();
  const long length = static_cast<long>(text.size());
#if defined(__SSE2__)
  for (; from <= length - 17; from += 16) {
    const unsigned pairs = byte_mask(data + from, '<') & byte_mask(data + from + 1, '/');
    if (pairs != 0) return from + __builtin_ctz(pairs);
  }
#endif
  for (; from + 1 < length; ++from) {
    if (data[from] == '<' && data[from + 1] == '/') return from;
  }
  return -1;
}

// Whether two views hold the same bytes; tag names are short, so this stays inline.
inline bool same_bytes(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  std::size_t at = 0;
  for (; at + 8 <= a.size(); at += 8) {
    std::uint64_t left;
    std::uint64_t right;
    std::memcpy(&left, a.data() + at, 8);
    std::memcpy(&right, b.data() + at, 8);
    if (left != right) return false;
  }
  for (; at < a.size(); ++at) {
    if (a[at] != b[at]) return false;
  }
  return true;
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
  for (std::size_t i = 0; i < left; ++i) {
    tail |= std::uint64_t{static_cast<unsigned char>(bytes[i])} << (8 * i);
  }
  hash = (hash ^ tail) * kMultiplier;
  return hash ^ (hash >> 29);
}

// Finds closing tags. "</name>" begins at p exactly when "</" stands at p and the first ">"
// after it ends `name` (a tag name never holds a ">"), so one pass over the "</" of the text
// finds them all. That pass is made on the first search, which the parser needs only when a
// closing tag is not simply the next tag (as it is for every element that holds only text);
// it lists the closing tags of each name in document order. The parser opens elements in
// document order, so each name's cursor only moves forward and each list is walked once.
class ClosingTags {
 public:
  explicit ClosingTags(std::string_view text) : text_(text) {
    std::fill(std::begin(recent_), std::end(recent_), -1L);
  }

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
           same_bytes(std::string_view(tag + 2, name.size()), name);
  }

 private:
  struct Name {
    std::string_view name;
    std::uint64_t hash;
    std::vector<long> starts;  // the "<" of each "</name>", in document order
    std::size_t cursor;        // the first of them at or after last_from
    long last_from;            // where the last search for the name began
  };

  void index() {
    indexed_ = true;
    slots_.assign(64, -1);
    const long length = static_cast<long>(text_.size());
    for (long p = find_closing_start(text_, 0); p >= 0; p = find_closing_start(text_, p + 1)) {
      const long gt = find_byte(text_, '>', p + 2, length);
      if (gt < 0) break;  // no later "</" has a ">" after it either
      const std::string_view name = text_.substr(p + 2, gt - p - 2);
      names_[entry_of(name)].starts.push_back(p);
    }
  }

  // The entry of `name` in names_, made if it is new. Documents repeat a few names many times,
  // so a small table keyed by length and outer bytes answers most lookups without hashing.
  long entry_of(std::string_view name) {
    const std::size_t key = name.empty()
                                ? 0
                                : (name.size() * 8 + static_cast<unsigned char>(name.front()) * 3 +
                                   static_cast<unsigned char>(name.back())) %
                                      std::size(recent_);
    long& recent = recent_[key];
    if (recent >= 0 && same_bytes(names_[recent].name, name)) return recent;
    const std::uint64_t hash = name_hash(name);
    long* slot = find_slot(name, hash);
    if (*slot < 0) {
      *slot = static_cast<long>(names_.size());
      names_.push_back(Name{name, hash, {}, 0, 0});
      if (names_.size() * 2 > slots_.size()) grow();
      slot = find_slot(name, hash);
    }
    return recent = *slot;
  }

  // The slot that holds the entry of `name`, or the free slot where it belongs.
  long* find_slot(std::string_view name, std::uint64_t hash) {
    const std::size_t mask = slots_.size() - 1;
    for (std::size_t slot = hash & mask;; slot = (slot + 1) & mask) {
      const long entry = slots_[slot];
      if (entry < 0 || (names_[entry].hash == hash && same_bytes(names_[entry].name, name))) {
        return &slots_[slot];
      }
    }
  }

  void grow() {
    slots_.assign(slots_.size() * 2, -1);
    const std::size_t mask = slots_.size() - 1;
    for (std::size_t entry = 0; entry < names_.size(); ++entry) {
      std::size_t slot = names_[entry].hash & mask;
      while (slots_[slot] >= 0) slot = (slot + 1) & mask;
      slots_[slot] = static_cast<long>(entry);
    }
  }

  long first_from(std::string_view name, long from) {
    const long entry = *find_slot(name, name_hash(name));
    if (entry < 0) return -1;
    Name& tags = names_[entry];
    // The parser's searches only go forward; one that goes back starts the list over.
    if (from < tags.last_from) tags.cursor = 0;
    tags.last_from = from;
    while (tags.cursor < tags.starts.size() && tags.starts[tags.cursor] < from) ++tags.cursor;
    return tags.cursor < tags.starts.size() ? tags.starts[tags.cursor] : -1;
  }

  std::string_view text_;
  bool indexed_ = false;
  std::vector<long> slots_;  // open addressing over names_, by hash
  std::vector<Name> names_;
  long recent_[251];  // entries of names_ by a cheap key, -1 when none
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
        const long next_tag = find_byte(text_, '<', lt, frame.end);
        frame.text_start = lt;
        frame.text_end = frame.position = next_tag < 0 ? frame.end : next_tag;
        continue;
      }
      // The name ends at the tag's first blank or ">".
      const long name_end = find_either(text_, ' ', '>', lt + 1, frame.end);
      if (name_end < 0) return std::nullopt;
      const long space = text_[name_end] == ' ' ? name_end : -1;
      const long gt = space < 0 ? name_end : find_byte(text_, '>', space + 1, frame.end);
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
  text = c_text(text);
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
