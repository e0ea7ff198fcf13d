#include "quorlin/client/form.hpp"

#include <gtest/gtest.h>

#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <string>
#include <thread>

#include "tests/support/peers.hpp"

namespace quorlin {
namespace {

// How a reply's line is read and split into fields, and how a request is encoded, is checked end
// to end in the service tests. Here: a received line takes another over by assignment, freeing
// the one it held, and stays itself when assigned to itself.
TEST(Form, AReceivedLineTakenOverFreesTheOneItHeld) {
  int ends[2];
  socketpair(AF_UNIX, SOCK_STREAM, 0, ends);
  int status = 0;
  ReceivedLine line;
  const std::size_t heap_before = testing::heap_in_use();
  for (int i = 0; i < 100; ++i) {
    write(ends[1], "one\n", 4);
    line = receive_line(ends[0], NO_TIMEOUT, status);
  }
  EXPECT_LT(testing::heap_in_use(), heap_before + 10'000);  // each lost line holds over 1 KiB
  ReceivedLine& same = line;
  line = std::move(same);
  EXPECT_EQ(line.text(), "one");
  close(ends[0]);
  close(ends[1]);
}

// A signal that interrupts a timed wait does not end it: the wait goes on for the time that is
// left, and the line that comes after the signal is read.
TEST(Form, ATimedLineWaitsOnThroughASignal) {
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
