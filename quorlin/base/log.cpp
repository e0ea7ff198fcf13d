// The log's state lives in one object; see log.hpp for the rules it keeps.
#include "quorlin/base/log.hpp"

#include <cstdint>
#include <cstdio>
#include <mutex>
#include <string>

namespace quorlin {
namespace {

struct LogState {
  int type = LOG_TYPE_CONSOLE;
  std::string file_name;
  bool has_file_name = false;
  int entry_limit = 1000;
  std::uint32_t flush_threshold = 100;  // compared unsigned, so a negative setting never flushes
  std::FILE* file = nullptr;
  int started = 0;
  std::uint32_t entry_count = 0;
  std::mutex mutex;
};

LogState& state() {
  static LogState instance;
  return instance;
}

bool entry_limit_reached(const LogState& log) {
  return log.entry_limit > 0 && log.entry_count >= static_cast<std::uint32_t>(log.entry_limit);
}

// Writes one entry to the open file, reopening it once after a failed write. Returns whether
// the entry reached the file.
bool write_entry(LogState& log, const char* format, va_list arguments) {
  va_list retry;
  va_copy(retry, arguments);
  bool written = std::vfprintf(log.file, format, arguments) >= 0;
  if (!written && log_open_file() == 0) written = std::vfprintf(log.file, format, retry) >= 0;
  va_end(retry);
  return written;
}

}  // namespace

const char* log_set_string(std::string_view key, const char* value) {
  if (key != "log_file_name") return LOG_SETTING_NOT_A_STRING;
  LogState& log = state();
  log.has_file_name = value != nullptr;
  log.file_name = log.has_file_name ? value : "";
  return log.has_file_name ? log.file_name.c_str() : nullptr;
}

int log_set_int(std::string_view key, int value) {
  LogState& log = state();
  if (key == "log_type") {
    log.type = value;
  } else if (key == "log_entry_limit") {
    log.entry_limit = value;
  } else if (key == "log_entry_flush") {
    log.flush_threshold = static_cast<std::uint32_t>(value);
  } else {
    return 1;
  }
  return 0;
}

void log_free_settings() {
  LogState& log = state();
  log.has_file_name = false;
  log.file_name.clear();
}

void log_init() {
  LogState& log = state();
  if (log.started > 0) return;
  log_open();
  log.started = 1;
}

void log_open() {
  const LogState& log = state();
  if (log.type == LOG_TYPE_FILE && log.has_file_name) log_open_file();
}

int log_open_file() {
  LogState& log = state();
  if (!log.has_file_name) return -1;
  log_close_file();
  log.file = std::fopen(log.file_name.c_str(), "w");
  if (log.file == nullptr) return -1;
  log.entry_count = 0;
  return 0;
}

void log_close_file() {
  LogState& log = state();
  if (log.file == nullptr) return;
  std::fclose(log.file);
  log.file = nullptr;
}

void log_close() {
  if (state().type == LOG_TYPE_FILE) log_close_file();
}

void log_shutdown() {
  LogState& log = state();
  if (log.started <= 0) return;
  log_close();
  log.started = 0;
}

void log_printf(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  log_vprintf(format, arguments);
  va_end(arguments);
}

void log_vprintf(const char* format, va_list arguments) {
  LogState& log = state();
  if (log.started <= 0 || log.type == LOG_TYPE_CONSOLE) {
    std::vprintf(format, arguments);
    return;
  }
  if (log.type != LOG_TYPE_FILE) return;

  std::lock_guard hold(log.mutex);
  if (log.file == nullptr || entry_limit_reached(log)) log_open_file();
  if (log.file == nullptr) return;
  if (!write_entry(log, format, arguments)) return;
  ++log.entry_count;
  if (log.entry_count >= log.flush_threshold) std::fflush(log.file);
}

}  // namespace quorlin
