// same_bytes: whether two short byte strings are equal, for the names that the XML parser and
// the record readers compare once per element.
#ifndef QUORLIN_BASE_SAME_BYTES_INTERNAL_HPP
#define QUORLIN_BASE_SAME_BYTES_INTERNAL_HPP

#include <cstdint>
#include <cstring>
#include <string_view>

namespace quorlin {

template <typename Word>
Word word_at(const char* bytes) {
  Word word;
  std::memcpy(&word, bytes, sizeof word);
  return word;
}

// Names are short: words that overlap at the end cover any length from 4 up without a call
// or a loop over single bytes.
inline bool same_bytes(std::string_view a, std::string_view b) {
  const std::size_t size = a.size();
  if (size != b.size()) return false;
  const char* x = a.data();
  const char* y = b.data();
  if (size >= 8) {
    for (std::size_t at = 0; at + 8 < size; at += 8) {
      if (word_at<std::uint64_t>(x + at) != word_at<std::uint64_t>(y + at)) return false;
    }
    return word_at<std::uint64_t>(x + size - 8) == word_at<std::uint64_t>(y + size - 8);
  }
  if (size >= 4) {
    return word_at<std::uint32_t>(x) == word_at<std::uint32_t>(y) &&
           word_at<std::uint32_t>(x + size - 4) == word_at<std::uint32_t>(y + size - 4);
  }
  for (std::size_t at = 0; at < size; ++at) {
    if (x[at] != y[at]) return false;
  }
  return true;
}

}  // namespace quorlin

#endif  // QUORLIN_BASE_SAME_BYTES_INTERNAL_HPP
