// The tunnel through real proxy servers from Debian's packages, each started on a free loopback
// port, with real bytes sent to a loopback echo target and back.
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
using testing::ScriptedServer;
using testing::TempDir;

constexpr char kUser[] = "alice";
constexpr char kPassword[] = "s3cret";

bool have_program(const std::string& path) {
  return access(path.c_str(), X_OK) == 0;
}

#define REQUIRE_PROGRAM(path, package) \
  ASSERT_TRUE(have_program(path)) << path << " is missing: install the Debian package " package

std::unique_ptr<ProxySettings> settings_for(unsigned type, int port, const char* user = nullptr,
                                            const char* password = nullptr) {
  auto settings = proxy_settings_new();
  proxy_settings_set_int(*settings, "proxy_type", static_cast<int>(type));
  proxy_settings_set_text(*settings, "proxy_host", "127.0.0.1");
  proxy_settings_set_int(*settings, "proxy_port", port);
  if (user != nullptr) proxy_settings_set_text(*settings, "proxy_user", user);
  if (password != nullptr) proxy_settings_set_text(*settings, "proxy_password", password);
  return settings;
}

// Opens the tunnel, sends a line through it to the echo target and reads it back.
void expect_tunnel(const ProxySettings& settings, const ScriptedServer& target) {
  int served = target.served();
  int descriptor = proxy_connect(settings, 0, "127.0.0.1", target.port());
  ASSERT_GT(descriptor, 0);
  const std::string line = "through the tunnel\n";
  EXPECT_EQ(send_all(descriptor, line.data(), line.size()), long(line.size()));
  std::string echoed(line.size(), '\0');
  int status;
  EXPECT_EQ(recv_exact(descriptor, echoed.data(), echoed.size(), 5000, status), long(line.size()));
  EXPECT_EQ(echoed, line);
  connection_close(descriptor);
  // The target's end closes in its own thread; wait, so descriptor counts that follow are stable.
  EXPECT_TRUE(target.wait_served_more_than(served));
}

// A failed tunnel returns -1 and leaves no descriptor of ours open.
void expect_failure(const ProxySettings& settings, int target_port) {
  int before = testing::open_descriptor_count();
  EXPECT_EQ(proxy_connect(settings, 0, "127.0.0.1", target_port), -1);
  EXPECT_EQ(testing::open_descriptor_count(), before);
}

class ProxyTest : public ::testing::Test {
 protected:
  // "" once the server listens on `port`, else why it does not; a test stops there, so that one
  // missing server does not show as a cascade of failed tunnels.
  std::string start(const std::vector<std::string>& argv, int port) {
    server_ = std::make_unique<ChildProcess>(argv, dir_.file("server.log"));
    return server_->wait_until_listening(port);
  }
  TempDir dir_;
  ScriptedServer target_{testing::echo_handler()};
  int closed_port_ = testing::free_port();
  std::unique_ptr<ChildProcess> server_;
};

TEST_F(ProxyTest, Socks5WithPasswordThroughMicrosocks) {
  REQUIRE_PROGRAM("/usr/bin/microsocks", "microsocks");
  int port = testing::free_port();
  ASSERT_EQ(start({"/usr/bin/microsocks", "-i", "127.0.0.1", "-p", std::to_string(port), "-u",
                   kUser, "-P", kPassword},
                  port),
            "");
  expect_tunnel(*settings_for(2u, port, kUser, kPassword), target_);
  expect_failure(*settings_for(2u, port, kUser, "wrong"), target_.port());
  expect_failure(*settings_for(2u, port), target_.port());  // method 255
}

TEST_F(ProxyTest, Socks4AndSocks5ThroughDante) {
  REQUIRE_PROGRAM("/usr/sbin/danted", "dante-server");
  int port = testing::free_port();
  dir_.write("dante.conf", "logoutput: stderr\ninternal: 127.0.0.1 port = " + std::to_string(port) +
                               "\nexternal: 127.0.0.1\nclientmethod: none\nsocksmethod: none\n"
                               "client pass {\n from: 127.0.0.0/8 to: 0.0.0.0/0\n log: error\n}\n"
                               "socks pass {\n from: 127.0.0.0/8 to: 0.0.0.0/0\n command: connect\n"
                               " protocol: tcp\n log: error\n}\n");
  ASSERT_EQ(
      start({"/usr/sbin/danted", "-f", dir_.file("dante.conf"), "-p", dir_.file("danted.pid")},
            port),
      "");
  expect_tunnel(*settings_for(2u, port), target_);
  expect_failure(*settings_for(2u, port), closed_port_);
  // dante reads the 4a marker 0.0.0.1 as an address and refuses it (status 91).
  expect_failure(*settings_for(1u, port, "anyone"), target_.port());
  expect_failure(*settings_for(1u, port), target_.port());  // no user id
}

