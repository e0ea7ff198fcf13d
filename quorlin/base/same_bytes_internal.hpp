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

// Names are short: words that overlap at the end cover any length from 4 to 16 without a call
// or a loop, three bytes any length below 4; longer names go to memcmp.
inline bool same_bytes(std::string_view a, std::string_view b) {
  const std::size_t size = a.size();
  if (size != b.size()) return false;
  const char* x = a.data();
  const char* y = b.data();
  if (size > 16) return std::memcmp(x, y, size) == 0;
  if (size >= 8) {
    return ((word_at<std::uint64_t>(x) ^ word_at<std::uint64_t>(y)) |
            (word_at<std::uint64_t>(x + size - 8) ^ word_at<std::uint64_t>(y + size - 8))) == 0;
  }
  if (size >= 4) {
    return ((word_at<std::uint32_t>(x) ^ word_at<std::uint32_t>(y)) |
            (word_at<std::uint32_t>(x + size - 4) ^ word_at<std::uint32_t>(y + size - 4))) == 0;
  }
  return size == 0 || (x[0] == y[0] && x[size / 2] == y[size / 2] && x[size - 1] == y[size - 1]);
}

}  // namespace quorlin

#endif  // QUORLIN_BASE_SAME_BYTES_INTERNAL_HPP
