// Connections: thin, exact wrappers over the socket calls. The timed receives keep the
// service's polling contract (10 ms steps, an elapsed count that grows by the step, each piece
// written at the buffer start) because callers depend on those results.
#include "quorlin/net/connection.hpp"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <unistd.h>

#include <cstdio>

#include "quorlin/net/net.hpp"
#include "quorlin/net/owned_descriptor_internal.hpp"
#include "quorlin/net/wait_internal.hpp"

namespace quorlin {
namespace {

// Whether a connection goes through the process-wide proxy rather than straight to its target.
bool routes_through_proxy(bool datagram, bool proxy_allowed) {
  return !datagram && proxy_allowed && proxy_enabled() && net_proxy_settings() != nullptr;
}

long recv_untimed(Connection connection, char* buffer, long length, int& status) {
  long wanted = length;
  while (wanted > 0) {
    ssize_t got = recv(connection, buffer + (length - wanted), wanted, 0);
    if (got < 1) {
      status = static_cast<int>(got);
      return length - wanted;
    }
    wanted -= got;
  }
  if (length > 0) status = RECV_COMPLETE;
  return length;
}

long recv_timed(Connection connection, char* buffer, long length, int timeout_ms, int& status) {
  long wanted = length;
  for (int elapsed = 0; elapsed <= timeout_ms && wanted > 0; elapsed += RECV_POLL_STEP_MS) {
    if (!readable_within_steps(connection, 0)) continue;
    ssize_t got = recv(connection, buffer, wanted, 0);  // at the start, by contract
    if (got < 1) {
      status = static_cast<int>(got);
      return length - wanted;
    }
    wanted -= got;
  }
  status = wanted == 0 ? RECV_COMPLETE : RECV_TIMED_OUT;
  return length - wanted;
}

}  // namespace

sockaddr_in ipv4_socket_address(const char* host, int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(port));
  address.sin_addr.s_addr = host != nullptr ? inet_addr(host) : htonl(INADDR_ANY);
  return address;
}

int socket_open(const char* address, int port, bool datagram) {
  int descriptor = socket(AF_INET, datagram ? SOCK_DGRAM : SOCK_STREAM, 0);
  if (descriptor < 0) {
    std::perror("Cannot create socket");
    return -1;
  }
  net_trace("***** Creating socket ***** %d port %d\n", descriptor, port);
  linger reset_on_close{1, 0};
  setsockopt(descriptor, SOL_SOCKET, SO_LINGER, &reset_on_close, sizeof reset_on_close);
  if (port != 0) {
    sockaddr_in local = ipv4_socket_address(address, port);
    if (bind(descriptor, reinterpret_cast<sockaddr*>(&local), sizeof local) < 0) {
      std::perror("Bind error");
      connection_close(descriptor);
      return -2;
    }
  }
  return descriptor;
}

int socket_open_any(int port, bool datagram) {
  return socket_open(nullptr, port, datagram);
}

int socket_open_stream(int port) {
  return socket_open_any(port, false);
}

int socket_connect(int descriptor, const char* host, int port, bool datagram, bool proxy_allowed) {
  if (routes_through_proxy(datagram, proxy_allowed)) {
    return proxy_connect(*net_proxy_settings(), descriptor, 0, host, port);
  }
  sockaddr_in remote = ipv4_socket_address(host, port);
  net_trace("***** Connecting socket ***** %d\n", descriptor);
  if (connect(descriptor, reinterpret_cast<sockaddr*>(&remote), sizeof remote) >= 0) return 0;
  net_error("Could not connect\n");
  return -1;
}

int socket_connect(int descriptor, const char* host, int port, bool datagram) {
  return socket_connect(descriptor, host, port, datagram, true);
}

