// ClosingTags: where the parser finds each element's closing tag.
//
// "</name>" begins at p exactly when "</" stands at p and the first ">" after it ends `name` (a
// tag name never holds a ">"), so one pass over the "</" of the text finds them all. That pass
// is made on the first search, which the parser needs only when a closing tag is not simply
// the next tag (as it is for every element that holds only text); it lists the closing tags of
// each name in document order. The parser opens elements in document order, so each name's
// cursor only moves forward and each list is walked once: the searches of a whole parse cost
// time linear in the text. One parse owns one ClosingTags; it is not shared between threads.
#ifndef QUORLIN_XML_XML_CLOSING_TAGS_HPP
#define QUORLIN_XML_XML_CLOSING_TAGS_HPP

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "quorlin/xml/xml_scan.hpp"

namespace quorlin {

class ClosingTags {
 public:
  explicit ClosingTags(std::string_view text);

  // The first "</name>" beginning in [from, end); -1 when there is none.
  long find(std::string_view name, long from, long end);

  // Whether "</name>" begins at `at`; it may run past the range being parsed.
  bool closes(long at, std::string_view name) const {
    const std::size_t size = name.size() + 3;
    if (static_cast<std::size_t>(at) + size > text_.size()) return false;
    const char* tag = text_.data() + at;
    return tag[0] == '<' && tag[1] == '/' && tag[size - 1] == '>' &&
           scan::same_bytes(std::string_view(tag + 2, name.size()), name);
  }

 private:
  struct Name {
    std::string_view name;
    std::uint64_t hash;
    std::vector<long> starts;  // the "<" of each "</name>", in document order
    std::size_t cursor;        // the first of them at or after last_from
    long last_from;            // where the last search for the name began
  };

  void index();
  long entry_of(std::string_view name);
  long* find_slot(std::string_view name, std::uint64_t hash);
  void grow();
  long first_from(std::string_view name, long from);

  std::string_view text_;
  bool indexed_ = false;
  std::vector<long> slots_;  // open addressing over names_, by hash
  std::vector<Name> names_;
  struct Recent {
    std::string_view name;
    long entry = -1;  // in names_; -1 while the slot is unused
  };
  Recent recent_[256];  // by a cheap key of the name
};

}  // namespace quorlin

#endif  // QUORLIN_XML_XML_CLOSING_TAGS_HPP
