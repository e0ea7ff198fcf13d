/// @file
/// Small text and hexadecimal helpers.
///
/// Texts follow C rules where that is what callers rely on: a text handed in as a view ends at
/// its first NUL byte (c_text), and every function that makes text returns a new std::string.
#ifndef QUORLIN_BASE_STRINGS_HPP
#define QUORLIN_BASE_STRINGS_HPP

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <span>
#include <string>
#include <string_view>
#include <vector>
#include "quorlin/base/api.hpp"

namespace quorlin {

/// The part of `text` before its first NUL byte (all of it when there is none).
QUORLIN_API std::string_view c_text(std::string_view text);

/// The index of the first `needle` at or after `start` in the whole of `text`, or -1; also -1
/// when start is not less than the text's length. A negative start searches from 0.
QUORLIN_API long str_index(std::string_view text, std::string_view needle, long start);

/// str_index when its result is less than `end`, else -1: a match that begins before `end`
/// counts even when it runs past it. Only matches that begin before `end` are looked for.
QUORLIN_API long str_index_before(std::string_view text, std::string_view needle, long start,
                                  long end);

/// The bytes from `from` up to, not including, `to` (-1: the text's end); a NUL ends it early.
QUORLIN_API std::string str_substring(std::string_view text, long from, long to);

/// All the parts joined in order, allocated once.
QUORLIN_API std::string str_concat(std::initializer_list<std::string_view> parts);

/// The value formatted with "%ld".
QUORLIN_API std::string str_from_long(long value);

/// A copy of the text.
QUORLIN_API std::string str_copy(std::string_view text);

/// At most the first n bytes of `text`, fewer when a NUL comes first.
QUORLIN_API std::string str_ndup(const char* text, std::size_t n);

/// `owned` with `tail` appended, so that a caller can write s = str_append_free(std::move(s), t).
QUORLIN_API std::string str_append_free(std::string owned, std::string_view tail);

/// Replaces every `from` byte of `text` with `to`; returns 1 when any was replaced, else 0.
QUORLIN_API int str_replace_char(std::string& text, char from, char to);

/// Whether the first occurrence of `prefix` in `text` at or after `offset` begins exactly at
/// `offset`; false for an offset beyond the text.
QUORLIN_API bool str_has_at(std::string_view text, std::string_view prefix, std::size_t offset);

/// The position of `needle` within the first n bytes of `haystack` (NUL bytes there are looked
/// at like any other), or null. One forward pass: a byte that breaks a partial match resets it
/// and is not tried again as the start of a new one, so "aab" is not found in "aaab". An empty
/// needle is found at the start when n is above 0.
QUORLIN_API const char* str_find_bounded(const char* haystack, std::string_view needle,
                                         std::size_t n);

/// The lower-case digit of 0..15; "0" for anything above.
QUORLIN_API char hex_digit(unsigned value);

/// 0..9 for "0".."9", 10..15 for "a".."f"; 0 for every other byte, upper-case digits included.
QUORLIN_API int hex_value(char digit);

/// Standard base64 with "=" padding.
QUORLIN_API std::string base64_encode(std::string_view bytes);

/// Two lower-case digits per byte, high half first.
QUORLIN_API std::string hex_encode(std::span<const std::uint8_t> bytes);

/// One byte per pair of digits (through hex_value); a final odd digit is ignored.
QUORLIN_API std::vector<std::uint8_t> hex_decode(std::string_view text);

}  // namespace quorlin

#endif  // QUORLIN_BASE_STRINGS_HPP