Connection connection_open_ex(int source_port, const char* host, int port, int time_to_live,
                              bool datagram, bool proxy_allowed, bool keep_alive) {
  net_trace("Opening connection\n");
  int result;
  if (routes_through_proxy(datagram, proxy_allowed)) {
    result = proxy_connect(*net_proxy_settings(), source_port, host, port);
  } else {
    OwnedDescriptor descriptor(socket_open_any(source_port, datagram));
    if (descriptor.get() < 0) {
      net_error("Could not bind socket\n");
      return -1;
    }
    if (time_to_live != 0) {
      setsockopt(descriptor.get(), IPPROTO_IP, IP_TTL, &time_to_live, sizeof time_to_live);
    }
    if (keep_alive && !datagram) {
      int on = 1;
      setsockopt(descriptor.get(), SOL_SOCKET, SO_KEEPALIVE, &on, sizeof on);
    }
    net_trace("SOURCE PORT %d\n", source_port);
    if (socket_connect(descriptor.get(), host, port, datagram, proxy_allowed) != 0) {
      net_error("Could not connect to server\n");
      return -2;  // closed plainly, with no shutdown and no closing trace
    }
    result = descriptor.release();
  }
  if (result >= 1) net_trace("Opened connection\n");
  return result;
}

Connection connection_open_datagram(int source_port, const char* host, int port, bool datagram) {
  return connection_open_ex(source_port, host, port, 0, datagram);
}

Connection connection_open_keepalive(int source_port, const char* host, int port, bool datagram,
                                     bool keep_alive) {
  return connection_open_ex(source_port, host, port, 0, datagram, true, keep_alive);
}

Connection connection_open(int source_port, const char* host, int port) {
  return connection_open_datagram(source_port, host, port, false);
}

int connection_close(Connection connection) {
  net_trace("***** Closing socket ***** %d\n", connection);
  shutdown(connection, SHUT_RDWR);
  return close(connection);
}

int socket_listen(int descriptor, int backlog) {
  return listen(descriptor, backlog);
}

int server_socket_open(const char* address, int port, bool datagram, int backlog) {
  int descriptor = socket_open(address, port, datagram);
  if (!datagram) socket_listen(descriptor, backlog);  // a failed open fails here too, harmlessly
  return descriptor;
}

int server_socket_open(int port, bool datagram, int backlog) {
  return server_socket_open(nullptr, port, datagram, backlog);
}

long send_all(Connection connection, const void* bytes, long length) {
  const char* next = static_cast<const char*>(bytes);
  long sent = 0;
  while (length - sent >= 1) {
    ssize_t result = send(connection, next + sent, length - sent, MSG_NOSIGNAL);
    if (result < 1) break;
    sent += result;
  }
  return sent;
}

long send_datagram(int descriptor, const void* bytes, long length, const sockaddr* destination,
                   socklen_t destination_length) {
  if (destination != nullptr) {
    return sendto(descriptor, bytes, length, MSG_NOSIGNAL, destination, destination_length);
  }
  return send(descriptor, bytes, length, MSG_NOSIGNAL);
}

long recv_exact(Connection connection, void* buffer, long length, int timeout_ms, int& status) {
  status = 0;
  char* bytes = static_cast<char*>(buffer);
  if (timeout_ms == NO_TIMEOUT) return recv_untimed(connection, bytes, length, status);
  return recv_timed(connection, bytes, length, timeout_ms, status);
}

long recv_exact_nostatus(Connection connection, void* buffer, long length, int timeout_ms) {
  int ignored;
  return recv_exact(connection, buffer, length, timeout_ms, ignored);
}

std::unique_ptr<char[]> recv_buffer_new(std::size_t size) {
  return std::make_unique_for_overwrite<char[]>(size);
}

std::unique_ptr<char[]> recv_datagram(int descriptor, long& length, sockaddr* source,
                                      socklen_t* source_length, int timeout_ms) {
  auto buffer = recv_buffer_new(DATAGRAM_BUFFER_SIZE);
  length = 0;
  if (timeout_ms != NO_TIMEOUT) {
    if (!readable_within_steps(descriptor, timeout_ms)) return buffer;
  }
  length = recvfrom(descriptor, buffer.get(), DATAGRAM_BUFFER_SIZE, 0, source, source_length);
  return buffer;
}

std::unique_ptr<char[]> recv_datagram(int descriptor, long& length, sockaddr* source,
                                      socklen_t* source_length) {
  return recv_datagram(descriptor, length, source, source_length, NO_TIMEOUT);
}

std::unique_ptr<char[]> recv_datagram(int descriptor, long& length, int timeout_ms) {
  return recv_datagram(descriptor, length, nullptr, nullptr, timeout_ms);
}

std::unique_ptr<char[]> recv_datagram(int descriptor, long& length) {
  return recv_datagram(descriptor, length, nullptr, nullptr, NO_TIMEOUT);
}

}  // namespace quorlin
