// The tunnel through real proxy servers from Debian's packages, each started on a free loopback
// port: microsocks (SOCKS5 with a password), ssh -D (SOCKS4a and SOCKS5) and tinyproxy (HTTP
// CONNECT, open and with Basic authentication). Each row opens a tunnel to a loopback echo
// target and sends a line through it, or expects -1 with no descriptor of ours left open.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdlib>
#include <memory>
#include <string>

#include "quorlin/net/connection.hpp"
#include "quorlin/net/proxy.hpp"
#include "tests/support/peers.hpp"

namespace quorlin {
namespace {

using testing::ChildProcess;

struct Row {
  unsigned type;
  const char* user;
  const char* password;
  bool to_closed_port;
  bool opens;
};

class ProxyTest : public ::testing::Test {
 protected:
  // Starts the server by its full path (a normal user's PATH has no /usr/sbin).
  void start(std::vector<std::string> argv, int port, const char* package) {
    ASSERT_EQ(access(argv[0].c_str(), X_OK), 0) << argv[0] << ": install " << package;
    servers_.push_back(std::make_unique<ChildProcess>(argv, dir_.file("server.log")));
    ASSERT_EQ(servers_.back()->wait_until_listening(port), "");
  }

  void check(int port, const std::vector<Row>& rows) {
    if (HasFatalFailure()) return;  // a server did not start: start() said why
    for (const Row& row : rows) {
      const auto settings = testing::loopback_proxy(row.type, port, row.user, row.password);
      const int descriptors = testing::open_descriptor_count();
      const int served = target_.served();
      const int tunnel = proxy_connect(*settings, 0, "127.0.0.1",
                                       row.to_closed_port ? closed_port_ : target_.port());
      SCOPED_TRACE(::testing::Message() << "type " << row.type << " user " << !!row.user
                                        << " password " << (row.password ? row.password : "-"));
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
      EXPECT_TRUE(target_.wait_served_more_than(served));
    }
  }

  testing::TempDir dir_;
  testing::ScriptedServer target_{testing::echo_handler()};
  int closed_port_ = testing::free_port();
  int port_ = testing::free_port();
  std::vector<std::unique_ptr<ChildProcess>> servers_;  // stopped in reverse order
  ~ProxyTest() override {
    while (!servers_.empty()) servers_.pop_back();
  }
};

TEST_F(ProxyTest, Socks5WithPasswordThroughMicrosocks) {
  start({"/usr/bin/microsocks", "-i", "127.0.0.1", "-p", std::to_string(port_), "-u", "alice", "-P",
         "s3cret"},
        port_, "microsocks");
  check(port_, {{2u, "alice", "s3cret", false, true},
                {2u, "alice", "wrong", false, false},    // reply 01 02
                {2u, nullptr, nullptr, false, false}});  // no acceptable method: 05 ff
}

TEST_F(ProxyTest, Socks4aAndSocks5ThroughSshDynamicForwarding) {
  const std::string& d = dir_.path();
  const int ssh_port = testing::free_port();
  ASSERT_EQ(std::system(("ssh-keygen -q -t ed25519 -N '' -f " + d + "/hostkey && ssh-keygen -q " +
                         "-t ed25519 -N '' -f " + d + "/clientkey && cp " + d + "/clientkey.pub " +
                         d + "/authorized_keys && (mkdir -p /run/sshd 2>/dev/null; true)")
                            .c_str()),
            0);
  dir_.write("sshd_config", "ListenAddress 127.0.0.1\nPort " + std::to_string(ssh_port) +
                                "\nHostKey " + d + "/hostkey\nPidFile " + d + "/sshd.pid\n" +
                                "AuthorizedKeysFile " + d + "/authorized_keys\n" +
                                "PasswordAuthentication no\nKbdInteractiveAuthentication no\n"
                                "UsePAM yes\nStrictModes no\nAllowTcpForwarding yes\n"
                                "PermitTTY no\nX11Forwarding no\n");
  start({"/usr/sbin/sshd", "-D", "-e", "-f", d + "/sshd_config"}, ssh_port, "openssh-server");
  dir_.write("known_hosts", "[127.0.0.1]:" + std::to_string(ssh_port) + " ");
  ASSERT_EQ(std::system(("cat " + d + "/hostkey.pub >> " + d + "/known_hosts").c_str()), 0);
  const char* user = std::getenv("USER");
  start({"/usr/bin/ssh", "-N", "-D", "127.0.0.1:" + std::to_string(port_), "-p",
         std::to_string(ssh_port), "-i", d + "/clientkey", "-o", "BatchMode=yes", "-o",
         "ExitOnForwardFailure=yes", "-o", "IdentitiesOnly=yes", "-o",
         "UserKnownHostsFile=" + d + "/known_hosts",
         std::string(user ? user : "root") + "@127.0.0.1"},
        port_, "openssh-client");
  check(port_, {{1u, "anyone", nullptr, false, true},
                {1u, "anyone", nullptr, true, false},  // ssh closes without a reply
                {1u, nullptr, nullptr, false, false},  // SOCKS4 needs a user id
                {2u, nullptr, nullptr, false, true}});
}

TEST_F(ProxyTest, HttpConnectThroughTinyproxyOpenAndWithBasicAuth) {
  const int auth_port = testing::free_port();
  for (const int port : {port_, auth_port}) {
    std::string config = "Port " + std::to_string(port) +
                         "\nListen 127.0.0.1\nTimeout 30\nMaxClients 50\nAllow 127.0.0.1\n"
                         "DisableViaHeader Yes\nConnectPort " +
                         std::to_string(target_.port()) + "\nConnectPort " +
                         std::to_string(closed_port_) + "\n";
    if (port == auth_port) config += "BasicAuth alice s3cret\n";
    const std::string file = dir_.file(std::to_string(port) + ".conf");
    dir_.write(std::to_string(port) + ".conf", config);
    start({"/usr/bin/tinyproxy", "-d", "-c", file}, port, "tinyproxy");
  }
  check(port_, {{3u, nullptr, nullptr, false, true},
                {4u, nullptr, nullptr, false, true},
                {4u, nullptr, nullptr, true, false}});  // 500
  check(auth_port, {{3u, "alice", "s3cret", false, true},
                    {3u, "alice", "wrong", false, false},    // 401
                    {3u, nullptr, nullptr, false, false}});  // 407
}

}  // namespace
}  // namespace quorlin
