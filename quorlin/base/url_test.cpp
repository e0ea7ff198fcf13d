#include "quorlin/base/url.hpp"

#include <gtest/gtest.h>

#include <cctype>
#include <cstdio>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

namespace quorlin {
namespace {

using namespace std::string_literals;

// What the encoding of one byte must be, worked out with the C library's own formatting.
std::string expected_encoding(unsigned char byte) {
  if (std::isalnum(byte) && byte < 0x80) return std::string(1, static_cast<char>(byte));
  if (std::strchr(".-*_", byte) != nullptr && byte != 0)
    return std::string(1, static_cast<char>(byte));
  if (byte == ' ') return "+";
  char escape[8];
  std::snprintf(escape, sizeof escape, "%%%2X", byte);
  return escape;
}

TEST(UrlEncode, EveryByteMatchesTheFormattedEscapeAndDecodesBack) {
  std::string all_bytes;
  for (int value = 1; value < 256; ++value) {
    const auto byte = static_cast<unsigned char>(value);
    const std::string one(1, static_cast<char>(byte));
    SCOPED_TRACE(value);
    EXPECT_EQ(url_encode(one), expected_encoding(byte));
    EXPECT_EQ(url_decode(url_encode(one)), one);
    EXPECT_EQ(url_is_unreserved(byte), expected_encoding(byte) == one);
    all_bytes += one;
  }
  EXPECT_EQ(url_decode(url_encode(all_bytes)), all_bytes);
  EXPECT_EQ(url_encode("a b&\xff\0cut"s), "a+b%26%FF");  // a text ends at its first NUL
  EXPECT_EQ(url_encoded_size("a&b"), 9u);                // three bytes a byte, no room for the NUL
  EXPECT_EQ(url_encoded_size(nullptr), 0u);
}

TEST(UrlDecode, KnownTextsAndBrokenEscapes) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"a+b%2Fc", "a b/c"}, {"%e9", "\xe9"}, {"%E9", "\xe9"},
      {"% A", "\n"},        {"%\tA", "\n"},  // any blank that scanf skips
      {"%A", "\n"},                          // one digit, cut short by the end
      {"%4x", "\x04"},                       // one digit, then a byte that is not one
      {"100%", "100%"},                      // a lone "%" yields URL_DECODE_BAD_ESCAPE
      {"%zz1", "%1"},                        // the position still advances by three
      {"%g1%G1", "%%"},                      // the digits end at f and F
      {"% ", "%"},          {"%  1", "%1"},  {"ab%00cd", "ab"},  // a decoded NUL ends the text
      {"ab\0%41"s, "ab"},   {"&=~", "&=~"},  // reserved bytes other than "%" and "+" pass
  };
  for (const auto& [text, decoded] : cases) EXPECT_EQ(url_decode(text), decoded) << text;
}

}  // namespace
}  // namespace quorlin
