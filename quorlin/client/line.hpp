/// @file
/// Line framing: one line read from a Connection (up to its LF, the bytes after it left unread),
/// from a string in memory, or from a datagram. Lines are returned without their CR bytes and end
/// at their first NUL, as C strings would; the status of a line read tells how it ended.
#ifndef QUORLIN_CLIENT_LINE_HPP
#define QUORLIN_CLIENT_LINE_HPP

#include <string>
#include <string_view>
#include "quorlin/base/api.hpp"

#include "quorlin/net/connection.hpp"

namespace quorlin {

/// Reads one line: up to LF (consumed, not stored), CR bytes dropped. Bytes after the LF stay
/// unread on the Connection. `status`: 1 when LF ended the line, 0 when the peer closed first,
/// negative on an error or, with a time-out in milliseconds (-1 waits without limit), when the
/// peer stayed silent for it. The text gathered so far is returned in every case.
QUORLIN_API std::string read_line(Connection connection, int timeout_ms, int& status);
/// read_line without a time-out.
QUORLIN_API std::string read_reply_line(Connection connection, int& status);

/// The same extraction from memory: the line at the start of `text`; `next` becomes the index
/// after the LF, or -1 when the text ends without one.
QUORLIN_API std::string text_line(std::string_view text, long& next);

/// One datagram as text (at most 2999 bytes); `status` is the bytes received, or negative.
QUORLIN_API std::string read_datagram_text(int descriptor, int timeout_ms, int& status);

}  // namespace quorlin

#endif  // QUORLIN_CLIENT_LINE_HPP
