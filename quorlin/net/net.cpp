// Process-wide transport state. The host cache owns its texts beside its table, because the
// hash table stores one-word values it never frees.
#include "quorlin/net/net.hpp"

#include <arpa/inet.h>
#include <netdb.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <vector>

#include "quorlin/base/hash_table.hpp"
#include "quorlin/base/log.hpp"

namespace quorlin {
namespace {

struct NetState {
  int log_level = NET_LOG_LEVEL_DEFAULT;
  bool proxy_enabled = false;
  std::optional<std::string> preferred_address;
  std::mutex resolver_lock;  // always usable, so address_to_text works before net_init
  std::unique_ptr<ProxySettings> proxy_settings;
  struct HostCache {
    std::unique_ptr<HashTable> table = hash_table_create(5);
    std::vector<std::unique_ptr<std::string>> texts;
    std::mutex texts_lock;  // two threads may resolve and store the same new name at once
  };
  std::unique_ptr<HostCache> host_cache;
};

NetState& state() {
  static NetState net_state;
  return net_state;
}

void apply_debug_setting() {
  if (ProxySettings* settings = state().proxy_settings.get()) {
    proxy_settings_set_int(*settings, "proxy_debug", state().log_level > 2 ? 0 : 1);
  }
}

void log_at(int threshold, const char* format, va_list arguments) {
  if (state().log_level <= threshold) log_vprintf(format, arguments);
}

}  // namespace

int net_log_level() {
  return state().log_level;
}

bool net_set_option(std::string_view name, int value) {
  if (name != "debug") return false;
  state().log_level = value;
  apply_debug_setting();
  return true;
}

int net_init() {
  NetState& net = state();
  net.proxy_settings = proxy_settings_new();
  apply_debug_setting();
  net.host_cache = std::make_unique<NetState::HostCache>();
  return 0;
}

void net_shutdown() {
  NetState& net = state();
  net.host_cache.reset();
  net.proxy_settings.reset();
}

ProxySettings* net_proxy_settings() {
  return state().proxy_settings.get();
}
bool proxy_enabled() {
  return state().proxy_enabled;
}
void set_proxy_enabled(bool enabled) {
  state().proxy_enabled = enabled;
}

void set_preferred_address(std::optional<std::string_view> address) {
  state().preferred_address = address ? std::optional<std::string>(*address) : std::nullopt;
}

std::optional<std::string> resolve_host(const char* host) {
  NetState& net = state();
  // Before net_init there is no cache: every call resolves.
  if (net.host_cache) {
    if (HashValue cached = hash_table_lookup(*net.host_cache->table, host)) {
      return *reinterpret_cast<const std::string*>(cached);
    }
  }
  const hostent* answer = gethostbyname(host);
  if (answer == nullptr) {
    std::perror("Unable to get host by name\n");
    return std::nullopt;
  }
  if (answer->h_addr_list[0] == nullptr) {
    net_error("No server ip addresses found\n");
    return std::nullopt;
  }
  in_addr first;
  std::memcpy(&first, answer->h_addr_list[0], sizeof first);
  std::string text = address_to_text(first);
  if (net.host_cache) {
    auto stored = std::make_unique<std::string>(text);
    hash_table_insert(*net.host_cache->table, host, reinterpret_cast<HashValue>(stored.get()));
    std::lock_guard hold(net.host_cache->texts_lock);
    net.host_cache->texts.push_back(std::move(stored));
  }
  return text;
}

std::string address_to_text(in_addr address) {
  std::lock_guard hold(state().resolver_lock);
  return inet_ntoa(address);
}

bool is_usable_local_address(std::string_view address) {
  if (address.starts_with("127.") || address == "0.0.0.0" || address.starts_with("169.")) {
    return false;
  }
  const auto& preferred = state().preferred_address;
  return !preferred || address == *preferred;
}

int run_shell_command(const char* command, const char* argument) {
  if (argument == nullptr) return run_shell_command(command);
  std::string line = std::string(command) + " " + argument;
  return std::system(line.c_str());
}

int run_shell_command(const char* command) {
  return std::system(command);
}

void net_trace(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  log_at(NET_TRACE_LEVEL, format, arguments);
  va_end(arguments);
}

void net_error(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  log_at(NET_ERROR_LEVEL, format, arguments);
  va_end(arguments);
}

}  // namespace quorlin
