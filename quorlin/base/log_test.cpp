#include "quorlin/base/log.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <tuple>
#include <vector>

#include <unistd.h>

#include "tests/support/peers.hpp"

namespace quorlin {
namespace {

namespace fs = std::filesystem;

// Each test starts from a stopped log and an empty folder of its own, and leaves the defaults.
class LogTest : public ::testing::Test {
 protected:
  void SetUp() override { fs::create_directories(folder_); }
  void TearDown() override {
    start(0, "", -2, 100);
    log_shutdown();
    fs::remove_all(folder_);
  }
  // A new log of `type`, on `file` unless empty; a limit below -1 leaves the one set before (at
  // first the default) in place.
  static void start(int type, const fs::path& file, int limit, int flush) {
    log_shutdown();
    log_free_settings();
    if (!file.empty()) log_set_string("log_file_name", file.c_str());
    log_set_int("log_type", type);
    if (limit >= -1) log_set_int("log_entry_limit", limit);
    log_set_int("log_entry_flush", flush);
    log_init();
  }

  const fs::path folder_ = fs::temp_directory_path() / ("quorlin-log-" + std::to_string(getpid()));
  const fs::path path_ = folder_ / "entries.log";
};

// What the file holds: with the default limit it is reopened empty at the 1,001st entry; a limit
// of 3 reopens it at the 4th; entries from the flush threshold on reach the disk at once; a second
// log_init keeps the open file. Defined first: the default must not have been changed before.
TEST_F(LogTest, EntryLimitFlushThresholdAndSecondInit) {
  // A log that was never started keeps the file opened for it through log_shutdown.
  log_set_string("log_file_name", path_.c_str());
  log_set_int("log_type", 1);
  const int descriptors = testing::open_descriptor_count();
  ASSERT_EQ(log_open_file(), 0);
  ASSERT_EQ(log_open_file(), 0);  // the file opened again, not twice
  log_shutdown();
  EXPECT_EQ(testing::open_descriptor_count(), descriptors + 1);
  start(1, path_, -2, 0);
  for (int i = 0; i < 1000; ++i) log_printf("%c", 'a');
  EXPECT_EQ(testing::file_text(path_), std::string(1000, 'a'));
  log_printf("b");
  EXPECT_EQ(testing::file_text(path_), "b");
  log_shutdown();
  EXPECT_EQ(testing::open_descriptor_count(), descriptors);  // a started log closes its file
  // The limit, the flush threshold, and what is on disk after each of the entries a, b, c, d.
  const std::tuple<int, int, std::vector<std::string>> rows[] = {{3, 0, {"a", "ab", "abc", "d"}},
                                                                 {0, 2, {"", "ab", "abc", "abcd"}}};
  for (const auto& [limit, flush, on_disk_after_each] : rows) {
    start(1, path_, limit, flush);
    for (std::size_t i = 0; i < on_disk_after_each.size(); ++i) {
      log_printf("%c", 'a' + static_cast<int>(i));
      if (i == 1) log_init();
      EXPECT_EQ(testing::file_text(path_), on_disk_after_each[i]) << limit << " " << i;
    }
    log_shutdown();
  }
  // Keys are exact: others are ignored, and a string key refuses an integer and the reverse.
  EXPECT_EQ(log_set_int("Log_type", 1), 1);
  EXPECT_EQ(log_set_string("log_type", "x"), std::string_view("not a string setting"));
  EXPECT_STREQ(log_set_string("log_file_name", "a.log"), "a.log");
}

// Where an entry goes: to standard output while the log is stopped and in console mode; nowhere
// for a file type without a name, a file in a missing folder, or an unknown type.
TEST_F(LogTest, EntriesGoToStandardOutputOrAreDropped) {
  // The file, the type, whether the log is stopped again, and what standard output shows.
  const std::tuple<fs::path, int, bool, const char*> rows[] = {
      {"", 1, true, "x=5\n"},
      {path_, 0, false, "x=5\n"},
      {"", 1, false, ""},
      {folder_ / "missing" / "x.log", 1, false, ""},
      {path_, 2, false, ""}};
  for (const auto& [file, type, stopped, out] : rows) {
    start(type, file, -2, 100);
    if (stopped) log_shutdown();
    ::testing::internal::CaptureStdout();
    log_printf("x=%d\n", 5);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), out) << type;
    EXPECT_TRUE(fs::is_empty(folder_)) << type;
  }
}

}  // namespace
}  // namespace quorlin
