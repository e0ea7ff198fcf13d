/// @file
/// URL encoding of form names and values.
///
/// Letters, digits and the four bytes ". - * _" pass unchanged; a space becomes "+"; every other
/// byte becomes "%" and its value in upper-case hexadecimal right-aligned in two places and
/// padded with a blank, not a zero: a newline is "% A", "/" is "%2F", 0xE9 is "%E9". The decoder
/// reads that form back, blank padding included.
///
/// Texts are C texts: an input ends at its first NUL byte (or at the end of the view), and a
/// decoded "%00" ends the decoded text there. Both directions are single pass and table driven.
#ifndef QUORLIN_BASE_URL_HPP
#define QUORLIN_BASE_URL_HPP

#include <cstddef>
#include <string>
#include <string_view>
#include "quorlin/base/api.hpp"

namespace quorlin {

/// What url_decode yields for a "%" that is not followed by a hexadecimal digit (after an
/// optional blank): the "%" itself, so that a stray percent sign survives decoding. The
/// position still advances by three.
inline constexpr char URL_DECODE_BAD_ESCAPE = '%';

/// Whether the byte is an ASCII letter or digit.
QUORLIN_API bool is_ascii_alnum(unsigned char byte);
/// Whether url_encode keeps the byte as it is: an ASCII letter or digit, ".", "-", "*" or "_".
QUORLIN_API bool url_is_unreserved(unsigned char byte);

/// Three bytes per input byte, no room for the terminator; 0 for null.
QUORLIN_API std::size_t url_encoded_size(const char* text);

/// Writes the encoding of one byte at out[position] (1 or 3 bytes, followed by NUL bytes up to
/// four in all) and advances position by 1 or 3. `out` must have room for position + 4 bytes.
QUORLIN_API void url_encode_char(unsigned char byte, char* out, std::size_t& position);

/// Decodes the byte at `position` of `text` and advances position by 1 or 3 ("%" always takes
/// three, fewer only when the text ends first).
QUORLIN_API char url_decode_char(std::string_view text, std::size_t& position);

/// The text encoded byte by byte with url_encode_char, up to its first NUL.
QUORLIN_API std::string url_encode(std::string_view text);
/// The text decoded with url_decode_char, up to its first NUL; a decoded NUL ends the result.
QUORLIN_API std::string url_decode(std::string_view text);

}  // namespace quorlin

#endif  // QUORLIN_BASE_URL_HPP
