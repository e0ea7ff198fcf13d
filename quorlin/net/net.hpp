/// @file
/// The transport's process-wide state: start and end, the log threshold, name resolution with its
/// cache, the choice of usable local addresses, the proxy switch and settings.
///
/// `net_log_level` exists before net_init and survives net_shutdown (default 5: silent); traces
/// are logged at 0 or less, errors at 4 or less. net_init makes the resolver lock, the
/// process-wide ProxySettings and the host cache; net_shutdown releases them. Both run once,
/// before and after every other use. Only address_to_text locks (the resolver lock); the cache
/// has its own lock, and the settings are written at start and read afterwards.
#ifndef QUORLIN_NET_NET_HPP
#define QUORLIN_NET_NET_HPP

#include <netinet/in.h>
#include "quorlin/base/api.hpp"

#include <optional>
#include <string>
#include <string_view>

#include "quorlin/net/proxy.hpp"

namespace quorlin {

inline constexpr int NET_LOG_LEVEL_DEFAULT = 5;
inline constexpr int NET_TRACE_LEVEL = 0;  ///< traces at this threshold or below
inline constexpr int NET_ERROR_LEVEL = 4;  ///< errors at this threshold or below

/// The log threshold: NET_LOG_LEVEL_DEFAULT (5) until the "debug" option sets it.
QUORLIN_API int net_log_level();

/// Option "debug" sets the log threshold and re-applies "proxy_debug" to the process-wide
/// ProxySettings (0 when the threshold is above 2, else 1). Other names are ignored. Returns
/// whether the option was known.
QUORLIN_API bool net_set_option(std::string_view name, int value);

/// Returns 0.
QUORLIN_API int net_init();
/// Frees what net_init made: the ProxySettings and the resolver cache.
QUORLIN_API void net_shutdown();

///@{
/// The process-wide ProxySettings (null before net_init) and the switch that routes stream
/// connections through them. Change them only while no connection is being opened.
QUORLIN_API ProxySettings* net_proxy_settings();
QUORLIN_API bool proxy_enabled();
QUORLIN_API void set_proxy_enabled(bool enabled);
///@}

/// The only address is_usable_local_address accepts once set; null clears it.
QUORLIN_API void set_preferred_address(std::optional<std::string_view> address);

/// Dotted-quad text for `host`, resolved once per process and then served from the cache as a
/// fresh copy. Null (after a perror report) when resolution fails; nothing is cached then.
/// Needs net_init.
QUORLIN_API std::optional<std::string> resolve_host(const char* host);

/// inet_ntoa's text, copied under the resolver lock.
QUORLIN_API std::string address_to_text(in_addr address);

/// False for "127." and "169." prefixes and for exactly "0.0.0.0"; otherwise true, or, with a
/// preferred address set, true only for that address.
QUORLIN_API bool is_usable_local_address(std::string_view address);

///@{
/// system() of "command argument" (no quoting) or of the command alone; returns its status.
QUORLIN_API int run_shell_command(const char* command, const char* argument);
QUORLIN_API int run_shell_command(const char* command);
///@}

///@{
/// Writes through the log when the threshold allows: traces at 0 or less, errors at 4 or less.
QUORLIN_API void net_trace(const char* format, ...) __attribute__((format(printf, 1, 2)));
QUORLIN_API void net_error(const char* format, ...) __attribute__((format(printf, 1, 2)));
///@}

}  // namespace quorlin

#endif  // QUORLIN_NET_NET_HPP
