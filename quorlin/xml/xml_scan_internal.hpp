// Byte searches for the XML parser (internal: not installed). Sixteen bytes are compared at once
// (SSE2) while sixteen are left in the range searched; nothing is read outside it. Each search
// returns a position in the text, or -1 when the bytes are not there.
#ifndef QUORLIN_XML_XML_SCAN_INTERNAL_HPP
#define QUORLIN_XML_XML_SCAN_INTERNAL_HPP

#include <string_view>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace quorlin::scan {

#if defined(__SSE2__)
// A mask of the 16 bytes at `at` that equal `byte`.
inline unsigned byte_mask(const char* at, char byte) {
  const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(at));
  return static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(block, _mm_set1_epi8(byte))));
}
#endif

// The first position in text[from, end) whose byte is `first`, `second` or `third`, or -1;
// `end` is at most the text's size. The searches for one or two bytes repeat a byte: the
// compiler compares a block with it once.
inline long find_any(std::string_view text, char first, char second, char third, long from,
                     long end) {
  const char* data = text.data();
#if defined(__SSE2__)
  for (; from <= end - 16; from += 16) {
    const unsigned hits = byte_mask(data + from, first) | byte_mask(data + from, second) |
                          byte_mask(data + from, third);
    if (hits != 0) return from + __builtin_ctz(hits);
  }
#endif
  for (; from < end; ++from) {
    if (data[from] == first || data[from] == second || data[from] == third) return from;
  }
  return -1;
}

// The first position in text[from, end) whose byte is `first` or `second`, or -1.
inline long find_either(std::string_view text, char first, char second, long from, long end) {
  return find_any(text, first, second, second, from, end);
}

// The first `byte` in text[from, end), or -1.
inline long find_byte(std::string_view text, char byte, long from, long end) {
  return find_either(text, byte, byte, from, end);
}

}  // namespace quorlin::scan

#endif  // QUORLIN_XML_XML_SCAN_INTERNAL_HPP
