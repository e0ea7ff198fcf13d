#include "quorlin/base/strings.hpp"
#include "quorlin/base/strings_internal.hpp"

#include <gtest/gtest.h>

#include <cctype>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "quorlin/base/url.hpp"

namespace quorlin {
namespace {

using namespace std::string_literals;
using namespace std::string_view_literals;

TEST(DecimalPrefix, ReadsAsStrtolDoes) {
  // clang-format off
  const std::vector<std::string> texts = {
      "0", "12", "-12", "+7", "12x", "abc", "", " \t\n\v\f\r42", "- 1", "--1", "+-1", "0x1f",
      "9223372036854775807", "9223372036854775808", "-9223372036854775808",
      "-9223372036854775809", "9000000000000000000", "99999999999999999999999",
      "-9000000000000000000", "-00000000000000000000001",
      "4\0" "2"s, "1e5", "\xa0" "5"};
  // clang-format on
  for (const std::string& text : texts) {
    EXPECT_EQ(decimal_prefix(text), std::strtol(text.c_str(), nullptr, 10)) << text;
  }
}

TEST(StrFindBounded, OnePassWithoutRetryingTheBreakingByte) {
  // The haystack, the needle, the bound, and the offset of the match (-1 for none). In "aaab"
  // the second "a" breaks "aa" + "b" and is not retried; NUL bytes inside the bound are looked at
  // like any other.
  const std::tuple<std::string, std::string, std::size_t, long> cases[] = {
      {"aaab", "aab", 4, -1}, {"xaab", "aab", 4, 1}, {"abab", "ab", 4, 0}, {"abcabd", "abd", 6, 3},
      {"abc", "c", 2, -1},    {"abc", "c", 3, 2},    {"abc", "bc", 0, -1}, {"a\0bc"s, "bc", 4, 2},
      {"abc", "", 1, 0},      {"abc", "", 0, -1}};
  for (const auto& [haystack, needle, n, expected] : cases) {
    const char* found = str_find_bounded(haystack.data(), needle, n);
    const long offset = found == nullptr ? -1 : found - haystack.data();
    EXPECT_EQ(offset, expected) << haystack << " / " << needle << " / " << n;
  }
}

TEST(Hex, DigitsValuesAndRoundTrips) {
  EXPECT_EQ(hex_digit(0), '0');
  EXPECT_EQ(hex_digit(11), 'b');
  EXPECT_EQ(hex_digit(16), '0');
  EXPECT_EQ(hex_value('f'), 15);
  EXPECT_EQ(hex_value('A'), 0);  // upper-case digits are not digits here
  EXPECT_EQ(hex_value('g'), 0);

  const std::vector<std::uint8_t> pair = {0x00, 0xAB};
  EXPECT_EQ(hex_encode(pair), "00ab");
  EXPECT_EQ(hex_decode("00ab"), pair);
  EXPECT_EQ(hex_decode("00AB"), (std::vector<std::uint8_t>{0x00, 0x00}));
  EXPECT_EQ(hex_decode("abc"), (std::vector<std::uint8_t>{0xAB}));
}

TEST(Strings, SmallHelpers) {
  EXPECT_EQ(str_from_long(LONG_MIN), std::to_string(LONG_MIN));
  EXPECT_EQ(str_ndup("abcdef", 3), "abc");
  EXPECT_EQ(str_copy("ab\0c"s), "ab\0c"s);
  EXPECT_TRUE(is_ascii_alnum('z') && is_ascii_alnum('0') && !is_ascii_alnum('\xe9'));
  EXPECT_EQ(str_append_free("ab", "cd"), "abcd");
  EXPECT_EQ(c_text("ab\0cd"s), "ab");
  EXPECT_EQ(str_concat({"a", "", "bc"}), "abc");

  // from and to are clamped to the text; -1 is its end; a NUL ends the copy
  EXPECT_EQ(str_substring("abcdef", 1, 3), "bc");
  EXPECT_EQ(str_substring("abcdef", -2, 2), "ab");
  EXPECT_EQ(str_substring("abcdef", 4, -1), "ef");
  EXPECT_EQ(str_substring("abcdef", 4, 99), "ef");
  EXPECT_EQ(str_substring("ab\0cd"s, 1, -1), "b");
  // a match counts when it begins before the end, even when it runs past it
  EXPECT_EQ(str_index("abcabc", "c", -1), 2);
  EXPECT_EQ(str_index("abc", "a", 3), -1);
  EXPECT_EQ(str_index_before("abcabc", "bc", 3, 5), 4);
  EXPECT_EQ(str_index_before("abcabc", "bc", 3, 4), -1);
  EXPECT_EQ(str_index_before("abc", "", 1, 1), -1);

  std::string text = "a.b.c";
  EXPECT_EQ(str_replace_char(text, '.', '/'), 1);
  EXPECT_EQ(text, "a/b/c");

  // Padded to whole groups of four; a short tail reads nothing beyond the text's end.
  for (const auto& [bytes, encoded] : {std::pair{""sv, ""sv},
                                       {"a\xff"sv.substr(0, 1), "YQ=="sv},
                                       {"ab\xff"sv.substr(0, 2), "YWI="sv},
                                       {"abc"sv, "YWJj"sv},
                                       {"user:s3cret"sv, "dXNlcjpzM2NyZXQ="sv}})
    EXPECT_EQ(base64_encode(bytes), encoded) << bytes;

  EXPECT_TRUE(str_has_at("xxabc", "ab", 2));
  EXPECT_FALSE(str_has_at("xxabc", "ab", 1));
  EXPECT_FALSE(str_has_at("ab", "ab", 3));
}

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
      {"a+b%2Fc", "a b/c"},
      {"%e9", "\xe9"},
      {"%E9", "\xe9"},
      {"% A", "\n"},
      {"%\tA", "\n"},          // any blank that scanf skips
      {"%A", "\n"},            // one digit, cut short by the end
      {"%4x", "\x04"},         // one digit, then a byte that is not one
      {"100%", "100%"},        // a lone "%" yields URL_DECODE_BAD_ESCAPE
      {"%zz1", "%1"},          // the position still advances by three
      {"%g1%G1", "%%"},        // the digits end at f and F
      {"%3:%9/", "\x03\x09"},  // the bytes next to the digits are not digits
      {"% ", "%"},
      {"%  1", "%1"},
      {"ab%00cd", "ab"},  // a decoded NUL ends the text
      {"ab\0%41"s, "ab"},
      {"&=~", "&=~"},  // reserved bytes other than "%" and "+" pass
  };
  for (const auto& [text, decoded] : cases) EXPECT_EQ(url_decode(text), decoded) << text;
}

}  // namespace
}  // namespace quorlin