TEST_F(ProxyTest, Socks4aThroughSshDynamicForwarding) {
  REQUIRE_PROGRAM("/usr/sbin/sshd", "openssh-server");
  REQUIRE_PROGRAM("/usr/bin/ssh", "openssh-client");
  const std::string& d = dir_.path();
  int ssh_port = testing::free_port();
  int port = testing::free_port();
  ASSERT_EQ(std::system(("ssh-keygen -q -t ed25519 -N '' -f " + d +
                         "/hostkey && ssh-keygen -q -t "
                         "ed25519 -N '' -f " +
                         d + "/clientkey && cp " + d + "/clientkey.pub " + d +
                         "/authorized_keys && mkdir -p /run/sshd 2>/dev/null; true")
                            .c_str()),
            0);
  dir_.write("sshd_config", "ListenAddress 127.0.0.1\nPort " + std::to_string(ssh_port) +
                                "\nHostKey " + d + "/hostkey\nPidFile " + d +
                                "/sshd.pid\n"
                                "AuthorizedKeysFile " +
                                d +
                                "/authorized_keys\n"
                                "PasswordAuthentication no\nKbdInteractiveAuthentication no\n"
                                "UsePAM yes\nStrictModes no\nAllowTcpForwarding yes\n"
                                "PermitTTY no\nX11Forwarding no\n");
  ChildProcess sshd({"/usr/sbin/sshd", "-D", "-e", "-f", d + "/sshd_config"}, d + "/sshd.log");
  ASSERT_EQ(sshd.wait_until_listening(ssh_port), "");
  ASSERT_EQ(std::system(("echo \"[127.0.0.1]:" + std::to_string(ssh_port) + " $(cat " + d +
                         "/hostkey.pub)\" > " + d + "/known_hosts")
                            .c_str()),
            0);
  const char* user = std::getenv("USER");
  std::string login = std::string(user ? user : "root") + "@127.0.0.1";
  ASSERT_EQ(start({"/usr/bin/ssh", "-N", "-D", "127.0.0.1:" + std::to_string(port), "-p",
                   std::to_string(ssh_port), "-i", d + "/clientkey", "-o", "BatchMode=yes", "-o",
                   "ExitOnForwardFailure=yes", "-o", "IdentitiesOnly=yes", "-o",
                   "UserKnownHostsFile=" + d + "/known_hosts", login},
                  port),
            "");
  expect_tunnel(*settings_for(1u, port, "anyone"), target_);
  expect_failure(*settings_for(1u, port, "anyone"), closed_port_);
  expect_failure(*settings_for(1u, port), target_.port());
  server_->stop();  // the client before sshd
}

std::string tinyproxy_config(int port, int target_port, int closed_port, bool with_auth) {
  std::string config = "Port " + std::to_string(port) +
                       "\nListen 127.0.0.1\nTimeout 30\nMaxClients 50\nAllow 127.0.0.1\n"
                       "LogLevel Info\nDisableViaHeader Yes\nConnectPort " +
                       std::to_string(target_port) + "\nConnectPort " +
                       std::to_string(closed_port) + "\n";
  if (with_auth) config += std::string("BasicAuth ") + kUser + " " + kPassword + "\n";
  return config;
}

TEST_F(ProxyTest, HttpConnectThroughTinyproxy) {
  REQUIRE_PROGRAM("/usr/bin/tinyproxy", "tinyproxy");
  int port = testing::free_port();
  dir_.write("open.conf", tinyproxy_config(port, target_.port(), closed_port_, false));
  ASSERT_EQ(start({"/usr/bin/tinyproxy", "-d", "-c", dir_.file("open.conf")}, port), "");
  expect_tunnel(*settings_for(3u, port), target_);
  expect_failure(*settings_for(4u, port), closed_port_);  // 500

  int auth_port = testing::free_port();
  dir_.write("auth.conf", tinyproxy_config(auth_port, target_.port(), closed_port_, true));
  ChildProcess authenticating({"/usr/bin/tinyproxy", "-d", "-c", dir_.file("auth.conf")},
                              dir_.file("auth.log"));
  ASSERT_EQ(authenticating.wait_until_listening(auth_port), "");
  expect_tunnel(*settings_for(3u, auth_port, kUser, kPassword), target_);
  expect_failure(*settings_for(3u, auth_port, kUser, "wrong"), target_.port());
  expect_failure(*settings_for(3u, auth_port), target_.port());  // 407 challenge
}

TEST_F(ProxyTest, HttpConnectThroughSquidAnswers407) {
  REQUIRE_PROGRAM("/usr/sbin/squid", "squid");
  REQUIRE_PROGRAM("/usr/lib/squid/basic_ncsa_auth", "squid");
  int port = testing::free_port();
  ASSERT_EQ(std::system(("printf '" + std::string(kUser) + ":%s\\n' \"$(openssl passwd -apr1 " +
                         kPassword + ")\" > " + dir_.file("passwd"))
                            .c_str()),
            0);
  dir_.write("squid.conf",
             "http_port 127.0.0.1:" + std::to_string(port) +
                 "\npid_filename none\ncache_log /dev/null\naccess_log none\ncache deny all\n"
                 "pinger_enable off\nshutdown_lifetime 0 seconds\ndns_nameservers "
                 "127.0.0.1\nudp_outgoing_address 127.0.0.1\n"
                 "udp_incoming_address 127.0.0.1\nauth_param basic program "
                 "/usr/lib/squid/basic_ncsa_auth " +
                 dir_.file("passwd") +
                 "\nacl lo src 127.0.0.1/32\nacl users proxy_auth REQUIRED\nacl target port " +
                 std::to_string(target_.port()) +
                 "\nhttp_access deny !lo\nhttp_access deny !users\nhttp_access allow target\n"
                 "http_access deny all\n");
  ASSERT_EQ(start({"/usr/sbin/squid", "-N", "-d", "1", "-f", dir_.file("squid.conf")}, port), "");
  expect_tunnel(*settings_for(3u, port, kUser, kPassword), target_);
  expect_failure(*settings_for(3u, port, kUser, "wrong"), target_.port());
  expect_failure(*settings_for(3u, port), target_.port());
}

}  // namespace
}  // namespace quorlin
