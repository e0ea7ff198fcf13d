// The proxy tunnel. Each attempt connects to the proxy, then negotiates by the settings' type;
// each protocol's packets are drawn once above its code (field, width in bytes, value) and built
// in that order. Failures close the
// descriptor the tunnel used and return -1; nothing is logged.
#include "quorlin/net/proxy.hpp"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <new>
#include <string>
#include <vector>

#include "quorlin/base/strings.hpp"
#include "quorlin/net/connection.hpp"

namespace quorlin {
namespace {

constexpr int kFailed = -1;

// The buffer checks stay on in every build: a violated one ends the process with a report in
// the C library's assertion format.
[[noreturn]] void assertion_failed(const char* text, int line, const char* function) {
  std::fprintf(stderr, "%s: proxy:%d: %s: Assertion `%s' failed.\n", program_invocation_short_name,
               line, function, text);
  std::abort();
}
#define PROXY_REQUIRE(condition, text) \
  ((condition) ? void(0) : assertion_failed(text, __LINE__, __func__))
constexpr std::size_t kStatusLineSize = 1024;
constexpr std::size_t kHeaderTextSize = 10240;

using Bytes = std::vector<unsigned char>;

void append_port(Bytes& packet, int port) {
  packet.push_back(static_cast<unsigned char>((port >> 8) & 0xff));  // high byte first
  packet.push_back(static_cast<unsigned char>(port & 0xff));
}

void append_text(Bytes& packet, std::string_view text) {
  packet.insert(packet.end(), text.begin(), text.end());
}

bool send_packet(int descriptor, const Bytes& packet) {
  return atomic_out(descriptor, packet.data(), static_cast<long>(packet.size())) != kFailed;
}

bool receive(int descriptor, unsigned char* buffer, long size) {
  return atomic_in(descriptor, buffer, size) != kFailed;
}

// --- connecting to the proxy ---

bool proxy_address(const ProxySettings& settings, sockaddr_in& address) {
  if (!settings.host) return false;
  const std::string& host = *settings.host;
  address = ipv4_socket_address(nullptr, settings.port);
  if (host.find_first_not_of("0123456789.") == std::string::npos) {
    address.sin_addr.s_addr = inet_addr(host.c_str());
    return true;
  }
  const hostent* answer = gethostbyname(host.c_str());
  if (answer == nullptr || answer->h_addrtype != AF_INET || answer->h_addr_list[0] == nullptr) {
    return false;
  }
  std::memcpy(&address.sin_addr, answer->h_addr_list[0], sizeof address.sin_addr);
  return true;
}

// A new stream socket, bound to the source port when it is not 0; -1 on failure.
int new_proxy_socket(int source_port) {
  int descriptor = socket(AF_INET, SOCK_STREAM, 0);
  if (descriptor < 0 || source_port == 0) return descriptor;
  sockaddr_in local = ipv4_socket_address(nullptr, source_port);
  if (bind(descriptor, reinterpret_cast<sockaddr*>(&local), sizeof local) < 0) {
    close(descriptor);
    return kFailed;
  }
  return descriptor;
}

// --- SOCKS4 with the 4a host-name form ---
//
//   request:  VER 1 (4) | CMD 1 (1 connect) | DSTPORT 2 (high byte first)
//             | DSTIP 4 (0.0.0.1: a host name follows) | USERID n, 0 | HOST n, 0
//   reply:    VN 1 (0) | REP 1 (90 granted) | DSTPORT 2 | DSTIP 4

constexpr unsigned char kSocks4Version = 4;
constexpr unsigned char kSocksConnect = 1;  // the CONNECT command, in SOCKS4 and SOCKS5 alike
constexpr unsigned char kSocks4HostNameFollows[] = {0, 0, 0, 1};
constexpr unsigned char kSocks4Granted = 90;
constexpr std::size_t kSocks4ReplySize = 8;

bool negotiate_socks4(int descriptor, const ProxySettings& settings, const char* host, int port) {
  if (!settings.user) return false;
  Bytes request{kSocks4Version, kSocksConnect};
  append_port(request, port);
  request.insert(request.end(), std::begin(kSocks4HostNameFollows),
                 std::end(kSocks4HostNameFollows));
  append_text(request, *settings.user);
  request.push_back(0);
  append_text(request, host);
  request.push_back(0);
  unsigned char reply[kSocks4ReplySize] = {};
  send_packet(descriptor, request);  // neither result decides: the reply byte does
  receive(descriptor, reply, sizeof reply);
  return reply[1] == kSocks4Granted;
}

// --- SOCKS5 ---
//
//   greeting:        VER 1 (5) | NMETHODS 1 | METHODS NMETHODS (0 none; 2 user/password)
//   greeting reply:  VER 1 (5) | METHOD 1 (255: none acceptable)
//   user/password:   VER 1 (1) | ULEN 1 | UNAME ULEN | PLEN 1 | PASSWD PLEN
//   its reply:       VER 1 | STATUS 1 (0 success)
//   request:         VER 1 (5) | CMD 1 (1 connect) | RSV 1 (0) | ATYP 1 (3 domain name)
//                    | LEN 1 | HOST LEN | DSTPORT 2 (high byte first)
//   reply:           VER 1 | REP 1 (0 succeeded) | RSV 1 | ATYP 1 | BND.ADDR | BND.PORT 2
//   BND.ADDR by ATYP: 1 IPv4, 4 bytes; 3 domain name, a length byte and that many; 4 IPv6, 16

constexpr unsigned char kSocks5Version = 5;
constexpr unsigned char kMethodNone = 0;
constexpr unsigned char kMethodUserPassword = 2;
constexpr unsigned char kNoAcceptableMethod = 255;
constexpr unsigned char kUserPasswordVersion = 1;
constexpr unsigned char kSocks5Succeeded = 0;
constexpr unsigned char kAddressIpv4 = 1;
constexpr unsigned char kAddressDomainName = 3;
constexpr unsigned char kAddressIpv6 = 4;
constexpr long kPortSize = 2;

bool socks5_greet(int descriptor, const ProxySettings& settings, unsigned char& method) {
  Bytes greeting{kSocks5Version};
  if (settings.user) {
    greeting.insert(greeting.end(), {2, kMethodNone, kMethodUserPassword});
  } else {
    greeting.insert(greeting.end(), {1, kMethodNone});
  }
  unsigned char reply[2];
  if (!send_packet(descriptor, greeting) || !receive(descriptor, reply, 2)) return false;
  method = reply[1];
  return reply[0] == kSocks5Version && method < kNoAcceptableMethod;
}

bool socks5_authenticate(int descriptor, const ProxySettings& settings) {
  std::string_view user = *settings.user;
  std::string_view password = settings.password ? std::string_view(*settings.password) : "";
  Bytes request{kUserPasswordVersion};
  request.push_back(static_cast<unsigned char>(user.size()));
  append_text(request, user);
  request.push_back(static_cast<unsigned char>(password.size()));
  append_text(request, password);
  unsigned char reply[2];
  return send_packet(descriptor, request) && receive(descriptor, reply, 2) &&
         reply[1] == kSocks5Succeeded;
}

bool socks5_drain_bound_address(int descriptor, unsigned char address_type) {
  unsigned char drained[255 + kPortSize];
  long size = 0;
  if (address_type == kAddressDomainName) {
    unsigned char length;
    if (!receive(descriptor, &length, 1)) return false;
    size = length + kPortSize;
  } else if (address_type == kAddressIpv6) {
    size = 16 + kPortSize;
  } else if (address_type == kAddressIpv4) {
    size = 4 + kPortSize;
  }
  return size == 0 || receive(descriptor, drained, size);  // another type: nothing to drain
}

bool negotiate_socks5(int descriptor, const ProxySettings& settings, const char* host, int port) {
  unsigned char method;
  if (!socks5_greet(descriptor, settings, method)) return false;
  if (method != kMethodNone) {
    if (method != kMethodUserPassword || !settings.user ||
        !socks5_authenticate(descriptor, settings)) {
      return false;
    }
  }
  std::string_view target = host;
  Bytes request{kSocks5Version, kSocksConnect, 0, kAddressDomainName};
  request.push_back(static_cast<unsigned char>(target.size()));
  append_text(request, target);
  append_port(request, port);
  unsigned char reply[4];
  if (!send_packet(descriptor, request) || !receive(descriptor, reply, 4) ||
      reply[1] != kSocks5Succeeded) {
    return false;
  }
  return socks5_drain_bound_address(descriptor, reply[3]);
}

// --- HTTP CONNECT ---
//
//   request:  "CONNECT host:port HTTP/1.0" CRLF ["Proxy-Authorization: Basic " base64 CRLF] CRLF
//   reply:    status line ("HTTP/1.x 200 ..." opens the tunnel) CRLF, header lines CRLF, CRLF
//   A 401 or 407 without our credentials brings challenge lines, which are read and dropped.

constexpr int kHttpOk = 200;
constexpr int kHttpUnauthorized = 401;
constexpr int kHttpProxyAuthenticationRequired = 407;

// One send of the formatted text; a short send is not retried.
__attribute__((format(printf, 2, 3))) bool send_header(int descriptor, const char* format, ...) {
  char text[kHeaderTextSize];
  va_list arguments;
  va_start(arguments, format);
  int length = std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  if (length < 0) return false;
  std::size_t size = std::min<std::size_t>(length, sizeof text - 1);
  return send(descriptor, text, size, MSG_NOSIGNAL) != -1;
}

// Reads one byte at a time up to LF (kept) or 1023 bytes, so nothing after the line is
// consumed. A closed connection ends the line; a receive error gives false.
bool read_proxy_line(int descriptor, std::string& line) {
  line.clear();
  char byte;
  while (line.size() < kStatusLineSize - 1) {
    ssize_t got = recv(descriptor, &byte, 1, 0);
    if (got < 0) return false;
    if (got == 0) break;
    line += byte;
    if (byte == '\n') break;
  }
  return true;
}

// Drops header lines up to the empty line; false on a receive error or when the proxy closes
// first (an empty read would otherwise never reach the end).
bool skip_proxy_headers(int descriptor) {
  std::string line;
  while (read_proxy_line(descriptor, line) && !line.empty()) {
    if (line == "\r\n") return true;
  }
  return false;
}

// Reads the challenge lines of a 401/407. The tunnel answers no challenge, so this only consumes
// the header; a challenge line without a scheme ends the reading.
void read_challenge(int descriptor, int code) {
  const std::string_view wanted =
      code == kHttpUnauthorized ? "www-authenticate:" : "proxy-authenticate:";
  std::string line;
  while (read_proxy_line(descriptor, line) && !line.empty() && line != "\r\n") {
    for (char& c : line) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    if (!line.starts_with(wanted)) continue;
    std::size_t scheme = line.find_first_not_of(' ', wanted.size());
    if (scheme == std::string::npos || line.find(' ', scheme) == std::string::npos) return;
  }
}

std::string basic_credentials(const ProxySettings& settings) {
  std::string plain = *settings.user + ":" + settings.password.value_or("");
  std::string encoded = base64_encode(plain);
  explicit_bzero(plain.data(), plain.size());
  return encoded;
}

bool negotiate_http(int descriptor, const ProxySettings& settings, const char* host, int port) {
  if (!send_header(descriptor, "CONNECT %s:%d HTTP/1.0\r\n", host, port)) return false;
  if (settings.user) {
    std::string credentials = basic_credentials(settings);
    bool sent = send_header(descriptor, "Proxy-Authorization: Basic %s\r\n", credentials.c_str());
    explicit_bzero(credentials.data(), credentials.size());
    if (!sent) return false;
  }
  if (!send_header(descriptor, "\r\n")) return false;

  std::string status_line;
  if (!read_proxy_line(descriptor, status_line)) return false;
  std::size_t space = status_line.find(' ');
  if (space == std::string::npos) return false;
  int code = std::atoi(status_line.c_str() + space + 1);
  if (code == kHttpOk) return skip_proxy_headers(descriptor);
  const bool challenged = code == kHttpUnauthorized || code == kHttpProxyAuthenticationRequired;
  if (challenged && !settings.user) read_challenge(descriptor, code);
  return false;
}

bool negotiate(int descriptor, const ProxySettings& settings, const char* host, int port) {
  switch (settings.type) {
    case PROXY_TYPE_SOCKS4:
      return negotiate_socks4(descriptor, settings, host, port);
    case PROXY_TYPE_SOCKS5:
      return negotiate_socks5(descriptor, settings, host, port);
    case PROXY_TYPE_HTTP:
    case PROXY_TYPE_HTTP_ALT:
      return negotiate_http(descriptor, settings, host, port);
    default:
      return true;  // no negotiation: the connection to the proxy itself
  }
}

}  // namespace

std::unique_ptr<ProxySettings> proxy_settings_new() {
  return std::make_unique<ProxySettings>();
}

namespace {
std::optional<std::string> optional_copy(const char* text) {
  if (text == nullptr) return std::nullopt;
  return std::string(text);
}
}  // namespace

void proxy_info_fill(ProxyInfo& info, unsigned type, const char* host, int port, const char* user,
                     const char* password) {
  info = ProxyInfo{type, optional_copy(host), port, optional_copy(user), optional_copy(password)};
}

void proxy_info_copy(ProxyInfo& target, const ProxyInfo& source) {
  target = source;
}

void proxy_info_clear(ProxyInfo& info) {
  if (info.password) explicit_bzero(info.password->data(), info.password->size());
  info.host.reset();
  info.user.reset();
  info.password.reset();
}

ProxyInfo proxy_settings_info(const ProxySettings& settings) {
  return ProxyInfo{settings.type, settings.host, settings.port, settings.user, settings.password};
}

int proxy_settings_set_int(ProxySettings& settings, std::string_view key, int value) {
  if (key == "proxy_type") {
    unsigned type = static_cast<unsigned>(value);
    settings.type = type > PROXY_TYPE_HTTP_ALT ? PROXY_TYPE_NONE : type;
  } else if (key == "proxy_port") {
    settings.port = value;
  } else if (key == "proxy_debug") {
    settings.debug = value != 0;
  } else {
    return 0;
  }
  return 1;
}

int proxy_settings_set_text(ProxySettings& settings, std::string_view key, std::string_view text) {
  std::optional<std::string>* field = key == "proxy_host"       ? &settings.host
                                      : key == "proxy_user"     ? &settings.user
                                      : key == "proxy_password" ? &settings.password
                                                                : nullptr;
  if (field == nullptr) return 0;
  if (*field) explicit_bzero((*field)->data(), (*field)->size());
  field->emplace(text);
  return 1;
}

int proxy_connect(const ProxySettings& settings, int existing, int source_port, const char* host,
                  int port) {
  sockaddr_in proxy;
  if (!proxy_address(settings, proxy)) return kFailed;
  int descriptor = existing != 0 ? existing : new_proxy_socket(source_port);
  if (descriptor < 0) return kFailed;
  if (connect(descriptor, reinterpret_cast<sockaddr*>(&proxy), sizeof proxy) < 0) {
    // A socket made here would be out of every caller's reach: close it. The caller's own
    // descriptor stays with the caller.
    if (existing == 0) close(descriptor);
    return kFailed;
  }
  bool negotiated = false;
  try {
    negotiated = negotiate(descriptor, settings, host, port);
  } catch (const std::bad_alloc&) {
    // A packet that cannot be built is a failed negotiation.
  }
  if (!negotiated) {
    close(descriptor);
    return kFailed;
  }
  return descriptor;
}

int proxy_connect(const ProxySettings& settings, int source_port, const char* host, int port) {
  return proxy_connect(settings, 0, source_port, host, port);
}

long atomic_out(int descriptor, const void* buffer, long size) {
  PROXY_REQUIRE(buffer != nullptr, "buf != ((void *)0)");
  PROXY_REQUIRE(0 <= size, "0<=size");
  const char* bytes = static_cast<const char*>(buffer);
  for (long sent = 0; sent < size;) {
    ssize_t result = send(descriptor, bytes + sent, size - sent, MSG_NOSIGNAL);
    if (result == -1) return kFailed;
    sent += result;  // 0: try again
  }
  return size;
}

long atomic_in(int descriptor, void* buffer, long size) {
  PROXY_REQUIRE(buffer != nullptr, "buf != ((void *)0)");
  PROXY_REQUIRE(0 <= size, "0<=size");
  char* bytes = static_cast<char*>(buffer);
  for (long received = 0; received < size;) {
    ssize_t result = recv(descriptor, bytes + received, size - received, 0);
    if (result <= 0) return kFailed;
    received += result;
  }
  return size;
}

}  // namespace quorlin
