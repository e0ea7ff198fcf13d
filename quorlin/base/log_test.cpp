#include "quorlin/base/log.hpp"

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <unistd.h>

namespace quorlin {
namespace {

namespace fs = std::filesystem;

std::string read_file(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream content;
  content << in.rdbuf();
  return content.str();
}

// Each test starts from the defaults with a stopped log and a fresh folder of its own.
class LogTest : public testing::Test {
 protected:
  void SetUp() override {
    reset();
    folder_ =
        fs::temp_directory_path() / ("quorlin-log-" + std::to_string(::getpid()) + "-" +
                                     testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::remove_all(folder_);
    fs::create_directories(folder_);
    path_ = folder_ / "entries.log";
  }
  void TearDown() override {
    reset();
    fs::remove_all(folder_);
  }
  static void reset() {
    log_shutdown();
    log_free_settings();
    log_set_int("log_type", 0);
    log_set_int("log_entry_limit", 1000);
    log_set_int("log_entry_flush", 100);
  }
  void start_file_log(int limit, int flush) {
    log_set_string("log_file_name", path_.c_str());
    log_set_int("log_type", 1);
    log_set_int("log_entry_limit", limit);
    log_set_int("log_entry_flush", flush);
    log_init();
  }

  fs::path folder_;
  fs::path path_;
};

TEST_F(LogTest, SettingsAnswerOnlyTheirOwnKeys) {
  EXPECT_EQ(log_set_int("log_level", 5), 1);
  EXPECT_EQ(log_set_int("Log_type", 1), 1);
  EXPECT_EQ(log_set_int("log_entry_limit", 3), 0);
  EXPECT_EQ(log_set_string("log_type", "x"), std::string_view("not a string setting"));
  EXPECT_STREQ(log_set_string("log_file_name", "a.log"), "a.log");
  EXPECT_EQ(log_set_string("log_file_name", nullptr), nullptr);
}

TEST_F(LogTest, PrintsToStandardOutputUntilStartedAndInConsoleMode) {
  start_file_log(1000, 100);
  log_shutdown();
  testing::internal::CaptureStdout();
  log_printf("x=%d\n", 5);
  log_set_int("log_type", 0);
  log_init();
  log_printf("%s|", "console");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "x=5\nconsole|");
  EXPECT_EQ(read_file(path_), "");
}

// What the file holds after each entry: the limit reopens it empty once that many entries are
// written, entries from the flush threshold on reach the disk at once, a second log_init keeps
// the open file.
TEST_F(LogTest, EntryLimitFlushThresholdAndSecondInit) {
  const struct {
    int limit;
    int flush;
    std::vector<std::string> on_disk_after_each;  // entries "a", "b", "c", "d"
  } rows[] = {
      {3, 0, {"a", "ab", "abc", "d"}},
      {0, 2, {"", "ab", "abc", "abcd"}},
  };
  for (const auto& row : rows) {
    start_file_log(row.limit, row.flush);
    for (std::size_t i = 0; i < row.on_disk_after_each.size(); ++i) {
      log_printf("%c", 'a' + static_cast<int>(i));
      if (i == 1) log_init();
      EXPECT_EQ(read_file(path_), row.on_disk_after_each[i]) << row.limit << " " << i;
    }
    log_shutdown();
  }
}

TEST_F(LogTest, EntriesWithoutAUsableFileAreDropped) {
  struct Case {
    const char* name;
    std::optional<fs::path> file;
    int type;
  };
  const std::vector<Case> cases = {
      {"file type without a name", std::nullopt, 1},
      {"file in a missing folder", folder_ / "missing" / "x.log", 1},
      {"unknown type", path_, 2},
  };
  for (const Case& test : cases) {
    SCOPED_TRACE(test.name);
    reset();
    if (test.file) log_set_string("log_file_name", test.file->c_str());
    log_set_int("log_type", test.type);
    log_init();
    testing::internal::CaptureStdout();
    log_printf("lost\n");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_TRUE(fs::is_empty(folder_));
  }
}

TEST_F(LogTest, EightThreadsWriteWholeEntriesToTheFile) {
  constexpr int kThreads = 8;
  constexpr int kEntries = 500;
  start_file_log(0, 0);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([t] {
      for (int i = 0; i < kEntries; ++i) log_printf("thread %d entry %d\n", t, i);
    });
  }
  for (std::thread& thread : threads) thread.join();
  log_shutdown();

  std::istringstream lines(read_file(path_));
  std::vector<int> next_entry(kThreads, 0);
  std::string line;
  int count = 0;
  while (std::getline(lines, line)) {
    int thread = -1, entry = -1;
    ASSERT_EQ(std::sscanf(line.c_str(), "thread %d entry %d", &thread, &entry), 2) << line;
    EXPECT_EQ(entry, next_entry[thread]++);  // each thread's entries in its own order
    ++count;
  }
  EXPECT_EQ(count, kThreads * kEntries);
}

}  // namespace
}  // namespace quorlin
