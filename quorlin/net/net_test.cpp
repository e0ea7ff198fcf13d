#include "quorlin/net/net.hpp"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <string>
#include <tuple>

#include "quorlin/net/connection.hpp"
#include "quorlin/net/proxy.hpp"
#include "quorlin/net/wait_internal.hpp"
#include "tests/support/peers.hpp"

namespace quorlin {
namespace {

TEST(UsableLocalAddress, SkipsLoopbackUnassignedAndLinkLocal) {
  const std::pair<const char*, bool> cases[] = {{"127.0.0.1", false},   {"0.0.0.0", false},
                                                {"169.254.1.1", false}, {"10.0.0.1", true},
                                                {"0.0.0.01", true},     {"1.127.0.1", true}};
  for (const auto& [address, usable] : cases)
    EXPECT_EQ(is_usable_local_address(address), usable) << address;
  set_preferred_address("10.0.0.2");
  EXPECT_FALSE(is_usable_local_address("10.0.0.1"));
  EXPECT_TRUE(is_usable_local_address("10.0.0.2"));
  set_preferred_address(std::nullopt);
}

// Host names resolve to copies, an unknown one says so; "debug" sets the trace threshold and the
// proxy's debug flag.
TEST(NetOptions, ResolveHostAndDebug) {
  net_init();
  EXPECT_FALSE(proxy_enabled());  // connections go direct until a caller switches it on
  EXPECT_EQ(resolve_host("localhost"), "127.0.0.1");
  EXPECT_EQ(resolve_host("127.0.0.1"), "127.0.0.1");
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(resolve_host("no-such-host.invalid"), std::nullopt);
  EXPECT_TRUE(
      ::testing::internal::GetCapturedStderr().starts_with("Unable to get host by name\n: "));
  EXPECT_EQ(net_log_level(), 5);
  EXPECT_EQ(net_proxy_settings()->debug, 0);
  EXPECT_TRUE(net_set_option("debug", 2));
  EXPECT_EQ(net_proxy_settings()->debug, 1);
  EXPECT_FALSE(net_set_option("verbose", 0));
  EXPECT_EQ(net_log_level(), 2);
  net_shutdown();
  net_init();  // a new process-wide proxy takes the level set before
  EXPECT_EQ(net_proxy_settings()->debug, 1);
  net_set_option("debug", 5);
  EXPECT_EQ(net_proxy_settings()->debug, 0);
  net_shutdown();
}

TEST(RunShellCommand, JoinsCommandAndArgumentWithABlank) {
  EXPECT_EQ(WEXITSTATUS(run_shell_command("exit", "3")), 3);
  EXPECT_EQ(WEXITSTATUS(run_shell_command("test 1 -eq", nullptr)), 2);
  EXPECT_EQ(run_shell_command("true"), 0);
}

// Each key takes its own kind of value: a type above 4 or below 0 is 0, debug is a flag, an
// integer key refuses a text and the reverse. The smaller record holds copies; null is absent.
TEST(ProxySettings, KeysTypesAndUnknownKeys) {
  auto settings = proxy_settings_new();
  EXPECT_EQ(proxy_settings_info(*settings),
            (ProxyInfo{0, std::nullopt, 0, std::nullopt, std::nullopt}));
  for (const auto& [value, type] : {std::pair{4, 4u}, {7, 0u}, {-1, 0u}}) {
    EXPECT_EQ(proxy_settings_set_int(*settings, "proxy_type", value), 1);
    EXPECT_EQ(settings->type, type) << value;
  }
  EXPECT_EQ(proxy_settings_set_int(*settings, "proxy_host", 1), 0);
  EXPECT_EQ(proxy_settings_set_text(*settings, "proxy_port", "80"), 0);
  EXPECT_EQ(settings->debug, 0);
  EXPECT_EQ(proxy_settings_set_int(*settings, "proxy_debug", 9), 1);
  EXPECT_EQ(settings->debug, 1);
  proxy_settings_set_text(*settings, "proxy_user", "alice");
  EXPECT_EQ(proxy_settings_set_text(*settings, "proxy_user", "bob"), 1);
  proxy_settings_set_int(*settings, "proxy_port", 1080);
  proxy_settings_set_text(*settings, "proxy_host", "proxy.example");
  EXPECT_EQ(proxy_settings_info(*settings),
            (ProxyInfo{0, "proxy.example", 1080, "bob", std::nullopt}));

  std::string host = "h";
  ProxyInfo info;
  EXPECT_EQ(info, (ProxyInfo{0, std::nullopt, 0, std::nullopt, std::nullopt}));
  proxy_info_fill(info, 2, host.c_str(), 9050, nullptr, "pw");
  host = "changed";
  ProxyInfo copy;
  proxy_info_copy(copy, info);
  proxy_info_clear(info);
  EXPECT_EQ(info, (ProxyInfo{2, std::nullopt, 9050, std::nullopt, std::nullopt}));
  EXPECT_EQ(copy, (ProxyInfo{2, "h", 9050, std::nullopt, "pw"}));

  // A null buffer or a negative size ends the process with the C library's assertion report.
  using Violation = std::tuple<void*, long, std::string>;  // the last as a regular expression
  for (const auto& [buffer, size, text] :
       {Violation{nullptr, 1, "buf != \\(\\(void \\*\\)0\\)"}, Violation{&host, -1, "0<=size"}}) {
    EXPECT_DEATH(atomic_out(0, buffer, size),
                 "proxy:[0-9]+: atomic_out: Assertion `" + text + "' failed");
    EXPECT_DEATH(atomic_in(0, buffer, size),
                 "proxy:[0-9]+: atomic_in: Assertion `" + text + "' failed");
  }
}

using testing::ScriptedServer;

TEST(RecvExact, StatusAndCountTable) {
  EXPECT_EQ(RECV_POLL_STEP_MS, 10);
  // Bytes sent before the call and whether the peer then closes; the length and time-out asked
  // for; the count and the status expected.
  const std::tuple<const char*, const char*, bool, long, int, long, int> cases[] = {
      {"length 0 timed", "", false, 0, 50, 0, 1},
      {"length 0 untimed", "", false, 0, -1, 0, 0},
      {"time-out 0, nothing readable", "", false, 1, 0, 0, -2},
      {"negative time-out polls nothing", "abc", false, 3, -5, 0, -2},
      {"3 of 5 then close, untimed", "abc", true, 5, -1, 3, 0},
      {"all there, untimed", "abcde", false, 5, -1, 5, 1},
      {"short, time-out passes", "ab", false, 5, 30, 2, -2},
  };
  for (const auto& [name, sent, peer_closes, length, timeout_ms, count, expected_status] : cases) {
    int ends[2];
    socketpair(AF_UNIX, SOCK_STREAM, 0, ends);
    send(ends[1], sent, std::strlen(sent), 0);
    if (peer_closes) shutdown(ends[1], SHUT_WR);
    char buffer[8] = {};
    int status = 99;
    EXPECT_EQ(recv_exact(ends[0], buffer, length, timeout_ms, status), count) << name;
    EXPECT_EQ(status, expected_status) << name;
    close(ends[0]);
    close(ends[1]);
  }
}

// A time-to-live and keep-alive are set when asked for, and only then.
TEST(ConnectionOpen, TimeToLiveAndKeepAliveOnlyWhenAsked) {
  ScriptedServer server([](int) {});
  int system_ttl = 0;
  socklen_t ttl_size = sizeof system_ttl;
  const int plain = socket(AF_INET, SOCK_STREAM, 0);
  getsockopt(plain, IPPROTO_IP, IP_TTL, &system_ttl, &ttl_size);
  close(plain);
  // The time-to-live and keep-alive asked for (0 and false: through the shorter entries); the
  // socket's settings afterwards.
  for (const auto& [ttl, keep_alive] : {std::pair{7, true}, {0, true}, {0, false}}) {
    const Connection connection =
        ttl != 0     ? connection_open_ex(0, "127.0.0.1", server.port(), ttl, false, true, true)
        : keep_alive ? connection_open_keepalive(0, "127.0.0.1", server.port(), false, true)
                     : connection_open(0, "127.0.0.1", server.port());
    int value = 0;
    socklen_t size = sizeof value;
    getsockopt(connection, IPPROTO_IP, IP_TTL, &value, &size);
    EXPECT_EQ(value, ttl == 0 ? system_ttl : ttl);
    getsockopt(connection, SOL_SOCKET, SO_KEEPALIVE, &value, &size);
    EXPECT_EQ(value, keep_alive ? 1 : 0);
    connection_close(connection);
  }
}

// A peer that has gone makes a send fail, with SIGPIPE at its default: the process goes on.
// Over TCP the first send after the peer's close is answered by a reset; the next one fails.
TEST(Send, APeerThatHasGoneFailsTheSendNotTheProcess) {
  std::signal(SIGPIPE, SIG_DFL);
  ScriptedServer server([](int) {});  // closes at once
  const Connection connection = connection_open(0, "127.0.0.1", server.port());
  ASSERT_TRUE(server.wait_served_more_than(0));
  const std::string megabyte(1 << 20, 'x');
  send_all(connection, megabyte.data(), static_cast<long>(megabyte.size()));
  EXPECT_EQ(send_all(connection, "x", 1), 0);
  connection_close(connection);
  int ends[2];
  socketpair(AF_UNIX, SOCK_STREAM, 0, ends);
  close(ends[1]);
  EXPECT_EQ(send_datagram(ends[0], "x", 1, nullptr, 0), -1);
  EXPECT_EQ(atomic_out(ends[0], "x", 1), -1);
  close(ends[0]);
}

// Results and what is printed: traces only at threshold 0, the connect errors at 4 and below, the
// bind error always; no descriptor is left open by a failure, and a connection is reset when it
// is closed (linger 0): the peer's read fails. With standard input closed the socket is
// descriptor 0, which is returned but is not "opened" (that takes 1 or more).
TEST(ConnectionOpen, ResultsTracesAndErrorsByThreshold) {
  std::atomic<int> peer_errno{0};
  ScriptedServer server([&](int descriptor) {
    char byte;
    if (recv(descriptor, &byte, 1, 0) < 0) peer_errno = errno;
  });
  const int closed = testing::free_port();
  const std::string trace =
      "Opening connection\n***** Creating socket ***** @ port 0\nSOURCE PORT "
      "0\n***** Connecting socket ***** @\nOpened connection\n";
  // The threshold, the source and destination ports, whether standard input is closed first (so
  // that the socket is descriptor 0); the result (1: a descriptor of 1 or more); what is printed
  // to standard output ("@" stands for the descriptor) and to standard error.
  const std::tuple<int, int, int, bool, int, std::string, std::string> rows[] = {
      {0, 0, server.port(), false, 1, trace, ""},
      {0, 0, server.port(), true, 0, trace.substr(0, trace.size() - 18), ""},
      {1, 0, server.port(), false, 1, "", ""},
      {4, 0, closed, false, -2, "Could not connect\nCould not connect to server\n", ""},
      {5, 0, closed, false, -2, "", ""},
      {5, 0, closed, true, -2, "", ""},
      {5, server.port(), server.port(), false, -1, "", "Bind error: Address already in use\n"}};
  for (const auto& [threshold, source_port, port, closes_stdin, result, out, err] : rows) {
    SCOPED_TRACE(threshold);
    net_set_option("debug", threshold);
    const int descriptors = testing::open_descriptor_count();
    const int served = server.served();
    const int saved_stdin = dup(0);
    ::testing::internal::CaptureStdout();
    ::testing::internal::CaptureStderr();
    if (closes_stdin) close(0);
    const Connection connection = connection_open(source_port, "127.0.0.1", port);
    const std::string printed = ::testing::internal::GetCapturedStdout();
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), err);
    EXPECT_EQ(connection > 0 ? 1 : connection, result);
    std::string expected_out;
    for (const char byte : out) {
      expected_out += byte == '@' ? std::to_string(connection) : std::string(1, byte);
    }
    EXPECT_EQ(printed, expected_out);
    if (connection > 0) close(connection);
    EXPECT_EQ(fcntl(0, F_GETFD) == -1, closes_stdin && connection < 0);  // a failure closed it
    dup2(saved_stdin, 0);  // closes a connection on descriptor 0
    close(saved_stdin);
    // The server's end closes in its own thread: count after it has.
    if (connection >= 0) server.wait_served_more_than(served);
    EXPECT_EQ(peer_errno.exchange(0), connection >= 0 ? ECONNRESET : 0);
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
  for (const int timeout_ms : {0, NO_TIMEOUT}) {  // a time-out of 0 still takes a waiting datagram
    EXPECT_EQ(send_datagram(sender, "hello", 5, reinterpret_cast<sockaddr*>(&address), length), 5);
    auto buffer = timeout_ms == 0 ? recv_datagram(receiver, got, 0) : recv_datagram(receiver, got);
    EXPECT_EQ(std::string(buffer.get(), got), "hello");
  }
  connection_close(sender);
  connection_close(receiver);

  // A server socket is a stream socket unless asked otherwise, and listens with a backlog of 1,
  // which Linux takes as room for two connections not yet accepted: a third waits.
  const int port = testing::free_port();
  const int listener = server_socket_open(port);
  ASSERT_GT(listener, 0);
  int clients[3];
  for (int i = 0; i < 3; ++i) {
    clients[i] = socket_open_stream(0);
    EXPECT_EQ(connect_within(clients[i], "127.0.0.1", port, 100), i < 2 ? 0 : -2) << i;
  }
  EXPECT_EQ(fcntl(clients[0], F_GETFL) & O_NONBLOCK, 0);  // the connect's time-out ends with it
  for (const int descriptor : {clients[0], clients[1], clients[2], listener}) close(descriptor);
}

}  // namespace
}  // namespace quorlin
