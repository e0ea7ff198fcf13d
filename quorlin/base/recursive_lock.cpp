// A thread that finds the lock held marks it awaited and sleeps on the owner word (a futex on
// Linux) until the holder lets go and wakes it. The owner word holds a token of the holding
// thread: the address of a byte of its own thread-local storage, even, so that the low bit can
// say "awaited".
#include "quorlin/base/recursive_lock.hpp"

namespace quorlin {
namespace {

constexpr std::uintptr_t kAwaited = 1;

// A nonzero even value that no other living thread shares. Initial-exec: the address comes from
// the thread pointer, not from a __tls_get_addr call per lock in the shared library.
std::uintptr_t thread_token() {
  alignas(2) [[gnu::tls_model("initial-exec")]] static thread_local const char token = 0;
  return reinterpret_cast<std::uintptr_t>(&token);
}

}  // namespace

void RecursiveLock::lock() {
  const std::uintptr_t self = thread_token();
  std::uintptr_t seen = owner_.load(std::memory_order_relaxed);
  if ((seen & ~kAwaited) == self) {
    ++depth_;
    return;
  }
  // A strong exchange fails only when another thread holds the lock.
  for (seen = 0; !owner_.compare_exchange_strong(seen, self, std::memory_order_acquire,
                                                 std::memory_order_relaxed);
       seen = 0) {
    // Marks the lock as awaited so that its holder wakes the waiters when it lets go.
    if ((seen & kAwaited) != 0 ||
        owner_.compare_exchange_weak(seen, seen | kAwaited, std::memory_order_relaxed)) {
      owner_.wait(seen | kAwaited, std::memory_order_relaxed);
    }
  }
  depth_ = 1;
}

bool RecursiveLock::try_lock() {
  const std::uintptr_t self = thread_token();
  std::uintptr_t seen = 0;
  if (owner_.compare_exchange_strong(seen, self, std::memory_order_acquire,
                                     std::memory_order_relaxed)) {
    depth_ = 1;
    return true;
  }
  if ((seen & ~kAwaited) != self) return false;
  ++depth_;
  return true;
}

void RecursiveLock::unlock() {
  if (--depth_ > 0) return;
  if ((owner_.exchange(0, std::memory_order_release) & kAwaited) != 0) owner_.notify_all();
}

}  // namespace quorlin
