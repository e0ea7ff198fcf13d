// URL encoding with precomputed tables: one 4-byte pattern per input byte for the encoder and
// one hexadecimal value per byte for the decoder, so that neither formats nor scans text per
// byte. The output is sized once up front, which keeps both directions linear.
#include "quorlin/base/url.hpp"

#include <array>
#include <cstdint>
#include <cstring>

#include "quorlin/base/strings.hpp"

namespace quorlin {
namespace {

struct Escape {
  char bytes[4];  // the encoding, then padding so that it can be copied as one 4-byte word
  std::uint8_t length;
};

constexpr bool is_ascii_alnum_constexpr(unsigned char byte) {
  return (byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z') ||
         (byte >= '0' && byte <= '9');
}

constexpr bool is_unreserved_constexpr(unsigned char byte) {
  return is_ascii_alnum_constexpr(byte) || byte == '.' || byte == '-' || byte == '*' || byte == '_';
}

constexpr std::array<Escape, 256> make_escape_table() {
  constexpr char kUpperHex[] = "0123456789ABCDEF";
  std::array<Escape, 256> table{};
  for (int value = 0; value < 256; ++value) {
    auto byte = static_cast<unsigned char>(value);
    Escape& escape = table[value];
    if (is_unreserved_constexpr(byte) || byte == ' ') {
      escape = {{static_cast<char>(byte == ' ' ? '+' : byte), 0, 0, 0}, 1};
    } else {
      // "%%%2X": values below 0x10 are padded with a blank, not a zero.
      char high = value < 0x10 ? ' ' : kUpperHex[value >> 4];
      escape = {{'%', high, kUpperHex[value & 0xF], 0}, 3};
    }
  }
  return table;
}

constexpr std::array<std::int8_t, 256> make_hex_value_table() {
  std::array<std::int8_t, 256> table{};
  for (int value = 0; value < 256; ++value) table[value] = -1;
  for (int digit = 0; digit < 10; ++digit) table['0' + digit] = static_cast<std::int8_t>(digit);
  for (int digit = 0; digit < 6; ++digit) {
    table['a' + digit] = static_cast<std::int8_t>(10 + digit);
    table['A' + digit] = static_cast<std::int8_t>(10 + digit);
  }
  return table;
}

constexpr std::array<Escape, 256> kEscapes = make_escape_table();
constexpr std::array<std::int8_t, 256> kHexValues = make_hex_value_table();

// The blanks that a scanf conversion skips before its digits.
bool is_scan_blank(unsigned char byte) {
  return byte == ' ' || (byte >= '\t' && byte <= '\r');
}

// Reads the escape that starts with the "%" at `percent` the way "%%%2X" scans its three
// bytes: an optional blank, then one or two hexadecimal digits of either case.
char decode_escape(std::string_view text, std::size_t percent) {
  auto byte_at = [&](std::size_t index) -> unsigned char {
    return index < text.size() ? static_cast<unsigned char>(text[index]) : 0;
  };
  unsigned char first = byte_at(percent + 1);
  unsigned char second = byte_at(percent + 2);
  int high = kHexValues[first];
  int low = kHexValues[second];
  if (high >= 0) return static_cast<char>(low >= 0 ? high * 16 + low : high);
  if (is_scan_blank(first) && low >= 0) return static_cast<char>(low);
  return URL_DECODE_BAD_ESCAPE;
}

}  // namespace

bool is_ascii_alnum(unsigned char byte) {
  return is_ascii_alnum_constexpr(byte);
}

bool url_is_unreserved(unsigned char byte) {
  return is_unreserved_constexpr(byte);
}

std::size_t url_encoded_size(const char* text) {
  return text == nullptr ? 0 : 3 * std::strlen(text);
}

void url_encode_char(unsigned char byte, char* out, std::size_t& position) {
  const Escape& escape = kEscapes[byte];
  std::memcpy(out + position, escape.bytes, sizeof escape.bytes);
  position += escape.length;
}

char url_decode_char(std::string_view text, std::size_t& position) {
  char byte = text[position];
  if (byte == '%') {
    char decoded = decode_escape(text, position);
    position += 3;
    return decoded;
  }
  position += 1;
  return byte == '+' ? ' ' : byte;
}

// Up to this input size the output is sized at three bytes per input byte and trimmed; above
// it a counting pass sizes it exactly, which keeps large results small enough for the
// allocator to reuse instead of mapping fresh pages for every call.
constexpr std::size_t kExactSizingFrom = std::size_t{4} << 20;

std::string url_encode(std::string_view text) {
  text = c_text(text);
  std::size_t encoded_length = 3 * text.size();
  if (text.size() >= kExactSizingFrom) {
    encoded_length = 0;
    for (char byte : text) encoded_length += kEscapes[static_cast<unsigned char>(byte)].length;
  }
  // Each step copies a whole 4-byte pattern, so up to 3 bytes of slack follow the last one.
  std::string out(encoded_length + 3, '\0');
  std::size_t position = 0;
  for (char byte : text) url_encode_char(static_cast<unsigned char>(byte), out.data(), position);
  out.resize(position);
  return out;
}

std::string url_decode(std::string_view text) {
  text = c_text(text);
  std::string out(text.size(), '\0');
  char* write = out.data();
  std::size_t position = 0;
  while (position < text.size()) *write++ = url_decode_char(text, position);
  out.resize(write - out.data());
  // A decoded NUL ends the text, as it would end a C string.
  out.resize(std::strlen(out.c_str()));
  return out;
}

}  // namespace quorlin
