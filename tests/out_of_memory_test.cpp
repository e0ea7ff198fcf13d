// The commands in this process, and running out of memory one allocation at a time: each
// operation and command either does what it does with memory to spare or fails as it does on an
// unusable reply. Nothing aborts, no descriptor stays open, nothing is half-printed.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <string>
#include <thread>

#include "quorlin/cli/commands.hpp"
#include "quorlin/client/service.hpp"
#include "tests/support/peers.hpp"
#include "tools/service_simulator/service_simulator.hpp"

namespace {

// Allocations of the calling thread count down to the one that fails; the simulator's threads
// never fail. -1: none fails.
thread_local long allocations_before_failure = -1;
thread_local bool failure_injected = false;

}  // namespace

// Out of line, so that the compiler does not pair malloc and free across a call it can see.
[[gnu::noinline]] void* operator new(std::size_t size) {
  if (allocations_before_failure == 0) {
    allocations_before_failure = -1;
    failure_injected = true;
    throw std::bad_alloc();
  }
  if (allocations_before_failure > 0) --allocations_before_failure;
  if (void* memory = std::malloc(size == 0 ? 1 : size)) return memory;
  throw std::bad_alloc();
}

[[gnu::noinline]] void operator delete(void* memory) noexcept {
  std::free(memory);
}

[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}

namespace quorlin {
namespace {

// The allocation after `count` more fails while this exists; -1 lets all succeed.
class FailingAllocation {
 public:
  explicit FailingAllocation(long count) {
    failure_injected = false;
    allocations_before_failure = count;
  }
  ~FailingAllocation() { allocations_before_failure = -1; }
};

// The descriptors open before the first operation, when no connection is open.
int idle_descriptors = 0;

// Whether the descriptor count comes back to its idle count: the service closes its end a
// little after an operation has returned, and may accept a connection only after its client
// has gone, so the count is compared with the idle one, never with one taken in between.
bool descriptors_back_to_idle() {
  for (int wait = 0; wait < 1000 && testing::open_descriptor_count() != idle_descriptors; ++wait) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return testing::open_descriptor_count() == idle_descriptors;
}

// Runs `run(n)` with no allocation failing (n = -1), then with the first, second, ... failing
// until a run ends before its failing allocation: each result is the first run's or `failure`.
template <typename Run, typename Result>
void fails_cleanly_at_each_allocation(const char* name, Run run, const Result& failure) {
  const Result normal = run(-1);
  for (long n = 0;; ++n) {
    SCOPED_TRACE(std::string(name) + ", allocation " + std::to_string(n));
    const Result result = run(n);
    EXPECT_TRUE(result == normal || result == failure) << result;
    EXPECT_TRUE(descriptors_back_to_idle());
    if (!failure_injected) return;
  }
}

// What `command` writes to standard output and standard error, run with allocation `n` failing.
// The commands write their messages before their outcome word: standard error comes first.
std::string printed_by(void (*command)(), long n) {
  std::fflush(stdout);
  ::testing::internal::CaptureStdout();
  ::testing::internal::CaptureStderr();
  {
    FailingAllocation failing(n);
    command();
  }
  std::fflush(stdout);
  const std::string err = ::testing::internal::GetCapturedStderr();
  return err + ::testing::internal::GetCapturedStdout();
}

TEST(OutOfMemory, EachOperationAndCommandFailsCleanly) {
  simulator::ServiceSimulator service;
  ASSERT_TRUE(service.start()) << "port 7000 is taken";
  idle_descriptors = testing::open_descriptor_count();
  fails_cleanly_at_each_allocation(
      "drop_network",
      [](long n) {
        FailingAllocation failing(n);
        return drop_network(17);
      },
      -601);
  fails_cleanly_at_each_allocation(
      "list", [](long n) { return printed_by([] { cmd_list(0); }, n); },
      std::string("quorlinadmin: Call get_networks failed\n"));
  fails_cleanly_at_each_allocation(
      "drop",
      [&](long n) {
        service.reset();
        return printed_by([] { cmd_drop(); }, n);
      },
      std::string("quorlinadmin:Drop networks fail: call get_networks failed\nfail"));
}

// A missing argument, which the command line never passes to create, is refused with the message
// that invite shares.
TEST(Commands, CreateAndInviteRefuseAMissingArgument) {
  const std::string refused =
      "quorlinadmin:CreateNetwork: argument list is incorrect. Network is not created\nfail";
  EXPECT_EQ(printed_by([] { cmd_create("alice", nullptr); }, -1), refused);
  EXPECT_EQ(printed_by([] { cmd_create(nullptr, "bob"); }, -1), refused);
}

}  // namespace
}  // namespace quorlin
