// The HTTP exchange. Header lines come from read_line, so bytes after the header section stay on
// the Connection for the body. A body announced by Content-Length is one timed receive of
// exactly that many bytes into a zeroed mapping, whose pages the system provides only as bytes
// arrive; a length that no mapping can hold is a body that never completes. The body is a text:
// it ends at its first NUL.
#include "quorlin/client/http.hpp"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/mman.h>

#include <cstdlib>
#include <memory>
#include <new>

#include "quorlin/base/log.hpp"
#include "quorlin/base/strings.hpp"
#include "quorlin/net/net.hpp"

namespace quorlin {
namespace {

struct HeaderFacts {
  long content_length = -1;  // -1: not announced
  bool chunked = false;
};

// Reads header lines up to an empty one; returns the last read's status.
int read_headers(Connection connection, int timeout_ms, FormFields& headers, HeaderFacts& facts) {
  int status = 0;
  for (;;) {
    std::string line = read_line(connection, timeout_ms, status);
    if (status <= 0 || line.empty()) return status;
    int stop = 0;
    long name_length = scan_field(line, 0, ':', stop);
    // No ":" (the status line among them) or nothing after ": ": not a header.
    if (stop == 1 || static_cast<long>(line.size()) < name_length + 2) continue;
    auto field = std::make_unique<FormField>();
    field->name = line.substr(0, name_length);
    field->value = line.substr(name_length + 2);
    if (field->name == "Content-Length") {
      facts.content_length = std::strtol(field->value.c_str(), nullptr, 10);
    } else if (field->name == "Transfer-Encoding" && field->value == "chunked") {
      facts.chunked = true;
    }
    list_append(headers, std::move(field));
  }
}

// Each chunk is a size line, one data line, and one more line that is dropped.
int read_chunked_body(Connection connection, int timeout_ms, std::string& body) {
  int status = 1;
  for (bool appended = true; appended;) {
    appended = false;
    std::string size_line = read_line(connection, timeout_ms, status);
    if (status > 0) {
      if (std::strtol(size_line.c_str(), nullptr, 16) > 0) {
        std::string data = read_line(connection, timeout_ms, status);
        if (status > 0) {
          body += data;
          appended = true;
        }
      }
      if (status > 0) read_line(connection, timeout_ms, status);
    }
  }
  return status;
}

// A zeroed buffer of `size` bytes whose pages the system provides only when they are written,
// so that an announced length costs memory only as its bytes arrive; null when no mapping of
// that size can be made.
struct LazyBuffer {
  explicit LazyBuffer(std::size_t size)
      : size(size),
        bytes(mmap(nullptr, size, PROT_READ | PROT_WRITE,
                   MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0)) {}
  LazyBuffer(const LazyBuffer&) = delete;
  LazyBuffer& operator=(const LazyBuffer&) = delete;
  ~LazyBuffer() {
    if (bytes != MAP_FAILED) munmap(bytes, size);
  }
  char* data() const { return bytes == MAP_FAILED ? nullptr : static_cast<char*>(bytes); }

