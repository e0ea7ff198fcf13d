/// @file
/// The proxy tunnel: a TCP connection to a target through a SOCKS4/4a, SOCKS5 or HTTP CONNECT
/// proxy.
///
/// Every failure is -1 with nothing written; a descriptor the tunnel used is closed before -1 is
/// returned. The target host is never resolved here: SOCKS4 sends it in the 4a form, SOCKS5 as a
/// domain name, HTTP in the CONNECT line. Settings are read without a lock and must not change
/// while a connection is being opened.
#ifndef QUORLIN_NET_PROXY_HPP
#define QUORLIN_NET_PROXY_HPP

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include "quorlin/base/api.hpp"

namespace quorlin {

inline constexpr unsigned PROXY_TYPE_NONE = 0;
inline constexpr unsigned PROXY_TYPE_SOCKS4 = 1;
inline constexpr unsigned PROXY_TYPE_SOCKS5 = 2;
inline constexpr unsigned PROXY_TYPE_HTTP = 3;
inline constexpr unsigned PROXY_TYPE_HTTP_ALT = 4;

struct ProxySettings {
  unsigned type = PROXY_TYPE_NONE;
  std::optional<std::string> host;
  std::optional<std::string> user;
  std::optional<std::string> password;
  int port = 0;  ///< the low 16 bits are used
  int debug = 0;
};

/// Settings of type PROXY_TYPE_NONE without host, user or password, port 0, debug off.
QUORLIN_API std::unique_ptr<ProxySettings> proxy_settings_new();

/// The smaller proxy record: the settings without the debug flag, as a value that owns its
/// texts (std::nullopt for an absent one); copying it copies them.
struct ProxyInfo {
  unsigned type = PROXY_TYPE_NONE;
  std::optional<std::string> host;
  int port = 0;
  std::optional<std::string> user;
  std::optional<std::string> password;

  bool operator==(const ProxyInfo&) const = default;  ///< field by field
};

/// Fills `info` with the type and port and copies of the three texts; a null text is absent.
QUORLIN_API void proxy_info_fill(ProxyInfo& info, unsigned type, const char* host, int port,
                                 const char* user, const char* password);
/// Makes `target` a deep copy of `source`.
QUORLIN_API void proxy_info_copy(ProxyInfo& target, const ProxyInfo& source);
/// Frees the three texts; the type and port stay.
QUORLIN_API void proxy_info_clear(ProxyInfo& info);
/// The settings' proxy as the smaller record.
QUORLIN_API ProxyInfo proxy_settings_info(const ProxySettings& settings);

/// "proxy_type" (above 4, compared unsigned, stores 0), "proxy_port", "proxy_debug" (stored as
/// value != 0): returns 1. Any other key changes nothing and returns 0.
QUORLIN_API int proxy_settings_set_int(ProxySettings& settings, std::string_view key, int value);

/// "proxy_host", "proxy_user", "proxy_password": replaces the text with a copy; returns 1.
/// Any other key changes nothing and returns 0.
QUORLIN_API int proxy_settings_set_text(ProxySettings& settings, std::string_view key,
                                        std::string_view text);

///@{
/// Connects to the proxy (on `existing` when it is not 0, else on a new socket bound to
/// `source_port` when that is not 0) and negotiates a tunnel to host:port. Returns the
/// connected descriptor, or -1 with the descriptor closed.
QUORLIN_API int proxy_connect(const ProxySettings& settings, int existing, int source_port,
                              const char* host, int port);
QUORLIN_API int proxy_connect(const ProxySettings& settings, int source_port, const char* host,
                              int port);
///@}

///@{
/// Send or receive exactly `size` bytes. Return size, or -1 (a send error; a receive error or
/// the peer closing). Both abort the process when `buffer` is null or `size` is negative.
QUORLIN_API long atomic_out(int descriptor, const void* buffer, long size);
QUORLIN_API long atomic_in(int descriptor, void* buffer, long size);
///@}

}  // namespace quorlin

#endif  // QUORLIN_NET_PROXY_HPP
