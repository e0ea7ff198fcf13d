// The tunnel through real proxy servers from Debian's packages, each started by its full path on
// a free loopback port: microsocks (SOCKS5 with a password) and tinyproxy (HTTP CONNECT, open and
// with Basic authentication). Each row opens a tunnel to a loopback echo target and sends a line
// through it, or expects -1 with no descriptor of ours left open.
#include <gtest/gtest.h>

#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

#include "quorlin/net/connection.hpp"
#include "quorlin/net/proxy.hpp"
#include "tests/support/peers.hpp"

namespace quorlin {
namespace {

TEST(ProxyTest, TunnelsThroughMicrosocksAndTinyproxy) {
  testing::TempDir dir;
  testing::ScriptedServer target(testing::echo_handler());
  const int closed = testing::free_port(), socks = testing::free_port();
  const int http = testing::free_port(), http_auth = testing::free_port();
  std::vector<std::unique_ptr<testing::ChildProcess>> servers;
  auto start = [&](const std::vector<std::string>& argv, int port) {
    ASSERT_EQ(access(argv[0].c_str(), X_OK), 0) << "install the Debian package of " << argv[0];
    servers.push_back(std::make_unique<testing::ChildProcess>(argv, dir.file("server.log")));
    ASSERT_EQ(servers.back()->wait_until_listening(port), "");
  };
  start({"/usr/bin/microsocks", "-i", "127.0.0.1", "-p", std::to_string(socks), "-u", "alice", "-P",
         "s3cret"},
        socks);
  for (const int port : {http, http_auth}) {
    const std::string file = std::to_string(port) + ".conf";
    dir.write(file, "Port " + std::to_string(port) +
                        "\nListen 127.0.0.1\nAllow 127.0.0.1\nDisableViaHeader Yes\nConnectPort " +
                        std::to_string(target.port()) + "\nConnectPort " + std::to_string(closed) +
                        (port == http_auth ? "\nBasicAuth alice s3cret\n" : "\n"));
    start({"/usr/bin/tinyproxy", "-d", "-c", dir.file(file)}, port);
  }
  if (HasFatalFailure()) return;  // a server did not start: start() said why
  const struct {
    int proxy_port;
    unsigned type;
    const char* user;
    const char* password;
    bool to_closed_port;
    bool opens;
  } rows[] = {
      {socks, 2u, "alice", "s3cret", false, true},
      {socks, 2u, "alice", "wrong", false, false},
      {socks, 2u, nullptr, nullptr, false, false},  // no acceptable method: 05 ff
      {http, 3u, nullptr, nullptr, false, true},
      {http, 4u, nullptr, nullptr, false, true},
      {http, 4u, nullptr, nullptr, true, false},  // 500
      {http_auth, 3u, "alice", "s3cret", false, true},
      {http_auth, 3u, "alice", "wrong", false, false},  // 401
      {http_auth, 3u, nullptr, nullptr, false, false},  // 407
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(::testing::Message() << "port " << row.proxy_port << " type " << row.type
                                      << " password " << (row.password ? row.password : "-"));
    const auto settings = testing::loopback_proxy(row.type, row.proxy_port, row.user, row.password);
    const int descriptors = testing::open_descriptor_count(), served = target.served();
    const int tunnel =
        proxy_connect(*settings, 0, "127.0.0.1", row.to_closed_port ? closed : target.port());
    if (!row.opens) {
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
}

}  // namespace
}  // namespace quorlin
