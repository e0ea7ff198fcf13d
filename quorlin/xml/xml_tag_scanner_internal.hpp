// The XML parser's tag scanner (internal: not installed): pure functions that find the parts of
// the text the grammar reads, without building anything. Positions are indexes into the text,
// -1 for "not found". Every search finds only what lies inside the range it is given, reads
// nothing outside the text, and costs the bytes it passes over, with or without the
// sanitizers: sixteen bytes are compared at once (SSE2).
#ifndef QUORLIN_XML_XML_TAG_SCANNER_INTERNAL_HPP
#define QUORLIN_XML_XML_TAG_SCANNER_INTERNAL_HPP

#include <cstdint>
#include <cstring>
#include <string_view>

#include "quorlin/base/same_bytes_internal.hpp"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace quorlin::xml_scan {

#if defined(__SSE2__)
// A mask of the 16 bytes at `at` that equal `byte`.
inline unsigned byte_mask(const char* at, char byte) {
  const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(at));
  return static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(block, _mm_set1_epi8(byte))));
}
#endif

// The first position in text[from, end) whose byte is `first`, `second` or `third`, or -1;
// `end` is at most the text's size. A block that runs past `end` but not past the text is
// compared whole and its hits beyond `end` are ignored, so that a short range costs one
// block. The searches for one or two bytes repeat a byte: the compiler compares a block with
// it once.
inline long find_any(std::string_view text, char first, char second, char third, long from,
                     long end) {
  const char* data = text.data();
#if defined(__SSE2__)
  const auto hits_at = [&](long at) {
    return byte_mask(data + at, first) | byte_mask(data + at, second) | byte_mask(data + at, third);
  };
  for (; from + 16 <= end; from += 16) {
    if (const unsigned hits = hits_at(from); hits != 0) return from + __builtin_ctz(hits);
  }
  if (from < end && from + 16 <= static_cast<long>(text.size())) {
    const unsigned hits = hits_at(from) & ((1u << (end - from)) - 1);
    return hits != 0 ? from + __builtin_ctz(hits) : -1;
  }
#endif
  for (; from < end; ++from) {
    if (data[from] == first || data[from] == second || data[from] == third) return from;
  }
  return -1;
}

inline long find_either(std::string_view text, char first, char second, long from, long end) {
  return find_any(text, first, second, second, from, end);
}

inline long find_byte(std::string_view text, char byte, long from, long end) {
  return find_either(text, byte, byte, from, end);
}

// Copies the bytes of `text` before its first NUL to `target`, which has room for all of them,
// and returns how many there are: the text as the grammar reads it, in one pass.
inline std::size_t copy_before_nul(char* target, std::string_view text) {
  const char* data = text.data();
  const std::size_t size = text.size();
  std::size_t at = 0;
#if defined(__SSE2__)
  for (; at + 16 <= size; at += 16) {
    const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(data + at));
    const auto nuls =
        static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(block, _mm_setzero_si128())));
    if (nuls != 0) {
      const std::size_t length = at + static_cast<std::size_t>(__builtin_ctz(nuls));
      std::memcpy(target + at, data + at, length - at);
      return length;
    }
    _mm_storeu_si128(reinterpret_cast<__m128i*>(target + at), block);
  }
#endif
  for (; at < size && data[at] != '\0'; ++at) target[at] = data[at];
  return at;
}

// Whether "</" begins at `at`.
inline bool closing_start_at(std::string_view text, long at) {
  return text[static_cast<std::size_t>(at)] == '<' &&
         static_cast<std::size_t>(at) + 1 < text.size() &&
         text[static_cast<std::size_t>(at) + 1] == '/';
}

// Whether "</name>" begins at `at`; it may run past any range, not past the text.
inline bool closing_tag_at(std::string_view text, long at, std::string_view name) {
  const std::size_t size = name.size() + 3;
  if (static_cast<std::size_t>(at) + size > text.size()) return false;
  const char* tag = text.data() + at;
  return tag[0] == '<' && tag[1] == '/' && tag[size - 1] == '>' &&
         same_bytes(std::string_view(tag + 2, name.size()), name);
}

// The first "</" that begins in text[from, end), or -1. A block is compared with "<" and the
// block one byte on with "/", so that "<" without "/" costs nothing.
inline long find_closing_start(std::string_view text, long from, long end) {
#if defined(__SSE2__)
  const char* data = text.data();
  for (; from < end && from + 17 <= static_cast<long>(text.size()); from += 16) {
    unsigned hits = byte_mask(data + from, '<') & byte_mask(data + from + 1, '/');
    if (end - from < 16) hits &= (1u << (end - from)) - 1;
    if (hits != 0) return from + __builtin_ctz(hits);
  }
#endif
  for (; from < end; ++from) {
    if (closing_start_at(text, from)) return from;
  }
  return -1;
}

// The last "</" that begins in text[from, end), or -1: one pass from the end, by blocks as
// find_closing_start goes forward. The text's last byte begins nothing, so a range that ends
// with the text loses it first, and each block's "/" byte stays inside the text.
inline long last_closing_start(std::string_view text, long from, long end) {
  if (end == static_cast<long>(text.size()) && end > from) --end;
#if defined(__SSE2__)
  const char* data = text.data();
  for (; end - from >= 16; end -= 16) {
    const unsigned hits = byte_mask(data + end - 16, '<') & byte_mask(data + end - 15, '/');
    if (hits != 0) return end - 16 + (31 - __builtin_clz(hits));
  }
#endif
  for (long at = end - 1; at >= from; --at) {
    if (closing_start_at(text, at)) return at;
  }
  return -1;
}

