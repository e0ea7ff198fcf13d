// The tunnel through real proxy servers from Debian's packages, each started by its full path on
// a free loopback port: microsocks (SOCKS5) and tinyproxy (HTTP CONNECT), both with a password.
// Each row opens a tunnel to a loopback echo target and sends a line through it, or expects -1
// with no descriptor of ours left open.
#include <gtest/gtest.h>

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "quorlin/net/connection.hpp"
#include "quorlin/net/net.hpp"
#include "quorlin/net/proxy.hpp"
#include "tests/support/peers.hpp"

namespace quorlin {
namespace {

TEST(ProxyTest, TunnelsThroughMicrosocksAndTinyproxy) {
  testing::TempDir dir;
  testing::ScriptedServer target(testing::echo_handler());
  const int socks = testing::free_port(), http = testing::free_port();
  dir.write("tinyproxy.conf", "Port " + std::to_string(http) +
                                  "\nListen 127.0.0.1\nAllow 127.0.0.1\nDisableViaHeader Yes\n"
                                  "BasicAuth alice s3cret\nConnectPort " +
                                  std::to_string(target.port()) + "\n");
  const std::pair<std::vector<std::string>, int> commands[] = {
      {{"/usr/bin/microsocks", "-i", "127.0.0.1", "-p", std::to_string(socks), "-u", "alice", "-P",
        "s3cret"},
       socks},
      {{"/usr/bin/tinyproxy", "-d", "-c", dir.file("tinyproxy.conf")}, http}};
  std::vector<std::unique_ptr<testing::ChildProcess>> servers;
  for (const auto& [argv, port] : commands) {
    ASSERT_EQ(access(argv[0].c_str(), X_OK), 0) << "install the Debian package of " << argv[0];
    servers.push_back(std::make_unique<testing::ChildProcess>(argv, dir.file("server.log")));
    ASSERT_EQ(servers.back()->wait_until_listening(port), "");
  }
  // The proxy's port and type, the user and password, and whether the tunnel opens: wrong
  // credentials get 401 from tinyproxy, none get 407.
  const std::tuple<int, unsigned, const char*, const char*, bool> rows[] = {
      {socks, 2u, "alice", "s3cret", true}, {socks, 2u, "alice", "wrong", false},
      {http, 3u, "alice", "s3cret", true},  {http, 4u, "alice", "s3cret", true},
      {http, 3u, "alice", "wrong", false},  {http, 3u, nullptr, nullptr, false}};
  for (const auto& [port, type, user, password, opens] : rows) {
    SCOPED_TRACE(::testing::Message() << "port " << port << " type " << type << " password "
                                      << (password ? password : "-"));
    const auto settings = testing::loopback_proxy(type, port, user, password);
    const int descriptors = testing::open_descriptor_count(), served = target.served();
    const int tunnel = proxy_connect(*settings, 0, "127.0.0.1", target.port());
    if (!opens) {
      EXPECT_EQ(tunnel, -1);
      EXPECT_EQ(testing::open_descriptor_count(), descriptors);
      continue;
    }
    ASSERT_GT(tunnel, 0);
    const std::string line = "through the tunnel\n";
    EXPECT_EQ(send_all(tunnel, line.data(), line.size()), long(line.size()));
    EXPECT_EQ(testing::read_bytes(tunnel, line.size()), line);
    connection_close(tunnel);
    EXPECT_TRUE(target.wait_served_more_than(served));
  }

  // With the process-wide proxy switched on, a connection opened anew (the proxy allowed by
  // default) and one made on a socket of the caller's go through it.
  ASSERT_EQ(net_init(), 0);
  *net_proxy_settings() = *testing::loopback_proxy(2, socks, "alice", "s3cret");
  set_proxy_enabled(true);
  const Connection opened = connection_open(0, "127.0.0.1", target.port());
  const Connection by_default = connection_open_ex(0, "127.0.0.1", target.port(), 0, false);
  const int own = socket_open_any(0, false);
  EXPECT_EQ(socket_connect(own, "127.0.0.1", target.port(), false), own);  // the tunnel's result
  set_proxy_enabled(false);
  net_shutdown();
  for (const int tunnel : {opened, by_default, own}) {  // in the order the target serves them
    ASSERT_GT(tunnel, 0);
    sockaddr_in peer{};
    socklen_t size = sizeof peer;
    getpeername(tunnel, reinterpret_cast<sockaddr*>(&peer), &size);
    EXPECT_EQ(ntohs(peer.sin_port), socks);  // the proxy's end, not the target's
    EXPECT_EQ(send_all(tunnel, "via\n", 4), 4);
    EXPECT_EQ(testing::read_bytes(tunnel, 4), "via\n");
    connection_close(tunnel);
  }
}

// Proxy replies that no real server sends: a scripted peer reads each expected request packet,
// records it, and answers with the script's bytes. After a successful negotiation the peer
// sends "X", which must be the next byte the tunnel reads: the negotiation consumed exactly
// its reply. Standard input is closed meanwhile, so the tunnel's socket is descriptor 0, which
// is a descriptor like any other.
using namespace std::string_literals;

struct Step {
  std::string request;  // read exactly this many bytes, expected to be these
  std::string reply;
};

struct ScriptCase {
  const char* name;
  unsigned type;
  const char* user;
  std::vector<Step> steps;
  bool succeeds;
  bool reset = false;  // the peer ends by resetting the connection instead of closing it
  bool holds = false;  // the peer keeps the connection open until the tunnel closes it
};

const std::string kSocks5Request =
    "\x05\x01\x00\x03\x09"
    "127.0.0.1"
    "\x00\x50"s;
const std::string kSocks4aRequest =
    "\x04\x01\x00\x50\x00\x00\x00\x01"
    "id\0"
    "127.0.0.1\0"s;
const std::string kConnect = "CONNECT 127.0.0.1:80 HTTP/1.0\r\n";

const std::string kGreeting = "\x05\x01\x00"s;
const std::string kAuth = "Proxy-Authorization: Basic YWxpY2U6czNjcmV0\r\n\r\n";

// clang-format off
std::vector<ScriptCase> cases() {
  return {
      {"type 0: the connection to the proxy itself", 0u, nullptr, {{"", "X"}}, true},
      {"socks5 IPv4 bound address", 2u, nullptr, {{kGreeting, "\x05\x00"s},
          {kSocks5Request, "\x05\x00\x00\x01\x7f\x00\x00\x01\x12\x34X"s}}, true},
      {"socks5 domain bound address", 2u, nullptr, {{kGreeting, "\x05\x00"s},
          {kSocks5Request, "\x05\x00\x00\x03\x04" "abcd\x12\x34X"s}}, true},
      {"socks5 IPv6 bound address", 2u, nullptr, {{kGreeting, "\x05\x00"s},
          {kSocks5Request, "\x05\x00\x00\x04"s + std::string(18, '\x01') + "X"}}, true},
      {"socks5 unknown bound address type drains nothing", 2u, nullptr,
          {{kGreeting, "\x05\x00"s}, {kSocks5Request, "\x05\x00\x00\x09X"s}}, true},
      {"socks5 user and password", 2u, "alice", {{"\x05\x02\x00\x02"s, "\x05\x02"s},
          {"\x01\x05" "alice\x06" "s3cret"s, "\x01\x00"s},
          {kSocks5Request, "\x05\x00\x00\x01\x7f\x00\x00\x01\x12\x34X"s}}, true},
      {"socks5 wrong password", 2u, "alice", {{"\x05\x02\x00\x02"s, "\x05\x02"s},
          {"\x01\x05" "alice\x06" "s3cret"s, "\x01\x01"s}}, false},
      {"socks5 greeting refused", 2u, nullptr, {{kGreeting, "\x05\xff"s}}, false},
      {"socks5 greeting of another version", 2u, nullptr, {{kGreeting, "\x04\x00"s}}, false},
      {"socks5 method 2 without a user", 2u, nullptr, {{kGreeting, "\x05\x02"s}}, false},
      {"socks5 refused target", 2u, nullptr,
          {{kGreeting, "\x05\x00"s}, {kSocks5Request, "\x05\x05\x00\x01"s}}, false},
      {"socks5 proxy closes mid-reply", 2u, nullptr, {{kGreeting, "\x05"s}}, false},
      {"socks4a granted", 1u, "id", {{kSocks4aRequest, "\x00\x5a\x00\x00\x00\x00\x00\x00X"s}},
          true},
      // Only the reply's second byte is checked: one byte is not enough.
      {"socks4 reply too short", 1u, "id", {{kSocks4aRequest, "\x00"s}}, false},
      {"socks4 rejected", 1u, "id", {{kSocks4aRequest, "\x00\x5b\x00\x00\x00\x00\x00\x00"s}},
          false},
      {"http 200 with several header lines", 3u, nullptr, {{kConnect + "\r\n",
          "HTTP/1.0 200 Connection established\r\nA: b\r\nC: d\r\n\r\nX"}}, true},
      {"http Basic authorisation", 3u, "alice", {{kConnect + kAuth, "HTTP/1.1 200 OK\r\n\r\nX"}},
          true},
      {"http status line without a blank", 3u, nullptr,
          {{kConnect + "\r\n", "HTTP/1.0-200\r\n\r\n"}}, false},
      {"http 407 with challenge headers", 3u, nullptr, {{kConnect + "\r\n",
          "HTTP/1.0 407 Proxy Authentication Required\r\nProxy-Authenticate: Basic "
          "realm=\"q\"\r\nProxy-Authenticate: Digest x\r\n\r\n"}}, false},
      // With a user set, a challenge is not read: the tunnel fails at once, though the proxy
      // holds the connection after the challenge line.
      {"http 401 with a user set", 4u, "alice", {{kConnect + kAuth,
          "HTTP/1.0 401 Unauthorized\r\nWWW-Authenticate: Basic realm=\"q\"\r\n"}}, false,
          false, true},
      // A challenge without its parameters ends the reading: the proxy need not close.
      {"http 401 challenge without a parameter", 4u, nullptr, {{kConnect + "\r\n",
          "HTTP/1.0 401 Unauthorized\r\nWWW-Authenticate: Basic\r\n"}}, false, false, true},
      {"http 407 challenge without a parameter", 3u, nullptr, {{kConnect + "\r\n",
          "HTTP/1.0 407 No\r\nProxy-Authenticate: Basic\r\n"}}, false, false, true},
      {"http 200 and the proxy closes before the blank line", 3u, nullptr,
          {{kConnect + "\r\n", "HTTP/1.0 200 OK\r\nA: b\r\n"}}, false},
      {"http proxy closes before the status line ends", 3u, nullptr,
          {{kConnect + "\r\n", "HTTP/1.0 200"}}, false},
      {"http proxy resets instead of answering", 3u, nullptr, {{kConnect + "\r\n", ""}}, false,
          true},
  };
}
// clang-format on

TEST(ProxyScripted, NegotiationTable) {
  for (const ScriptCase& c : cases()) {
    std::string received;
    testing::ScriptedServer proxy([&](int descriptor) {
      for (const Step& step : c.steps) {
        received += testing::read_bytes(descriptor, step.request.size());
        testing::write_all(descriptor, step.reply);
      }
      // A failing script ends its side, so that replies cut short end at the tunnel too, and
      // records what the tunnel still sends before it closes: nothing.
      const timeval two_seconds{2, 0};  // a tunnel that waits for more gives up the test late
      setsockopt(descriptor, SOL_SOCKET, SO_RCVTIMEO, &two_seconds, sizeof two_seconds);
      if (c.succeeds) {
        testing::read_bytes(descriptor, 1);
      } else if (!c.reset) {
        if (!c.holds) shutdown(descriptor, SHUT_WR);
        received += testing::read_bytes(descriptor, 4096);
      }
      const linger reset_on_close{1, 0};
      if (c.reset)
        setsockopt(descriptor, SOL_SOCKET, SO_LINGER, &reset_on_close, sizeof reset_on_close);
    });
    const auto settings =
        testing::loopback_proxy(c.type, proxy.port(), c.user, c.user ? "s3cret" : nullptr);
    const int before = testing::open_descriptor_count();
    const int saved_stdin = dup(0);
    close(0);
    const auto start = std::chrono::steady_clock::now();
    int descriptor = proxy_connect(*settings, 0, "127.0.0.1", 80);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1)) << c.name;
    std::string expected;
    for (const Step& step : c.steps) expected += step.request;
    if (c.succeeds) {
      EXPECT_EQ(descriptor, 0) << c.name;
      char next = 0;
      EXPECT_EQ(recv(descriptor, &next, 1, 0), 1) << c.name;
      EXPECT_EQ(next, 'X') << c.name;
      connection_close(descriptor);
    } else {
      EXPECT_EQ(descriptor, -1) << c.name;
    }
    // The peer's own end of the connection is a descriptor of this process too: count after
    // it is closed. The copy of standard input stands for the closed original.
    ASSERT_TRUE(proxy.wait_served_more_than(0)) << c.name;
    EXPECT_EQ(testing::open_descriptor_count(), before) << c.name;
    dup2(saved_stdin, 0);
    close(saved_stdin);
    EXPECT_EQ(received, expected) << c.name;
  }

  // A source port other than 0 is the port the tunnel's socket is bound to.
  std::atomic<int> peer_port{0};
  testing::ScriptedServer proxy([&](int descriptor) {
    sockaddr_in peer{};
    socklen_t length = sizeof peer;
    getpeername(descriptor, reinterpret_cast<sockaddr*>(&peer), &length);
    peer_port = ntohs(peer.sin_port);
  });
  const int source_port = testing::free_port();
  const int descriptor =
      proxy_connect(*testing::loopback_proxy(0, proxy.port()), source_port, "127.0.0.1", 80);
  ASSERT_TRUE(proxy.wait_served_more_than(0));
  EXPECT_EQ(peer_port, source_port);
  connection_close(descriptor);
}

}  // namespace
}  // namespace quorlin
