#include "quorlin/net/net.hpp"

#include <gtest/gtest.h>

#include <sys/wait.h>

#include "quorlin/net/proxy.hpp"

namespace quorlin {
namespace {

TEST(UsableLocalAddress, SkipsLoopbackUnassignedAndLinkLocal) {
  const struct {
    const char* address;
    bool usable;
  } cases[] = {{"127.0.0.1", false}, {"0.0.0.0", false}, {"169.254.1.1", false},
               {"10.0.0.1", true},   {"0.0.0.01", true}, {"1.127.0.1", true}};
  for (const auto& c : cases) EXPECT_EQ(is_usable_local_address(c.address), c.usable) << c.address;
  set_preferred_address("10.0.0.2");
  EXPECT_FALSE(is_usable_local_address("10.0.0.1"));
  EXPECT_TRUE(is_usable_local_address("10.0.0.2"));
  EXPECT_FALSE(is_usable_local_address("127.0.0.1"));
  set_preferred_address(std::nullopt);
}

TEST(ResolveHost, ServesCopiesAndReportsUnknownNames) {
  net_init();
  EXPECT_EQ(resolve_host("localhost"), "127.0.0.1");
  EXPECT_EQ(resolve_host("127.0.0.1"), "127.0.0.1");
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(resolve_host("no-such-host.invalid"), std::nullopt);
  EXPECT_TRUE(
      ::testing::internal::GetCapturedStderr().starts_with("Unable to get host by name\n: "));
  net_shutdown();
}

TEST(NetOptions, DebugSetsTheThresholdAndTheProxyDebugFlag) {
  net_init();
  EXPECT_EQ(net_log_level(), 5);
  EXPECT_EQ(net_proxy_settings()->debug, 0);
  EXPECT_TRUE(net_set_option("debug", 2));
  EXPECT_EQ(net_proxy_settings()->debug, 1);
  EXPECT_FALSE(net_set_option("verbose", 0));
  EXPECT_EQ(net_log_level(), 2);
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
}

}  // namespace
}  // namespace quorlin
