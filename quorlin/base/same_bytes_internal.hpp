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

// Most names are 4 to 32 bytes: overlapping word loads compare them without a call.
inline bool same_bytes(std::string_view a, std::string_view b) {
  const std::size_t size = a.size();
  if (size != b.size()) return false;
  const char* x = a.data();
  const char* y = b.data();
  if (size >= 8 && size <= 32) {
    using Word = std::uint64_t;
    const bool ends_same = word_at<Word>(x) == word_at<Word>(y) &&
                           word_at<Word>(x + size - 8) == word_at<Word>(y + size - 8);
    if (size <= 16 || !ends_same) return ends_same;
    return word_at<Word>(x + 8) == word_at<Word>(y + 8) &&
           word_at<Word>(x + size - 16) == word_at<Word>(y + size - 16);
  }
  if (size >= 4 && size < 8) {
    return word_at<std::uint32_t>(x) == word_at<std::uint32_t>(y) &&
           word_at<std::uint32_t>(x + size - 4) == word_at<std::uint32_t>(y + size - 4);
  }
  return std::memcmp(x, y, size) == 0;
}

}  // namespace quorlin

#endif  // QUORLIN_BASE_SAME_BYTES_INTERNAL_HPP
