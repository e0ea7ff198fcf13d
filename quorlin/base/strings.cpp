#include "quorlin/base/strings.hpp"
#include "quorlin/base/strings_internal.hpp"

#include <climits>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstring>

namespace quorlin {

std::string_view c_text(std::string_view text) {
  if (text.empty()) return text;  // an empty view may have no bytes at all: memchr needs some
  const void* nul = std::memchr(text.data(), '\0', text.size());
  if (nul == nullptr) return text;
  return text.substr(0, static_cast<std::size_t>(static_cast<const char*>(nul) - text.data()));
}

long str_index_before(std::string_view text, std::string_view needle, long start, long end) {
  if (start < 0) start = 0;
  const auto length = static_cast<long>(text.size());
  if (start >= length || end <= start) return -1;
  // A match must begin before `end`, so the search never needs more than end - 1 + |needle|.
  const long limit = std::min(length, end - 1 + static_cast<long>(needle.size()));
  const std::string_view window = text.substr(start, limit - start);
  const std::size_t found = window.find(needle);
  return found == std::string_view::npos ? -1 : start + static_cast<long>(found);
}

long str_index(std::string_view text, std::string_view needle, long start) {
  return str_index_before(text, needle, start, static_cast<long>(text.size()));
}

std::string str_substring(std::string_view text, long from, long to) {
  if (to < 0 || to > static_cast<long>(text.size())) to = static_cast<long>(text.size());
  if (from < 0) from = 0;
  if (from >= to) return {};
  return std::string(c_text(text.substr(from, to - from)));
}

std::string str_concat(std::initializer_list<std::string_view> parts) {
  std::size_t total = 0;
  for (std::string_view part : parts) total += part.size();
  std::string joined;
  joined.reserve(total);
  for (std::string_view part : parts) joined.append(part);
  return joined;
}

std::string str_from_long(long value) {
  char buffer[24];  // "-9223372036854775808" and room to spare
  return std::string(buffer, std::to_chars(buffer, buffer + sizeof buffer, value).ptr);
}

std::string str_copy(std::string_view text) {
  return std::string(text);
}

std::string str_ndup(const char* text, std::size_t n) {
  return std::string(text, strnlen(text, n));
}

std::string str_append_free(std::string owned, std::string_view tail) {
  owned.append(tail);
  return owned;
}

int str_replace_char(std::string& text, char from, char to) {
  int replaced = 0;
  for (char& byte : text) {
    if (byte == from) {
      byte = to;
      replaced = 1;
    }
  }
  return replaced;
}

bool str_has_at(std::string_view text, std::string_view prefix, std::size_t offset) {
  return offset <= text.size() && text.substr(offset).starts_with(prefix);
}

const char* str_find_bounded(const char* haystack, std::string_view needle, std::size_t n) {
  if (n == 0) return nullptr;
  if (needle.empty()) return haystack;
  std::size_t matched = 0;
  std::size_t run_start = 0;
  for (std::size_t i = 0; i < n; ++i) {
    if (haystack[i] != needle[matched]) {
      matched = 0;  // the breaking byte does not start a new run
      continue;
    }
    if (matched == 0) run_start = i;
    if (++matched == needle.size()) return haystack + run_start;
  }
  return nullptr;
}

char hex_digit(unsigned value) {
  return value <= 15 ? "0123456789abcdef"[value] : '0';
}

int hex_value(char digit) {
  if (digit >= '0' && digit <= '9') return digit - '0';
  if (digit >= 'a' && digit <= 'f') return digit - 'a' + 10;
  return 0;
}

std::string hex_encode(std::span<const std::uint8_t> bytes) {
  std::string text;
  text.reserve(2 * bytes.size());
  for (std::uint8_t byte : bytes) {
    text.push_back(hex_digit(byte >> 4));
    text.push_back(hex_digit(byte & 0xF));
  }
  return text;
}

std::vector<std::uint8_t> hex_decode(std::string_view text) {
  text = c_text(text);
  std::vector<std::uint8_t> bytes(text.size() / 2);
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    bytes[i] = static_cast<std::uint8_t>(hex_value(text[2 * i]) * 16 + hex_value(text[2 * i + 1]));
  }
  return bytes;
}

long decimal_prefix_any(std::string_view text) {
  // A NUL is neither a blank, a sign nor a digit, so the reading stops there by itself.
  std::size_t at = 0;
  while (at < text.size() && (text[at] == ' ' || (text[at] >= '\t' && text[at] <= '\r'))) ++at;
  const bool negative = at < text.size() && text[at] == '-';
  if (at < text.size() && (text[at] == '-' || text[at] == '+')) ++at;
  // Accumulates towards the sign's side, so that LONG_MIN itself is reached without overflow.
  long value = 0;
  for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at) {
    const int digit = text[at] - '0';
    if (negative) {
      if (value < (LONG_MIN + digit) / 10) return LONG_MIN;
      value = value * 10 - digit;
    } else {
      if (value > (LONG_MAX - digit) / 10) return LONG_MAX;
      value = value * 10 + digit;
    }
  }
  return value;
}

std::string base64_encode(std::string_view bytes) {
  static constexpr char kAlphabet[] =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string out;
  out.reserve(4 * ((bytes.size() + 2) / 3));
  for (std::size_t i = 0; i < bytes.size(); i += 3) {
    std::size_t left = bytes.size() - i;
    unsigned group = static_cast<unsigned char>(bytes[i]) << 16;
    if (left > 1) group |= static_cast<unsigned char>(bytes[i + 1]) << 8;
    if (left > 2) group |= static_cast<unsigned char>(bytes[i + 2]);
    out += kAlphabet[(group >> 18) & 63];
    out += kAlphabet[(group >> 12) & 63];
    out += left > 1 ? kAlphabet[(group >> 6) & 63] : '=';
    out += left > 2 ? kAlphabet[group & 63] : '=';
  }
  return out;
}

}  // namespace quorlin
