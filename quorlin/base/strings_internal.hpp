// Reading a number as strtol does, without a copy: the fast path the record readers and the
// request cycle take for each number of a reply.
#ifndef QUORLIN_BASE_STRINGS_INTERNAL_HPP
#define QUORLIN_BASE_STRINGS_INTERNAL_HPP

#include <string_view>

namespace quorlin {

// What strtol(text, nullptr, 10) gives for `text` read as a C string (it ends at a NUL):
// leading blanks, one sign, then decimal digits; LONG_MIN or LONG_MAX when the value does not
// fit; 0 without digits. No copy and no terminator are needed.
long decimal_prefix_any(std::string_view text);  //< out of line, for any text
inline long decimal_prefix(std::string_view text) {
  // Most numbers of a document are a few plain digits: read those here, the rest out of line.
  if (text.empty() || text.size() > 18) return decimal_prefix_any(text);
  long value = 0;
  for (const char digit : text) {
    if (digit < '0' || digit > '9') return decimal_prefix_any(text);
    value = value * 10 + (digit - '0');
  }
  return value;
}

}  // namespace quorlin

#endif  // QUORLIN_BASE_STRINGS_INTERNAL_HPP
