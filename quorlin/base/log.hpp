/// @file
/// The process-wide log.
///
/// An entry is exactly the text its format produces: no time stamp, no level, no newline added.
/// Until log_init, and whenever the type is console, entries go to standard output unlocked and
/// uncounted. Started with the file type, entries go to the named file, opened with mode "w" so
/// that every opening truncates it; after `log_entry_limit` entries it is opened (and truncated)
/// again, so the file keeps at most the last limit entries. Once the entry count since the last
/// opening reaches `log_entry_flush`, every further entry is flushed at once. Any other type
/// drops entries once started. A file that cannot be opened or written loses the entry silently.
///
/// Locking: one non-recursive mutex serialises the file path (checks, opening, write, count,
/// flush). The settings and the started flag are plain state: set them, and call log_init and
/// log_shutdown, while no other thread logs.
#ifndef QUORLIN_BASE_LOG_HPP
#define QUORLIN_BASE_LOG_HPP

#include <cstdarg>
#include <string_view>
#include "quorlin/base/api.hpp"

namespace quorlin {

inline constexpr int LOG_TYPE_CONSOLE = 0;
inline constexpr int LOG_TYPE_FILE = 1;

/// What log_set_string returns for a key other than "log_file_name": a non-null marker.
inline constexpr char LOG_SETTING_NOT_A_STRING[] = "not a string setting";

/// "log_file_name": frees the old name, stores a copy of `value` (null clears it) and returns
/// the stored copy (null when cleared); the open file is not changed until it is next opened.
/// Any other key changes nothing and returns LOG_SETTING_NOT_A_STRING.
QUORLIN_API const char* log_set_string(std::string_view key, const char* value);

/// "log_type", "log_entry_limit" or "log_entry_flush": stores `value` and returns 0. Any other
/// key changes nothing and returns 1.
QUORLIN_API int log_set_int(std::string_view key, int value);

/// Forgets the stored file name.
QUORLIN_API void log_free_settings();

/// First call (or first after log_shutdown): opens the file when the type is file and a name is
/// set, and marks the log started. Further calls do nothing.
QUORLIN_API void log_init();

/// Opens the file when the type is file and a name is set.
QUORLIN_API void log_open();

/// Closes any open file and opens the named one, truncating it. Returns 0, or -1 when no name
/// is set or the file cannot be opened (the entry count is then unchanged).
QUORLIN_API int log_open_file();

/// Closes the open file, if any.
QUORLIN_API void log_close_file();

/// Closes the file when the type is file.
QUORLIN_API void log_close();

/// When started: closes the file and marks the log not started. The file name is kept.
QUORLIN_API void log_shutdown();

///@{
/// Writes one entry; safe from any thread.
QUORLIN_API void log_printf(const char* format, ...) __attribute__((format(printf, 1, 2)));
QUORLIN_API void log_vprintf(const char* format, va_list arguments)
    __attribute__((format(printf, 1, 0)));
///@}

}  // namespace quorlin

#endif  // QUORLIN_BASE_LOG_HPP
