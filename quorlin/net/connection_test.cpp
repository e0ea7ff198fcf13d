#include "quorlin/net/connection.hpp"

#include <gtest/gtest.h>

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <string>

#include "quorlin/net/net.hpp"
#include "tests/support/peers.hpp"

namespace quorlin {
namespace {

using testing::ScriptedServer;

TEST(RecvExact, StatusAndCountTable) {
  const struct {
    const char* name;
    const char* sent;  // written before the call
    bool peer_closes;
    long length;
    int timeout_ms;
    long count;
    int status;
  } cases[] = {
      {"length 0 timed", "", false, 0, 50, 0, 1},
      {"time-out 0, nothing readable", "", false, 1, 0, 0, -2},
      {"negative time-out polls nothing", "abc", false, 3, -5, 0, -2},
      {"3 of 5 then close, untimed", "abc", true, 5, -1, 3, 0},
      {"all there, untimed", "abcde", false, 5, -1, 5, 1},
      {"short, time-out passes", "ab", false, 5, 30, 2, -2},
  };
  for (const auto& c : cases) {
    int ends[2];
    socketpair(AF_UNIX, SOCK_STREAM, 0, ends);
    send(ends[1], c.sent, std::strlen(c.sent), 0);
    if (c.peer_closes) shutdown(ends[1], SHUT_WR);
    char buffer[8] = {};
    int status = 99;
    EXPECT_EQ(recv_exact(ends[0], buffer, c.length, c.timeout_ms, status), c.count) << c.name;
    EXPECT_EQ(status, c.status) << c.name;
    close(ends[0]);
    close(ends[1]);
  }
}

// Results and what is printed: traces only at threshold 0, the connect errors at 4 and below, the
// bind error always; no descriptor is left open by a failure. With standard input closed the
// socket is descriptor 0, which is returned but is not "opened" (that takes 1 or more).
TEST(ConnectionOpen, ResultsTracesAndErrorsByThreshold) {
  ScriptedServer server(testing::echo_handler());
  const int closed = testing::free_port();
  const std::string trace =
      "Opening connection\n***** Creating socket ***** @ port 0\nSOURCE PORT "
      "0\n***** Connecting socket ***** @\nOpened connection\n";
  const struct {
    int threshold;
    int source_port;
    int port;
    int result;  // 1: a descriptor of 1 or more
    std::string out;
    std::string err;
    bool without_stdin = false;
  } rows[] = {
      {0, 0, server.port(), 1, trace, ""},
      {0, 0, server.port(), 0, trace.substr(0, trace.size() - 18), "", true},
      {1, 0, server.port(), 1, "", ""},
      {4, 0, closed, -2, "Could not connect\nCould not connect to server\n", ""},
      {5, 0, closed, -2, "", ""},
      {5, server.port(), server.port(), -1, "", "Bind error: Address already in use\n"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.threshold);
    net_set_option("debug", row.threshold);
    const int descriptors = testing::open_descriptor_count();
    const int served = server.served();
    const int saved_stdin = dup(0);
    ::testing::internal::CaptureStdout();
    ::testing::internal::CaptureStderr();
    if (row.without_stdin) close(0);
    const Connection connection = connection_open(row.source_port, "127.0.0.1", row.port);
    const std::string out = ::testing::internal::GetCapturedStdout();
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), row.err);
    EXPECT_EQ(connection > 0 ? 1 : connection, row.result);
    std::string expected_out;  // "@" stands for the descriptor
    for (const char byte : row.out) {
      expected_out += byte == '@' ? std::to_string(connection) : std::string(1, byte);
    }
    EXPECT_EQ(out, expected_out);
    if (connection > 0) connection_close(connection);
    dup2(saved_stdin, 0);  // closes a connection on descriptor 0
    close(saved_stdin);
    // The server's end closes in its own thread: count after it has.
    if (connection >= 0) server.wait_served_more_than(served);
    EXPECT_EQ(testing::open_descriptor_count(), descriptors);
  }
  net_set_option("debug", 5);
}

TEST(ServerSocket, DatagramsArriveOrTimeOutAndStreamSocketsListen) {
  int receiver = server_socket_open("127.0.0.1", testing::free_port(), true, 1);
  ASSERT_GT(receiver, 0);
  sockaddr_in address{};
  socklen_t length = sizeof address;
  getsockname(receiver, reinterpret_cast<sockaddr*>(&address), &length);
  long got = -5;
  recv_datagram(receiver, got, 30);
  EXPECT_EQ(got, 0);

  int sender = socket_open_any(0, true);
  EXPECT_EQ(send_datagram(sender, "x", 1, nullptr, 0), -1);  // no destination, not connected
  EXPECT_EQ(send_datagram(sender, "hello", 5, reinterpret_cast<sockaddr*>(&address), length), 5);
  // A time-out of 0 still takes a datagram that is waiting.
  auto buffer = recv_datagram(receiver, got, 0);
  EXPECT_EQ(std::string(buffer.get(), got), "hello");
  connection_close(sender);
  connection_close(receiver);

  // A stream server socket listens: a connection to it is accepted into its backlog.
  const int port = testing::free_port();
  const int listener = server_socket_open("127.0.0.1", port, false, 1);
  ASSERT_GT(listener, 0);
  const Connection client = connection_open(0, "127.0.0.1", port);
  EXPECT_GT(client, 0);
  connection_close(client);
  connection_close(listener);
}

// Closing resets the connection (linger 0): the peer's next read fails.
TEST(Connection, CloseResetsThePeer) {
  std::atomic<int> peer_errno{0};
  ScriptedServer server([&](int descriptor) {
    char byte;
    if (recv(descriptor, &byte, 1, 0) < 0) peer_errno = errno;
  });
  close(connection_open(0, "127.0.0.1", server.port()));
  ASSERT_TRUE(server.wait_served_more_than(0));
  EXPECT_EQ(peer_errno, ECONNRESET);
}

}  // namespace
}  // namespace quorlin
