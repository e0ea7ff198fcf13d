/// @file
/// TCP and datagram connections over IPv4: creating, binding, connecting (directly or through
/// the proxy tunnel), sending, receiving with and without a time-out, listening and closing.
///
/// A Connection is the plain descriptor; -1 and -2 are error results. Hosts are dotted-quad texts
/// (null is the wildcard 0.0.0.0); ports are host-order and converted with htons. Every socket is
/// created with linger on and a time of 0, so that closing resets instead of lingering. Traces
/// and errors go through the log under net_log_level; failed system calls named below report
/// through perror whatever the threshold. Nothing here holds state: several threads may use
/// different connections at once. No send raises SIGPIPE: a peer that has gone makes the send
/// fail (-1), and the process keeps its own SIGPIPE disposition.
#ifndef QUORLIN_NET_CONNECTION_HPP
#define QUORLIN_NET_CONNECTION_HPP

#include <netinet/in.h>
#include <sys/socket.h>
#include "quorlin/base/api.hpp"

#include <memory>

namespace quorlin {

using Connection = int;

inline constexpr int RECV_POLL_STEP_MS = 10;
inline constexpr int DATAGRAM_BUFFER_SIZE = 3000;
inline constexpr int NO_TIMEOUT = -1;

/// recv_exact status values besides a failing recv's own result (0 closed, -1 error).
inline constexpr int RECV_COMPLETE = 1;
inline constexpr int RECV_TIMED_OUT = -2;

/// The IPv4 socket address of `host` (dotted, as inet_addr reads it; null for any address) and
/// the low 16 bits of `port`.
QUORLIN_API sockaddr_in ipv4_socket_address(const char* host, int port);

/// A new socket (stream, or datagram when `datagram`), bound to address:port when port is not 0.
/// -1 after perror "Cannot create socket"; -2 after perror "Bind error" (the socket closed).
QUORLIN_API int socket_open(const char* address, int port, bool datagram);
/// socket_open on any address.
QUORLIN_API int socket_open_any(int port, bool datagram);
/// A stream socket_open on any address.
QUORLIN_API int socket_open_stream(int port);

/// Connects `descriptor` to host:port; a stream socket goes through the proxy tunnel when
/// `proxy_allowed` and the proxy is enabled (its result returned as it is). 0 or -1 (the
/// descriptor stays open on a direct failure).
QUORLIN_API int socket_connect(int descriptor, const char* host, int port, bool datagram,
                               bool proxy_allowed);
/// socket_connect with the proxy allowed.
QUORLIN_API int socket_connect(int descriptor, const char* host, int port, bool datagram);

/// Opens a connection from `source_port` (0: the system picks it, no bind) to host:port.
/// -1 when no socket could be made or bound; -2 when connecting failed (the socket closed).
QUORLIN_API Connection connection_open_ex(int source_port, const char* host, int port,
                                          int time_to_live, bool datagram,
                                          bool proxy_allowed = true, bool keep_alive = false);
/// connection_open_ex without a time-to-live change, proxy allowed, no keep-alive.
QUORLIN_API Connection connection_open_datagram(int source_port, const char* host, int port,
                                                bool datagram);
/// connection_open_ex without a time-to-live change, proxy allowed.
QUORLIN_API Connection connection_open_keepalive(int source_port, const char* host, int port,
                                                 bool datagram, bool keep_alive);
/// A stream connection, proxy allowed, no time-to-live change, no keep-alive.
QUORLIN_API Connection connection_open(int source_port, const char* host, int port);

/// Shuts down both directions and closes; returns close's result.
QUORLIN_API int connection_close(Connection connection);

/// listen(descriptor, backlog) and its result.
QUORLIN_API int socket_listen(int descriptor, int backlog = 1);
/// socket_open, then listen when it is a stream socket. The descriptor or socket_open's error.
QUORLIN_API int server_socket_open(const char* address, int port, bool datagram, int backlog);
/// server_socket_open on any address.
QUORLIN_API int server_socket_open(int port, bool datagram = false, int backlog = 1);

/// Sends until everything is sent or a send returns less than 1; returns the bytes sent.
QUORLIN_API long send_all(Connection connection, const void* bytes, long length);
/// One sendto (to `destination` when given) or send; its result.
QUORLIN_API long send_datagram(int descriptor, const void* bytes, long length,
                               const sockaddr* destination, socklen_t destination_length);

/// Receives `length` bytes and returns how many arrived; `status` is 1 when all arrived, 0 or -1
/// when a recv ended it (closed, error), -2 when the time-out passed. Without a time-out (-1) the
/// bytes are stored in order. With one, the descriptor is polled in 10 ms steps while the elapsed
/// count (grown by the step every pass) is not above the time-out, and every recv writes at the
/// start of the buffer, so a reply in pieces leaves its last piece there. A negative time-out
/// other than -1 polls nothing. A length of 0 does nothing and leaves status 0.
QUORLIN_API long recv_exact(Connection connection, void* buffer, long length, int timeout_ms,
                            int& status);
/// recv_exact without the status.
QUORLIN_API long recv_exact_nostatus(Connection connection, void* buffer, long length,
                                     int timeout_ms = NO_TIMEOUT);

/// An uninitialised buffer of `size` bytes.
QUORLIN_API std::unique_ptr<char[]> recv_buffer_new(std::size_t size);

///@{
/// One recvfrom of up to DATAGRAM_BUFFER_SIZE bytes into a new unterminated buffer; `length` is
/// its result (-1 on error). With a time-out, polls in 10 ms steps first; `length` is 0 when
/// nothing became readable.
QUORLIN_API std::unique_ptr<char[]> recv_datagram(int descriptor, long& length, sockaddr* source,
                                                  socklen_t* source_length, int timeout_ms);
QUORLIN_API std::unique_ptr<char[]> recv_datagram(int descriptor, long& length, sockaddr* source,
                                                  socklen_t* source_length);
QUORLIN_API std::unique_ptr<char[]> recv_datagram(int descriptor, long& length, int timeout_ms);
QUORLIN_API std::unique_ptr<char[]> recv_datagram(int descriptor, long& length);
///@}

}  // namespace quorlin

#endif  // QUORLIN_NET_CONNECTION_HPP