  std::size_t size;
  void* bytes;
};

int read_sized_body(Connection connection, long length, int timeout_ms, std::string& body) {
  if (length == 0) return RECV_COMPLETE;
  const LazyBuffer buffer(static_cast<std::size_t>(length));
  if (buffer.data() == nullptr) return -1;
  int status = 0;
  // What a timed receive leaves unwritten is zero, and reads as the text's end.
  if (recv_exact(connection, buffer.data(), length, timeout_ms, status) < length) return -1;
  body = c_text(std::string_view(buffer.data(), static_cast<std::size_t>(length)));
  return status;
}

int exchange_stream(Connection connection, const std::string& request, int timeout_ms,
                    std::unique_ptr<FormFields>* headers, std::string* reply_body) {
  int status = static_cast<int>(send_all(connection, request.data(), request.size()));
  if (status <= 0) return status;
  auto fields = list_create<std::unique_ptr<FormField>>();
  HeaderFacts facts;
  status = read_headers(connection, timeout_ms, *fields, facts);
  if (status <= 0) return status;

  std::string body;
  if (facts.chunked) {
    status = read_chunked_body(connection, timeout_ms, body);
  } else if (facts.content_length >= 0) {
    status = read_sized_body(connection, facts.content_length, timeout_ms, body);
  } else {
    body = read_line(connection, timeout_ms, status);
  }
  if (status > 0 && reply_body != nullptr) *reply_body = std::move(body);
  if (status > 0 && headers != nullptr) *headers = std::move(fields);
  return status;
}

int exchange_datagram(int descriptor, const std::string& request, const char* peer_address,
                      int peer_port, int timeout_ms, std::string* reply_body) {
  sockaddr_in peer = ipv4_socket_address(peer_address, peer_port);
  int status = static_cast<int>(send_datagram(descriptor, request.data(), request.size(),
                                              reinterpret_cast<sockaddr*>(&peer), sizeof peer));
  if (status < 0) {
    if (net_log_level() < NET_LOG_LEVEL_DEFAULT) log_printf("Error sending");
    return status;
  }
  std::string reply = read_datagram_text(descriptor, timeout_ms, status);
  if (status > 0 && reply_body != nullptr) *reply_body = std::move(reply);
  return status;
}

}  // namespace

std::string http_request_text(std::string_view host, std::string_view path, std::string_view body) {
  std::string request;
  request.reserve(path.size() + host.size() + 201 + body.size());
  request.append("POST ").append(path).append(" HTTP/1.1\r\n");
  request.append("Host: ").append(host).append("\r\n");
  request.append("User-Agent: Quorlin\r\n");
  request.append("Content-type: application/x-www-form-urlencoded\r\n");
  request.append("Content-Length: ")
      .append(str_from_long(static_cast<long>(body.size())))
      .append("\r\n\r\n");
  request.append(body);
  return request;
}

int http_exchange(int connection, int mode, std::string_view host, std::string_view path,
                  std::string_view body, const char* peer_address, int peer_port, int timeout_ms,
                  std::unique_ptr<FormFields>* headers, std::string* reply_body) {
  try {
    const std::string request = http_request_text(host, path, body);
    if (mode == HTTP_MODE_DATAGRAM) {
      return exchange_datagram(connection, request, peer_address, peer_port, timeout_ms,
                               reply_body);
    }
    return exchange_stream(connection, request, timeout_ms, headers, reply_body);
  } catch (const std::bad_alloc&) {
    return -1;  // a request or reply that cannot be held fails as a receive error does
  }
}

int http_post(Connection connection, std::string_view host, std::string_view path,
              std::string_view body, int timeout_ms, std::unique_ptr<FormFields>* headers,
              std::string* reply_body) {
  return http_exchange(connection, HTTP_MODE_STREAM, host, path, body, nullptr, 0, timeout_ms,
                       headers, reply_body);
}

int http_post_datagram(int descriptor, std::string_view host, std::string_view path,
                       std::string_view body, const char* peer_address, int peer_port,
                       int timeout_ms, std::unique_ptr<FormFields>* headers,
                       std::string* reply_body) {
  return http_exchange(descriptor, HTTP_MODE_DATAGRAM, host, path, body, peer_address, peer_port,
                       timeout_ms, headers, reply_body);
}

void skip_header_lines(Connection connection) {
  int status = 0;
  while (!read_reply_line(connection, status).empty() && status > 0) {
  }
}

std::optional<std::string_view> skip_text_header_lines(std::string_view text) {
  long next = 0;
  for (std::size_t position = 0;;) {
    std::string line = text_line(text.substr(position), next);
    if (next < 0) return std::nullopt;
    position += next;
    if (line.empty()) return text.substr(position);
  }
}

}  // namespace quorlin
