/// @file
/// An HTTP/1.1 POST of a form body over a stream Connection or as one datagram, with the reply's
/// headers read into a List of fields and its body delimited by Content-Length, by line-framed
/// chunks, or by one line.
///
/// Status codes are never interpreted: an error reply with a well-formed body succeeds here. The
/// result is the status of the last send or receive: positive on success, 0 or negative on
/// failure (-1 when a body ended before its Content-Length). Headers and body are handed over
/// only on success; a caller that passes null for them does not get them.
#ifndef QUORLIN_CLIENT_HTTP_HPP
#define QUORLIN_CLIENT_HTTP_HPP

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include "quorlin/base/api.hpp"

#include "quorlin/client/form.hpp"

namespace quorlin {

inline constexpr int HTTP_MODE_STREAM = 0;
inline constexpr int HTTP_MODE_DATAGRAM = 1;

/// The request text: request line, Host, User-Agent, Content-type and Content-Length headers, an
/// empty line, then the body with no line end after it.
QUORLIN_API std::string http_request_text(std::string_view host, std::string_view path,
                                          std::string_view body);

/// Sends the request for `body` and reads the reply: over the stream `connection` in
/// HTTP_MODE_STREAM, or as one datagram to peer_address:peer_port in HTTP_MODE_DATAGRAM. A
/// request or reply that cannot be allocated gives -1.
QUORLIN_API int http_exchange(int connection, int mode, std::string_view host,
                              std::string_view path, std::string_view body,
                              const char* peer_address, int peer_port, int timeout_ms,
                              std::unique_ptr<FormFields>* headers, std::string* reply_body);

/// http_exchange over a stream Connection.
QUORLIN_API int http_post(Connection connection, std::string_view host, std::string_view path,
                          std::string_view body, int timeout_ms,
                          std::unique_ptr<FormFields>* headers, std::string* reply_body);

/// One datagram out to peer_address:peer_port, one back (at most 2999 bytes); no headers are read.
QUORLIN_API int http_post_datagram(int descriptor, std::string_view host, std::string_view path,
                                   std::string_view body, const char* peer_address, int peer_port,
                                   int timeout_ms, std::unique_ptr<FormFields>* headers,
                                   std::string* reply_body);

/// Drops lines up to an empty one, or until the peer closes or fails.
QUORLIN_API void skip_header_lines(Connection connection);

/// The text after the first empty line ended by LF, or null when the text ends first.
QUORLIN_API std::optional<std::string_view> skip_text_header_lines(std::string_view text);

}  // namespace quorlin

#endif  // QUORLIN_CLIENT_HTTP_HPP
