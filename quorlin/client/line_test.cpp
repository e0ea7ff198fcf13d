#include "quorlin/client/line.hpp"

#include <gtest/gtest.h>

#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <string>
#include <thread>
#include <tuple>

#include "quorlin/client/line_internal.hpp"
#include "tests/support/peers.hpp"

namespace quorlin {
namespace {

// A line that starts small and outgrows the heap moves to a mapping with the bytes it already
// holds, and gives its heap block back: a slow sender of a long line, twenty times over.
TEST(Line, ALineThatOutgrowsTheHeapKeepsItsBytesAndLeaksNothing) {
  int ends[2];
  socketpair(AF_UNIX, SOCK_STREAM, 0, ends);
  const std::string head(1000, 'a');
  const std::string tail(100'000, 'b');
  const std::size_t heap_before = testing::heap_in_use();
  for (int round = 0; round < 20; ++round) {
    std::thread sender([&] {
      testing::write_all(ends[1], head);
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
      testing::write_all(ends[1], tail + "\n");
    });
    int status = 0;
    const ReceivedLine line = receive_line(ends[0], NO_TIMEOUT, status);
    sender.join();
    ASSERT_EQ(line.text(), head + tail);
    EXPECT_EQ(status, 1);
  }
  EXPECT_LT(testing::heap_in_use(), heap_before + 200'000);  // each lost block holds 64 KiB
  close(ends[0]);
  close(ends[1]);
}

// A signal that interrupts a timed wait does not end it: the wait goes on for the time that is
// left, and the line that comes after the signal is read.
TEST(Line, ATimedLineWaitsOnThroughASignal) {
  struct sigaction interrupt {};
  interrupt.sa_handler = [](int) {};  // no SA_RESTART: the wait sees EINTR
  struct sigaction previous {};
  sigaction(SIGUSR1, &interrupt, &previous);
  int ends[2];
  socketpair(AF_UNIX, SOCK_STREAM, 0, ends);
  const pthread_t reader = pthread_self();
  std::thread writer([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    pthread_kill(reader, SIGUSR1);
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    write(ends[1], "late\n", 5);
  });
  int status = 0;
  EXPECT_EQ(read_line(ends[0], 1000, status), "late");
  EXPECT_EQ(status, 1);
  writer.join();
  sigaction(SIGUSR1, &previous, nullptr);
  close(ends[0]);
  close(ends[1]);
}

}  // namespace
}  // namespace quorlin
