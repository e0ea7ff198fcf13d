/// @file
/// RecursiveLock: a recursive mutex in 16 bytes that never allocates.
///
/// Every List and record carries a lock, and most are built by one thread and never contended,
/// so the lock is an owner word and a depth: taking a free lock, or one the thread already holds,
/// and letting it go are one atomic operation each. A thread that finds it held marks it awaited
/// and sleeps on the owner word (a futex on Linux) until the holder lets go and wakes it. It meets
/// the standard Lockable requirements, so std::lock_guard and std::unique_lock work with it, and it
/// is recursive as std::recursive_mutex is.
#ifndef QUORLIN_BASE_RECURSIVE_LOCK_HPP
#define QUORLIN_BASE_RECURSIVE_LOCK_HPP

#include <atomic>
#include <cstdint>

namespace quorlin {

class RecursiveLock {
 public:
  RecursiveLock() = default;
  RecursiveLock(const RecursiveLock&) = delete;
  RecursiveLock& operator=(const RecursiveLock&) = delete;

  void lock() {
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
      /// Marks the lock as awaited so that its holder wakes the waiters when it lets go.
      if ((seen & kAwaited) != 0 ||
          owner_.compare_exchange_weak(seen, seen | kAwaited, std::memory_order_relaxed)) {
        owner_.wait(seen | kAwaited, std::memory_order_relaxed);
      }
    }
    depth_ = 1;
  }

  /// Takes the lock, or one more level of it for its holder, without waiting; false when another
  /// thread holds it.
  bool try_lock() {
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

  /// Only by the thread that holds the lock.
  void unlock() {
    if (--depth_ > 0) return;
    if ((owner_.exchange(0, std::memory_order_release) & kAwaited) != 0) owner_.notify_all();
  }

 private:
  static constexpr std::uintptr_t kAwaited = 1;

  /// A nonzero even value that no other living thread shares. Initial-exec: the address comes
  /// from the thread pointer, not from a __tls_get_addr call per lock in the shared library.
  static std::uintptr_t thread_token() {
    alignas(2) [[gnu::tls_model("initial-exec")]] static thread_local const char token = 0;
    return reinterpret_cast<std::uintptr_t>(&token);
  }

  std::atomic<std::uintptr_t> owner_{0};  ///< the holder's token, with kAwaited when awaited
  unsigned depth_ = 0;                    ///< read and written by the owner only
};

}  // namespace quorlin

#endif  // QUORLIN_BASE_RECURSIVE_LOCK_HPP