// The first blank, "<" or ">" in text[from, end), or -1: find_any for a tag's name, which
// mostly ends in the first block. "<" and ">" differ in one bit, so one comparison finds both.
inline long find_name_end(std::string_view text, long from, long end) {
#if defined(__SSE2__)
  if (from + 16 <= end) {
    const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text.data() + from));
    const __m128i angles =
        _mm_cmpeq_epi8(_mm_or_si128(block, _mm_set1_epi8(2)), _mm_set1_epi8('>'));
    const __m128i blanks = _mm_cmpeq_epi8(block, _mm_set1_epi8(' '));
    const auto hits = static_cast<unsigned>(_mm_movemask_epi8(_mm_or_si128(angles, blanks)));
    if (hits != 0) return from + __builtin_ctz(hits);
    from += 16;
  }
#endif
  return find_any(text, ' ', '>', '<', from, end);
}

// The first "<" in text[from, end), or -1: find_byte for the end of a text, which is mostly
// short.
inline long find_lt(std::string_view text, long from, long end) {
#if defined(__SSE2__)
  if (from + 16 <= end) {
    if (const unsigned hits = byte_mask(text.data() + from, '<'); hits != 0) {
      return from + __builtin_ctz(hits);
    }
    from += 16;
  }
#endif
  return find_byte(text, '<', from, end);
}

// The parts of the tag whose "<" is at `lt`. The name runs from lt + 1 to the first blank or
// ">", so it holds no ">"; the attributes, when a blank ended the name, from that blank to the
// ">" (or to a "/" just before it).
struct Tag {
  long lt;
  long name_end;
  long space;     // the blank that ends the name, or -1
  long gt;        // the first ">" after lt
  long inner_lt;  // the first "<" inside the tag, after its own, or -1
};

// Reads the tag at `lt` in text[lt, end); false when it has no ">" before `end`. A "<" inside
// the tag is looked for in the same passes as the name's end and the ">".
inline bool scan_tag(std::string_view text, long lt, long end, Tag& tag) {
  const auto byte = [&](long at) { return text[static_cast<std::size_t>(at)]; };
  tag.lt = lt;
  tag.inner_lt = -1;
  tag.name_end = find_name_end(text, lt + 1, end);
  if (tag.name_end >= 0 && byte(tag.name_end) == '<') {
    tag.inner_lt = tag.name_end;
    tag.name_end = find_either(text, ' ', '>', tag.name_end + 1, end);
  }
  if (tag.name_end < 0) return false;
  if (byte(tag.name_end) == '>') {
    tag.space = -1;
    tag.gt = tag.name_end;
    return true;
  }
  tag.space = tag.name_end;
  tag.gt = tag.inner_lt >= 0 ? find_byte(text, '>', tag.space + 1, end)
                             : find_either(text, '>', '<', tag.space + 1, end);
  if (tag.gt >= 0 && byte(tag.gt) == '<') {
    tag.inner_lt = tag.gt;
    tag.gt = find_byte(text, '>', tag.inner_lt + 1, end);
  }
  return tag.gt >= 0;
}

inline std::string_view tag_name(std::string_view text, const Tag& tag) {
  return {text.data() + tag.lt + 1, static_cast<std::size_t>(tag.name_end - tag.lt - 1)};
}

// "<name .../>": the byte before the ">" is a slash.
inline bool self_closing(std::string_view text, const Tag& tag) {
  return text[static_cast<std::size_t>(tag.gt - 1)] == '/';
}

// Whether a "<" stands inside the tag, after its own: it may begin a closing tag.
inline bool holds_lt(const Tag& tag) {
  return tag.inner_lt >= 0;
}

// Splits text[start, end) into attributes at double quotes, skipping exactly one byte after
// each, and hands `on_attribute` the name and value of each one that holds an "=": the name
// from its start to the "=", the value after it without one leading and one trailing quote.
template <typename OnAttribute>
void for_each_attribute(std::string_view text, long start, long end, OnAttribute&& on_attribute) {
  const auto byte = [&](long at) { return text[static_cast<std::size_t>(at)]; };
  for (long position = start; position < end;) {
    // The "=" and the opening quote are mostly found by one search: "=" comes first.
    long equals = -1;
    long open_quote = find_either(text, '=', '"', position, end);
    if (open_quote >= 0 && byte(open_quote) == '=') {
      equals = open_quote;
      open_quote = equals + 1 < end && byte(equals + 1) == '"'
                       ? equals + 1
                       : find_byte(text, '"', equals + 1, end);
    }
    long stop = end;
    if (open_quote >= 0) {
      const long close_quote = find_byte(text, '"', open_quote + 1, end);
      if (close_quote >= 0) stop = close_quote + 1;
      if (equals < 0) equals = find_byte(text, '=', open_quote + 1, stop);
    }
    if (equals >= 0) {
      long value_start = equals + 1;
      if (equals != stop - 1 && byte(value_start) == '"') ++value_start;
      const long value_end = byte(stop - 1) == '"' ? stop - 1 : stop;
      on_attribute(text.substr(static_cast<std::size_t>(position),
                               static_cast<std::size_t>(equals - position)),
                   value_end > value_start
                       ? text.substr(static_cast<std::size_t>(value_start),
                                     static_cast<std::size_t>(value_end - value_start))
                       : std::string_view());
    }
    position = stop + 1;
  }
}

}  // namespace quorlin::xml_scan

#endif  // QUORLIN_XML_XML_TAG_SCANNER_INTERNAL_HPP
